/*
 * The entries of the trees, (*,G) and (S,G), with their machines. They are the tree's own; who uses the tree reads them.
 *
 *      GroupEntry                          SourceEntry, of a GroupEntry
 *        words: StarState                    words: SourceState
 *        upstream machine                    upstream machine, that of (S,G,rpt), that of Registers
 *        StarLink for each link on which     SourceLink for each link on which
 *        something is: downstream, assert    something is: downstream, that of (S,G,rpt), assert
 *
 * The machines of a link set the words; from the words follow the events of the upstream machines and the ends of asserts.
 * Machines must not go while one of them acts, and one event leads to others. So an event only marks its entry, and
 * Trees::settle works off what is marked.
 */
#ifndef DAEMONS_PIMSMD_TREE_ENTRY_H
#define DAEMONS_PIMSMD_TREE_ENTRY_H

#include <map>
#include <memory>

#include "daemons/pimsmd/downstream.h"
#include "daemons/pimsmd/olist.h"
#include "daemons/pimsmd/rpt_prune.h"
#include "daemons/pimsmd/surroundings.h"
#include "daemons/pimsmd/tree_register.h"
#include "daemons/pimsmd/upstream.h"
#include "mcast/route_table.h"

namespace pimsmd
{

class Trees;
struct GroupEntry;
struct SourceEntry;

// Whom an entry asks: RPF'. A neighbour that is unspecified is asked for nothing.
struct Upstream {
    int link = NO_LINK;
    Address neighbour{};

    bool operator==(const Upstream &other) const
    {
        return link == other.link && same_address(neighbour, other.neighbour);
    }
    bool is(unsigned on, const Address &address) const
    {
        return link == static_cast<int>(on) && same_address(neighbour, address);
    }
};

// What both kinds of entries have.
struct Entry : upstream::Owner {
    Entry(Trees &owner, const upstream::Table &table);
    virtual ~Entry() = default;
    Entry(const Entry &) = delete;
    Entry &operator=(const Entry &) = delete;

    // Works off what the words say now.
    virtual void settle() = 0;
    // Whether nothing is left for which it has to be kept.
    virtual bool is_idle() const = 0;

    // Brings upstream machine and RPF' to what is desired.
    void settle_upstream(bool desired, const Upstream &now);

    uint32_t period_ms() override;
    uint32_t draw_suppression_ms() override;
    uint32_t draw_override_ms() override;

    Trees &trees;
    bool marked = false;
    bool routes_stale = true;
    Route route; // to the RP, or to the source
    Upstream to; // RPF'
    Upstream before;
    bool by_route = false; // the last change of RPF' came of the route
    upstream::Runner machine;
};

// What is on one link of an entry. maker counts against the neighbour that made it.
struct EntryLink : downstream::Owner, asserts::Owner {
    EntryLink(Trees &owner, Entry &of, unsigned on, const asserts::Table &table);
    virtual ~EntryLink();
    EntryLink(const EntryLink &) = delete;
    EntryLink &operator=(const EntryLink &) = delete;

    Links bit() const
    {
        return Links{1} << link;
    }
    virtual bool is_idle() const
    {
        return !join.forwards() && assertion.state() == asserts::State::NoInfo;
    }
    // Ends an assert that the words do not support any more.
    void settle_assert(bool could, bool tracks, bool rpf_moved_away);

    Trees &trees;
    Entry &entry;
    unsigned link;
    Address maker{};
    downstream::Runner join;
    asserts::Runner assertion;

    void set_spt_bit(asserts::Runner &) override
    {
    }
};

struct StarLink final : EntryLink {
    StarLink(GroupEntry &of, unsigned on);
    void changed(downstream::Runner &runner) override;
    void echo_prune(downstream::Runner &runner) override;
    void changed(asserts::Runner &runner) override;
    void send_assert(asserts::Runner &runner) override;
    void send_cancel(asserts::Runner &runner) override;
    asserts::Metric own_metric(const asserts::Runner &runner) override;

