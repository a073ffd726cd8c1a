/*
 * All local sources are announced once an interval. The table of them is walked in batches, one or several a
 * second, so that a large one is spread over the interval and a small one is told at once and waits for the
 * rest of it:
 *
 *     tick:   batch  batch  batch ... end of the table   (nothing)        begin again
 *             |------ a second each ------|--- what is left of the interval ---|
 *
 * The cursor is a position, not a pointer: sources may come and go between two batches. A source that appears
 * does not wait for the walk: it is collected in fresh and goes out when the round of the event loop ends.
 */
#include "daemons/msdpd/advertise.h"

#include <algorithm>

#include "daemons/msdpd/forward.h"
#include "daemons/msdpd/speaker.h"
#include "mcast/acl_filter.h"

namespace msdpd
{
namespace
{

using mcastd::MS_PER_S;

void tick(void *owner);

void wait(Speaker &speaker, uint32_t seconds)
{
    mcastd::timer_start_near(speaker.timers, speaker.advertisement.timer, seconds * MS_PER_S, tick, &speaker);
}

void begin_interval(Speaker &speaker)
{
    Advertisement &state = speaker.advertisement;
    const uint32_t period_s = speaker.config.advertisement_s;
    state.walking = true;
    state.cursor = {};
    state.left_s = period_s;
    state.batches = speaker.mrib.local_count() / MRIB_MSDP_BATCH_MAX / period_s + 1;
}

void tick(void *owner)
{
    Speaker &speaker = *static_cast<Speaker *>(owner);
    Advertisement &state = speaker.advertisement;

    wait(speaker, 1); // should memory end on the way
    if (!state.walking) {
        begin_interval(speaker);
    }
    for (uint32_t i = 0; i < state.batches && state.walking; ++i) {
        Ipv4 rp;
        std::vector<Pair> pairs;

        state.walking = advertise_next(speaker, Ipv4{}, &state.cursor, &rp, &pairs);
        forward(speaker, nullptr, rp, pairs);
    }
    const uint32_t pause_s = state.walking ? 1 : std::max(state.left_s, 1u);

    state.left_s -= std::min(pause_s, state.left_s);
    wait(speaker, pause_s);
}

Ipv4 originator(const Speaker &speaker, Ipv4 rp)
{
    return speaker.config.originator != Ipv4{} ? speaker.config.originator : rp;
}

} // namespace

void advertise_start(Speaker &speaker)
{
    speaker.advertisement.walking = false;
    tick(&speaker);
}

void advertise_fresh(Speaker &speaker, Ipv4 rp, const Pair &pair)
{
    if (!speaker.mrib.is_source_specific(pair.group) &&
        MCAST4_IsAclPermit(0, speaker.config.originate_filter, pair.source.number, pair.group.number) ==
            MCAST_TRUE) {
        speaker.advertisement.fresh[originator(speaker, rp)].push_back(pair);
    }
}

void advertise_flush(Speaker &speaker)
{
    const std::map<Ipv4, std::vector<Pair>> fresh = std::move(speaker.advertisement.fresh);
    speaker.advertisement.fresh.clear();
    for (const auto &[rp, pairs] : fresh) {
        for (size_t done = 0; done < pairs.size(); done += MAX_ENTRIES) {
            forward(speaker, nullptr, rp,
                    std::span(pairs).subspan(done, std::min(MAX_ENTRIES, pairs.size() - done)));
        }
    }
}

bool advertise_next(Speaker &speaker, Ipv4 group, MRIB_MSDP_CURSOR_S *cursor, Ipv4 *rp,
                    std::vector<Pair> *pairs)
{
    MRIB_MSDP_BATCH_S batch{};
    const bool more = speaker.mrib.next_local(speaker.config.originate_filter, group, cursor, &batch);
    *rp = originator(speaker, from_network(batch.rp_be));
    pairs->clear();
    for (uint64_t i = 0; i < batch.count; ++i) {
        pairs->push_back({from_network(batch.pairs[i].group_be), from_network(batch.pairs[i].source_be)});
    }
    return more;
}

} // namespace msdpd
