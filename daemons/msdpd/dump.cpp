#include "daemons/msdpd/dump.h"

#include "daemons/msdpd/forward.h"

namespace msdpd
{
namespace
{

// What may wait for a peer while more is appended.
constexpr size_t LOW_WATER = SendBuffer::LIMIT / 4;

void dump_local_sources(Peer &peer)
{
    Ipv4 rp;
    std::vector<Pair> pairs;
    if (!advertise_next(peer.speaker, Ipv4{}, &peer.dump.local, &rp, &pairs)) {
        peer.dump.phase = Dump::Phase::Cache;
    }
    send_pairs(peer, TLV_SOURCE_ACTIVE, rp, pairs);
}

void dump_cache(Peer &peer)
{
    const Speaker &speaker = peer.speaker;
    std::map<Ipv4, std::vector<Pair>> by_originator;
    size_t count = 0;
    const bool complete = speaker.cache.visit(&peer.dump.cache, [&](const SaEntry &entry) {
        if (count == MAX_ENTRIES) {
            return false;
        }
        ++count;
        if (may_forward(peer, speaker_find_peer(speaker, entry.peer), entry.rp)) {
            by_originator[entry.rp].push_back(entry.pair());
        }
        return true;
    });
    if (complete) {
        peer.dump.phase = Dump::Phase::Done;
    }
    for (const auto &[rp, pairs] : by_originator) {
        send_pairs(peer, TLV_SOURCE_ACTIVE, rp, pairs);
    }
}

} // namespace

void dump_start(Peer &peer)
{
    peer.dump = Dump{};
    peer.dump.phase = Dump::Phase::LocalSources;
}

bool dump_continue(Peer &peer)
{
    while (peer.dump.phase != Dump::Phase::Done && peer.output.size() < LOW_WATER) {
        if (peer.dump.phase == Dump::Phase::LocalSources) {
            dump_local_sources(peer);
        } else {
            dump_cache(peer);
        }
    }
    return peer.dump.phase != Dump::Phase::Done;
}

} // namespace msdpd
