/*
 * An announcement is kept when it comes from the RPF peer of its originator, or from a member of this
 * router's mesh group, and is passed on when it is new. One that is known is passed on again when it was not
 * within the hold-down time: so a refresh travels once an interval, and an announcement that goes round in a
 * circle dies at the first router that it reaches twice.
 */
#include "daemons/msdpd/receive.h"

#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "daemons/msdpd/forward.h"
#include "daemons/msdpd/request.h"
#include "daemons/msdpd/rpf.h"
#include "daemons/msdpd/trace.h"
#include "mcast/acl_filter.h"

namespace msdpd
{
namespace
{

// What an entry takes in a group of its own, roughly.
constexpr size_t ENTRY_BYTES = 512;

// Tells the operator, once each time, that a peer comes near its limit.
void watch_limit(Peer &peer)
{
    const uint32_t used = peer.speaker.cache.peers().of(peer.config.address);
    if (peer.limit_watch.take(used, peer.config.sa_limit)) {
        mcastd::log_warning("peer %s announces %u sources; more than %u are refused: raise sa_limit if they "
                            "are meant to come",
                            to_text(peer.config.address).c_str(), used, peer.config.sa_limit);
    }
}

bool has_room(Peer &from, const Pair &pair)
{
    const SaCache &cache = from.speaker.cache;
    const SaEntry *known = cache.find(pair);
    return (known != nullptr && known->peer == from.config.address) ||
           cache.peers().of(from.config.address) < from.config.sa_limit;
}

// Keeps the pair. Whether it is to be passed on.
bool keep(Peer &from, Ipv4 rp, const Pair &pair)
{
    Speaker &speaker = from.speaker;
    SaEntry *entry;

    if (!has_room(from, pair)) {
        ++from.counters[Count::RefusedLimit];
        trace_pair(pair, from.config.address, "refused by the limit");
        watch_limit(from);
        return false;
    }
    if (speaker.cache.find(pair) == nullptr && !mcastd::memory_permits(ENTRY_BYTES)) {
        ++from.counters[Count::RefusedMemory];
        trace_pair(pair, from.config.address, "refused, memory is short");
        return false;
    }
    const SaCache::Learned learned =
        speaker.cache.learn(pair, rp, from.config.address, speaker.config.state_s, &entry);
    const uint32_t now_s = mcastd::boot_time_s();

    if (learned != SaCache::Learned::Refreshed) {
        watch_limit(from);
    }
    if (learned != SaCache::Learned::New && now_s - entry->forwarded_s < speaker.config.hold_down_s) {
        ++from.counters[Count::HeldDown];
        trace_pair(pair, from.config.address, "kept, not passed on so soon");
        return false;
    }
    entry->forwarded_s = now_s;
    trace_pair(pair, from.config.address, learned == SaCache::Learned::New ? "new" : "kept");
    return true;
}

// Whether announcements of the originator are taken from the peer.
bool check_originator(Peer &from, Ipv4 rp)
{
    const Speaker &speaker = from.speaker;
    if (!is_routable(rp)) {
        ++from.counters[Count::DroppedOriginator];
        return false;
    }
    if (rp == speaker.config.originator) {
        ++from.counters[Count::DroppedOwn];
        return false;
    }
    return true;
}

std::vector<Pair> keep_all(Peer &from, const SourceActive &message)
{
    std::vector<Pair> to_forward;
    from.counters[Count::ReceivedEntries] += message.pairs.size();
    from.counters[Count::DroppedPrefixLength] += message.ignored_entries;
    for (const Pair &pair : message.pairs) {
        if (const std::optional<Count> count = objection(from.speaker, from.config, pair)) {
            ++from.counters[*count];
            trace_pair(pair, from.config.address, count_name(*count));
        } else if (keep(from, message.rp, pair)) {
            to_forward.push_back(pair);
        }
    }
    return to_forward;
}

void take_source_active(Peer &from, const SourceActive &message)
{
    ++from.counters[Count::ReceivedSourceActive];
    trace_message(from.config.address, "source active received", message.rp, message.pairs.size());
    if (message.data_size > 0) {
        ++from.counters[Count::IgnoredData];
    }
    if (!check_originator(from, message.rp)) {
        return;
    }
    if (!from.in_mesh_group() && rpf_peer(from.speaker, message.rp).peer != &from) {
        ++from.counters[Count::DroppedRpf];
        trace_message(from.config.address, "not the RPF peer of the originator", message.rp,
                      message.pairs.size());
        return;
    }
    const std::vector<Pair> to_forward = keep_all(from, message);

    if (!to_forward.empty()) {
        forward(from.speaker, &from, message.rp, to_forward);
    }
}

// What was asked for comes from the peer that was asked and is for this router alone.
void take_response(Peer &from, const SourceActive &message)
{
    ++from.counters[Count::ReceivedResponses];
    trace_message(from.config.address, "response received", message.rp, message.pairs.size());
    if (!from.config.sa_request) {
        ++from.counters[Count::IgnoredResponse];
    } else if (check_originator(from, message.rp)) {
        keep_all(from, message);
    }
}

} // namespace

std::optional<Count> objection(const Speaker &speaker, const PeerConfig &from, const Pair &pair)
{
    if (!is_routable_group(pair.group)) {
        return Count::DroppedGroup;
    }
    if (!is_routable(pair.source)) {
        return Count::DroppedSource;
    }
    if (speaker.mrib.is_source_specific(pair.group)) {
        return Count::DroppedSsm;
    }
    if (MCAST4_IsAclPermit(0, from.filter_in, pair.source.number, pair.group.number) != MCAST_TRUE) {
        return Count::DroppedFilter;
    }
    return std::nullopt;
}

std::optional<Count> receive(Peer &from, const Tlv &tlv)
{
    SourceActive message;
    Ipv4 group;
    switch (tlv.type) {
    case TLV_SOURCE_ACTIVE:
        if (!parse_source_active(tlv.value, &message)) {
            return Count::BadSourceActive;
        }
        take_source_active(from, message);
        break;
    case TLV_RESPONSE:
        if (!parse_source_active(tlv.value, &message)) {
            return Count::BadSourceActive;
        }
        take_response(from, message);
        break;
    case TLV_REQUEST:
        if (!parse_request(tlv.value, &group)) {
            return Count::BadRequest;
        }
        ++from.counters[Count::ReceivedRequests];
        trace_message(from.config.address, "request received", group, 0);
        answer_request(from, group);
        break;
    case TLV_KEEPALIVE:
        if (!tlv.value.empty()) {
            return Count::BadKeepalive;
        }
        ++from.counters[Count::ReceivedKeepalives];
        break;
    default:
        ++from.counters[Count::IgnoredType];
        break;
    }
    return std::nullopt;
}

} // namespace msdpd
