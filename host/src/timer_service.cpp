/*
 * Timers of an event loop: one timer descriptor set to the earliest of an ordered set.
 *
 *     STOP --enable--> ENABLE --arm--> ARM --fires--> ENABLE;  stop from any state
 *
 * A one-shot timer is created armed and ends after its handler. The descriptor is set when something becomes
 * due earlier; when the earliest goes away it fires once for nothing, which costs less than setting it on
 * every change.
 *
 * All times are of CLOCK_BOOTTIME, the clock that TIME_GetSystemBootTime tells: what is computed from the one
 * is due by the other, through a suspend too.
 */
#include "timer_service.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <iterator>
#include <new>
#include <sys/timerfd.h>
#include <unistd.h>

#include "mcasthost/loop.h"

namespace
{

constexpr uint64_t NS_PER_S = 1000000000;
constexpr uint64_t NS_PER_MS = 1000000;

// Never given out twice in a process, so that an identifier that outlived its timer is known as such.
std::atomic<TIMER_ID> g_next_id = 1;

uint64_t boot_time_ns()
{
    timespec now;
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * NS_PER_S + static_cast<uint64_t>(now.tv_nsec);
}

} // namespace

std::unique_ptr<TIMER_SERVICE_S> TIMER_SERVICE_S::create()
{
    std::unique_ptr<TIMER_SERVICE_S> service(new (std::nothrow) TIMER_SERVICE_S);
    if (service == nullptr) {
        errno = ENOMEM;
        return nullptr;
    }
    service->timer_fd_ = host::Descriptor(timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC | TFD_NONBLOCK));
    return service->timer_fd_.valid() ? std::move(service) : nullptr;
}

bool TIMER_SERVICE_S::program(uint64_t due_ns)
{
    itimerspec setting{};
    setting.it_value.tv_sec = static_cast<time_t>(due_ns / NS_PER_S);
    setting.it_value.tv_nsec = static_cast<long>(due_ns % NS_PER_S);
    if (timerfd_settime(timer_fd_.get(), TFD_TIMER_ABSTIME, &setting, nullptr) != 0) {
        return false;
    }
    programmed_ns_ = due_ns;
    return true;
}

// On failure the timer is left as it was, but not armed.
bool TIMER_SERVICE_S::arm(Timers::value_type &entry, uint32_t delay_ms)
{
    disarm(entry);
    uint64_t due_ns = boot_time_ns() + delay_ms * NS_PER_MS;
    armed_.emplace(due_ns, entry.first);
    if ((programmed_ns_ == 0 || due_ns < programmed_ns_) && !program(due_ns)) {
        armed_.erase({due_ns, entry.first});
        return false;
    }
    entry.second.due_ns = due_ns;
    entry.second.state = TIMER_STATE_ARM;
    return true;
}

void TIMER_SERVICE_S::disarm(Timers::value_type &entry)
{
    if (entry.second.due_ns != 0) {
        armed_.erase({entry.second.due_ns, entry.first});
        entry.second.due_ns = 0;
        entry.second.state = TIMER_STATE_ENABLE;
    }
}

TIMER_ID TIMER_SERVICE_S::add(uint32_t kind, uint32_t period_ms, TIMER_HANDLER handler,
                              const uint64_t *parameters)
{
    std::lock_guard guard(mutex_);
    Timer timer{TIMER_STATE_STOP, kind, period_ms, handler, {}, 0};
    if (parameters != nullptr) {
        std::copy_n(parameters, timer.parameters.size(), timer.parameters.begin());
    }
    auto entry = timers_.emplace(g_next_id++, timer).first;
    if (kind == TIMER_KIND_ONE_SHOT) {
        bool armed = false;
        try {
            armed = arm(*entry, period_ms);
        } catch (const std::bad_alloc &) {
        }
        if (!armed) {
            timers_.erase(entry);
            return TIMER_NONE;
        }
    }
    return entry->first;
}

