/*
 * A daemon that lives, dies and lives again: an image, a fiber, an account of memory, descriptors, signals.
 *
 *     start() ──► main() runs on the fiber ──► waits in epoll_wait ──► is resumed when something is ready
 *                    │                                                       │
 *                    └─ returns, _Exit, crash at any call, kill() ◄──────────┘
 *
 * After an end its descriptors are closed and its memory is dropped; a start finds everything as after loading.
 */
#ifndef TESTS_SIMULATION_KERNEL_PROCESS_H
#define TESTS_SIMULATION_KERNEL_PROCESS_H

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/simulation/kernel/fiber.h"
#include "tests/simulation/kernel/file.h"
#include "tests/simulation/kernel/image.h"
#include "tests/simulation/kernel/memory.h"
#include "tests/simulation/kernel/refusal.h"

namespace sim
{

class Kernel;
class Machine;

class Process
{
public:
    // How a life ended.
    enum class End { None, Returned, Exited, Killed, Crashed, Uncaught, Busy, Blocked };

    // Without a daemon's name it has no code of its own: whoever makes calls in its name makes them.
    Process(Kernel &kernel, Machine &machine, std::string name, const std::string &daemon);
    ~Process();
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    // Nothing when it runs already.
    void start(std::vector<std::string> arguments);
    // As by SIGKILL.
    void kill();
    // Ends at the call after that many more.
    void crash_after(uint64_t calls)
    {
        crash_after_ = calls + 1;
    }
    void never_crash()
    {
        crash_after_ = 0;
    }
    void signal(int number)
    {
        pending_signals_ |= uint64_t{1} << number;
    }
    // Whether it has yet to read that signal.
    bool is_told(int number) const
    {
        return (pending_signals_ >> number & 1) != 0;
    }
    // Does not run before then.
    void stop_until(Ns when)
    {
        stopped_until_ = when;
    }

    const std::string &name() const
    {
        return name_;
    }
    Machine &machine() const
    {
        return machine_;
    }
    Kernel &kernel() const
    {
        return kernel_;
    }
    uint64_t number() const
    {
        return number_;
    }
    bool is_running() const
    {
        return running_;
    }
    bool was_started() const
    {
        return lives_ != 0;
    }
    End end() const
    {
        return end_;
    }
    int exit_code() const
    {
        return exit_code_;
    }
    const std::vector<std::string> &arguments() const
    {
        return arguments_;
    }
    // The last lines that it logged.
    const std::deque<std::string> &log() const
    {
        return log_;
    }
    uint64_t lives() const
    {
        return lives_;
    }
    uint64_t wake_ups() const
    {
        return wake_ups_;
    }
    const Image *image() const
    {
        return image_ ? image_.get() : nullptr;
    }
    // The image's base is different in each run: for showing where a call came from.
    Account account;
    Refusals refusals;
    // What it took from and put on an interface in this life.
    struct Traffic {
        uint64_t heard = 0;
        uint64_t sent = 0;
    };
    std::map<uint32_t, Traffic> traffic;
    uint64_t routing_sockets = 0; // opened so far
    size_t descriptor_limit = 1024;

    // For the scheduler.
    bool is_runnable() const;
    Ns due() const;
    void run();

    // For the calls, which are made on the fiber.
    // Counts the call, and ends the process when it was to crash here. Nothing that has to be released may be held.
    void enter();
    // The error with which the call is refused, 0 when it is not.
    int refused(Call call)
    {
        return refusals.next(call);
    }
    std::shared_ptr<File> file(int fd) const;
    // The lowest free descriptor, or a negative error.
    int install(std::shared_ptr<File> file);
    int close(int fd);
    const std::vector<std::shared_ptr<File>> &files() const
    {
        return files_;
    }
    size_t descriptor_count() const;
    size_t null_device_count() const;
    // True when an event is there; waits for one until the time limit.
    int wait(std::shared_ptr<Epoll> epoll, epoll_event *event, int timeout_ms);
    void write_log(std::string_view text);
    // On standard output.
    void print(std::string_view text)
    {
        printed_ += text;
    }
    // The parts of the library that it has begun, switched over and ended in this life, a letter each.
    std::string calls_made;
    // What it has printed since this was asked last.
    std::string take_printed()
    {
        return std::exchange(printed_, {});
    }
    void at_exit(void (*function)(void *), void *argument)
    {
        at_exit_.emplace_back(function, argument);
    }
    uint64_t *pending_signals()
    {
        return &pending_signals_;
    }
    // Leaves the fiber for ever.
    [[noreturn]] void die(End end, int code = 0);

private:
    void main();
    void clean_up();

    Kernel &kernel_;
    Machine &machine_;
    std::string name_;
    uint64_t number_;
    ImageLease image_;
    Fiber fiber_;
    std::vector<std::string> arguments_;
    std::vector<std::shared_ptr<File>> files_;
    std::vector<std::pair<void (*)(void *), void *>> at_exit_;
    std::deque<std::string> log_;
    std::string printed_;

    bool running_ = false;
    bool waiting_ = false;
    std::shared_ptr<Epoll> waits_for_;
    Ns wakes_at_ = NEVER;
    Ns stopped_until_ = 0;
    uint64_t pending_signals_ = 0;
    uint64_t crash_after_ = 0;
    uint64_t calls_in_this_run_ = 0;
    uint64_t lives_ = 0;
    uint64_t wake_ups_ = 0;
    End end_ = End::None;
    int exit_code_ = 0;
};

const char *end_name(Process::End end);

// The process in whose name calls are made.
extern Process *g_process;

} // namespace sim

#endif
