/*
 * Routers in one process, on links that are lists of who hears whom: every message goes through bytes, as on a wire, and
 * time passes when a test says so.
 */
#ifndef TESTS_DAEMONS_PIMSMD_ROUTER_LAB_H
#define TESTS_DAEMONS_PIMSMD_ROUTER_LAB_H

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "daemons/pimsmd/router.h"
#include "tests/daemons/pimsmd_messages.h"

namespace pimsmd_test
{

using pimsmd::Router;

// The number-th address of a router or host on a link: where messages of PIM come from, and where packets do.
inline Address primary(uint16_t family, unsigned link, unsigned number)
{
    const std::string text = family == MCAST_FAMILY_IPV4
                                 ? "10.0." + std::to_string(link) + "." + std::to_string(number)
                                 : "fe80::" + std::to_string(link) + ":" + std::to_string(number);
    return addr(text.c_str());
}
inline Address global(uint16_t family, unsigned link, unsigned number)
{
    const std::string text = "2001:db8:" + std::to_string(link) + "::" + std::to_string(number);
    return family == MCAST_FAMILY_IPV4 ? primary(family, link, number) : addr(text.c_str());
}

class Lan;

// A router with its interfaces: interface N is on link N.
class Box final : public pimsmd::Transmitter, public pimsmd::UnicastRoutes, public pimsmd::MribSide
{
public:
    Box(Lan &lan, unsigned number, const pimsmd::Config &config);

    // Killed and started again: nobody was told, and what it knew is gone.
    void restart(const pimsmd::Config &config = {});

    void attach(unsigned link);
    void detach(unsigned link);
    // Sources and routers of a link are reached over another link and router.
    void route(unsigned to_link, unsigned over_link, unsigned over_router);

    void send(uint32_t if_index, const Envelope &envelope, std::span<const uint8_t> message) override;
    std::optional<pimsmd::UnicastRoute> look_up(const Address &address) override;
    void link_came(unsigned link) override
    {
        told.push_back("came " + std::to_string(link));
    }
    void dr_changed(unsigned link) override
    {
        told.push_back("dr " + std::to_string(link));
    }
    void link_gone(unsigned link, uint32_t if_index) override
    {
        told.push_back("gone " + std::to_string(link) + " " + std::to_string(if_index));
    }
    void entry_changed(const Address &, const Address &) override
    {
        ++entries_told;
    }

    unsigned link_number(unsigned link) const
    {
        return *router->link_of(link);
    }
    const pimsmd::Neighbours &neighbours(unsigned link) const
    {
        return router->link(link_number(link))->neighbours();
    }

    Lan &lan;
    unsigned number;
    std::set<unsigned> links;
    std::map<unsigned, std::pair<unsigned, unsigned>> routes;
    std::vector<std::string> told;
    size_t entries_told = 0;
    std::vector<std::string> sent; // what messages said, by kind
    std::unique_ptr<Router> router;
};

class Lan
{
public:
    explicit Lan(uint16_t of) : family(of), queue([this] { return now_ms; })
    {
    }

    Box &add(const pimsmd::Config &config = {})
    {
        boxes.push_back(std::make_unique<Box>(*this, static_cast<unsigned>(boxes.size() + 1), config));
        return *boxes.back();
    }

    // Everything that is due up to then happens, each at its time.
    void pass(uint64_t ms)
    {
        const uint64_t end_ms = now_ms + ms;
        settle();
        while (const auto next_ms = queue.next_ms()) {
            if (*next_ms > end_ms) {
                break;
            }
            now_ms = std::max(now_ms, *next_ms);
            queue.run_due(1000);
            settle();
        }
        now_ms = end_ms;
    }

    // Routers settle and messages arrive until nothing is left to do.
    void settle()
    {
        bool more = false;
        do {
            more = false;
            deliver();
            for (const auto &box : boxes) {
                more |= box != nullptr && box->router->settle();
            }
        } while (more || !wire.empty());
    }

    struct Packet {
        unsigned from;
        uint32_t if_index;
        Envelope envelope;
        Bytes bytes;
    };

