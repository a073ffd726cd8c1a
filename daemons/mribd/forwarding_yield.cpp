/*
 * Two routers on a link hear each other's packets: what one of them forwards on to the link arrives at the other on
 * an interface to which it forwards too, and the kernel tells so, once in three seconds for each entry. The querier
 * of the link goes on. The other one gives way, output by output; an election that it lost to somebody who only says
 * that it is a router therefore changes nothing:
 *
 *                told once, and half of the flow came from there for     5 to 8 s later half of it came no more,
 *     forwards ─────────────────────────────────────────────────────► given way ─────────────┐ or a minute is over
 *         ▲          a second             told once ▲                                         │
 *         └───────────── 15 s without a word ───────┴────────── on trial ◄────────────────────┘
 *
 * Where another router is known to forward, to be told once is enough. One that gave way looks after some seconds
 * whether the flow still comes: the kernel counts what arrives on a wrong interface, though not on which. So once a
 * minute it also takes the output up on trial. Of two that gave way to each other the first to look goes on; that
 * they do not look at the same moment is left to chance.
 *
 * A host that sends copies of a flow itself must send half of it to be taken for a router.
 */
#include <bit>
#include <new>
#include <utility>

#include "daemons/common/memory.h"
#include "daemons/mribd/forwarding.h"
#include "platform/random.h"

