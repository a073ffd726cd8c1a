/*
 * The entries' idle timers on the library's timer manager.
 */
#ifndef DAEMONS_MRIBD_IDLE_TIMERS_H
#define DAEMONS_MRIBD_IDLE_TIMERS_H

#include <functional>

#include "daemons/mribd/forwarding.h"
#include "mcast/timer.h"

namespace mribd
{

class IdleTimers final : public EntryTimers
{
public:
    // period_s: seconds until an entry is checked, at least 1. expired is called with each entry that is due.
    IdleTimers(uint32_t period_s, std::function<void(Entry *)> expired);
    ~IdleTimers() override;
    IdleTimers(const IdleTimers &) = delete;
    IdleTimers &operator=(const IdleTimers &) = delete;

    // Takes its ticks from the service. False when a timer cannot be made.
    bool open(TIMER_SERVICE service);

    void *start(Entry *entry) override;
    void cancel(void *timer) override;

private:
    static void ticked(uint64_t parameters[4]);
    static void due(uint64_t data[4]);

    uint32_t period_s_;
    std::function<void(Entry *)> expired_;
    MCAST_TMR_S *manager_ = nullptr;
};

} // namespace mribd

#endif
