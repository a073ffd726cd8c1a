/*
 * The multicast trees of one family and instance: what downstream routers, hosts and asserts make of (*,G) and (S,G), where
 * packets go, and what is asked upstream. Links are numbers below MOST_LINKS.
 *
 * Every call may make or end entries and start events of others: settle, to be called after each of them and after
 * timers ran, brings everything to where it belongs. Pointers that find gives are valid until then.
 */
#ifndef DAEMONS_PIMSMD_TREE_H
#define DAEMONS_PIMSMD_TREE_H

#include <deque>
#include <vector>

#include "daemons/common/limit_watch.h"
#include "daemons/pimsmd/rate_limit.h"
#include "daemons/pimsmd/tree_entry.h"

namespace pimsmd
{

// Groups and sources in all, and links of them that one neighbour may make.
constexpr uint32_t MOST_TREE_ENTRIES = 524288;
constexpr uint32_t MOST_JOINS_OF_NEIGHBOUR = 262144;

// Sources that Registers made; Registers with packets and Register-Stops, a second.
constexpr uint32_t MOST_REGISTERED = 131072;
constexpr uint32_t REGISTERS_PER_S = 20000;
constexpr uint32_t REGISTER_STOPS_PER_S = 2000;

struct TreeSettings {
    uint32_t most_entries = MOST_TREE_ENTRIES;
    uint32_t most_of_neighbour = MOST_JOINS_OF_NEIGHBOUR;
    uint32_t join_period_s = 60;
    uint32_t keepalive_s = 210;
    uint32_t most_registered = MOST_REGISTERED;
    uint32_t registers_per_s = REGISTERS_PER_S;
    uint32_t register_stops_per_s = REGISTER_STOPS_PER_S;
    uint32_t register_suppression_s = 60;
    uint32_t register_probe_s = 5;
};

class Trees
{
public:
    // Queue, surroundings and counters outlive it. Throws std::bad_alloc when there is no memory for it.
    Trees(uint16_t family, MsQueue &queue, Surroundings &surroundings, Counters &counters,
          const TreeSettings &settings = {});
    ~Trees();
    Trees(const Trees &) = delete;
    Trees &operator=(const Trees &) = delete;

    // A Join/Prune on a link, to this router or to another one there. The sender is a neighbour.
    void join_prune(unsigned link, const Address &sender, const JoinPrune &message);

    // An Assert of another router on a link, which is a neighbour.
    void assert_heard(unsigned link, const Address &sender, const Assert &message);

    // A packet of the source came in from the link.
    void packet(unsigned link, const Address &group, const Address &source);

    // No packet of the source came for longer than its keepalive. One that Registers tell of has them for that.
    void source_silent(const Address &group, const Address &source);

    // The source of another domain is there, as far as MSDP knows, or no longer: the RP joins it for those who want the
    // group.
    void set_remote(const Address &group, const Address &source, bool there);

    // A Register with the addresses of its packet. Whether the packet in it goes down the shared tree.
    bool register_heard(const Envelope &outer, const Register &message);

    // A Register-Stop, which counts when the RP in question sent it.
    void register_stop_heard(const Address &sender, const RegisterStop &message);

    // Hosts on the link want the group (an unspecified source), or the source of it; or all but the source.
    void set_receivers(unsigned link, const Address &group, const Address &source, bool wanted);
    void set_excluded(unsigned link, const Address &group, const Address &source, bool excluded);

    // This router is designated on the link, or not.
    void set_dr(unsigned link, bool is_dr);

    // Routes, RPs or what holds on links may be others now.
    void routes_changed();

    // A neighbour of the link has another generation, or is gone.
    void neighbour_restarted(unsigned link, const Address &neighbour);
    void neighbour_gone(unsigned link, const Address &neighbour);

    // The link is no more: neither neighbours nor hosts nor asserts of it count, and nothing is said there.
    void forget_link(unsigned link);

    // Takes other settings. Those of rates begin anew.
    void set(const TreeSettings &settings);

    // Works off what follows from what came, with so many looks at entries at most. Whether some are left: then Joins(*,G)
    // wait, and entries that nobody needs stay.
    bool settle(size_t most = SIZE_MAX);