namespace mribd
{
namespace
{

constexpr uint32_t SUSPECT_MS = 1000;
constexpr uint32_t CHECK_S = 5;
constexpr uint32_t CHECK_SPREAD_S = 4; // to look at different moments
constexpr uint32_t TRIAL_AFTER_S = 60;
constexpr uint32_t FORGET_AFTER_S = 15;

// How long it is known of a link that another router forwards on to it.
constexpr uint32_t KNOWN_FOR_S = 600;

// What a record and its timer take, roughly.
constexpr size_t YIELD_BYTES = 256;

uint32_t check_after_ms()
{
    uint32_t random = 0;
    FIPS_rand_bytes(reinterpret_cast<uint8_t *>(&random), sizeof(random));
    return (CHECK_S + random % CHECK_SPREAD_S) * mcastd::MS_PER_S;
}

} // namespace

// Those that are to be left to another router as long as that one is the querier. One that this router has become the
// querier of is not left again until another router is heard there anew.
uint32_t Forwarding::given_way(Entry *entry)
{
    if (entry->yield == nullptr) {
        return 0;
    }
    uint32_t &bits = entry->yield->given_way;
    for (unsigned vif = 0; vif < MAX_VIFS && bits >> vif != 0; ++vif) {
        if ((bits >> vif & 1) != 0 && is_forwarder(parts_.vifs.if_index(vif))) {
            bits &= ~(1u << vif);
        }
    }
    return bits;
}

// A packet of the flow arrived from the link of an output.
void Forwarding::hear_other_router(Entry *entry, unsigned vif)
{
    const uint32_t bit = 1u << vif;
    const uint32_t now_s = mcastd::boot_time_s();
    if ((entry->outgoing & bit) == 0 || is_forwarder(parts_.vifs.if_index(vif)) || !begin_yield(entry)) {
        return;
    }
    Yield &yield = *entry->yield;
    const bool is_known = others_known_s_[vif] != 0 && now_s - others_known_s_[vif] < KNOWN_FOR_S;
    if (is_known || (yield.on_trial & bit) != 0) {
        give_way(entry, bit);
        evaluate(entry);
    } else if ((yield.suspected & bit) == 0) {
        yield.suspected |= bit;
        yield.changed_at_s = now_s;
        count_elsewhere(entry);
        watch_yield(entry, SUSPECT_MS);
    }
}

void Forwarding::give_way(Entry *entry, uint32_t bits)
{
    Yield &yield = *entry->yield;
    yield.suspected &= ~bits;
    yield.on_trial &= ~bits;
    yield.given_way |= bits;
    yield.changed_at_s = mcastd::boot_time_s();
    count_elsewhere(entry);
    note_others(bits);
    counters_.given_way += static_cast<uint64_t>(std::popcount(bits));
    trace_route("(%M, %N): another router forwards too, this one gives way", &entry->source(),
                &entry->group());
    watch_yield(entry, check_after_ms());
}

// Another router forwards to the links of these virtual interfaces.
void Forwarding::note_others(uint32_t bits)
{
    for (unsigned vif = 0; vif < MAX_VIFS; ++vif) {
        if ((bits >> vif & 1) != 0) {
            others_known_s_[vif] = mcastd::boot_time_s();
        }
    }
}

// Sees to it that the record is looked at after that time. False without memory, which only a stopped timer needs.
bool Forwarding::watch_yield(Entry *entry, uint32_t after_ms)
{
    const auto due = [](void *owner) {
        auto *checked = static_cast<Entry *>(owner);
        checked->owner->check_yield(checked);
    };
    return mcastd::timer_try_start(parts_.timers, entry->yield->check, after_ms, due, entry);
}

// Whether the entry has a record now. Without memory it has none, and goes on.
bool Forwarding::begin_yield(Entry *entry)
{
    if (entry->yield != nullptr) {
        return true;
    }
    entry->yield.reset(mcastd::memory_permits(YIELD_BYTES) ? new (std::nothrow) Yield : nullptr);
    if (entry->yield != nullptr && !watch_yield(entry, check_after_ms())) {
        entry->yield.reset();
    }
    return entry->yield != nullptr;
}

void Forwarding::end_yield(Entry *entry)
{
    if (entry->yield != nullptr) {
        mcastd::timer_stop(parts_.timers, entry->yield->check);
        entry->yield.reset();
    }
}

// Whether at least half as many packets of the flow came from elsewhere as came on the incoming interface, since
// they were counted last.
bool Forwarding::count_elsewhere(Entry *entry)
{
    Yield &yield = *entry->yield;
    const auto now = parts_.kernel.counters(entry->source(), entry->group());
    if (!now) {
        return false;
    }
    const uint64_t carried = now->packets - now->wrong_interface;
    const bool is_half = now->wrong_interface > yield.elsewhere && carried >= yield.carried &&
                         2 * (now->wrong_interface - yield.elsewhere) >= carried - yield.carried;
    yield.carried = carried;
    yield.elsewhere = now->wrong_interface;
    return is_half;
}

void Forwarding::check_yield(Entry *entry)
{
    Yield &yield = *entry->yield;
    const uint32_t for_s = mcastd::boot_time_s() - yield.changed_at_s;
    const bool comes = (yield.suspected | yield.given_way) != 0 && count_elsewhere(entry);
    if (comes && yield.suspected != 0) {
        give_way(entry, yield.suspected);
    } else if (yield.given_way != 0 && (!comes || for_s >= TRIAL_AFTER_S)) {
        trace_route("(%M, %N): this router forwards again where it gave way", &entry->source(),
                    &entry->group());
        yield.on_trial |= std::exchange(yield.given_way, 0);
        yield.changed_at_s = mcastd::boot_time_s();
        ++counters_.taken_up;
    } else if (yield.given_way != 0) {
        note_others(yield.given_way);
    } else if (for_s >= FORGET_AFTER_S) {
        entry->yield.reset(); // its timer has ended
        return;
    }
    if (!yield.check.running() && !watch_yield(entry, yield.suspected != 0 ? SUSPECT_MS : check_after_ms())) {
        entry->yield.reset(); // rather a packet twice than none
    }
    evaluate(entry);
}

// The virtual interfaces mean nothing any more.
void Forwarding::forget_yields(Entry *entry, uint32_t bits)
{
    if (entry->yield != nullptr) {
        entry->yield->given_way &= ~bits;
        entry->yield->on_trial &= ~bits;
        entry->yield->suspected &= ~bits;
    }
}

} // namespace mribd