    GroupEntry &group;
};

struct SourceLink final : EntryLink, rpt_downstream::Owner {
    SourceLink(SourceEntry &of, unsigned on);
    bool is_idle() const override
    {
        return EntryLink::is_idle() && rpt.state() == rpt_downstream::State::NoInfo;
    }
    void changed(downstream::Runner &runner) override;
    void echo_prune(downstream::Runner &runner) override;
    void changed(rpt_downstream::Runner &runner) override;
    void changed(asserts::Runner &runner) override;
    void send_assert(asserts::Runner &runner) override;
    void send_cancel(asserts::Runner &runner) override;
    asserts::Metric own_metric(const asserts::Runner &runner) override;
    void set_spt_bit(asserts::Runner &runner) override;

    SourceEntry &source;
    rpt_downstream::Runner rpt;
};

struct GroupEntry final : Entry {
    GroupEntry(Trees &owner, MRT_GROUP_S *of);

    const Address &address() const
    {
        return *entry->address;
    }
    StarLink *link_on(unsigned link) const
    {
        const auto found = links.find(link);
        return found != links.end() ? found->second.get() : nullptr;
    }
    void settle() override;
    bool is_idle() const override;
    void read_route();
    Upstream upstream_now() const;
    asserts::Metric metric_on(unsigned link) const;

    void send_join() override;
    void send_prune() override;
    void send_prune_to_old() override;
    void clear_spt_bit() override
    {
    }

    MRT_GROUP_S *entry;
    std::optional<Address> rp;
    bool join_due = false; // a Join(*,G), when all of its sources have settled
    StarState words;
    StarState told; // when outputs and sources were told last
    std::optional<Address> told_rp;
    Links told_outputs = 0;
    Upstream told_to;
    std::map<unsigned, std::unique_ptr<StarLink>> links;

    void flush();

private:
    void send_star(const Upstream &where, bool join);
};

struct SourceEntry final : Entry, rpt_upstream::Owner {
    SourceEntry(GroupEntry &of, MRT_SOURCE_S *on);

    const Address &address() const
    {
        return *entry->address;
    }
    SourceLink *link_on(unsigned link) const
    {
        const auto found = links.find(link);
        return found != links.end() ? found->second.get() : nullptr;
    }
    SourceView view() const;
    void settle() override;
    bool is_idle() const override;
    bool is_unreported() const; // whether the first packet over its own tree is not told of
    void read_route();
    Upstream upstream_now() const;
    Upstream rpt_upstream_now() const; // RPF'(S,G,rpt)
    void settle_rpt();
    void settle_register();
    // The RP to which its packets go in Registers; nothing when they do not.
    std::optional<Address> registers_to() const;
    // Whether a Join(*,G) has to prune the source (RFC 7761, section 4.5.6).
    bool is_pruned_with_star() const;
    asserts::Metric metric_on(unsigned link) const;
    void packet_came(uint32_t keepalive_ms);

    void send_join() override;
    void send_prune() override;
    void send_prune_to_old() override;
    void clear_spt_bit() override;
    void send_join_rpt() override;
    void send_prune_rpt() override;
    uint32_t draw_override_ms() override
    {
        return Entry::draw_override_ms();
    }

    GroupEntry &group;
    MRT_SOURCE_S *entry;
    SourceState words;
    SourceState told; // when outputs were told last
    Links told_outputs = 0;
    Upstream rpt_to; // RPF'(S,G,rpt)
    rpt_upstream::Runner rpt;
    MsTimer keepalive;
    std::unique_ptr<SourceRegister> registering;
    bool tunnel_changed = false;
    bool registered = false;   // Registers came of it
    bool was_reported = false; // packets of it came, as far as the MRIB process told
    bool remote = false;       // an MSDP peer told of it
    std::map<unsigned, std::unique_ptr<SourceLink>> links;

private:
    static void keepalive_over(void *self);
    void send_one(const Upstream &where, Tree kind, bool join);
};

} // namespace pimsmd

#endif