    const GroupEntry *find(const Address &group) const;
    const SourceEntry *find(const Address &group, const Address &source) const;

    // The entry after the address, or the first for NULL, in the order of addresses; NULL when there is none.
    const GroupEntry *next_group(const Address *after) const;
    static const SourceEntry *next_source(const GroupEntry &group, const Address *after);
    static const SourceEntry *find_in(const GroupEntry &group, const Address &source);

    uint16_t family() const
    {
        return family_;
    }
    uint32_t entries() const
    {
        return entries_;
    }
    LinkRoles roles() const
    {
        return roles_;
    }

    // For the entries.
    MsQueue &queue()
    {
        return queue_;
    }
    Surroundings &surroundings()
    {
        return surroundings_;
    }
    const TreeSettings &settings() const
    {
        return settings_;
    }
    void mark(Entry &entry);
    void link_gone(const EntryLink &link);

    // Calls visit(GroupEntry &) for each group; visit makes and ends none.
    template <typename Visit> void visit_groups(Visit visit) const
    {
        MRT_WALK_S *walk = MRT_Walk_ReadMode(table_);
        while (auto *group = static_cast<MRT_GROUP_S *>(MRT_WalkNext(walk))) {
            visit(*static_cast<GroupEntry *>(group->user_data));
        }
        MRT_DeleteWalk(walk);
    }

    // Calls visit(SourceEntry &) for each source of the group; visit makes and ends none.
    template <typename Visit> static void visit_sources(const GroupEntry &group, Visit visit)
    {
        MRT_WALK_S *walk = MRT_Walk_ReadMode(group.entry->sources);
        while (auto *source = static_cast<MRT_SOURCE_S *>(MRT_WalkNext(walk))) {
            visit(*static_cast<SourceEntry *>(source->user_data));
        }
        MRT_DeleteWalk(walk);
    }

private:
    struct Less {
        bool operator()(const Address &first, const Address &second) const
        {
            return address_less(first, second);
        }
    };

    GroupEntry *group_of(const Address &address) const;
    SourceEntry *source_of(const GroupEntry &group, const Address &address) const;
    bool has_room();
    GroupEntry *make_group(const Address &address);
    SourceEntry *make_source(const Address &group, const Address &source);
    void end_settling();
    bool charge(EntryLink &link, const Address &maker);
    StarLink *link_on(GroupEntry &group, unsigned link, const Address &maker);
    SourceLink *link_on(SourceEntry &source, unsigned link, const Address &maker);
    void remove_if_idle(Entry &entry);
    SourceEntry *make_registered(const Address &group, const Address &address);
    bool stop_register(const Envelope &outer, const Register &message);
    void check_switch(SourceEntry &source);
    // What one message does, in its order. A group whose shared tree it joins or prunes is dealt with once, however
    // often the message says it: all sources of the group are looked at.
    struct Reading {
        unsigned link;
        const Address &sender;
        const JoinPrune &message;
        LinkFacts facts;
        std::vector<GroupEntry *> stars;
    };
    static bool is_first(Reading &reading, GroupEntry &group);
    void asked(Reading &reading, const Address &group, const TreeSource &source, bool join);
    void asked_star(Reading &reading, const Address &group, const TreeSource &source, bool join);
    void asked_source(Reading &reading, const Address &group, const TreeSource &source, bool join);
    void seen(Reading &reading, const Address &group, const TreeSource &source, bool join);
    static void seen_star(Reading &reading, GroupEntry &group, bool join);
    static void seen_source(const Reading &reading, SourceEntry &source, Tree tree, bool join);

    uint16_t family_;
    MsQueue &queue_;
    Surroundings &surroundings_;
    Counters &counters_;
    TreeSettings settings_;
    LinkRoles roles_;
    MRT_TABLE_S *table_;
    uint32_t entries_ = 0;
    uint32_t registered_ = 0;
    SharedRateLimit stops_;
    std::map<Address, uint32_t, Less> made_by_; // links that each neighbour made
    std::deque<Entry *> marked_;
    std::vector<Entry *> settled_; // since all was quiet
    mcastd::LimitWatch<90, 80> limit_watch_;
};

} // namespace pimsmd

#endif
