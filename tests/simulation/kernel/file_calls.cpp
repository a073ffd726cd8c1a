/*
 * The calls of a daemon about descriptors, waiting and time. Each stands in for the function behind its prefix.
 */
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include "tests/simulation/kernel/call_frame.h"
#include "tests/simulation/kernel/machine.h"

namespace sim
{

void bad_descriptor(const char *call, int fd)
{
    const OwnMemory own;
    g_process->kernel().broken(Rule::KernelContract, g_process->name() + ": " + call + " of descriptor " +
                                                         std::to_string(fd) + ", which is not open");
}

namespace
{

// Where logs and answers to the operator go.
bool is_output(int fd)
{
    return fd == STDERR_FILENO || fd == STDOUT_FILENO;
}

Ns from_timespec(const timespec &time)
{
    return static_cast<Ns>(time.tv_sec) * SECOND + static_cast<Ns>(time.tv_nsec);
}

} // namespace

} // namespace sim

using namespace sim;

extern "C" {

int __wrap_close(int fd)
{
    Process &process = *g_process;
    process.enter();
    const OwnMemory own;
    const int result = process.close(fd);
    if (result < 0) {
        bad_descriptor("close", fd);
    }
    return static_cast<int>(answer(result));
}

ssize_t __wrap_read(int fd, void *buffer, size_t size)
{
    return on_file("read", std::nullopt, fd, [&](File &file) { return file.read(buffer, size); });
}

ssize_t __wrap_write(int fd, const void *buffer, size_t size)
{
    if (is_output(fd)) {
        const OwnMemory own;
        const std::string_view text(static_cast<const char *>(buffer), size);
        fd == STDERR_FILENO ? g_process->write_log(text) : g_process->print(text);
        return static_cast<ssize_t>(size);
    }
    return on_file("write", std::nullopt, fd, [&](File &file) { return file.write(buffer, size); });
}

// The settings of the kernel and the null device are there to be opened, and texts of the machine.
int __wrap_open(const char *path, int, ...)
{
    const std::string name(path);
    const auto &files = g_process->machine().files;
    const auto text = files.find(name);
    const bool is_device = name == "/dev/null";
    const bool is_setting = name.ends_with("/mc_forwarding") || name.ends_with("/disable_ipv6");
    if (text == files.end() && !is_device && !is_setting) {
        return static_cast<int>(answer(-ENOENT));
    }
    return make_file(Call::Open, [&](Process &) -> std::shared_ptr<File> {
        if (is_device) {
            return std::make_shared<NullDevice>();
        }
        return std::make_shared<TextFile>(text != files.end()                ? text->second
                                          : name.ends_with("/mc_forwarding") ? "1\n"
                                                                             : "0\n");
    });
}

int __wrap_fstat(int fd, struct stat *status)
{
    if (is_output(fd)) {
        *status = {};
        status->st_mode = S_IFCHR;
        return 0;
    }
    return static_cast<int>(on_file("fstat", std::nullopt, fd, [&](File &file) {
        const ssize_t length = file.length();
        *status = {};
        status->st_mode = S_IFREG;
        status->st_size = length;
        return length < 0 ? length : 0;
    }));
}

int __wrap_epoll_create1(int)
{
    return make_file(Call::EpollCreate, [](Process &) { return std::make_shared<Epoll>(); });
}

int __wrap_epoll_create(int)
{
    return __wrap_epoll_create1(0);
}

int sim_epoll_ctl(int epoll, int operation, int fd, epoll_event *event)
{
    const auto call = operation == EPOLL_CTL_ADD ? std::optional(Call::EpollAdd) : std::nullopt;
    return static_cast<int>(on_file<Epoll>("epoll_ctl", call, epoll, [&](Epoll &self) {
        const std::shared_ptr<File> watched = g_process->file(fd);
        if (watched == nullptr) {
            bad_descriptor("epoll_ctl", fd);
            return -EBADF;
        }
        switch (operation) {
        case EPOLL_CTL_ADD:
            return self.add(fd, watched, *event);
        case EPOLL_CTL_MOD:
            return self.modify(fd, *event);
        default:
            return self.remove(fd);
        }
    }));
}

int __wrap_epoll_wait(int epoll, epoll_event *event, int, int timeout_ms)
{
    Process &process = *g_process;
    process.enter();
    auto file = std::dynamic_pointer_cast<Epoll>(process.file(epoll));
    if (file == nullptr) {
        bad_descriptor("epoll_wait", epoll);
        return static_cast<int>(answer(-EBADF));
    }
    return process.wait(std::move(file), event, timeout_ms);
}

// Daemons ask what is there and never wait in it.
int __wrap_poll(pollfd *watched, nfds_t count, int timeout_ms)
{
    Process &process = *g_process;
    process.enter();
    const OwnMemory own;
    int found = 0;
    for (pollfd *each = watched; each != watched + count; ++each) {
        const std::shared_ptr<File> file = process.file(each->fd);
        if (file == nullptr && !is_output(each->fd)) {
            bad_descriptor("poll", each->fd);
            return static_cast<int>(answer(-EBADF));
        }
        const uint32_t wanted = static_cast<uint32_t>(each->events) | EPOLLERR | EPOLLHUP;
        each->revents = static_cast<short>((file != nullptr ? file->ready() : EPOLLOUT) & wanted);
        found += each->revents != 0;
    }
    if (found == 0 && timeout_ms != 0) {
        process.die(Process::End::Blocked);
    }
    return found;
}

int __wrap_timerfd_create(int, int)
{
    return make_file(Call::TimerCreate,
                     [](Process &process) { return std::make_shared<Timer>(process.kernel().clock); });
}

int __wrap_timerfd_settime(int fd, int flags, const itimerspec *value, itimerspec *)
{
    return static_cast<int>(on_file<Timer>("timerfd_settime", std::nullopt, fd, [&](Timer &timer) {
        const Ns time = from_timespec(value->it_value);
        const Ns now = g_process->kernel().clock.now();
        timer.set(time == 0 ? NEVER : (flags & TFD_TIMER_ABSTIME) != 0 ? time : now + time);
        return 0;
    }));
}

int __wrap_eventfd(unsigned count, int)
{
    return make_file(Call::EventCreate, [count](Process &) { return std::make_shared<EventCounter>(count); });
}

int __wrap_clock_gettime(clockid_t, timespec *time)
{
    const Ns now = g_process->kernel().clock.now();
    time->tv_sec = static_cast<time_t>(now / SECOND);
    time->tv_nsec = static_cast<long>(now % SECOND);
    return 0;
}

// The one clock of the C++ library that daemons read: std::chrono::steady_clock::now(), whose result is a count of
// nanoseconds in a register.
int64_t __wrap__ZNSt6chrono3_V212steady_clock3nowEv()
{
    return static_cast<int64_t>(g_process->kernel().clock.now());
}

} // extern "C"
