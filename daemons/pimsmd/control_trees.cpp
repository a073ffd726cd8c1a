/*
 * The tables of groups and sources. Each begins where the request says and goes on until the reply is full; what the
 * position names may have gone since the last request.
 */
#include <bit>

#include "daemons/pimsmd/control.h"

namespace pimsmd
{
namespace
{

using mcastd::ControlField;
using mcastd::ControlFields;
using mcastd::ControlRows;

constexpr uint64_t MS_PER_S = 1000;

ControlField interface_of(const Router &router, int link)
{
    const Link *found = link != NO_LINK ? router.link(static_cast<unsigned>(link)) : nullptr;
    return found != nullptr ? ControlField::interface(found->state().if_index) : ControlField();
}

ControlField interfaces_of(const Router &router, Links links)
{
    std::vector<uint32_t> indexes;
    for (; links != 0; links &= links - 1) {
        const Link *link = router.link(static_cast<unsigned>(std::countr_zero(links)));

        if (link != nullptr) {
            indexes.push_back(link->state().if_index);
        }
    }
    return ControlField::interfaces(std::move(indexes));
}

ControlField address_or_none(const Address &address)
{
    return address.family == 0 || is_unspecified(address) ? ControlField() : ControlField::address(address);
}

ControlField seconds_of(uint64_t ms)
{
    return ControlField::seconds((ms + MS_PER_S - 1) / MS_PER_S);
}

// The address at the place of the position, NULL when it has none there.
const Address *position(const ControlRows &rows, size_t place, uint16_t family)
{
    const ControlFields &key = rows.key();
    return key.size() > place && key[place].as_address().family == family ? &key[place].as_address()
                                                                          : nullptr;
}

// Calls star(group) and source(source) for all entries from the position on, each group before its sources, until the
// reply is full.
template <typename Star, typename Source>
void from_position(Router &router, const ControlRows &rows, Star star, Source source)
{
    const Trees &trees = router.trees();
    const Address *wanted = position(rows, 0, router.family());
    const Address *after = position(rows, 1, router.family());
    const GroupEntry *group = wanted != nullptr ? trees.find(*wanted) : trees.next_group(nullptr);
    if (group == nullptr && wanted != nullptr) {
        group = trees.next_group(wanted);
        after = nullptr;
    }
    for (; group != nullptr && !rows.full(); group = trees.next_group(&group->address()), after = nullptr) {
        const SourceEntry *entry = nullptr;

        if (after == nullptr || is_unspecified(*after)) {
            star(*group);
            entry = Trees::next_source(*group, nullptr);
        } else {
            entry = Trees::find_in(*group, *after);
            entry = entry != nullptr ? entry : Trees::next_source(*group, after);
        }
        for (; entry != nullptr && !rows.full(); entry = Trees::next_source(*group, &entry->address())) {
            source(*entry);
        }
    }
}

// Offers a row for each link that one of the sets names, in the order of their interfaces.
template <typename Offer> void for_each_link(const Router &router, Links links, Offer offer)
{
    std::map<uint32_t, unsigned> by_index;
    for (; links != 0; links &= links - 1) {
        const auto number = static_cast<unsigned>(std::countr_zero(links));
        const Link *link = router.link(number);

        if (link != nullptr) {
            by_index.emplace(link->state().if_index, number);
        }
    }
    for (const auto &[if_index, number] : by_index) {
        offer(if_index, number);
    }
}

template <typename Of> Links links_with_state(const Of &entry)
{
    Links links = 0;
    for (const auto &[number, link] : entry.links) {
        links |= link->bit();
    }
    return links;
}

bool has(Links links, unsigned number)
{
    return (links >> number & 1) != 0;
}

void list_joins(Router &router, ControlRows &rows)
{
    const auto star = [&](const GroupEntry &group) {
        const Links all = links_with_state(group) | group.words.receivers;
        for_each_link(router, all, [&](uint32_t if_index, unsigned number) {
            const StarLink *link = group.link_on(number);
            const auto state = link != nullptr ? link->join.state() : downstream::State::NoInfo;

            rows.add({ControlField::address(group.address()),
                      ControlField::address(any_address(router.family())), ControlField::interface(if_index),
                      ControlField::text(downstream::STATE_NAMES[static_cast<size_t>(state)]), ControlField(),
                      ControlField::truth(has(group.words.receivers, number)), ControlField()});
        });
    };
    const auto source = [&](const SourceEntry &entry) {
        const Links all = links_with_state(entry) | entry.words.receivers | entry.words.excluded;
        for_each_link(router, all, [&](uint32_t if_index, unsigned number) {
            const SourceLink *link = entry.link_on(number);
            const auto state = link != nullptr ? link->join.state() : downstream::State::NoInfo;
            const auto rpt = link != nullptr ? link->rpt.state() : rpt_downstream::State::NoInfo;

            rows.add({ControlField::address(entry.group.address()), ControlField::address(entry.address()),
                      ControlField::interface(if_index),
                      ControlField::text(downstream::STATE_NAMES[static_cast<size_t>(state)]),
                      ControlField::text(rpt_downstream::STATE_NAMES[static_cast<size_t>(rpt)]),
                      ControlField::truth(has(entry.words.receivers, number)),
                      ControlField::truth(has(entry.words.excluded, number))});
        });
    };
    from_position(router, rows, star, source);
}

ControlField next_join(const Entry &entry)
{
    return entry.machine.joined() ? seconds_of(entry.machine.next_join_ms()) : ControlField();
}

ControlFields star_row(Router &router, const GroupEntry &group)
{
    return {
        ControlField::address(group.address()),
        ControlField::address(any_address(router.family())),
        group.rp ? ControlField::address(*group.rp) : ControlField(),
        interface_of(router, group.to.link),
        address_or_none(group.to.neighbour),
        ControlField::truth(group.machine.joined()),
        next_join(group),
        interfaces_of(router, immediate_olist(group.words, router.trees().roles())),
        ControlField(),
        ControlField(),
        ControlField(),
        ControlField(),
    };
}

ControlFields source_row(Router &router, const SourceEntry &entry)
{
    using registers::STATE_NAMES;
    const auto state = entry.registering ? entry.registering->machine.state() : registers::State::NoInfo;
    const SourceView view = entry.view();
    const bool own_tree = entry.words.spt_bit || !entry.group.rp;

    return {
        ControlField::address(entry.group.address()),
        ControlField::address(entry.address()),
        entry.group.rp ? ControlField::address(*entry.group.rp) : ControlField(),
        interface_of(router, entry.to.link),
        address_or_none(entry.to.neighbour),
        ControlField::truth(entry.machine.joined()),
        next_join(entry),
        interfaces_of(router, own_tree ? view.inherited_olist() : view.inherited_olist_rpt()),
        ControlField::truth(entry.words.spt_bit),
        ControlField::text(rpt_upstream::STATE_NAMES[static_cast<size_t>(entry.rpt.state())]),
        ControlField::text(STATE_NAMES[static_cast<size_t>(state)]),
        entry.words.keepalive ? seconds_of(router.trees().queue().remaining_ms(entry.keepalive))
                              : ControlField(),
    };
}

void list_trees(Router &router, ControlRows &rows)
{
    from_position(
        router, rows, [&](const GroupEntry &group) { rows.add(star_row(router, group)); },
        [&](const SourceEntry &entry) { rows.add(source_row(router, entry)); });
}

// The asserts of an entry on its links.
template <typename Of>
void add_asserts(const Router &router, const Of &entry, const Address &group, const Address &source,
                 ControlRows &rows)
{
    Links links = 0;
    for (const auto &[number, link] : entry.links) {
        links |= link->assertion.state() != asserts::State::NoInfo ? link->bit() : 0;
    }
    for_each_link(router, links, [&](uint32_t if_index, unsigned number) {
        const asserts::Runner &assertion = entry.link_on(number)->assertion;
        const asserts::Metric &winner = assertion.winner();

        rows.add({ControlField::address(group), ControlField::address(source),
                  ControlField::interface(if_index),
                  ControlField::text(asserts::STATE_NAMES[static_cast<size_t>(assertion.state())]),
                  address_or_none(winner.address), ControlField::truth(winner.rpt),
                  ControlField::number(winner.preference), ControlField::number(winner.metric)});
    });
}

void list_asserts(Router &router, ControlRows &rows)
{
    const auto star = [&](const GroupEntry &group) {
        add_asserts(router, group, group.address(), any_address(router.family()), rows);
    };
    const auto source = [&](const SourceEntry &entry) {
        add_asserts(router, entry, entry.group.address(), entry.address(), rows);
    };
    from_position(router, rows, star, source);
}

} // namespace

void offer_trees(mcastd::ControlRegistry &registry, Router &router)
{
    registry.add_table(mcastd::PIM_JOIN_TABLE, [&router](ControlRows &rows) { list_joins(router, rows); });
    registry.add_table(mcastd::PIM_TREE_TABLE, [&router](ControlRows &rows) { list_trees(router, rows); });
    registry.add_table(mcastd::PIM_ASSERT_TABLE,
                       [&router](ControlRows &rows) { list_asserts(router, rows); });
}

} // namespace pimsmd
