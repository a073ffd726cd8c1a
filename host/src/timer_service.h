/*
 * The timers of one event loop.
 */
#ifndef HOST_SRC_TIMER_SERVICE_H
#define HOST_SRC_TIMER_SERVICE_H

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <unordered_map>
#include <utility>

#include "descriptor.h"
#include "platform/timer.h"

struct TIMER_SERVICE_S {
public:
    // nullptr with errno set when it cannot be made.
    static std::unique_ptr<TIMER_SERVICE_S> create();

    // Readable when a timer is due.
    int descriptor() const
    {
        return timer_fd_.get();
    }

    // Runs what is due. True when a handler ran.
    bool expire();

    TIMER_ID add(uint32_t kind, uint32_t period_ms, TIMER_HANDLER handler, const uint64_t *parameters);
    uint32_t set_status(TIMER_ID id, uint32_t state, uint32_t value_ms);
    uint32_t get_attributes(TIMER_ID id, TIMER_ATTR_S *attributes);
    uint32_t remove(TIMER_ID id);

private:
    struct Timer {
        uint32_t state;
        uint32_t kind;
        uint32_t period_ms;
        TIMER_HANDLER handler;
        std::array<uint64_t, 4> parameters;
        uint64_t due_ns; // 0 while not armed
    };
    using Timers = std::unordered_map<TIMER_ID, Timer>;

    bool arm(Timers::value_type &entry, uint32_t delay_ms);
    void disarm(Timers::value_type &entry);
    bool program(uint64_t due_ns);

    host::Descriptor timer_fd_;
    std::mutex mutex_; // guards everything below; no handler runs under it
    Timers timers_;
    std::set<std::pair<uint64_t, TIMER_ID>> armed_;
    uint64_t programmed_ns_ = 0; // when the descriptor will become readable; 0 when it will not
};

#endif
