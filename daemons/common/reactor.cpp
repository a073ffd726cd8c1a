#include "daemons/common/reactor.h"

#include <algorithm>
#include <ctime>
#include <sys/epoll.h>
#include <utility>

#include "daemons/common/descriptor_reserve.h"
#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "mcast/event.h"
#include "mcasthost/loop.h"

namespace mcastd
{

// Handlers of the host's loop get no context of their own; they find it here. Set while a round runs.
static Reactor *g_running = nullptr;

// How long a listener that could not accept is left alone when nothing is closed meanwhile.
constexpr uint64_t PAUSE_MS = 1000;

constexpr uint64_t SECOND_MS = 1000;

static uint64_t now_ms()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

// Of two times to wait the shorter one; -1 is for ever.
static int sooner(int first_ms, int second_ms)
{
    return first_ms < 0 || second_ms < 0 ? std::max(first_ms, second_ms) : std::min(first_ms, second_ms);
}

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
    auto kept = std::make_shared<Handler>(std::move(handler));
    Watch &watch = handlers_[fd]; // what needs memory before the kernel knows of it
    if (MCAST_AddEpoll(static_cast<uint32_t>(loop_), static_cast<uint32_t>(fd), events, context()) !=
        MCAST_OK) {
        if (watch.handler == nullptr) {
            handlers_.erase(fd);
        }
        return false;
    }
    watch = {std::move(kept), false};
    return true;
}

void Reactor::attach(int fd, Handler handler)
{
    handlers_[fd] = {std::make_shared<Handler>(std::move(handler)), false};
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
    removed_one_ = true;
}

void Reactor::pause(int fd)
{
    const auto found = handlers_.find(fd);
    if (found != handlers_.end() && modify(fd, 0)) {
        found->second.paused = true;
        resume_at_ms_ = resume_at_ms_ == 0 ? now_ms() + PAUSE_MS : resume_at_ms_;
    }
}

// Watches again what is due to be. How long the round may wait.
int Reactor::before_waiting(int timeout_ms)
{
    const uint64_t now = resume_at_ms_ != 0 ? now_ms() : 0;
    if (resume_at_ms_ != 0 && (removed_one_ || now >= resume_at_ms_)) {
        fill_descriptor_reserve(); // before a listener takes what became free
        resume_at_ms_ = 0;
        for (auto &[fd, watch] : handlers_) {
            if (std::exchange(watch.paused, false)) {
                modify(fd, EPOLLIN);
            }
        }
    } else if (removed_one_) {
        fill_descriptor_reserve();
    }
    removed_one_ = false;
    if (resume_at_ms_ == 0) {
        return timeout_ms;
    }
    const int left = static_cast<int>(resume_at_ms_ - now);
    return timeout_ms < 0 ? left : std::min(left, timeout_ms);
}

void Reactor::set_background(std::function<bool()> work)
{
    background_ = std::move(work);
    more_work_ = true; // what was set up before the first event
}

void Reactor::add_each_second(std::function<void()> work)
{
    each_second_.push_back(std::move(work));
}

// What is done beside events. How long the round may wait.
int Reactor::tend()
{
    const int log_ms = sooner(log_tend(), memory_tend());
    if (each_second_.empty()) {
        return log_ms;
    }
    const uint64_t now = now_ms();
    if (now >= next_second_ms_) {
        next_second_ms_ = now + SECOND_MS;
        for (const auto &work : each_second_) {
            memory_unit("what is done each second", work);
        }
    }
    const int left = static_cast<int>(next_second_ms_ - now);
    return sooner(log_ms, left);
}

uint64_t Reactor::dispatch(uint32_t events, int32_t fd)
{
    const auto found = g_running->handlers_.find(fd);
    if (found != g_running->handlers_.end() && found->second.handler != nullptr) {
        const std::shared_ptr<Handler> handler = found->second.handler; // survives its own removal
        memory_unit("an event", [&] { (*handler)(events); });
    }
    return 0;
}

bool Reactor::run()
{
    while (!stopping_) {
        const int wait_ms = tend();
        if (!stopping_ && !run_once(wait_ms)) {
            return false;
        }
    }
    return true;
}

bool Reactor::run_once(int timeout_ms)
{
    const int wait_ms = before_waiting(more_work_ ? 0 : timeout_ms);
    Reactor *const outer = std::exchange(g_running, this);
    const int32_t result = HOST_LoopRunOnce(loop_, wait_ms);
    g_running = outer;
    more_work_ = false;
    if (background_) {
        memory_unit("the work of a round", [this] { more_work_ = background_(); });
    }
    return result >= 0;
}

} // namespace mcastd
