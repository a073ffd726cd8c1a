#include "daemons/pimsmd/assert_machine.h"

#include <tuple>

namespace pimsmd::asserts
{
namespace
{

// Whether an Assert with the bit is one about what the machine is about: over the source's tree for (S,G), over the shared
// tree for (*,G).
bool is_of_kind(const Metric &heard, const Standing &standing)
{
    return heard.rpt != standing.source;
}

std::optional<Event> meaning_without_winner(const Metric &heard, const Standing &standing)
{
    if (!is_infinite(heard) && is_better(heard, standing.own)) {
        const bool follows = standing.tracking && is_of_kind(heard, standing);
        return follows ? std::optional(Event::Preferred) : std::nullopt;
    }
    // (S,G) answers those of the shared tree too; (*,G) does not answer those of a source's.
    const bool answers = standing.could_assert && (standing.source || heard.rpt);

    return answers ? std::optional(Event::Inferior) : std::nullopt;
}

std::optional<Event> meaning_for_loser(const Metric &heard, const Standing &standing)
{
    const bool of_winner = same_address(heard.address, standing.winner.address);
    if (of_winner && (is_infinite(heard) || !is_better(heard, standing.own))) {
        return Event::WinnerGaveUp;
    }
    if (!is_of_kind(heard, standing)) {
        return std::nullopt;
    }
    if (of_winner) {
        return Event::WinnerStands;
    }
    return is_better(heard, standing.winner) ? std::optional(Event::Preferred) : std::nullopt;
}

} // namespace

Metric infinite_metric(uint16_t family)
{
    return {true, INFINITE_PREFERENCE, INFINITE_METRIC, any_address(family)};
}

bool is_infinite(const Metric &metric)
{
    return metric.rpt && metric.preference == INFINITE_PREFERENCE && metric.metric == INFINITE_METRIC;
}

bool is_better(const Metric &first, const Metric &second)
{
    const auto terms = [](const Metric &one) { return std::tuple(one.rpt, one.preference, one.metric); };
    return terms(first) != terms(second) ? terms(first) < terms(second)
                                         : address_less(second.address, first.address);
}

std::optional<Event> meaning_of(const Metric &heard, const Standing &standing)
{
    switch (standing.state) {
    case State::NoInfo:
        return meaning_without_winner(heard, standing);
    case State::Winner:
        if (!standing.source && !heard.rpt) {
            return std::nullopt; // about one source alone
        }
        return is_better(heard, standing.own) ? Event::Preferred : Event::Inferior;
    case State::Loser:
        break;
    }
    return meaning_for_loser(heard, standing);
}

bool Runner::heard(const Metric &metric, bool could_assert, bool tracking)
{
    const Standing standing{is_of(SOURCE_TABLE),      state(), could_assert, tracking,
                            owner_.own_metric(*this), winner_};
    const std::optional<Event> event = meaning_of(metric, standing);
    if (event) {
        happen(*event, metric);
    }
    return event.has_value();
}

void Runner::act(State before, Actions actions, const Metric &metric)
{
    if ((actions & STORE_SELF) != 0) {
        winner_ = owner_.own_metric(*this);
    }
    if ((actions & STORE_WINNER) != 0) {
        winner_ = metric;
    }
    if ((actions & START_WINNER_TIMER) != 0) {
        start<Event::TimerOver>(timer_, ASSERT_MS - ASSERT_OVERRIDE_MS);
    }
    if ((actions & START_LOSER_TIMER) != 0) {
        start<Event::TimerOver>(timer_, ASSERT_MS);
    }
    if ((actions & FORGET) != 0) {
        queue_.stop(timer_);
    }
    if ((actions & SEND_ASSERT) != 0) {
        owner_.send_assert(*this);
    }
    if ((actions & SEND_CANCEL) != 0) {
        owner_.send_cancel(*this);
    }
    if ((actions & SET_SPT_BIT) != 0) {
        owner_.set_spt_bit(*this);
    }
    if (state() != before || (actions & (STORE_SELF | STORE_WINNER)) != 0) {
        owner_.changed(*this);
    }
}

} // namespace pimsmd::asserts
