/*
 * mribd for one instance of a family: memberships, virtual interfaces and entries put together. Those of
 * other instances and of the other family share the process and nothing else.
 */
#ifndef DAEMONS_MRIBD_ROUTER_H
#define DAEMONS_MRIBD_ROUTER_H

#include <functional>
#include <map>
#include <utility>
#include <vector>

#include "daemons/common/timer.h"
#include "daemons/mribd/forwarding.h"
#include "daemons/mribd/gmp_state.h"
#include "daemons/mribd/member_budget.h"
#include "daemons/mribd/member_table.h"
#include "daemons/mribd/pim_listener.h"
#include "daemons/mribd/pim_state.h"
#include "daemons/mribd/tree_table.h"
#include "daemons/mribd/vif_table.h"

namespace mribd
{

class Router
{
public:
    // Of the forwarding entries: how many there may be, and after how many seconds without a packet one goes.
    struct EntryRules {
        uint32_t limit;
        uint32_t idle_period_s;
        RegisterNumbers *registers = nullptr; // of the family's instances; NULL: this is the only one
    };

    // kernel, environment, budget and timers must outlive the router.
    Router(const MRIB_GMP_VRF_KEY_S &key, KernelTable &kernel, const Environment &environment,
           MemberBudget &budget, MCAST_TMR_S *timers, const EntryRules &rules);
    ~Router();
    Router(const Router &) = delete;
    Router &operator=(const Router &) = delete;

    uint8_t family() const
    {
        return key_.family;
    }
    uint16_t vrf_index() const
    {
        return key_.vrf_index;
    }
    const MRIB_GMP_VRF_KEY_S &key() const
    {
        return key_;
    }

    // Called whenever designated_interfaces may give another answer.
    void on_designated_router(std::function<void()> told);

    // Called whenever a source on a link of this router begins or ceases to send to the group.
    void on_local_source(
        std::function<void(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, bool present)> told);

    // Whether new sources are to be noticed even while nobody listens.
    void watch_sources(bool watch);

    void visit_local_sources(
        const std::function<void(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source)> &visitor) const;

    // What clients report. The results tell how the change was taken; false is of one interface too many.
    bool set_enabled(ClientId client, uint32_t if_index, bool enabled);
    bool set_querier(ClientId client, uint32_t if_index, bool this_router);
    MemberTable::Result set_member(ClientId client, uint32_t if_index, const MCAST_ADDR_S &group,
                                   const MCAST_ADDR_S &source, MemberTable::Kind kind, bool present);
    void drop_members(ClientId client, uint32_t if_index);
    void drop_client(ClientId client);

    // What PIM clients report, see daemons/common/pim_records.h. The results as above.
    bool set_pim_interface(ClientId client, uint32_t if_index, mcastd::PimInterfaceState state);
    TreeTable::Result set_tree(const Prefix &groups, const MCAST_ADDR_S &source, const TreeTable::Tree &tree);
    TreeTable::Result set_assert(ClientId client, uint32_t if_index, const MCAST_ADDR_S &group,
                                 const MCAST_ADDR_S &source, mcastd::PimAssertState state);

    // PIM answered the report of a new source.
    void take_answer(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source);

    // Packets of the source that come in elsewhere are to be told at once (PIM_TREE_WATCH).
    void watch(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source);

    // Who is told what PIM wants to know, from now on; NULL: nobody.
    void set_pim_listener(PimListener *listener);

    // Tells the listener of the kernel's table and the register interface when they are others than it was told last.
    void tell_instance();

    // What hosts want on the interface, for PIM.
    HostWish hosts(uint32_t if_index, const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) const;

    // As Forwarding.
    void await_answers(bool await)
    {
        forwarding_.await_answers(await);
    }
    void pass_answer_tick()
    {
        forwarding_.pass_answer_tick();
    }

    // A PIM client has said everything: what lost ones said and it did not say again ends.
    void end_pim_report();

    // The client's connection ended. When it ran a protocol on an interface and lost clients are kept, what
    // it wanted stays until drop_client, until the interface goes, or until another client of its kind, GMP or PIM, says
    // otherwise of the same thing; else it is dropped.
    void lose_client(ClientId client);

    // kept is called with each lost client that is kept from then on, let_go with each that ends before its time; NULL: none is
    // kept.
    void keep_lost_clients(std::function<void(ClientId client)> kept,
                           std::function<void(ClientId client)> let_go = nullptr);

    // What the kernel reports.
    void take_upcall(const Upcall &upcall);
    void links_changed();
    void link_renamed(uint32_t if_index);
    void link_removed(uint32_t if_index); // with all that was reported for it; its index does not come back
    void routes_changed(const MCAST_ADDR_S &prefix, unsigned length);

    // Gives up every virtual interface and entry in the kernel. They come back with settle.
    void leave_kernel();

    // Does what the calls above left to do: virtual interfaces, then a bounded number of entries. Whether
    // there is more. To be called after every round of the event loop.
    bool settle();

    // Interfaces of which GMP daemons are to report memberships, ascending: where PIM runs, those for which this router is
    // the designated router or where it won an assert; others as long as a GMP daemon runs there.
    std::vector<uint32_t> designated_interfaces() const;

    const MemberTable &members() const
    {
        return members_;
    }
    const GmpState &gmp() const
    {
        return gmp_;
    }
    const PimState &pim() const
    {
        return pim_;
    }
    const TreeTable &trees() const
    {
        return trees_;
    }
    const VifTable &vifs() const
    {
        return vifs_;
    }
    const Forwarding &forwarding() const
    {
        return forwarding_;
    }
    const Environment &environment() const
    {
        return environment_;
    }
    KernelTable &kernel() const
    {
        return kernel_;
    }

private:
    std::vector<uint32_t> wanted_interfaces() const;
    bool refresh_vifs();
    void gmp_changed();
    void drop_trees(ClientId client);
    void tell_host(uint32_t if_index, const MCAST_ADDR_S &group, const MCAST_ADDR_S &source,
                   bool exclude) const;
    void host_changed(ClientId client, uint32_t if_index, const MCAST_ADDR_S &group,
                      const MCAST_ADDR_S &source, MemberTable::Kind kind) const;
    template <typename Visitor> void visit_lost(bool pim, const Visitor &visitor) const
    {
        for (const ClientId lost : lost_) {
            if (pim_.is_client(lost) == pim) {
                visitor(lost);
            }
        }
    }
    void try_vifs_again();
    void trace_member(uint32_t if_index, const MCAST_ADDR_S &group, const MCAST_ADDR_S &source,
                      MemberTable::Kind kind, bool present) const;

    MRIB_GMP_VRF_KEY_S key_;
    MCAST_TMR_S *timers_;
    mcastd::Timer vif_retry_;
    KernelTable &kernel_;
    const Environment &environment_;
    MemberTable members_;
    GmpState gmp_;
    PimState pim_;
    TreeTable trees_;
    VifTable vifs_;
    Forwarding forwarding_;
    std::function<void()> designated_router_told_;
    std::function<void(ClientId client)> lost_kept_;
    std::function<void(ClientId client)> lost_let_go_;
    std::vector<ClientId> lost_; // that are kept
    PimListener *pim_listener_ = nullptr;
    struct Instance {
        bool served = false;
        uint32_t table = 0;
        int register_vif = -1;
        bool operator==(const Instance &) const = default;
    };
    Instance told_instance_; // to the listener
    bool vifs_stale_ = false;
    bool watches_sources_ = false;
};

} // namespace mribd

#endif
