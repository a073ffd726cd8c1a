/*
 * The frame around every daemon. It owns what all of them have, each thing once: event loop, signals, timers,
 * control endpoint, configuration file, traces, status file, what happens when memory is short. It calls the
 * daemon's own functions (daemon.h) in this order:
 *
 *     command line    the options that every daemon has and its own (options.h); the log is open afterwards
 *     Frame::open     event loop, signals, timers
 *     constructor     of the daemon, which makes its parts; nothing is open yet
 *     read_config     of the file --config, all of which is checked; then --debug begins to trace
 *     open            the daemon opens what it needs of the machine
 *     take-over       what read_config collected counts from here on
 *     start           the daemon begins to speak with other processes; whoever supervises it is told so
 *     round           after every event, until SIGTERM, SIGINT or end
 *     close           the daemon takes leave
 *     end             the control port closes; then the daemon's destructor, then the frame's; the log closes
 *
 * A round serves one event, so that none waits behind many of another kind:
 *
 *                +--------------------------------------------------------------------------+
 *                v                                                                          |
 *     wait for an event --> one of: signal            --> Daemon::round  --> set the wake-up
 *     (not at all when              timer that is due     works off what     for the timer
 *     round has more)               control request       that changed,      that is due
 *                                   a descriptor that     sends what waits   next
 *                                   the daemon watches
 *
 * SIGTERM and SIGINT end the rounds; SIGUSR1 writes the status file, or prints the status on standard output
 * when no file was given, a part of it in each of the rounds that follow; SIGHUP reads the configuration file again,
 * of which a wrong one changes nothing; SIGUSR2 calls resynchronise. SIGPIPE is ignored.
 */
#ifndef DAEMONS_COMMON_FRAME_H
#define DAEMONS_COMMON_FRAME_H

#include <cstdlib>
#include <functional>
#include <utility>
#include <vector>

#include "daemons/common/control.h"
#include "daemons/common/daemon.h"
#include "daemons/common/log.h"
#include "daemons/common/options.h"
#include "daemons/common/port_watch.h"
#include "daemons/common/reactor.h"
#include "daemons/common/status_output.h"
#include "daemons/common/supervisor.h"
#include "daemons/common/timer_loop.h"

namespace mcastd
{

class Frame
{
public:
    // options, which are parsed, must outlive the frame.
    explicit Frame(const Options &options);
    ~Frame();
    Frame(const Frame &) = delete;
    Frame &operator=(const Frame &) = delete;

    // Makes loop and timers, and takes over the signals. False on failure, which is logged.
    bool open();

    // Runs the daemon, which was made after open, from read_config to close. The exit code of the process: a
    // failure when a step failed.
    int run(Daemon &daemon);

    // Ends the rounds after the current one; run then returns the code.
    void end(int code);

    // Where the daemon watches descriptors.
    Reactor &reactor()
    {
        return reactor_;
    }

    // For the timers of timer.h.
    MCAST_TMR_S *timers() const
    {
        return timers_.manager();
    }

    // While behind returns true, timers that are due wait a little: somebody has not read yet what the last ones said.
    void brake_timers(std::function<bool()> behind)
    {
        timers_.set_brake(std::move(behind));
    }

    // Where the daemon offers its tables and commands. It opens the port itself, in open or when it becomes
    // active; the frame closes it at the end. The traces are offered already.
    ControlServer &control()
    {
        return control_;
    }

    // Writes the status, as SIGUSR1 does: one that begins from now on.
    void write_status();

private:
    bool serve(Daemon &daemon);
    bool load(Daemon::TakeOver *take_over);
    void reload();
    void take_signal(int fd);
    bool write_more_status();

    const Options &options_;
    Reactor reactor_;
    TimerLoop timers_;
    ControlServer control_;
    StatusOutput status_output_;
    bool status_wanted_ = false; // once more, when the one that is being written is complete
    PortWatch ports_;
    Supervisor supervisor_;
    std::vector<int> signals_;
    Daemon *daemon_ = nullptr;
    int exit_code_ = EXIT_SUCCESS;
};

// The main of a daemon after its command line was parsed: makes a frame, in it a Program(frame, settings...),
// and runs it. The exit code of the process. Throws std::bad_alloc before the event loop runs (program.h).
template <typename Program, typename... Settings>
int run_in_frame(const Options &options, const Settings &...settings)
{
    Frame frame(options);
    if (!frame.open()) {
        return EXIT_FAILURE;
    }
    Program program(frame, settings...);
    return frame.run(program);
}

} // namespace mcastd

#endif
