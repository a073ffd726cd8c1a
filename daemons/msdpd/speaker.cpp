#include "daemons/msdpd/speaker.h"

#include "daemons/msdpd/receive.h"

namespace msdpd
{
namespace
{

bool needs_new_connection(const PeerConfig &before, const PeerConfig &after)
{
    return before.local_address != after.local_address || before.enabled != after.enabled;
}

// What was not for the peer before may be now, as far as the configuration or its lists decide.
bool may_get_more(const PeerConfig &before, const PeerConfig &after)
{
    return before.filter_out != MCAST_NONE || before.mesh_group != after.mesh_group;
}

void change_peer(Peer &peer, const PeerConfig &config)
{
    const PeerConfig before = peer.config;
    if (needs_new_connection(before, config)) {
        peer_stop(peer, "the configuration changed");
        peer.config = config;
        peer_start(peer);
        return;
    }
    peer.config = config;
    if (peer.established() && may_get_more(before, config)) {
        dump_start(peer);
    }
}

void remove_peers(Speaker &speaker, const Config &config)
{
    for (auto next = speaker.peers.begin(); next != speaker.peers.end();) {
        const auto known = next++;

        if (!config.peers.contains(known->first)) {
            peer_stop(*known->second, "the peer is configured no longer");
            speaker.peers.erase(known);
        }
    }
}

} // namespace

Speaker::~Speaker()
{
    for (const auto &[address, peer] : peers) {
        peer_stop(*peer, "the daemon ends");
    }
    mcastd::timer_stop(timers, advertisement.timer);
}

Peer *speaker_find_peer(const Speaker &speaker, Ipv4 address)
{
    const auto found = speaker.peers.find(address);
    return found == speaker.peers.end() ? nullptr : found->second.get();
}

void speaker_configure(Speaker &speaker, const Config &config)
{
    const bool new_interval =
        !speaker.advertisement.timer.running() || speaker.config.advertisement_s != config.advertisement_s;
    remove_peers(speaker, config);
    speaker.config = config;
    speaker.rpf_prefixes.configure(config);
    for (const auto &[address, settings] : config.peers) {
        if (Peer *peer = speaker_find_peer(speaker, address)) {
            change_peer(*peer, settings);
        } else {
            auto made = std::make_unique<Peer>(speaker, settings);
            peer_start(*speaker.peers.emplace(address, std::move(made)).first->second);
        }
    }
    speaker_check_cache(speaker);
    if (new_interval) {
        advertise_start(speaker);
    }
}

void speaker_tend(Speaker &speaker)
{
    for (const auto &[address, peer] : speaker.peers) {
        peer_tend(*peer);
    }
    if (!speaker.peers.empty() && !speaker.advertisement.timer.running()) {
        advertise_start(speaker);
    }
}

void speaker_check_cache(Speaker &speaker)
{
    AddressCounts kept;

    speaker.cache.remove_if([&](const SaEntry &entry) {
        const Peer *peer = speaker_find_peer(speaker, entry.peer);

        if (peer == nullptr || !peer->config.enabled || entry.rp == speaker.config.originator ||
            objection(speaker, peer->config, entry.pair()) || kept.of(entry.peer) >= peer->config.sa_limit) {
            return true;
        }
        kept.add(entry.peer);
        return false;
    });
}

} // namespace msdpd
