#include "daemons/common/reactor.h"

#include <array>
#include <cerrno>
#include <sys/epoll.h>
#include <unistd.h>
#include <utility>

namespace mcastd
{
namespace
{

constexpr int EVENTS_PER_ROUND = 64;

} // namespace

Reactor::Reactor() : epoll_(epoll_create1(EPOLL_CLOEXEC))
{
}

Reactor::~Reactor()
{
    if (epoll_ >= 0) {
        close(epoll_);
    }
}

bool Reactor::add(int fd, uint32_t events, Handler handler)
{
    epoll_event record{};
    record.events = events;
    record.data.fd = fd;
    if (epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &record) != 0) {
        return false;
    }
    handlers_[fd] = std::make_shared<Handler>(std::move(handler));
    fresh_.insert(fd);
    return true;
}

bool Reactor::modify(int fd, uint32_t events)
{
    epoll_event record{};
    record.events = events;
    record.data.fd = fd;
    return epoll_ctl(epoll_, EPOLL_CTL_MOD, fd, &record) == 0;
}

void Reactor::remove(int fd)
{
    epoll_event record{};
    epoll_ctl(epoll_, EPOLL_CTL_DEL, fd, &record);
    handlers_.erase(fd);
}

void Reactor::set_background(std::function<bool()> work)
{
    background_ = std::move(work);
}

bool Reactor::run()
{
    while (!stopping_) {
        if (!run_once(-1)) {
            return false;
        }
    }
    return true;
}

bool Reactor::run_once(int timeout_ms)
{
    std::array<epoll_event, EVENTS_PER_ROUND> ready;
    fresh_.clear();
    const int count = epoll_wait(epoll_, ready.data(), EVENTS_PER_ROUND, more_work_ ? 0 : timeout_ms);
    if (count < 0 && errno != EINTR) {
        return false;
    }
    for (int i = 0; i < count; i++) {
        const epoll_event &event = ready[static_cast<size_t>(i)];
        const auto found = handlers_.find(event.data.fd);
        if (found == handlers_.end() || fresh_.contains(event.data.fd)) {
            continue;
        }
        const std::shared_ptr<Handler> handler = found->second; // survives its own removal
        (*handler)(event.events);
    }
    more_work_ = background_ && background_();
    return true;
}

} // namespace mcastd
