/*
 * (*,G): its links, its RP, what it asks upstream. A change of its words is one for all of its sources, which inherit
 * its outputs; they are marked and settle after it.
 */
#include "daemons/pimsmd/tree.h"

namespace pimsmd
{
namespace
{

// Sets or clears bits.
void put(Links &links, Links bits, bool on)
{
    links = on ? links | bits : links & ~bits;
}

} // namespace

StarLink::StarLink(GroupEntry &of, unsigned on) : EntryLink(of.trees, of, on, asserts::STAR_TABLE), group(of)
{
}

void StarLink::changed(downstream::Runner &runner)
{
    put(group.words.joins, bit(), runner.forwards());
    trees.mark(group);
}

void StarLink::echo_prune(downstream::Runner &)
{
    if (group.rp) {
        const Wish wish{{*group.rp, Tree::Star}, false};

        trees.surroundings().send(link, trees.surroundings().facts_of(link).own, group.address(), {&wish, 1});
    }
}

void StarLink::changed(asserts::Runner &runner)
{
    put(group.words.lost, bit(), runner.state() == asserts::State::Loser);
    put(group.words.won, bit(), runner.state() == asserts::State::Winner);
    trees.mark(group);
}

void StarLink::send_assert(asserts::Runner &)
{
    const Address &any = any_address(group.address().family);
    trees.surroundings().send_assert(link, group.address(), any, group.metric_on(link));
}

void StarLink::send_cancel(asserts::Runner &)
{
    const uint16_t family = group.address().family;
    trees.surroundings().send_assert(link, group.address(), any_address(family),
                                     asserts::infinite_metric(family));
}

asserts::Metric StarLink::own_metric(const asserts::Runner &)
{
    return (could_assert(group.words, trees.roles()) & bit()) != 0
               ? group.metric_on(link)
               : asserts::infinite_metric(group.address().family);
}

GroupEntry::GroupEntry(Trees &owner, MRT_GROUP_S *of) : Entry(owner, upstream::STAR_TABLE), entry(of)
{
}

asserts::Metric GroupEntry::metric_on(unsigned link) const
{
    return {true, route.preference, route.metric, trees.surroundings().facts_of(link).own};
}

void GroupEntry::read_route()
{
    const Links before_rpf = words.rpf;
    rp = trees.surroundings().rp_of(address());
    route = rp ? trees.surroundings().route_to(*rp) : Route{};
    routes_stale = false;
    by_route = true;
    words.rpf = route.link != NO_LINK ? Links{1} << route.link : 0;
    for (const auto &[number, link] : links) {
        const bool moved_away = (link->bit() & before_rpf & ~words.rpf) != 0;

        link->settle_assert(true, true, moved_away);
    }
}

Upstream GroupEntry::upstream_now() const
{
    Upstream now{route.link, route.neighbour};
    const StarLink *on = route.link != NO_LINK ? link_on(static_cast<unsigned>(route.link)) : nullptr;
    if (on != nullptr && on->assertion.state() == asserts::State::Loser) {
        now.neighbour = on->assertion.winner().address;
    }
    return now;
}

void GroupEntry::settle()
{
    if (routes_stale) {
        read_route();
    }
    const LinkRoles roles = trees.roles();

    for (const auto &[number, link] : links) {
        link->settle_assert((could_assert(words, roles) & link->bit()) != 0,
                            (tracks_assert(words, roles) & link->bit()) != 0, false);
    }
    settle_upstream(join_desired(words, roles), upstream_now());
    const Links outputs = immediate_olist(words, roles);

    const bool same_rp = rp && told_rp ? same_address(*rp, *told_rp) : rp.has_value() == told_rp.has_value();

    if (!(told == words) || told_outputs != outputs || !(told_to == to) || !same_rp) {
        told_rp = rp;
        told_outputs = outputs;
        told = words;
        told_to = to;
        Trees::visit_sources(*this, [this](SourceEntry &source) { trees.mark(source); });
        trees.surroundings().outputs_changed(address(), any_address(address().family));
    }
    std::erase_if(links, [](const auto &one) { return one.second->is_idle(); });
}

bool GroupEntry::is_idle() const
{
    return links.empty() && words.receivers == 0 && !machine.joined() && MRT_CountTable(entry->sources) == 0;
}

void GroupEntry::send_star(const Upstream &where, bool join)
{
    if (where.link == NO_LINK || is_unspecified(where.neighbour) || !rp) {
        return;
    }
    std::vector<Wish> wishes{{{*rp, Tree::Star}, join}};

    if (join) {
        Trees::visit_sources(*this, [&wishes](SourceEntry &source) {
            if (source.is_pruned_with_star()) {
                wishes.push_back({{source.address(), Tree::Rpt}, false});
            }
        });
    }
    trees.surroundings().send(static_cast<unsigned>(where.link), where.neighbour, address(), wishes);
}

// It says what is pruned of the tree, which is known when the sources know what they want.
void GroupEntry::send_join()
{
    join_due = true;
    trees.mark(*this);
}

void GroupEntry::flush()
{
    if (join_due) {
        join_due = false;
        send_star(to, true);
    }
}

void GroupEntry::send_prune()
{
    join_due = false;
    send_star(to, false);
}

void GroupEntry::send_prune_to_old()
{
    send_star(before, false);
}

} // namespace pimsmd
