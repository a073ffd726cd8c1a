#include "daemons/msdpd/status.h"

#include "daemons/common/json.h"
#include "daemons/msdpd/rpf.h"

namespace msdpd
{
namespace
{

using mcastd::Json;

void write_peer(Json &json, const Peer &peer)
{
    json.open(nullptr, '{');
    json.text("peer", to_text(peer.config.address));
    json.text("local_address", to_text(peer.config.local_address));
    json.text("state", state_name(peer.state));
    json.number("since_s", mcastd::boot_time_s() - peer.state_since_s);
    if (!peer.config.description.empty()) {
        json.text("description", peer.config.description);
    }
    if (peer.in_mesh_group()) {
        json.text("mesh_group", peer.config.mesh_group);
    }
    if (!peer.last_end.empty()) {
        json.text("last_end", peer.last_end);
    }
    json.number("entries", peer.speaker.cache.peers().of(peer.config.address));
    json.number("sa_limit", peer.config.sa_limit);
    json.number("bytes_waiting", peer.output.size());
    write_counters(json, peer.counters);
    json.close('}');
}

void write_local_sources(Json &json, Speaker &speaker)
{
    MRIB_MSDP_CURSOR_S cursor{};
    bool more = true;

    json.open("local_sources", '[');
    while (more) {
        Ipv4 rp;
        std::vector<Pair> pairs;

        more = advertise_next(speaker, Ipv4{}, &cursor, &rp, &pairs);
        for (const Pair &pair : pairs) {
            json.open(nullptr, '{', true);
            json.text("source", to_text(pair.source));
            json.text("group", to_text(pair.group));
            json.text("originator", to_text(rp));
            json.close('}');
        }
    }
    json.close(']');
}

void write_cache(Json &json, const Speaker &speaker)
{
    SaCache::Cursor cursor;

    json.number("entries", speaker.cache.size());
    json.open("cache", '[');
    speaker.cache.visit(&cursor, [&json](const SaEntry &entry) {
        const Pair pair = entry.pair();

        json.open(nullptr, '{', true);
        json.text("source", to_text(pair.source));
        json.text("group", to_text(pair.group));
        json.text("originator", to_text(entry.rp));
        json.text("peer", to_text(entry.peer));
        json.number("age_s", mcastd::boot_time_s() - entry.learned_s);
        json.number("expires_s", mcastd::timer_remaining_s(entry.expiry));
        json.close('}');
        return true;
    });
    json.close(']');
}

// For each originator in the cache, the peer from which its announcements are accepted now.
void write_rpf(Json &json, const Speaker &speaker)
{
    json.open("rpf", '[');
    speaker.cache.originators().visit(Ipv4{}, [&](Ipv4 originator, uint32_t entries) {
        const RpfChoice choice = rpf_peer(speaker, originator);

        json.open(nullptr, '{', true);
        json.text("originator", to_text(originator));
        if (choice.peer != nullptr) {
            json.text("peer", to_text(choice.peer->config.address));
        }
        json.text("rule", rule_name(choice.rule));
        json.number("entries", entries);
        json.close('}');
        return true;
    });
    json.close(']');
}

} // namespace

std::string status_text(Speaker &speaker, const ProcessStatus &process)
{
    Json json;
    json.open(nullptr, '{');
    json.text("daemon", "msdpd");
    json.truth("mrib_connected", process.mrib_connected);
    json.number("mrib_connects", process.mrib_connects);
    json.number("mrib_pending_messages", process.mrib_pending);
    json.number("refused_connections", speaker.refused_connections);
    json.number("postponed_accepts", speaker.postponed_accepts);
    json.open("peers", '[');
    for (const auto &[address, peer] : speaker.peers) {
        write_peer(json, *peer);
    }
    json.close(']');
    write_local_sources(json, speaker);
    write_rpf(json, speaker);
    write_cache(json, speaker);
    json.close('}');
    return json.take();
}

} // namespace msdpd
