/*
 * The forwarding entries of one instance: which (source, group) the kernel forwards, from where to where.
 */
#ifndef DAEMONS_MRIBD_FORWARDING_H
#define DAEMONS_MRIBD_FORWARDING_H

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "daemons/common/trace.h"
#include "daemons/mribd/address.h"
#include "daemons/mribd/entry_table.h"
#include "daemons/mribd/environment.h"
#include "daemons/mribd/gmp_state.h"
#include "daemons/mribd/kernel_table.h"
#include "daemons/mribd/member_table.h"
#include "daemons/mribd/pim_state.h"
#include "daemons/mribd/tree_table.h"
#include "daemons/mribd/upcall.h"
#include "daemons/mribd/vif_table.h"

namespace mribd
{

struct ForwardingCounters {
    uint64_t upcalls = 0;
    uint64_t stray_upcalls = 0;    // on a virtual interface that is gone
    uint64_t wrong_interface = 0;  // packets reported on another than the incoming interface
    uint64_t no_route = 0;         // times that an entry lost, or never had, an incoming interface
    uint64_t refused_by_limit = 0; // new entries beyond the limit
    uint64_t refused_by_memory = 0;
    uint64_t kernel_failures = 0; // entries that the kernel did not take
    uint64_t displaced = 0;       // entries that made room for others
    uint64_t expired = 0;         // no packet in a whole idle period
    uint64_t ended = 0;           // no packet, and the last membership went
    uint64_t given_way = 0;       // outputs left to another router that forwards
    uint64_t taken_up = 0;        // entries whose outputs were taken up again after that
    uint64_t unanswered = 0;      // new sources about which PIM did not answer in time
    uint64_t not_awaited = 0;     // and those that did not wait for the answer, because as many did already
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
        const PimState &pim;
        const TreeTable &trees;
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
    enum class Change { More, Fewer }; // is to be received
    void membership_changed(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source,
                            Change change = Change::Fewer);

    // Unicast routes under the prefix, or all with length 0, may have changed. Evaluated by settle.
    void routes_changed(const MCAST_ADDR_S &prefix, unsigned length);

    // What PIM says of the trees of these groups, or of one source of a group, changed: where packets come from, or asserts
    // alone. Evaluated by settle.
    enum class TreeChange { Upstream, Asserts };
    void tree_changed(const Prefix &groups, const MCAST_ADDR_S &source, TreeChange change);

    // Virtual interfaces, or which links this router forwards on to, changed. Evaluated by settle.
    void interfaces_changed()
    {
        interfaces_changed_ = true;
    }

    // No entry uses these virtual interfaces when it returns. Needs no memory.
    void vacate_vifs(uint32_t bits);

    // Evaluates at most limit entries that wait, mostly those of which more is to be received. Whether some are left.
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

    // Called with what PIM is to know of an entry's source, see PimListener::tell_source. It must not change entries.
    using PimSourceTold =
        std::function<bool(const Entry &entry, mcastd::PimSourceState state, uint32_t if_index)>;
    void on_pim_source(PimSourceTold told)
    {
        pim_source_told_ = std::move(told);
    }

    // From now on entries for new sources wait for the answer of PIM, as long as pass_answer_tick is called every
    // ANSWER_TICK_MS while awaits_answers; or do not wait.
    static constexpr uint32_t ANSWER_TICK_MS = 25;
    void await_answers(bool await)
    {
        may_await_ = await;
    }
    bool awaits_answers() const
    {
        return !awaiting_.empty();
    }
    void pass_answer_tick();

    // PIM answered about (source, group).
    void take_answer(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source);

    // The next packet of the source on a wrong interface is to be reported, though one was a moment ago.
    void watch(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source);

    // Called whenever an entry becomes local (Entry::is_local) or ceases to be. It must not change entries.
    void on_local_source(std::function<void(const Entry &entry)> told)
    {
        local_source_told_ = std::move(told);
    }

    uint32_t entry_count() const
    {
        return entries_.size();
    }

    // How many of them the virtual interface has, see EntryTable.
    uint32_t share_size(unsigned vif) const
    {
        return entries_.share_size(vif);
    }

    const ForwardingCounters &counters() const
    {
        return counters_;
    }

