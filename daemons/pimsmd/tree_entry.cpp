#include "daemons/pimsmd/tree_entry.h"

#include "daemons/pimsmd/tree.h"

namespace pimsmd
{
namespace
{

constexpr uint32_t MS_PER_S = 1000;

} // namespace

Entry::Entry(Trees &owner, const upstream::Table &table) : trees(owner), machine(table, owner.queue(), *this)
{
}

// What is not wanted any more is pruned where it was asked for; what is wanted, joined where it is to be asked for now.
void Entry::settle_upstream(bool desired, const Upstream &now)
{
    if (!desired && machine.joined()) {
        machine.take(upstream::Event::JoinNotDesired);
    }
    if (!(now == to)) {
        before = to;
        to = now;
        machine.take(by_route ? upstream::Event::RpfChanged : upstream::Event::RpfChangedByAssert);
    }
    by_route = false;
    if (desired && !machine.joined()) {
        machine.take(upstream::Event::JoinDesired);
    }
}

uint32_t Entry::period_ms()
{
    return trees.settings().join_period_s * MS_PER_S;
}

// A tenth to four tenths longer than the period.
uint32_t Entry::draw_suppression_ms()
{
    const uint32_t period = period_ms();
    const bool counts =
        to.link != NO_LINK && trees.surroundings().facts_of(static_cast<unsigned>(to.link)).suppresses;
    return counts ? period + period / 10 + trees.surroundings().random(period * 3 / 10) : 0;
}

uint32_t Entry::draw_override_ms()
{
    if (to.link == NO_LINK) {
        return 0;
    }
    return trees.surroundings().random(
        trees.surroundings().facts_of(static_cast<unsigned>(to.link)).override_ms);
}

EntryLink::EntryLink(Trees &owner, Entry &of, unsigned on, const asserts::Table &table)
    : trees(owner), entry(of), link(on), join(owner.queue(), *this), assertion(table, owner.queue(), *this)
{
}

EntryLink::~EntryLink()
{
    trees.link_gone(*this);
}

void EntryLink::settle_assert(bool could, bool tracks, bool rpf_moved_away)
{
    using asserts::Event;
    using asserts::State;

    if (assertion.state() == State::Winner && !could) {
        assertion.take(Event::CouldNotAssert);
    }
    if (assertion.state() == State::Loser && rpf_moved_away) {
        assertion.take(Event::RpfMovedAway);
    }
    if (assertion.state() == State::Loser && !tracks) {
        assertion.take(Event::NotTracking);
    }
    if (assertion.state() == State::Loser && is_better(own_metric(assertion), assertion.winner())) {
        assertion.take(Event::OwnMetricBetter);
    }
}

} // namespace pimsmd
