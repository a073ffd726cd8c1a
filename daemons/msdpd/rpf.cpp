/*
 * The rules in their order; docs/msdpd.md lists them. Each names a peer or none, and a peer that is not
 * connected is none: so an announcement takes the next best way while the best one is down. Nothing is kept
 * here; an answer holds for the announcement that asked.
 */
#include "daemons/msdpd/rpf.h"

namespace msdpd
{
namespace
{

// The only peer that is configured and not disabled; NULL when there are several.
const Peer *only_peer(const Speaker &speaker)
{
    const Peer *only = nullptr;
    for (const auto &[address, peer] : speaker.peers) {
        if (peer->config.enabled) {
            if (only != nullptr) {
                return nullptr;
            }
            only = peer.get();
        }
    }
    return only != nullptr && only->established() ? only : nullptr;
}

const Peer *static_peer(const Speaker &speaker, Ipv4 originator)
{
    const Peer *found = nullptr;

    speaker.rpf_prefixes.visit(originator, [&](Ipv4 address) {
        const Peer *peer = speaker_find_peer(speaker, address);

        found = peer != nullptr && peer->established() ? peer : nullptr;
        return found == nullptr;
    });
    return found;
}

RpfChoice peer_in_direction(const Speaker &speaker, const Route &route)
{
    RpfChoice highest;
    for (const auto &[address, peer] : speaker.peers) {
        const std::optional<Route> way =
            peer->established() ? speaker.routes.route_to(address) : std::nullopt;
        if (way && way->is_unknown) {
            return {nullptr, RpfRule::Unknown};
        }
        if (way == route) {
            highest = {peer.get(), RpfRule::Direction}; // they come in ascending order
        }
    }
    return highest;
}

// What the unicast routes say; no rule when they name no peer.
RpfChoice peer_by_routes(const Speaker &speaker, Ipv4 originator)
{
    const std::optional<Route> route = speaker.routes.route_to(originator);
    if (!route) {
        return {};
    }
    if (route->is_unknown) {
        return {nullptr, RpfRule::Unknown};
    }
    const Peer *peer = speaker_find_peer(speaker, route->gateway);
    if (peer != nullptr && peer->established()) {
        return {peer, RpfRule::NextHop};
    }
    return peer_in_direction(speaker, *route);
}

const Peer *default_peer(const Speaker &speaker)
{
    const Peer *first = nullptr;
    for (const auto &[address, peer] : speaker.peers) {
        if (peer->established() && peer->config.default_peer &&
            (first == nullptr || peer->config.position < first->config.position)) {
            first = peer.get();
        }
    }
    return first;
}

} // namespace

const char *rule_name(RpfRule rule)
{
    switch (rule) {
    case RpfRule::Originator:
        return "originator";
    case RpfRule::OnlyPeer:
        return "only_peer";
    case RpfRule::Static:
        return "static";
    case RpfRule::NextHop:
        return "next_hop";
    case RpfRule::Direction:
        return "direction";
    case RpfRule::Default:
        return "default";
    case RpfRule::Unknown:
        return "unknown";
    case RpfRule::None:
        break;
    }
    return "none";
}

RpfChoice rpf_peer(const Speaker &speaker, Ipv4 originator)
{
    const Peer *peer = speaker_find_peer(speaker, originator);
    if (peer != nullptr && peer->established()) {
        return {peer, RpfRule::Originator};
    }
    if ((peer = only_peer(speaker)) != nullptr) {
        return {peer, RpfRule::OnlyPeer};
    }
    if ((peer = static_peer(speaker, originator)) != nullptr) {
        return {peer, RpfRule::Static};
    }
    const RpfChoice choice = peer_by_routes(speaker, originator);
    if (choice.rule != RpfRule::None) {
        return choice;
    }
    if ((peer = default_peer(speaker)) != nullptr) {
        return {peer, RpfRule::Default};
    }
    return {};
}

} // namespace msdpd
