/*
 * One family's half of mribd at work: the routers of its instances and the channel before them.
 */
#ifndef DAEMONS_MRIBD_PLANE_H
#define DAEMONS_MRIBD_PLANE_H

#include <map>
#include <memory>

#include "daemons/common/memory_return.h"
#include "daemons/common/reactor.h"
#include "daemons/mribd/answer_clock.h"
#include "daemons/mribd/channel_server.h"
#include "daemons/mribd/current_view.h"
#include "daemons/mribd/instance.h"
#include "daemons/mribd/msdp_exchange.h"
#include "daemons/mribd/routers.h"
#include "daemons/mribd/status.h"
#include "daemons/mribd/user_registry.h"

namespace mribd
{

class Plane
{
public:
    // reactor, timers and environment must outlive the plane.
    Plane(uint8_t family, const PlaneSettings &settings, mcastd::Reactor &reactor, MCAST_TMR_S *timers,
          const HostEnvironment &environment);
    ~Plane();
    Plane(const Plane &) = delete;
    Plane &operator=(const Plane &) = delete;

    // Listens, and becomes the multicast router of the public instance. Everything but Ready is logged.
    KernelMroute::OpenResult open();

    uint8_t family() const
    {
        return routers_.family();
    }

    // Takes over which instances are served and what the clients are to be told.
    void configure(const Config &config);

    // What the environment tells.
    void links_changed();
    void link_renamed(uint32_t if_index);
    void link_removed(uint32_t if_index);
    void routes_changed(const MCAST_ADDR_S &prefix, unsigned length);

    // Has every client ask for everything again.
    void resynchronise()
    {
        server_.resynchronise();
    }

    // Work between the rounds of the event loop. Whether there is more.
    bool settle();

    FamilyStatus status() const;

    const ChannelServer &server() const
    {
        return server_;
    }

private:
    KernelMroute::OpenResult serve(uint16_t vrf_index);
    void configure_again();
    void ask_refused_again();
    void try_again_later();

    const PlaneSettings settings_;
    mcastd::Reactor &reactor_;
    MCAST_TMR_S *const timers_;
    const HostEnvironment &environment_;
    MemberBudget budget_;
    TableRules rules_;
    RegisterNumbers registers_;
    Instance common_; // the public one
    std::map<uint16_t, std::unique_ptr<Instance>> others_;
    Routers routers_;
    CurrentView current_view_;
    MsdpExchange msdp_;
    UserRegistry users_;
    ChannelServer server_;
    mcastd::MemoryReturn memory_;
    AnswerClock answer_clock_;
    Config config_;               // in force
    bool lacks_instance_ = false; // one of it could not be served, or memory ended while it was put in force
    mcastd::Timer serve_retry_;   // runs as long as that is so
    mcastd::Timer ask_again_;     // runs while memberships that were refused are to be asked for
    mcastd::Timer rules_retry_;   // runs while there are rules that could not be removed
};

} // namespace mribd

#endif
