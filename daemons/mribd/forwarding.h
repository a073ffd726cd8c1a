/*
 * The forwarding entries of one instance: which (source, group) the kernel forwards, from where to where.
 */
#ifndef DAEMONS_MRIBD_FORWARDING_H
#define DAEMONS_MRIBD_FORWARDING_H

#include <cstdint>
#include <deque>
#include <functional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "daemons/common/timer.h"
#include "daemons/common/trace.h"
#include "daemons/mribd/address.h"
#include "daemons/mribd/environment.h"
#include "daemons/mribd/gmp_state.h"
#include "daemons/mribd/kernel_table.h"
#include "daemons/mribd/member_table.h"
#include "daemons/mribd/upcall.h"
#include "daemons/mribd/vif_table.h"
#include "mcast/route_table.h"

namespace mribd
{

class Forwarding;

// One (source, group). Its addresses are those of its node in the table.
struct Entry {
    Forwarding *owner = nullptr;
    MRT_SOURCE_S *node = nullptr;
    uint32_t upstream = 0; // interface on which the packets are to arrive, 0 when there is none
    uint32_t arrival = 0;  // interface on which a packet last asked for the entry, 0 when none did
    int parent = -1;       // as installed: incoming virtual interface
    uint32_t outgoing = 0; // as installed: outgoing virtual interfaces
    bool installed = false;
    bool check_route = true;  // upstream is to be determined again
    bool unreachable = false; // the last check found no incoming interface
    bool queued = false;      // waits to be evaluated
    bool is_sending = false;  // packets came, as far as the kernel told
    bool is_local = false;    // is_sending, and the source is on the link of its incoming interface
    uint64_t last_packets = 0;
    mcastd::Timer timer; // of the idle period

    const MCAST_ADDR_S &source() const
    {
        return *node->address;
    }
    const MCAST_ADDR_S &group() const
    {
        return *node->group->address;
    }
};

struct ForwardingCounters {
    uint64_t upcalls = 0;
    uint64_t stray_upcalls = 0;    // on a virtual interface that is gone
    uint64_t wrong_interface = 0;  // packets reported on another than the incoming interface
    uint64_t no_route = 0;         // times that an entry lost, or never had, an incoming interface
    uint64_t refused_by_limit = 0; // new entries beyond the limit
    uint64_t refused_by_memory = 0;
    uint64_t kernel_failures = 0; // entries that the kernel did not take
    uint64_t expired = 0;
};

class Forwarding
{
public:
    struct Parts {
        MRIB_GMP_VRF_KEY_S key;
        KernelTable &kernel;
        const Environment &environment;
        const MemberTable &members;
        const GmpState &gmp;
        const VifTable &vifs;
        MCAST_TMR_S *timers;
        uint32_t entry_limit;
        uint32_t idle_period_s; // after which an entry is checked for packets, at least 1
    };

    explicit Forwarding(const Parts &parts);
    ~Forwarding();
    Forwarding(const Forwarding &) = delete;
    Forwarding &operator=(const Forwarding &) = delete;

    // The kernel asks; an answer to a packet without entry goes out before the call returns.
    void take_upcall(const Upcall &upcall);

    // Memberships changed, as MemberTable::Changed says. Evaluated by settle.
    void membership_changed(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source);

    // Unicast routes under the prefix, or all with length 0, may have changed. Evaluated by settle.
    void routes_changed(const MCAST_ADDR_S &prefix, unsigned length);

    // Virtual interfaces, or which links this router forwards on to, changed. Evaluated by settle.
    void interfaces_changed()
    {
        interfaces_changed_ = true;
    }

    // No entry uses these virtual interfaces when it returns.
    void vacate_vifs(uint32_t bits);

    // Evaluates at most limit entries that wait. Whether some are left.
    bool settle(unsigned limit);

    // Whether some entry's packets arrive on the interface.
    bool is_upstream(uint32_t if_index) const
    {
        return entries_per_upstream_.contains(if_index);
    }

    // Whether is_upstream gives other answers than at the last call of this.
    bool take_upstream_change()
    {
        return std::exchange(upstream_changed_, false);
    }

    // Called whenever an entry becomes local (Entry::is_local) or ceases to be. It must not change entries.
    void on_local_source(std::function<void(const Entry &entry)> told)
    {
        local_source_told_ = std::move(told);
    }

    uint32_t entry_count() const
    {
        return entry_count_;
    }

    const ForwardingCounters &counters() const
    {
        return counters_;
    }

    // Visits all entries in order of group, then source.
    void visit(const std::function<void(const Entry &)> &visitor) const;

    // Visits entries in the same order, beginning with the one of (group, source) or the first after it,
    // until visitor returns false. NULL source: from the group's first; NULL group: from the first of all.
    void visit_from(const MCAST_ADDR_S *group, const MCAST_ADDR_S *source,
                    const std::function<bool(const Entry &)> &visitor) const;

private:
    Entry *find(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) const;
    Entry *find_or_create(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source);
    void remove(Entry *entry);
    bool start_idle_period(Entry *entry);
    void check_idle(Entry *entry);
    void queue(Entry *entry, bool check_route);
    void queue_changed();
    void watch_limit();
    void evaluate(Entry *entry);
    void determine_upstream(Entry *entry);
    void set_upstream(Entry *entry, uint32_t upstream);
    void set_sending(Entry *entry, bool is_sending);
    uint32_t outgoing_for(const Entry *entry) const;
    void install(Entry *entry, int parent, uint32_t outgoing);
    void withdraw(Entry *entry);
    void trace_entry(const Entry *entry, const char *what) const;
    template <typename... Arguments>
    void trace_route(std::type_identity_t<mcastd::LineFormat<Arguments...>> format,
                     Arguments... arguments) const
    {
        mcastd::trace(mcastd::TraceCategory::Route, parts_.key, format, arguments...);
    }

    Parts parts_;
    MRT_TABLE_S *table_;
    uint32_t entry_count_ = 0;
    bool limit_near_reported_ = false;
    bool limit_reported_ = false;
    std::deque<Entry *> waiting_; // may hold NULL for entries that were removed meanwhile
    std::unordered_map<uint32_t, uint32_t> entries_per_upstream_;
    bool upstream_changed_ = false;
    bool interfaces_changed_ = false;
    std::vector<Prefix> changed_prefixes_;
    ForwardingCounters counters_;
    std::function<void(const Entry &)> local_source_told_;
};

} // namespace mribd

#endif
