/*
 * One instance of a family at work: its router and the kernel's table behind it, joined to the event loop.
 */
#ifndef DAEMONS_MRIBD_INSTANCE_H
#define DAEMONS_MRIBD_INSTANCE_H

#include "daemons/common/reactor.h"
#include "daemons/mribd/host_environment.h"
#include "daemons/mribd/kernel_mroute.h"
#include "daemons/mribd/lost_clients.h"
#include "daemons/mribd/router.h"

namespace mribd
{

// What the command line says of a family and of each of its instances.
struct PlaneSettings {
    uint32_t idle_period_s = 210;
    uint32_t entry_limit = 262144;
    uint32_t hold_s = 0;                                 // for what lost clients wanted; 0: nothing is kept
    uint32_t member_limit = MemberBudget::DEFAULT_TOTAL; // of all instances of the family together
};

class Instance
{
public:
    // reactor, timers, budget, environment and rules and registers, those of the key's family, must outlive the instance.
    Instance(const MRIB_GMP_VRF_KEY_S &key, const PlaneSettings &settings, mcastd::Reactor &reactor,
             MCAST_TMR_S *timers, MemberBudget &budget, const HostEnvironment &environment, TableRules &rules,
             RegisterNumbers &registers);
    ~Instance();
    Instance(const Instance &) = delete;
    Instance &operator=(const Instance &) = delete;

    // Becomes the multicast router of the instance's table. Everything but Ready is logged.
    KernelMroute::OpenResult open();

    Router &router()
    {
        return router_;
    }

    // Withdraws everything from the kernel in one step and gives the table back.
    void shut();

    // Interfaces came, went or moved; with a VRF device the instance's table may be another now.
    void links_changed();

    // Work between the rounds of the event loop. Whether there is more.
    bool settle();

private:
    void receive();
    void report_losses();
    void move_to_table();
    void try_table_again();

    mcastd::Reactor &reactor_;
    const HostEnvironment &environment_;
    MCAST_TMR_S *timers_;
    mcastd::Timer table_retry_; // runs while the instance is without a table
    KernelMroute kernel_;
    Router router_;
    LostClients lost_clients_;
    uint64_t reported_losses_ = 0;
};

} // namespace mribd

#endif