uint32_t TIMER_SERVICE_S::set_status(TIMER_ID id, uint32_t state, uint32_t value_ms)
{
    std::lock_guard guard(mutex_);
    auto entry = timers_.find(id);
    if (entry == timers_.end()) {
        return HOST_FAILED;
    }
    switch (state) {
    case TIMER_STATE_STOP:
        disarm(*entry);
        entry->second.state = TIMER_STATE_STOP;
        return 0;
    case TIMER_STATE_ENABLE:
        if (entry->second.state == TIMER_STATE_STOP) {
            entry->second.state = TIMER_STATE_ENABLE;
        }
        return 0;
    case TIMER_STATE_ARM:
        return entry->second.state != TIMER_STATE_STOP && arm(*entry, value_ms) ? 0 : HOST_FAILED;
    default:
        return HOST_FAILED;
    }
}

uint32_t TIMER_SERVICE_S::get_attributes(TIMER_ID id, TIMER_ATTR_S *attributes)
{
    std::lock_guard guard(mutex_);
    auto entry = timers_.find(id);
    if (entry == timers_.end()) {
        return HOST_FAILED;
    }
    *attributes = TIMER_ATTR_S{};
    attributes->state = entry->second.state;
    attributes->kind = entry->second.kind;
    attributes->period_ms = entry->second.period_ms;
    return 0;
}

uint32_t TIMER_SERVICE_S::remove(TIMER_ID id)
{
    std::lock_guard guard(mutex_);
    auto entry = timers_.find(id);
    if (entry == timers_.end()) {
        return HOST_FAILED;
    }
    disarm(*entry);
    timers_.erase(entry);
    return 0;
}

bool TIMER_SERVICE_S::expire()
{
    uint64_t expirations;
    [[maybe_unused]] ssize_t drained = read(timer_fd_.get(), &expirations, sizeof(expirations));
    // Read once: what a handler arms is due later, so that this ends.
    const uint64_t now_ns = boot_time_ns();
    bool ran = false;
    std::unique_lock lock(mutex_);
    while (!armed_.empty() && armed_.begin()->first <= now_ns) {
        const TIMER_ID id = armed_.begin()->second;
        auto entry = timers_.find(id);
        disarm(*entry);
        Timer timer = entry->second; // the handler may delete the record
        lock.unlock();
        timer.handler(timer.parameters.data());
        ran = true;
        lock.lock();
        entry = timers_.find(id);
        if (timer.kind == TIMER_KIND_ONE_SHOT && entry != timers_.end()) {
            disarm(*entry);
            timers_.erase(entry);
        }
    }
    programmed_ns_ = 0;
    if (!armed_.empty()) {
        program(armed_.begin()->first);
    }
    return ran;
}

extern "C" {

HOST_API TIMER_ID Timer_Create(TIMER_SERVICE service, uint32_t kind, uint32_t period_ms,
                               TIMER_HANDLER handler, const uint64_t parameters[4])
{
    if (service == nullptr || handler == nullptr ||
        (kind != TIMER_KIND_ARMED_LATER && kind != TIMER_KIND_ONE_SHOT)) {
        return TIMER_NONE;
    }
    try {
        return service->add(kind, period_ms, handler, parameters);
    } catch (const std::bad_alloc &) {
        return TIMER_NONE;
    }
}

HOST_API uint32_t Timer_SetStatus(TIMER_SERVICE service, TIMER_ID timer, uint32_t state, uint32_t value)
{
    try {
        return service == nullptr ? HOST_FAILED : service->set_status(timer, state, value);
    } catch (const std::bad_alloc &) {
        return HOST_FAILED;
    }
}

HOST_API uint32_t Timer_GetAttr(TIMER_SERVICE service, TIMER_ID timer, TIMER_ATTR_S *attributes,
                                uint32_t option)
{
    if (service == nullptr || attributes == nullptr || option != 0) {
        return HOST_FAILED;
    }
    return service->get_attributes(timer, attributes);
}

HOST_API uint32_t Timer_Delete(TIMER_SERVICE service, TIMER_ID timer)
{
    return service == nullptr ? HOST_FAILED : service->remove(timer);
}

HOST_API void TIME_GetSystemBootTime(uint32_t *seconds, uint32_t *sub_seconds)
{
    uint64_t now_ns = boot_time_ns();
    *seconds = static_cast<uint32_t>(now_ns / NS_PER_S);
    *sub_seconds = static_cast<uint32_t>(now_ns % NS_PER_S);
}

} // extern "C"
