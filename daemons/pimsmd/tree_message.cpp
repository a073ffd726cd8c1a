/*
 * Join/Prune messages: those to this router are what downstream routers want; those to others tell what other routers of
 * the link ask of a neighbour that this router may ask too.
 *
 * Of a message to this router everything counts in its order. Where it joins a shared tree, the Prunes(S,G,rpt) of its
 * sources on the link stand until its end, and those that it did not say again go then.
 */
#include <algorithm>

#include "daemons/pimsmd/tree.h"

namespace pimsmd
{
void Trees::join_prune(unsigned link, const Address &sender, const JoinPrune &message)
{
    Reading reading{link, sender, message, surroundings_.facts_of(link), {}};
    const bool to_this = same_address(message.upstream, reading.facts.own);
    JoinPruneGroups groups = message.groups;
    JoinPruneGroup group;

    while (groups.next(&group)) {
        const Address &address = group.range.prefix.address;

        if (group.range.prefix.length != address_bits(family_)) {
            ++counters_[Count::GroupRange];
            continue;
        }
        for (const bool join : {true, false}) {
            const EncodedSources &sources = join ? group.joins : group.prunes;

            for (size_t i = 0; i < sources.size(); ++i) {
                if (to_this) {
                    asked(reading, address, sources[i], join);
                } else {
                    seen(reading, address, sources[i], join);
                }
            }
        }
    }
    if (!to_this) {
        return;
    }
    for (GroupEntry *joined : reading.stars) {
        visit_sources(*joined, [link](SourceEntry &source) {
            SourceLink *on = source.link_on(link);
            if (on != nullptr) {
                on->rpt.end_of_message();
            }
        });
    }
}

bool Trees::is_first(Reading &reading, GroupEntry &group)
{
    if (std::find(reading.stars.begin(), reading.stars.end(), &group) != reading.stars.end()) {
        return false;
    }
    reading.stars.push_back(&group);
    return true;
}

void Trees::asked(Reading &reading, const Address &group, const TreeSource &source, bool join)
{
    if (source.tree == Tree::Star) {
        asked_star(reading, group, source, join);
    } else {
        asked_source(reading, group, source, join);
    }
}

void Trees::asked_star(Reading &reading, const Address &group, const TreeSource &source, bool join)
{
    GroupEntry *entry = group_of(group);
    if (!join) {
        StarLink *on = entry != nullptr ? entry->link_on(reading.link) : nullptr;

        if (on != nullptr) {
            on->join.prune(reading.facts.prune_delay_ms);
            mark(*entry);
        }
        return;
    }
    const std::optional<Address> rp = entry != nullptr ? entry->rp : surroundings_.rp_of(group);

    if (!rp || !same_address(*rp, source.address)) {
        ++counters_[Count::OtherRp];
        return;
    }
    entry = make_group(group);
    StarLink *on = entry != nullptr ? link_on(*entry, reading.link, reading.sender) : nullptr;

    if (on == nullptr) {
        return;
    }
    on->join.join(reading.message.holdtime_s);
    on->assertion.take(asserts::Event::JoinHeard);
    mark(*entry);
    if (!is_first(reading, *entry)) {
        return;
    }
    visit_sources(*entry, [&reading](SourceEntry &one) {
        SourceLink *of_source = one.link_on(reading.link);
        if (of_source != nullptr) {
            of_source->rpt.join_star();
        }
    });
}

void Trees::asked_source(Reading &reading, const Address &group, const TreeSource &source, bool join)
{
    const bool makes = (source.tree == Tree::Source) == join; // Join(S,G), Prune(S,G,rpt)
    GroupEntry *of = group_of(group);
    SourceEntry *entry = makes           ? make_source(group, source.address)
                         : of != nullptr ? source_of(*of, source.address)
                                         : nullptr;

    if (entry == nullptr) {
        return;
    }
    mark(*entry);
    SourceLink *on = makes ? link_on(*entry, reading.link, reading.sender) : entry->link_on(reading.link);

    if (on == nullptr) {
        return;
    }
    if (source.tree == Tree::Rpt && join) {
        on->rpt.join();
    } else if (source.tree == Tree::Rpt) {
        on->rpt.prune(reading.message.holdtime_s, reading.facts.prune_delay_ms);
    } else if (join) {
        on->join.join(reading.message.holdtime_s);
        on->assertion.take(asserts::Event::JoinHeard);
    } else {
        on->join.prune(reading.facts.prune_delay_ms);
    }
}

void Trees::seen(Reading &reading, const Address &group, const TreeSource &source, bool join)
{
    GroupEntry *of = group_of(group);
    if (of == nullptr) {
        return;
    }
    if (source.tree == Tree::Star) {
        seen_star(reading, *of, join);
        return;
    }
    SourceEntry *entry = source_of(*of, source.address);

    if (entry != nullptr) {
        seen_source(reading, *entry, source.tree, join);
    }
}

void Trees::seen_star(Reading &reading, GroupEntry &group, bool join)
{
    using upstream::Event;
    const Address &neighbour = reading.message.upstream;

    if (group.to.is(reading.link, neighbour)) {
        if (join) {
            group.machine.see_join(reading.message.holdtime_s);
        } else {
            group.machine.take(Event::SeePrune);
        }
    }
    if (!join && is_first(reading, group)) {
        visit_sources(group, [&](SourceEntry &source) {
            if (source.to.is(reading.link, neighbour)) {
                source.machine.take(Event::SeePruneStar);
            }
        });
    }
}

void Trees::seen_source(const Reading &reading, SourceEntry &source, Tree tree, bool join)
{
    using upstream::Event;
    const Address &neighbour = reading.message.upstream;

    if (source.to.is(reading.link, neighbour)) {
        if (tree == Tree::Source && join) {
            source.machine.see_join(reading.message.holdtime_s);
        } else if (!join) {
            source.machine.take(tree == Tree::Source ? Event::SeePrune : Event::SeePruneRpt);
        }
    }
    if (source.rpt_to.is(reading.link, neighbour)) {
        if (tree == Tree::Rpt) {
            source.rpt.take(join ? rpt_upstream::Event::SeeJoinRpt : rpt_upstream::Event::SeePruneRpt);
        } else if (!join) {
            source.rpt.take(rpt_upstream::Event::SeePruneSource);
        }
    }
}

} // namespace pimsmd
