/*
 * One MSDP speaker without sockets: time is scripted, connections are those that a test makes, and what goes
 * to peers and to the MRIB process comes out as text.
 *
 * Everything has a number. The speaker is 10.0.0.100, peer n is 10.0.0.n: those below 100 connect to it, it
 * connects to those above. Pair {s, g} is source 192.0.2.s of group 239.0.0.g, shown as "s>g".
 */
#ifndef TESTS_DAEMONS_MSDPD_LAB_H
#define TESTS_DAEMONS_MSDPD_LAB_H

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "daemons/common/log.h"
#include "daemons/msdpd/speaker.h"
#include "support/scripted_timer.h"

namespace msdpd_test
{

using msdpd::Bytes;
using msdpd::Ipv4;
using msdpd::Pair;

inline Ipv4 peer_address(unsigned number)
{
    return {0x0a000000 + number};
}

inline Pair pair(unsigned source, unsigned group)
{
    return {{0xef000000 + group}, {0xc0000200 + source}};
}

inline std::vector<mcastd::Prefix> prefixes(const std::vector<std::string> &texts)
{
    std::vector<mcastd::Prefix> read;
    for (const std::string &text : texts) {
        read.push_back(mcastd::Prefix::parse(text).value());
    }
    return read;
}

inline std::string text(const Pair &pair)
{
    return std::to_string(pair.source.number - 0xc0000200) + ">" +
           std::to_string(pair.group.number - 0xef000000);
}

// Adds a word to a line.
inline void append(std::string *line, const std::string &word)
{
    *line += (line->empty() ? "" : " ") + word;
}

class FakeTransport final : public msdpd::Transport
{
public:
    void connect(msdpd::Peer &peer) override
    {
        append(&calls, "connect " + std::to_string(peer.config.address.number & 0xff));
    }
    void disconnect(msdpd::Peer &peer) override
    {
        append(&calls, "disconnect " + std::to_string(peer.config.address.number & 0xff));
    }

    std::string calls;
};

class FakeMrib final : public msdpd::Mrib
{
public:
    bool next_local(uint32_t acl, Ipv4 group, MRIB_MSDP_CURSOR_S *cursor, MRIB_MSDP_BATCH_S *batch) override;
    uint32_t local_count() override
    {
        return static_cast<uint32_t>(local.size());
    }
    bool is_source_specific(Ipv4 group) override
    {
        return group.number >> 24 == 232;
    }

    std::vector<Pair> local; // all of the RP 10.0.0.100
    uint32_t asked_acl = 0;
};

class FakeRoutes final : public msdpd::Routes
{
public:
    std::optional<msdpd::Route> route_to(Ipv4 address) override
    {
        const auto found = routes.find(address);
        return found == routes.end() ? std::nullopt : std::optional(found->second);
    }

    std::map<Ipv4, msdpd::Route> routes;
};

class Lab
{
public:
    // The speaker with peers of these numbers, of which change may alter the configuration.
    explicit Lab(const std::vector<unsigned> &peers = {},
                 const std::function<void(msdpd::Config &config)> &change = nullptr);
    ~Lab();

    msdpd::PeerConfig &settings(unsigned number)
    {
        return config.peers.at(peer_address(number));
    }
    msdpd::Peer &peer(unsigned number)
    {
        return *speaker->peers.at(peer_address(number));
    }
    std::string state(unsigned number);

    // Puts config in force.
    void configure();

    // Has a peer's connection come up, and forgets what that sent.
    void establish(unsigned number);
    void establish(const std::vector<unsigned> &numbers);

    // A peer announces pairs for an originator.
    void announce(unsigned number, Ipv4 rp, const std::vector<Pair> &pairs);
    // The same for itself.
    void announce(unsigned number, const std::vector<Pair> &pairs);
    void input(unsigned number, const Bytes &bytes);

    // What a peer was sent since the last call, for example "keepalive sa 100 1>1 2>1": source active
    // messages with the last number of the originator.
    std::string sent(unsigned number);

    // The entries, for example "1>1 2>1".
    std::string cache();

    // What the MRIB process would have been told since the last call, for example "+1>1 -2>1 -all>3 -all".
    std::string told();

    uint64_t count(unsigned number, msdpd::Count count)
    {
        return peer(number).counters[count];
    }

    // Moves time on, second by second, letting timers fire.
    void pass(uint32_t seconds);

    FakeTransport transport;
    FakeMrib mrib;
    FakeRoutes routes;
    msdpd::Config config;
    MCAST_TMR_S *timers;
    std::unique_ptr<msdpd::Speaker> speaker;

private:
    std::string told_;
};

} // namespace msdpd_test

#endif
