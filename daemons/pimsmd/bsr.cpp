/*
 * The Bootstrap timer and the two machines of bsr_machine.h decide; what they leave open is here:
 *
 *   Which messages count. From a neighbour; to all routers of the link only when the neighbour is the way to the BSR, so
 *   that none goes in circles; those that are not to be handed on, and unicast ones, only within the first period and before
 *   any other was accepted: they are there for routers that just started.
 *
 *   What is preferred. Against the accepted BSR, or against itself for a router that is BSR or is about to be.
 *
 *   What a BSR tells. Its candidates, as long as their holdtimes last. A new or lost one is told at once, but never sooner
 *   than ten seconds after the last time, whatever candidates and other BSRs say; a range whose last RP went is told once without any.
 */
#include "daemons/pimsmd/bsr.h"

#include <algorithm>

#include "daemons/common/expect.h"
#include "daemons/common/memory.h"

namespace pimsmd
{
namespace
{

using bsr::CandidateState;
using bsr::Event;
using bsr::ListenerState;
using bsr::Weight;

constexpr uint64_t MS_PER_S = 1000;

bool same_router(const Weight &first, const Weight &second)
{
    return same_address(first.address, second.address);
}

bool is_of_zone(const Bootstrap &message)
{
    BootstrapRanges ranges = message.ranges;
    BootstrapRange first;
    return ranges.next(&first) && first.range.zone;
}

} // namespace

Bsr::Bsr(uint16_t family, MsQueue &queue, BsrSurroundings &surroundings, RpSet &set, Counters &counters,
         const BsrSettings &settings)
    : family_(family), queue_(queue), surroundings_(surroundings), set_(set), counters_(counters),
      settings_(settings), fragments_(counters), candidates_(queue, *this, counters),
      tag_(static_cast<uint16_t>(surroundings.random(UINT16_MAX))), started_ms_(queue.now_ms())
{
    mcastd::expect(settings_.rp_ranges.size() <= UINT8_MAX);
    if (settings_.candidate) {
        start_override();
    }
}

std::optional<Weight> Bsr::elected() const
{
    if (is_elected()) {
        return settings_.candidate;
    }
    const bool accepted = settings_.candidate ? candidate_ == CandidateState::Candidate
                                              : listener_ == ListenerState::AcceptPreferred;
    return accepted ? other_ : std::nullopt;
}

const char *Bsr::state_name() const
{
    return settings_.candidate ? bsr::CANDIDATE_NAMES[static_cast<size_t>(candidate_)]
                               : bsr::LISTENER_NAMES[static_cast<size_t>(listener_)];
}

bool Bsr::has_settled() const
{
    return other_.has_value() || queue_.now_ms() - started_ms_ > settings_.period_ms;
}

Count Bsr::check(unsigned link, const Address &sender, bool unicast, const Bootstrap &message)
{
    if (!surroundings_.is_neighbour(link, sender)) {
        return Count::BootstrapSender;
    }
    if (surroundings_.is_own(message.bsr)) {
        return Count::BootstrapOwn;
    }
    if (is_of_zone(message)) {
        return Count::BootstrapZone;
    }
    if (unicast || message.no_forward) {
        return has_settled() ? Count::BootstrapLate : NO_DROP;
    }
    const Route route = surroundings_.route_to(message.bsr);
    const bool on_way = route.link == static_cast<int>(link) &&
                        (same_address(route.neighbour, sender) || same_address(message.bsr, sender));
    if (!on_way) {
        return Count::BootstrapRpf;
    }
    return take_turn() ? NO_DROP : Count::BootstrapRate;
}

// Each goes out once for every link, whoever it is that makes so many of them.
bool Bsr::take_turn()
{
    const uint64_t now_ms = queue_.now_ms();
    const uint64_t earned = (now_ms - turns_since_ms_) * BOOTSTRAPS_PER_S / MS_PER_S;
    if (earned > 0) {
        turns_ = static_cast<uint32_t>(std::min<uint64_t>(BOOTSTRAPS_AT_ONCE, turns_ + earned));
        turns_since_ms_ = now_ms;
    }
    if (turns_ == 0) {
        return false;
    }
    --turns_;
    return true;
}

Event Bsr::meaning_of(const Weight &heard) const
{
    const bool against_self = settings_.candidate && candidate_ != CandidateState::Candidate;
    if (against_self) {
        return bsr::is_as_good(heard, *settings_.candidate) ? Event::Preferred : Event::Other;
    }
    if (!settings_.candidate && listener_ == ListenerState::AcceptAny) {
        return Event::Preferred;
    }
    if (bsr::is_as_good(heard, *other_)) {
        return Event::Preferred;
    }
    return same_router(heard, *other_) ? Event::GaveUp : Event::Other;
}

Count Bsr::bootstrap(unsigned link, const Address &sender, bool unicast, const Bootstrap &message)
{
    const Count reason = check(link, sender, unicast, message);
    if (reason != NO_DROP) {
        return reason;
    }
    if (!mcastd::memory_permits(sizeof(Bootstrap))) {
        return Count::NoMemory;
    }
    Bootstrap taken = message;
    taken.no_forward = message.no_forward || unicast;
    take(meaning_of({message.priority, message.bsr}), &taken);
    return NO_DROP;
}

void Bsr::take(Event event, const Bootstrap *message)
{
    act(settings_.candidate ? bsr::CANDIDATE_TABLE.step(candidate_, event)
                            : bsr::LISTENER_TABLE.step(listener_, event),
        message);
}

void Bsr::act(Actions actions, const Bootstrap *message)
{
    if ((actions & bsr::START_TIMEOUT) != 0) {
        queue_.start(timer_, settings_.timeout_ms, timer_over, this);
    }
    if ((actions & bsr::START_PERIOD) != 0) {
        queue_.start(timer_, settings_.period_ms, timer_over, this);
    }
    if ((actions & bsr::START_OVERRIDE) != 0) {
        start_override();
    }
    if ((actions & bsr::STORE) != 0) {
        store(*message);
    }
    if ((actions & bsr::FORWARD) != 0 && !message->no_forward) {
        surroundings_.forward(*message);
    }
    if ((actions & bsr::ORIGINATE) != 0 && message == nullptr) {
        originate();
    } else if ((actions & bsr::ORIGINATE) != 0) {
        originate_soon(); // however many worse ones are heard
    }
}

void Bsr::start_override()
{
    const Weight &own = *settings_.candidate;
    const bool behind = other_ && bsr::is_as_good(*other_, own);
    queue_.start(timer_, bsr::override_ms(own, behind ? *other_ : own), timer_over, this);
}

void Bsr::store(const Bootstrap &message)
{
    const Weight heard{message.priority, message.bsr};
    const bool is_new = !other_ || !same_router(*other_, heard);
    other_ = heard;
    other_tag_ = message.fragment_tag;
    queue_.stop(soon_);
    candidates_.clear(); // they tell the other one now
    emptied_.clear();
    set_.set_hash_mask_length(message.hash_mask_length);
    fragments_.take(
        message, [this](const Prefix &range, std::span<const BootstrapRp> rps) { set_.learn(range, rps); });
    if (settings_.rp && (is_new || !tell_.running())) {
        tell_bsr_within(CANDIDATE_RP_BACKOFF_MS);
    }
}

void Bsr::timer_over(void *self)
{
    auto &bsr = *static_cast<Bsr *>(self);
    const bool was_elected = bsr.is_elected();
    bsr.take(Event::TimerOver, nullptr);
    if (!was_elected && bsr.is_elected() && bsr.settings_.rp) {
        bsr.tell_bsr_within(0);
    }
}

Count Bsr::candidate_rp(const CandidateRp &message)
{
    if (!is_elected()) {
        return Count::CandidateNotBsr;
    }
    const BootstrapRp rp{message.rp, message.holdtime_s, message.priority};
    const auto put = [&](const GroupRange &range) {
        if (range.bidirectional || range.zone) {
            ++counters_[Count::RpRangeKind];
            return false;
        }
        return put_candidate(range.prefix, rp);
    };
    bool changed = false;
    for (size_t i = 0; i < message.range_count; ++i) {
        changed = put(message.range(i)) || changed;
    }
    if (message.range_count == 0) {
        changed = put({whole_range(family_)});
    }
    if (changed) {
        originate_soon();
    }
    return NO_DROP;
}

// What a candidate says of a range, with a holdtime of 0 that it serves it no longer. Whether that is news.
bool Bsr::put_candidate(const Prefix &range, const BootstrapRp &rp)
{
    const bool changed = candidates_.put(range, rp);
    if (changed) {
        note_if_empty(range);
    }
    return changed;
}

void Bsr::rp_expired(const Prefix &range, const Address & /*rp*/)
{
    note_if_empty(range);
    originate_soon();
}

// Of those that there is no room to note routers hear no more, and forget them with their holdtimes.
void Bsr::note_if_empty(const Prefix &range)
{
    if (candidates_.find(range) == nullptr && emptied_.size() < MOST_RP_RANGES) {
        emptied_.insert(range);
    }
}

void Bsr::originate_soon()
{
    if (!is_elected() || soon_.running()) {
        return;
    }
    const uint64_t past = originated_ms_ ? queue_.now_ms() - *originated_ms_ : BSR_LEAST_MS;
    queue_.start(soon_, past >= BSR_LEAST_MS ? 0 : BSR_LEAST_MS - past, soon_over, this);
}

void Bsr::soon_over(void *self)
{
    auto &bsr = *static_cast<Bsr *>(self);
    bsr.originate();
    bsr.queue_.start(bsr.timer_, bsr.settings_.period_ms, timer_over, &bsr);
}

Bsr::Told::Told(const RpTable &table)
{
    rps.reserve(table.ranges().size());
    for (const auto &[range, known] : table.ranges()) {
        rps.emplace_back();
        for (const auto &[address, rp] : known) {
            rps.back().push_back({address, rp.holdtime_s, rp.priority});
        }
        ranges.push_back({{range}, static_cast<uint8_t>(rps.back().size()), rps.back()});
    }
}

// Calls send(message, ranges) with what this router tells as BSR.
template <typename Send> void Bsr::with_own_message(Send send)
{
    Told told(candidates_);
    for (const Prefix &range : emptied_) {
        if (candidates_.find(range) == nullptr) {
            told.ranges.push_back({{range}, 0, {}});
        }
    }
    Bootstrap message;
    message.fragment_tag = tag_;
    message.hash_mask_length = settings_.hash_mask_length;
    message.priority = settings_.candidate->priority;
    message.bsr = settings_.candidate->address;
    send(message, told.ranges);
}

void Bsr::originate()
{
    ++tag_;
    queue_.stop(soon_);
    originated_ms_ = queue_.now_ms();
    with_own_message([this](const Bootstrap &message, std::span<const BootstrapRangeOut> ranges) {
        set_.set_hash_mask_length(message.hash_mask_length);
        for (const BootstrapRangeOut &one : ranges) {
            set_.learn(one.range.prefix, one.rps);
        }
        surroundings_.send_bootstrap(message, ranges);
    });
    emptied_.clear();
}

// A BSR of the lowest priority is one that others take the place of, after their delays and not after its silence.
void Bsr::resign()
{
    if (is_elected()) {
        ++tag_;
        with_own_message([this](Bootstrap message, std::span<const BootstrapRangeOut> ranges) {
            message.priority = 0;
            surroundings_.send_bootstrap(message, ranges);
        });
    }
}

void Bsr::neighbour_up(unsigned link, const Address &neighbour)
{
    if (is_elected()) {
        with_own_message([&](const Bootstrap &message, std::span<const BootstrapRangeOut> ranges) {
            surroundings_.send_bootstrap_to(link, neighbour, message, ranges);
        });
        return;
    }
    const std::optional<Weight> known = elected();

    if (known) {
        const Told told(set_.learnt());
        Bootstrap message;

        message.no_forward = true;
        message.fragment_tag = other_tag_;
        message.hash_mask_length = set_.hash_mask_length();
        message.priority = known->priority;
        message.bsr = known->address;
        surroundings_.send_bootstrap_to(link, neighbour, message, told.ranges);
    }
}

} // namespace pimsmd
