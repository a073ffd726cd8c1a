#include "daemons/common/status_output.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <sys/epoll.h>
#include <unistd.h>
#include <utility>

#include "daemons/common/log.h"

namespace mcastd
{

StatusOutput::StatusOutput(Reactor &reactor) : reactor_(reactor), standard_output_(STDOUT_FILENO)
{
}

void StatusOutput::write(const std::string &path, TextParts parts)
{
    if (busy()) {
        return;
    }
    path_ = path;
    parts_ = std::move(parts);
    if (!path_.empty()) {
        loan_.emplace();
        if (!file_.open(path_)) {
            fail();
            return;
        }
    }
    go_on();
}

bool StatusOutput::go_on()
{
    if (parts_ == nullptr || waits_for_room_) {
        return false;
    }
    std::string text;
    const bool more = make_part(&text);
    if (path_.empty()) {
        printing_ = std::move(text);
        print();
    } else if (!file_.append(text) || (!more && !file_.commit())) {
        fail();
        return false;
    }
    if (!more) {
        parts_ = nullptr;
        loan_.reset();
    }
    return more && !waits_for_room_;
}

// A text of which a part cannot be made is given up.
bool StatusOutput::make_part(std::string *text)
{
    try {
        return parts_(text);
    } catch (const std::bad_alloc &) {
        parts_ = nullptr;
        file_.abandon();
        loan_.reset();
        throw;
    }
}

void StatusOutput::fail()
{
    log_error("cannot write the status file %s: %s", path_.c_str(), std::strerror(errno));
    parts_ = nullptr;
    loan_.reset();
}

void StatusOutput::print()
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
        parts_ = nullptr;
    } else if (!room && !waits_for_room_) {
        waits_for_room_ = reactor_.add(fd, EPOLLOUT, [this](uint32_t) { print(); });
        if (!waits_for_room_) {
            printing_.clear();
            parts_ = nullptr;
        }
    }
    if (waits_for_room_ && printing_.empty()) {
        reactor_.remove(fd);
        waits_for_room_ = false;
    }
}

} // namespace mcastd
