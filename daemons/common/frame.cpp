#include "daemons/common/frame.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "daemons/common/log.h"
#include "daemons/common/options.h"
#include "mcast/event.h"

namespace mcastd
{

Frame::Frame(const Options &options) : status_file_(options.status_file()), standard_output_(STDOUT_FILENO)
{
}

Frame::~Frame()
{
    for (const int fd : signals_) {
        reactor_.remove(fd);
        close(fd);
    }
}

bool Frame::open()
{
    if (!reactor_.valid()) {
        log_error("cannot create an event loop: %s", std::strerror(errno));
        return false;
    }
    signal(SIGPIPE, SIG_IGN);
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
    return true;
}

void Frame::on_status(std::function<std::string()> text)
{
    status_ = std::move(text);
}

void Frame::on_reload(std::function<void()> reload)
{
    reload_ = std::move(reload);
}

void Frame::on_resynchronise(std::function<void()> resynchronise)
{
    resynchronise_ = std::move(resynchronise);
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
        log_info("SIGUSR2 received%s", resynchronise_ ? ", resynchronising" : ", nothing to resynchronise");
        if (resynchronise_) {
            resynchronise_();
        }
        break;
    case SIGHUP:
        log_info("SIGHUP received%s", reload_ ? ", reloading" : ", nothing to reload");
        if (reload_) {
            reload_();
        }
        break;
    default:
        log_info("%s received, ending", info.ssi_signo == SIGTERM ? "SIGTERM" : "SIGINT");
        reactor_.stop();
        break;
    }
}

void Frame::write_status()
{
    std::string text = status_ ? status_() : std::string("no status\n");
    if (status_file_.empty()) {
        print_status(std::move(text));
    } else if (!write_file_atomically(status_file_, text)) {
        log_error("cannot write the status file %s: %s", status_file_.c_str(), std::strerror(errno));
    }
}

void Frame::print_status(std::string text)
{
    if (!printing_.empty()) {
        log_warning("the status is not printed: nobody has read the one before to its end");
        return;
    }
    printing_ = std::move(text);
    go_on_printing();
}

void Frame::go_on_printing()
{
    size_t done = 0;
    bool room = true;
    while (room && done < printing_.size()) {
        const ssize_t written = standard_output_.write_some(printing_.data() + done, printing_.size() - done);
        room = written > 0 || errno == EINTR;
        done += written > 0 ? static_cast<size_t>(written) : 0;
    }
    printing_.erase(0, done);
    const int fd = standard_output_.descriptor();
    if (!room && errno != EAGAIN) {
        printing_.clear(); // nobody will read it
    } else if (!room && !waits_for_room_) {
        waits_for_room_ = reactor_.add(fd, EPOLLOUT, [this](uint32_t) { go_on_printing(); });
        printing_.erase(waits_for_room_ ? printing_.size() : 0);
    }
    if (waits_for_room_ && printing_.empty()) {
        reactor_.remove(fd);
        waits_for_room_ = false;
    }
}

int Frame::run()
{
    const bool served = reactor_.run();
    if (!served) {
        log_error("the event loop failed: %s", std::strerror(errno));
    }
    log_close();
    return served ? EXIT_SUCCESS : EXIT_FAILURE;
}

bool write_file_atomically(const std::string &path, const std::string &text)
{
    std::string temporary = path + ".XXXXXX";
    const int fd = mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    bool good = fchmod(fd, 0644) == 0;
    size_t done = 0;
    while (good && done < text.size()) {
        const ssize_t written = write(fd, text.data() + done, text.size() - done);
        good = written > 0 || (written < 0 && errno == EINTR);
        done += written > 0 ? static_cast<size_t>(written) : 0;
    }
    const int failure = errno;
    close(fd);
    if (good && rename(temporary.c_str(), path.c_str()) == 0) {
        return true;
    }
    const int cause = good ? errno : failure;
    unlink(temporary.c_str());
    errno = cause;
    return false;
}

} // namespace mcastd
