/*
 * One family's half of mribd at work: the router, the kernel's table behind it and the channel before it,
 * joined to the event loop.
 */
#ifndef DAEMONS_MRIBD_PLANE_H
#define DAEMONS_MRIBD_PLANE_H

#include "daemons/common/reactor.h"
#include "daemons/mribd/channel_server.h"
#include "daemons/mribd/host_environment.h"
#include "daemons/mribd/idle_timers.h"
#include "daemons/mribd/kernel_mroute.h"
#include "daemons/mribd/lost_clients.h"
#include "daemons/mribd/msdp_exchange.h"
#include "daemons/mribd/policy.h"
#include "daemons/mribd/router.h"
#include "daemons/mribd/user_registry.h"

#include <string>

namespace mribd
{

struct PlaneSettings {
    uint32_t idle_period_s;
    uint32_t entry_limit;
    uint32_t hold_s; // for what lost clients wanted; 0: nothing is kept
};

class Plane
{
public:
    // Both must outlive the plane.
    Plane(uint8_t family, const PlaneSettings &settings, mcastd::Reactor &reactor,
          const HostEnvironment &environment);
    ~Plane();
    Plane(const Plane &) = delete;
    Plane &operator=(const Plane &) = delete;

    // Listens, and becomes the multicast router. Everything but Ready is logged.
    KernelMroute::OpenResult open(TIMER_SERVICE timers);

    Router &router()
    {
        return router_;
    }

    // Takes over what the clients are to be told.
    void configure(const Config &config);

    // Interfaces came, went or changed their names.
    void interfaces_changed()
    {
        policy_.touch();
    }

    // Has every client ask for everything again.
    void resynchronise()
    {
        server_.resynchronise();
    }

    // Work between the rounds of the event loop. Whether there is more.
    bool settle();

    std::string status() const;

    const ChannelServer &server() const
    {
        return server_;
    }

    // Reports of new sources that the kernel dropped.
    uint64_t lost_upcalls() const
    {
        return kernel_.lost_upcalls();
    }

private:
    void receive();
    void report_losses();

    mcastd::Reactor &reactor_;
    KernelMroute kernel_;
    IdleTimers timers_;
    Router router_;
    Policy policy_;
    MsdpExchange msdp_;
    UserRegistry users_;
    LostClients lost_clients_;
    ChannelServer server_;
    uint64_t reported_losses_ = 0;
};

} // namespace mribd

#endif