    uint16_t family;
    uint64_t now_ms = 1000;
    pimsmd::MsQueue queue;
    std::deque<Packet> wire;
    std::vector<std::unique_ptr<Box>> boxes;
    uint32_t seed = 1;
    std::function<void(const Packet &)> tap; // hears all that is sent

private:
    void deliver()
    {
        while (!wire.empty()) {
            const Packet packet = wire.front();
            wire.pop_front();
            if (tap) {
                tap(packet);
            }
            for (const auto &box : boxes) {
                if (box != nullptr && box->number != packet.from) {
                    arrive(*box, packet);
                }
            }
        }
    }
    void arrive(Box &box, const Packet &packet) const
    {
        const bool to_group = pimsmd::is_multicast(packet.envelope.destination);
        bool is_own = false;
        for (const unsigned link : box.links) {
            is_own = is_own ||
                     mcastd::same_address(packet.envelope.destination, global(family, link, box.number)) ||
                     mcastd::same_address(packet.envelope.destination, primary(family, link, box.number));
        }
        if (to_group && box.links.contains(packet.if_index)) {
            box.router->received(packet.if_index, packet.envelope, packet.bytes);
        } else if (!to_group && is_own) {
            box.router->received(packet.if_index, packet.envelope, packet.bytes);
        }
    }
};

inline Box::Box(Lan &of, unsigned as, const pimsmd::Config &config) : lan(of), number(as)
{
    restart(config);
}

inline void Box::restart(const pimsmd::Config &config)
{
    const std::set<unsigned> before = std::move(links);
    links.clear();
    router.reset();
    router = std::make_unique<Router>(
        lan.family, lan.queue, *this, *this,
        [this](uint32_t most) {
            lan.seed = lan.seed * 1664525 + 1013904223;
            return most == UINT32_MAX ? lan.seed : lan.seed % (most + 1);
        },
        config);
    router->set_mrib(this);
    for (const unsigned link : before) {
        attach(link);
    }
}

inline void Box::attach(unsigned link)
{
    std::set<Address, pimsmd::AddressLess> own;
    pimsmd::LinkState state;
    links.insert(link);
    for (const unsigned one : links) {
        own.insert(primary(lan.family, one, number));
        own.insert(global(lan.family, one, number));
    }
    router->set_own(own);
    state.if_index = link;
    state.name = "e" + std::to_string(link);
    state.address = primary(lan.family, link, number);
    if (lan.family == MCAST_FAMILY_IPV6) {
        state.others.push_back(global(lan.family, link, number));
    }
    router->link_up(state);
}

inline void Box::detach(unsigned link)
{
    links.erase(link);
    router->link_down(link);
}

inline void Box::route(unsigned to_link, unsigned over_link, unsigned over_router)
{
    routes[to_link] = {over_link, over_router};
    router->routes_changed();
}

inline void Box::send(uint32_t if_index, const Envelope &envelope, std::span<const uint8_t> message)
{
    const char *const kinds[] = {"hello",  "register", "stop", "join",     "bootstrap",
                                 "assert", "",         "",     "candidate"};
    sent.push_back(kinds[message[0] & 15]);
    lan.wire.push_back({number, if_index, envelope, Bytes(message.begin(), message.end())});
}

// The link of an address is its third number.
inline std::optional<pimsmd::UnicastRoute> Box::look_up(const Address &address)
{
    pimsmd::UnicastRoute route;
    route.source = pimsmd::any_address(lan.family);
    for (unsigned link = 1; link < 10; ++link) {
        const bool is_on = lan.family == MCAST_FAMILY_IPV4
                               ? address.address[2] == link
                               : address.address[5] == link && address.address[0] == 0x20;
        if (!is_on) {
            continue;
        }
        const auto found = routes.find(link);

        if (links.contains(link)) {
            route.local = mcastd::same_address(address, global(lan.family, link, number));
            route.if_index = link;
            route.connected = true;
            route.next_hop = address;
            route.source = global(lan.family, link, number);
            return route;
        }
        if (found != routes.end()) {
            route.if_index = found->second.first;
            route.next_hop = primary(lan.family, found->second.first, found->second.second);
            route.source = global(lan.family, found->second.first, number);
            route.preference = 1;
            return route;
        }
    }
    return std::nullopt;
}

} // namespace pimsmd_test

#endif
