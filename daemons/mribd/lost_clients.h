/*
 * GMP and PIM daemons whose connection ended without their saying that the protocol ended: killed, or replaced by
 * their standby. What they wanted is kept for a hold time, so that forwarding goes on while the next one
 * learns from the hosts. Each thing it says takes the place of what was kept; what nobody said again by then
 * ends.
 */
#ifndef DAEMONS_MRIBD_LOST_CLIENTS_H
#define DAEMONS_MRIBD_LOST_CLIENTS_H

#include <cstdint>
#include <map>

#include "daemons/common/timer.h"
#include "daemons/mribd/router.h"

namespace mribd
{

class LostClients
{
public:
    // At most this many are kept; the oldest go first.
    static constexpr size_t MOST = 4;

    // Keeps what the router's clients leave, from now on for hold_s seconds; 0: nothing is kept. The router and
    // the timers must outlive the object.
    LostClients(Router &router, MCAST_TMR_S *timers, uint32_t hold_s);
    ~LostClients();
    LostClients(const LostClients &) = delete;
    LostClients &operator=(const LostClients &) = delete;

private:
    struct Lost {
        LostClients *owner = nullptr;
        ClientId client = 0;
        mcastd::Timer timer;
    };

    void keep(ClientId client);
    void end(ClientId client);
    void let_go(ClientId client);

    Router &router_;
    MCAST_TMR_S *const timers_;
    const uint32_t hold_s_;
    std::map<ClientId, Lost> lost_; // the oldest first
};

} // namespace mribd

#endif
