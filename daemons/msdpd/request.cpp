#include "daemons/msdpd/request.h"

#include "daemons/msdpd/forward.h"
#include "daemons/msdpd/trace.h"

namespace msdpd
{
namespace
{

constexpr size_t BUSY = SendBuffer::LIMIT / 4;

// Collects the pairs of an originator until they fill a message.
class Responses
{
public:
    explicit Responses(Peer &to) : to_(to)
    {
    }
    void add(Ipv4 rp, const Pair &pair)
    {
        std::vector<Pair> &pairs = pairs_[rp];
        pairs.push_back(pair);
        if (pairs.size() == MAX_ENTRIES) {
            send_pairs(to_, TLV_RESPONSE, rp, pairs);
            pairs.clear();
        }
    }
    void finish()
    {
        for (const auto &[rp, pairs] : pairs_) {
            send_pairs(to_, TLV_RESPONSE, rp, pairs);
        }
    }

private:
    Peer &to_;
    std::map<Ipv4, std::vector<Pair>> pairs_;
};

} // namespace

void ask_for_sources(Speaker &speaker, Ipv4 group)
{
    for (const auto &[address, peer] : speaker.peers) {
        if (peer->established() && peer->config.sa_request && peer_send(*peer, build_request(group))) {
            ++peer->counters[Count::SentRequests];
            trace_message(address, "request sent", group, 0);
        }
    }
}

void answer_request(Peer &from, Ipv4 group)
{
    Speaker &speaker = from.speaker;
    Responses responses(from);
    MRIB_MSDP_CURSOR_S cursor{};
    bool more = is_routable_group(group);

    if (from.output.size() > BUSY) {
        ++from.counters[Count::IgnoredRequest];
        return;
    }
    while (more) {
        Ipv4 rp;
        std::vector<Pair> pairs;

        more = advertise_next(speaker, group, &cursor, &rp, &pairs);
        for (const Pair &pair : pairs) {
            responses.add(rp, pair);
        }
    }
    speaker.cache.visit_group(group, [&](const SaEntry &entry) {
        if (entry.peer != from.config.address) {
            responses.add(entry.rp, entry.pair());
        }
        return true;
    });
    responses.finish();
}

} // namespace msdpd
