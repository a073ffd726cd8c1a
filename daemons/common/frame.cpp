#include "daemons/common/frame.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/signalfd.h>
#include <unistd.h>

#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "mcast/event.h"

namespace mcastd
{

Frame::Frame(const Options &options)
    : options_(options), timers_(reactor_), control_(reactor_), status_output_(reactor_)
{
}

Frame::~Frame()
{
    for (const int fd : signals_) {
        reactor_.remove(fd);
        close(fd);
    }
    memory_lend(); // to whatever runs in this process after it
    log_close();
}

bool Frame::open()
{
    if (!memory_open()) {
        log_error("there is too little memory to start");
        return false;
    }
    supervisor_.open();
    if (!reactor_.valid()) {
        log_error("cannot create an event loop: %s", std::strerror(errno));
        return false;
    }
    signal(SIGPIPE, SIG_IGN);
    signals_.reserve(8); // so that none is received that nobody closes
    for (const int number : {SIGTERM, SIGINT, SIGUSR1, SIGUSR2, SIGHUP}) {
        uint32_t fd;
        if (MCAST_SigToEpoll(static_cast<uint32_t>(reactor_.descriptor()), static_cast<uint32_t>(number),
                             Reactor::context(), &fd) != MCAST_OK) {
            log_error("cannot receive signals: %s", std::strerror(errno));
            return false;
        }
        signals_.push_back(static_cast<int>(fd));
        reactor_.attach(signals_.back(), [this, fd](uint32_t) { take_signal(static_cast<int>(fd)); });
    }
    return timers_.open();
}

int Frame::run(Daemon &daemon)
{
    daemon_ = &daemon;
    return serve(daemon) ? exit_code_ : EXIT_FAILURE;
}

bool Frame::serve(Daemon &daemon)
{
    Daemon::TakeOver take_over;
    if (!load(&take_over) || !options_.start_trace() || !daemon.open()) {
        return false;
    }
    if (take_over) {
        take_over();
    }
    if (!daemon.start()) {
        return false;
    }
    reactor_.set_background([this] {
        bool more = daemon_->round();
        more |= write_more_status();
        timers_.set_wake_up();
        return more;
    });
    reactor_.add_each_second([this] {
        if (!ports_.look()) {
            end(EXIT_FAILURE);
        }
        supervisor_.alive();
    });
    supervisor_.ready();
    const bool good = reactor_.run();
    if (!good) {
        log_error("the event loop failed: %s", std::strerror(errno));
    }
    supervisor_.stopping();
    memory_lend(); // nothing else needs it any more
    memory_unit("taking leave", [&daemon] { daemon.close(); });
    control_.close();
    return good;
}

void Frame::end(int code)
{
    exit_code_ = code;
    reactor_.stop();
}

// False when the file is wrong, which is logged; nothing of it counts then.
bool Frame::load(Daemon::TakeOver *take_over)
{
    if (options_.config_file().empty()) {
        return true;
    }
    std::string error;
    const auto read = [&](ConfigTable &table) { *take_over = daemon_->read_config(table); };
    if (!load_config(options_.config_file().c_str(), options_.name(), read, &error)) {
        log_error("%s", error.c_str());
        return false;
    }
    return true;
}

void Frame::reload()
{
    Daemon::TakeOver take_over;
    if (memory_is_short()) {
        // The parser ends the process where it has no memory for what it promises not to throw.
        memory_refuse("the configuration");
    } else if (load(&take_over)) {
        take_over();
        return;
    }
    log_warning("the configuration stays as it was");
}

void Frame::take_signal(int fd)
{
    signalfd_siginfo info;
    if (read(fd, &info, sizeof(info)) != static_cast<ssize_t>(sizeof(info))) {
        return;
    }
    switch (static_cast<int>(info.ssi_signo)) {
    case SIGUSR1:
        write_status();
        break;
    case SIGUSR2:
        log_info("SIGUSR2 received, %s",
                 daemon_->resynchronise() ? "resynchronising" : "nothing to resynchronise");
        break;
    case SIGHUP:
        if (options_.config_file().empty()) {
            log_info("SIGHUP received, nothing to reload");
        } else {
            log_info("SIGHUP received, reloading");
            supervisor_.reloading();
            reload();
            supervisor_.ready();
        }
        break;
    default:
        log_info("%s received, ending", info.ssi_signo == SIGTERM ? "SIGTERM" : "SIGINT");
        end(EXIT_SUCCESS);
        break;
    }
}

void Frame::write_status()
{
    if (!status_output_.busy()) {
        status_output_.write(options_.status_file(), daemon_->status());
    } else if (status_output_.waits_for_reader()) {
        log_warning("the status is not printed: nobody has read the one before to its end");
    } else {
        status_wanted_ = true;
    }
}

// The next part of it. Whether more follows that waits for nobody.
bool Frame::write_more_status()
{
    bool more = false;
    // Apart from the work of the round: where there is no memory for a status the rest goes on.
    memory_unit("the status", [&] {
        more = status_output_.go_on();
        if (status_wanted_ && !status_output_.busy()) {
            status_wanted_ = false;
            write_status();
            more = status_output_.busy() && !status_output_.waits_for_reader();
        }
    });
    return more;
}

} // namespace mcastd