    // As EntryTable::visit_from.
    void visit_from(const MCAST_ADDR_S *group, const MCAST_ADDR_S *source,
                    const std::function<bool(const Entry &)> &visitor) const
    {
        entries_.visit_from(group, source, visitor);
    }

private:
    // forwarding_limit.cpp
    Entry *create(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source);
    bool make_room(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, unsigned share);
    Entry *used_entry_to_displace(unsigned share);
    bool is_silent(Entry *entry) const;
    void rank(Entry *entry);
    void watch_limit();

    // forwarding_upstream.cpp
    static constexpr size_t PREFIXES_TOLD_APART = 16;
    void queue_changed();
    void queue_refused();
    void ask_again_later();
    void determine_upstream(Entry *entry);
    void set_upstream(Entry *entry, uint32_t upstream);
    void set_sending(Entry *entry, bool is_sending);

    // forwarding_yield.cpp
    uint32_t given_way(Entry *entry);
    void hear_other_router(Entry *entry, unsigned vif);
    void give_way(Entry *entry, uint32_t bits);
    void note_others(uint32_t bits);
    bool begin_yield(Entry *entry);
    bool watch_yield(Entry *entry, uint32_t after_ms);
    void end_yield(Entry *entry);
    bool count_elsewhere(Entry *entry);
    void check_yield(Entry *entry);
    static void forget_yields(Entry *entry, uint32_t bits);

    void take_new_source(const Upcall &upcall, uint32_t arrival);
    void take_wrong_interface(const Upcall &upcall, uint32_t arrival);
    void forget_reports(Entry *entry);
    void remove(Entry *entry);
    bool start_idle_period(Entry *entry);
    void check_idle(Entry *entry);
    bool has_no_purpose(const Entry *entry) const;
    bool is_forwarder(uint32_t if_index) const
    {
        return parts_.pim.runs_on(if_index) || parts_.gmp.is_forwarder(if_index);
    }
    void queue(Entry *entry, bool check_route, bool urgent = false);
    void unqueue(Entry *entry);
    Entry *next_waiting(bool urgent);
    void evaluate(Entry *entry);
    uint32_t outgoing_for(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, uint32_t upstream,
                          bool is_shared_tree = false) const;

    // forwarding_pim.cpp
    uint32_t pim_outgoing(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, uint32_t upstream,
                          bool is_shared_tree) const;
    std::optional<uint32_t> tree_upstream(Entry *entry) const;
    uint32_t register_output(const Entry *entry) const;
    bool waits_for_packets(const Entry *entry) const;

    // forwarding_answer.cpp
    // Sources that wait for an answer; of one virtual interface half as many.
    static constexpr size_t MOST_AWAITING = 1024;
    struct Awaiting {
        MCAST_ADDR_S group;
        MCAST_ADDR_S source;
        unsigned vif;
        bool is_old; // since before the last tick
    };
    bool tell_source(Entry *entry, mcastd::PimSourceState state, uint32_t if_index);
    bool await_answer(Entry *entry, unsigned vif);
    void end_awaiting(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source);
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
    EntryTable entries_;
    bool limit_near_reported_ = false;
    bool limit_reported_ = false;
    EntryList<&Entry::in_waiting> urgent_;  // to be evaluated, somebody waits for packets
    EntryList<&Entry::in_waiting> waiting_; // the others
    bool lacks_route_ = false;              // the route of an entry is to be asked for again
    mcastd::Timer route_retry_;             // runs while one could not be asked for
    std::unordered_map<uint32_t, uint32_t> entries_per_upstream_;
    bool upstream_changed_ = false;
    bool interfaces_changed_ = false;
    std::vector<Prefix> changed_prefixes_; // has room for all that are told apart
    std::vector<Prefix> changed_groups_;   // of which PIM said something else; has as much room
    std::array<uint32_t, MAX_VIFS>
        others_known_s_{}; // when another router was found to forward there; 0: never
    ForwardingCounters counters_;
    std::function<void(const Entry &)> local_source_told_;
    PimSourceTold pim_source_told_;
    bool may_await_ = false;
    std::vector<Awaiting> awaiting_;
};

} // namespace mribd

#endif
