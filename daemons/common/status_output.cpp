#include "daemons/common/status_output.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "daemons/common/descriptor_reserve.h"
#include "daemons/common/log.h"

namespace mcastd
{

StatusOutput::StatusOutput(Reactor &reactor) : reactor_(reactor), standard_output_(STDOUT_FILENO)
{
}

void StatusOutput::write(const std::string &path, std::string text)
{
    if (path.empty()) {
        print(std::move(text));
        return;
    }
    const DescriptorLoan loan;
    if (!write_file_atomically(path, text)) {
        log_error("cannot write the status file %s: %s", path.c_str(), std::strerror(errno));
    }
}

void StatusOutput::print(std::string text)
{
    if (!printing_.empty()) {
        log_warning("the status is not printed: nobody has read the one before to its end");
        return;
    }
    printing_ = std::move(text);
    go_on_printing();
}

void StatusOutput::go_on_printing()
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
