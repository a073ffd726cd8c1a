#include "daemons/mribd/idle_timers.h"

#include <utility>

namespace mribd
{

IdleTimers::IdleTimers(uint32_t period_s, std::function<void(Entry *)> expired)
    : period_s_(period_s), expired_(std::move(expired))
{
}

IdleTimers::~IdleTimers()
{
    MCAST_TMR_Destroy(manager_);
}

bool IdleTimers::open(TIMER_SERVICE service)
{
    const uint64_t parameters[4] = {reinterpret_cast<uintptr_t>(this)};
    manager_ = MCAST_TMR_Create(service, ticked, parameters);
    return manager_ != nullptr;
}

void IdleTimers::ticked(uint64_t parameters[4])
{
    MCAST_TMR_ProcExpires(reinterpret_cast<IdleTimers *>(parameters[0])->manager_);
}

void IdleTimers::due(uint64_t data[4])
{
    reinterpret_cast<IdleTimers *>(data[0])->expired_(reinterpret_cast<Entry *>(data[1]));
}

void *IdleTimers::start(Entry *entry)
{
    const uint64_t data[4] = {reinterpret_cast<uintptr_t>(this), reinterpret_cast<uintptr_t>(entry)};
    return MCAST_TMR_AddNode(manager_, period_s_, due, data);
}

void IdleTimers::cancel(void *timer)
{
    MCAST_TMR_DeleteNode(manager_, static_cast<MCAST_TMR_NODE_S *>(timer));
}

} // namespace mribd
