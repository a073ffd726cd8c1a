#include "tests/simulation/kernel/file.h"

#include <algorithm>
#include <cstring>
#include <sys/signalfd.h>

namespace sim
{

ssize_t hand_over(const std::vector<uint8_t> &message, void *buffer, size_t size, int flags)
{
    const size_t given = std::min(size, message.size());
    std::copy_n(message.begin(), given,
                static_cast<uint8_t *>(buffer)); // an empty message may have no address
    return static_cast<ssize_t>((flags & MSG_TRUNC) != 0 ? message.size() : given);
}

namespace
{

ssize_t put_number(uint64_t number, void *buffer, size_t size)
{
    if (size < sizeof(number)) {
        return -EINVAL;
    }
    memcpy(buffer, &number, sizeof(number));
    return sizeof(number);
}

} // namespace

ssize_t Timer::read(void *buffer, size_t size)
{
    if (due_ > clock_.now()) {
        return -EAGAIN;
    }
    due_ = NEVER;
    return put_number(1, buffer, size);
}

ssize_t EventCounter::read(void *buffer, size_t size)
{
    if (count_ == 0) {
        return -EAGAIN;
    }
    const ssize_t result = put_number(count_, buffer, size);
    count_ = result > 0 ? 0 : count_;
    return result;
}

ssize_t EventCounter::write(const void *buffer, size_t size)
{
    uint64_t more = 0;
    if (size < sizeof(more)) {
        return -EINVAL;
    }
    memcpy(&more, buffer, sizeof(more));
    count_ += more;
    return sizeof(more);
}

ssize_t SignalFile::read(void *buffer, size_t size)
{
    signalfd_siginfo info{};
    const uint64_t waiting = *pending_ & mask_;
    if (size < sizeof(info)) {
        return -EINVAL;
    }
    if (waiting == 0) {
        return -EAGAIN;
    }
    info.ssi_signo = static_cast<uint32_t>(__builtin_ctzll(waiting));
    *pending_ &= ~(uint64_t{1} << info.ssi_signo);
    memcpy(buffer, &info, sizeof(info));
    return sizeof(info);
}

ssize_t TextFile::read(void *buffer, size_t size)
{
    const size_t given = std::min(size, text_.size() - at_);
    memcpy(buffer, text_.data() + at_, given);
    at_ += given;
    return static_cast<ssize_t>(given);
}

int Epoll::add(int fd, const std::shared_ptr<File> &file, const epoll_event &event)
{
    if (watches(fd)) {
        return -EEXIST;
    }
    watches_.push_back({fd, file.get(), event});
    return 0;
}

int Epoll::modify(int fd, const epoll_event &event)
{
    for (Watch &watch : watches_) {
        if (watch.fd == fd) {
            watch.event = event;
            return 0;
        }
    }
    return -ENOENT;
}

int Epoll::remove(int fd)
{
    if (!watches(fd)) {
        return -ENOENT;
    }
    forget(fd);
    return 0;
}

void Epoll::forget(int fd)
{
    std::erase_if(watches_, [fd](const Watch &watch) { return watch.fd == fd; });
}

bool Epoll::watches(int fd) const
{
    return std::any_of(watches_.begin(), watches_.end(), [fd](const Watch &watch) { return watch.fd == fd; });
}

uint32_t Epoll::happened(const Watch &watch) const
{
    return watch.file->ready() & (watch.event.events | EPOLLERR | EPOLLHUP);
}

bool Epoll::take(epoll_event *event)
{
    for (size_t i = 0; i < watches_.size(); ++i) {
        const size_t at = (next_ + i) % watches_.size();
        if (const uint32_t events = happened(watches_[at])) {
            next_ = at + 1;
            *event = watches_[at].event;
            event->events = events;
            return true;
        }
    }
    return false;
}

bool Epoll::has_event() const
{
    return std::any_of(watches_.begin(), watches_.end(),
                       [this](const Watch &watch) { return happened(watch) != 0; });
}

} // namespace sim
