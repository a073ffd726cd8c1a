/*
 * Bytes of peers into the MSDP daemon. An input is a sequence of steps, each a byte that says what follows
 * and a byte with its length:
 *
 *      bytes of the stream of a peer, as they are
 *      the value of a message, around which the header is put right
 *      time that passes, in seconds
 *      a thousand sources that the peer announces
 *
 * Four peers, two of them in a mesh group, one with a small limit; one that lost its connection gets a new
 * one. After each step the cache must hold together, and the MRIB process believe what is in it.
 */
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <utility>

#include "tests/daemons/msdpd_lab.h"

using namespace msdpd_test;

namespace
{

constexpr unsigned PEERS = 4;
constexpr unsigned STREAM = 0;
constexpr unsigned PAUSE = 1;

// A step of this byte, with the length 0.
constexpr uint8_t CROWD = 0xff;
constexpr unsigned CROWD_GROUPS = 1000;

void require(bool condition, const char *what)
{
    if (!condition) {
        fprintf(stderr, "%s\n", what);
        abort();
    }
}

void check(Lab &lab, const std::set<Pair> &mirror)
{
    std::set<Pair> pairs;
    uint32_t total = 0;
    uint32_t of_originators = 0;
    msdpd::SaCache::Cursor cursor;

    lab.speaker->cache.visit(&cursor, [&pairs](const msdpd::SaEntry &entry) {
        pairs.insert(entry.pair());
        return true;
    });
    for (unsigned number = 1; number <= PEERS; ++number) {
        const msdpd::Peer &peer = lab.peer(number);
        const uint32_t count = lab.speaker->cache.peers().of(peer_address(number));

        total += count;
        require(count <= peer.config.sa_limit, "more entries than the limit");
        require(peer.input.size() < msdpd::MAX_TLV_SIZE, "a whole message was not taken");
        require(peer.output.size() <= msdpd::SendBuffer::LIMIT, "more waits than may");
        require(peer.established() || peer.output.empty(), "something waits for no connection");
    }
    lab.speaker->cache.originators().visit(Ipv4{}, [&of_originators](Ipv4, uint32_t count) {
        of_originators += count;
        return count > 0;
    });
    require(pairs.size() == lab.speaker->cache.size() && total == pairs.size() &&
                of_originators == pairs.size(),
            "the counts are wrong");
    require(pairs == mirror, "the MRIB process believes something else");
}

Bytes with_header(uint8_t type, const Bytes &value)
{
    Bytes bytes(msdpd::TLV_HEADER_SIZE + value.size());
    bytes[0] = type;
    bytes[1] = static_cast<uint8_t>(bytes.size() >> 8);
    bytes[2] = static_cast<uint8_t>(bytes.size());
    std::copy(value.begin(), value.end(), bytes.begin() + msdpd::TLV_HEADER_SIZE);
    return bytes;
}

void configure(msdpd::Config &config)
{
    config.peers.at(peer_address(1)).mesh_group = "m";
    config.peers.at(peer_address(2)).mesh_group = "m";
    config.peers.at(peer_address(3)).sa_limit = 4;
    config.peers.at(peer_address(3)).sa_request = true;
    config.peers.at(peer_address(4)).default_peer = true;
}

void announce_crowd(Lab &lab, unsigned number)
{
    std::vector<Pair> pairs;
    for (unsigned group = 1; group <= CROWD_GROUPS; ++group) {
        pairs.push_back(pair(1 + group % 7, group));
        if (pairs.size() == 100) {
            lab.announce(number, std::exchange(pairs, {}));
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Lab lab({1, 2, 3, 4}, configure);
    std::set<Pair> mirror;

    mcastd::log_open("msdpd", mcastd::LogLevel::Error);
    lab.mrib.local = {pair(1, 1), pair(2, 1), pair(1, 2), pair(1, 3)};
    lab.speaker->cache.on_change([&mirror](const Pair &pair, bool present) {
        require(present ? mirror.insert(pair).second : mirror.erase(pair) == 1, "told twice");
    });
    while (size >= 2) {
        const unsigned how = data[0] / PEERS % 4;
        const unsigned number = data[0] % PEERS + 1;
        const size_t length = std::min<size_t>(data[1], size - 2);
        Bytes bytes(data + 2, data + 2 + length);

        if (!lab.peer(number).established()) {
            lab.establish(number);
        }
        if (data[0] == CROWD && data[1] == 0) {
            announce_crowd(lab, number);
        } else if (how == PAUSE) {
            lab.pass(data[1]);
        } else {
            bytes.shrink_to_fit();
            lab.input(number,
                      how == STREAM ? bytes : with_header(static_cast<uint8_t>(data[0] / 16 % 6), bytes));
        }
        const size_t step = 2 + (how == PAUSE ? 0 : length);

        data += step;
        size -= step;
        check(lab, mirror);
    }
    lab.speaker->cache.on_change(nullptr);
    return 0;
}
