/*
 * (S,G) and (S,G,rpt): links, the way to the source, what is asked over its own tree and over the shared one.
 *
 * A source's entry does not wait for packets: a Prune(S,G,rpt), a host that excludes it, an assert make one as well. The
 * machine of (S,G,rpt) begins where it would be had it been there all the time: on the shared tree when the group is.
 */
#include "daemons/pimsmd/tree.h"

namespace pimsmd
{
namespace
{

void put(Links &links, Links bits, bool on)
{
    links = on ? links | bits : links & ~bits;
}

} // namespace

SourceLink::SourceLink(SourceEntry &of, unsigned on)
    : EntryLink(of.trees, of, on, asserts::SOURCE_TABLE), source(of), rpt(of.trees.queue(), *this)
{
}

void SourceLink::changed(downstream::Runner &runner)
{
    put(source.words.joins, bit(), runner.forwards());
    trees.mark(source);
}

void SourceLink::echo_prune(downstream::Runner &)
{
    const Wish wish{{source.address(), Tree::Source}, false};
    trees.surroundings().send(link, trees.surroundings().facts_of(link).own, source.group.address(),
                              {&wish, 1});
}

void SourceLink::changed(rpt_downstream::Runner &runner)
{
    put(source.words.rpt_prunes, bit(), runner.prunes());
    trees.mark(source);
}

void SourceLink::changed(asserts::Runner &runner)
{
    put(source.words.lost, bit(), runner.state() == asserts::State::Loser);
    put(source.words.won, bit(), runner.state() == asserts::State::Winner);
    put(source.words.lost_to_better, bit(),
        runner.state() == asserts::State::Loser && is_better(runner.winner(), source.metric_on(link)));
    trees.mark(source);
}

void SourceLink::send_assert(asserts::Runner &)
{
    trees.surroundings().send_assert(link, source.group.address(), source.address(), source.metric_on(link));
}

void SourceLink::send_cancel(asserts::Runner &)
{
    trees.surroundings().send_assert(link, source.group.address(), source.address(),
                                     asserts::infinite_metric(source.address().family));
}

asserts::Metric SourceLink::own_metric(const asserts::Runner &)
{
    if ((source.view().could_assert() & bit()) != 0) {
        return source.metric_on(link);
    }
    return (could_assert(source.group.words, trees.roles()) & bit()) != 0
               ? source.group.metric_on(link)
               : asserts::infinite_metric(source.address().family);
}

void SourceLink::set_spt_bit(asserts::Runner &)
{
    if ((source.words.rpf & bit()) != 0 && source.machine.joined()) {
        source.words.spt_bit = true;
    }
}

SourceEntry::SourceEntry(GroupEntry &of, MRT_SOURCE_S *on)
    : Entry(of.trees, upstream::SOURCE_TABLE), group(of), entry(on), rpt(of.trees.queue(), *this)
{
}

SourceView SourceEntry::view() const
{
    return {group.words, words, trees.roles()};
}

asserts::Metric SourceEntry::metric_on(unsigned link) const
{
    return {false, route.preference, route.metric, trees.surroundings().facts_of(link).own};
}

void SourceEntry::read_route()
{
    const Links before_rpf = words.rpf;
    route = trees.surroundings().route_to(address());
    routes_stale = false;
    by_route = true;
    words.rpf = route.link != NO_LINK ? Links{1} << route.link : 0;
    words.connected = route.connected;
    if (words.rpf != before_rpf) {
        words.spt_bit = false; // packets have to prove the new way first
    }
    for (const auto &[number, link] : links) {
        const bool moved_away = (link->bit() & before_rpf & ~words.rpf) != 0;
        const bool lost = link->assertion.state() == asserts::State::Loser;

        put(words.lost_to_better, link->bit(),
            lost && is_better(link->assertion.winner(), metric_on(link->link)));
        link->settle_assert(true, true, moved_away);
    }
}

Upstream SourceEntry::upstream_now() const
{
    Upstream now{route.link, route.neighbour};
    const SourceLink *on = route.link != NO_LINK ? link_on(static_cast<unsigned>(route.link)) : nullptr;
    if (on != nullptr && on->assertion.state() == asserts::State::Loser) {
        now.neighbour = on->assertion.winner().address;
    }
    return now;
}

Upstream SourceEntry::rpt_upstream_now() const
{
    Upstream now = group.to;
    const SourceLink *on = now.link != NO_LINK ? link_on(static_cast<unsigned>(now.link)) : nullptr;
    if (on != nullptr && on->assertion.state() == asserts::State::Loser) {
        now.neighbour = on->assertion.winner().address;
    }
    return now;
}

void SourceEntry::settle_rpt()
{
    using rpt_upstream::Event;
    using rpt_upstream::State;
    const bool star_desired = join_desired(group.words, trees.roles());
    const bool prune_desired = view().prune_desired_rpt(group.to == to);
    const Upstream now = rpt_upstream_now();
    const bool joins_star = !(rpt_to == now) && now == group.to;

    rpt_to = now;
    if (rpt.state() != State::RptNotJoined && !star_desired) {
        rpt.take(Event::RptJoinNotDesired);
    } else if (rpt.state() == State::RptNotJoined && prune_desired) {
        rpt.take(Event::PruneDesired);
    } else if (rpt.state() == State::RptNotJoined && view().inherited_olist_rpt() != 0) {
        rpt.take(Event::Inherits);
    } else if (rpt.state() == State::NotPruned && prune_desired) {
        rpt.take(Event::PruneDesired);
    } else if (rpt.state() == State::Pruned && !prune_desired) {
        rpt.take(Event::PruneNotDesired);
    } else if (joins_star) {
        rpt.take(Event::RpfJoinsStar);
    }
}

void SourceEntry::settle()
{
    if (routes_stale) {
        read_route();
    }
    words.remote = remote && group.rp && trees.surroundings().is_own(*group.rp);
    // The first packet alone is reported, which came before the Join; those after it come from the same link.
    if (words.connected && words.keepalive && view().join_desired()) {
        words.spt_bit = true;
    }
    if (!words.spt_bit && words.rpf != 0 && view().join_desired() && is_unreported()) {
        words.spt_bit = true;
    }
    for (const auto &[number, link] : links) {
        link->settle_assert((view().could_assert() & link->bit()) != 0,
                            (view().tracks_assert() & link->bit()) != 0, false);
    }
    settle_upstream(view().join_desired(), upstream_now());
    settle_rpt();
    settle_register();
    const Links outputs = view().inherited_olist();

    if (outputs != told_outputs || !(words == told) || tunnel_changed) {
        tunnel_changed = false;
        told_outputs = outputs;
        told = words;
        trees.surroundings().outputs_changed(group.address(), address());
    }
    std::erase_if(links, [](const auto &one) { return one.second->is_idle(); });
}

// The kernel tells of packets that come in elsewhere. Over the interface of the shared tree, or where there is no such tree,
// the source's own shows by nothing; the conditions are those of a packet (Trees::packet).
bool SourceEntry::is_unreported() const
{
    const bool no_shared_tree =
        !group.rp || (group.words.rpf == 0 && !trees.surroundings().is_own(*group.rp));
    const Upstream now = upstream_now();
    const bool same_neighbour = now == group.to && !is_unspecified(now.neighbour);
    return no_shared_tree ||
           (words.rpf == group.words.rpf &&
            (same_neighbour || view().inherited_olist_rpt() == 0 || (words.lost & words.rpf) != 0));
}

bool SourceEntry::is_idle() const
{
    return links.empty() && words.receivers == 0 && words.excluded == 0 && !words.keepalive && !remote &&
           !machine.joined();
}

bool SourceEntry::is_pruned_with_star() const
{
    if (words.spt_bit) {
        return !(group.to == to);
    }
    return view().inherited_olist_rpt() == 0 || !(rpt_upstream_now() == group.to);
}

void SourceEntry::packet_came(uint32_t keepalive_ms)
{
    trees.queue().start(keepalive, keepalive_ms, keepalive_over, this);
    words.keepalive = true;
    trees.mark(*this);
}

void SourceEntry::keepalive_over(void *self)
{
    auto *entry = static_cast<SourceEntry *>(self);
    entry->words.keepalive = false;
    entry->trees.mark(*entry);
}

void SourceEntry::send_one(const Upstream &where, Tree kind, bool join)
{
    const Wish wish{{address(), kind}, join};
    if (where.link != NO_LINK && !is_unspecified(where.neighbour)) {
        trees.surroundings().send(static_cast<unsigned>(where.link), where.neighbour, group.address(),
                                  {&wish, 1});
    }
}

void SourceEntry::send_join()
{
    send_one(to, Tree::Source, true);
}

void SourceEntry::send_prune()
{
    send_one(to, Tree::Source, false);
}

void SourceEntry::send_prune_to_old()
{
    send_one(before, Tree::Source, false);
}

// Without it this router can assert nothing about the source.
void SourceEntry::clear_spt_bit()
{
    if (words.spt_bit) {
        words.spt_bit = false;
        trees.mark(*this);
    }
}

void SourceEntry::send_join_rpt()
{
    send_one(rpt_to, Tree::Rpt, true);
}

void SourceEntry::send_prune_rpt()
{
    send_one(rpt_to, Tree::Rpt, false);
}

} // namespace pimsmd
