#include "daemons/common/frame.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "daemons/common/log.h"
#include "daemons/common/options.h"
#include "mcast/event.h"

namespace mcastd
{

Frame::Frame(const Options &options) : status_file_(options.status_file())
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

void Frame::write_status() const
{
    const std::string text = status_ ? status_() : std::string("no status\n");
    if (status_file_.empty()) {
        std::fputs(text.c_str(), stdout);
        std::fflush(stdout);
    } else if (!write_file_atomically(status_file_, text)) {
        log_error("cannot write the status file %s: %s", status_file_.c_str(), std::strerror(errno));
    }
}

int Frame::run()
{
    if (!reactor_.run()) {
        log_error("the event loop failed: %s", std::strerror(errno));
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
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
