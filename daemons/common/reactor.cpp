#include "daemons/common/reactor.h"

#include <utility>

#include "daemons/common/log.h"
#include "mcast/event.h"
#include "mcasthost/loop.h"

namespace mcastd
{

// Handlers of the host's loop get no context of their own; they find it here. Set while a round runs.
static Reactor *g_running = nullptr;

Reactor::Reactor() : loop_(HOST_LoopCreate())
{
}

Reactor::~Reactor()
{
    if (loop_ >= 0) {
        HOST_LoopDestroy(loop_);
    }
}

bool Reactor::add(int fd, uint32_t events, Handler handler)
{
    if (MCAST_AddEpoll(static_cast<uint32_t>(loop_), static_cast<uint32_t>(fd), events, context()) !=
        MCAST_OK) {
        return false;
    }
    attach(fd, std::move(handler));
    return true;
}

void Reactor::attach(int fd, Handler handler)
{
    handlers_[fd] = std::make_shared<Handler>(std::move(handler));
}

uint64_t Reactor::context()
{
    return reinterpret_cast<uintptr_t>(&dispatch);
}

bool Reactor::modify(int fd, uint32_t events)
{
    return MCAST_ModifyEpoll(static_cast<uint32_t>(loop_), static_cast<uint32_t>(fd), events, context()) ==
           MCAST_OK;
}

void Reactor::remove(int fd)
{
    MCAST_DeleteEpoll(static_cast<uint32_t>(loop_), static_cast<uint32_t>(fd));
    handlers_.erase(fd);
}

void Reactor::set_background(std::function<bool()> work)
{
    background_ = std::move(work);
    more_work_ = true; // what was set up before the first event
}

uint64_t Reactor::dispatch(uint32_t events, int32_t fd)
{
    const auto found = g_running->handlers_.find(fd);
    if (found != g_running->handlers_.end()) {
        const std::shared_ptr<Handler> handler = found->second; // survives its own removal
        (*handler)(events);
    }
    return 0;
}

bool Reactor::run()
{
    while (!stopping_) {
        if (!run_once(log_tend())) {
            return false;
        }
    }
    return true;
}

bool Reactor::run_once(int timeout_ms)
{
    Reactor *const outer = std::exchange(g_running, this);
    const int32_t result = HOST_LoopRunOnce(loop_, more_work_ ? 0 : timeout_ms);
    g_running = outer;
    more_work_ = background_ && background_();
    return result >= 0;
}

} // namespace mcastd
