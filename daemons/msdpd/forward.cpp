#include "daemons/msdpd/forward.h"

#include "daemons/msdpd/trace.h"
#include "mcast/acl_filter.h"

namespace msdpd
{

bool may_forward(const Peer &to, const Peer *from, Ipv4 originator)
{
    return &to != from && to.config.address != originator &&
           (from == nullptr || !to.shares_mesh_group(*from));
}

void send_pairs(Peer &to, uint8_t type, Ipv4 originator, std::span<const Pair> pairs)
{
    std::vector<Pair> permitted;
    if (to.config.filter_out != MCAST_NONE) {
        for (const Pair &pair : pairs) {
            if (MCAST4_IsAclPermit(0, to.config.filter_out, pair.source.number, pair.group.number) ==
                MCAST_TRUE) {
                permitted.push_back(pair);
            } else {
                ++to.counters[Count::FilteredOut];
            }
        }
        pairs = permitted;
    }
    if (pairs.empty() || !peer_send(to, build_source_active(type, originator, pairs))) {
        return;
    }
    trace_message(to.config.address, type == TLV_SOURCE_ACTIVE ? "source active sent" : "response sent",
                  originator, pairs.size());
    if (type == TLV_SOURCE_ACTIVE) {
        ++to.counters[Count::SentSourceActive];
        to.counters[Count::SentEntries] += pairs.size();
    } else {
        ++to.counters[Count::SentResponses];
    }
}

void forward(Speaker &speaker, const Peer *from, Ipv4 originator, std::span<const Pair> pairs)
{
    for (const auto &[address, peer] : speaker.peers) {
        if (peer->established() && may_forward(*peer, from, originator)) {
            send_pairs(*peer, TLV_SOURCE_ACTIVE, originator, pairs);
        }
    }
}

} // namespace msdpd
