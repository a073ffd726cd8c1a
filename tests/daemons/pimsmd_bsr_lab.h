/*
 * A BSR with its set of RPs among two neighbours that are names: a test says what is heard, and reads what is said.
 */
#ifndef TESTS_DAEMONS_PIMSMD_BSR_LAB_H
#define TESTS_DAEMONS_PIMSMD_BSR_LAB_H

#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "daemons/common/log.h"
#include "daemons/pimsmd/bsr.h"
#include "tests/daemons/pimsmd_messages.h"

namespace pimsmd_test
{

using pimsmd::Bootstrap;
using pimsmd::BootstrapRangeOut;
using pimsmd::BootstrapRp;
using pimsmd::Bsr;
using pimsmd::BsrSettings;
using pimsmd::CandidateRp;
using pimsmd::GroupRange;
using pimsmd::Prefix;
using pimsmd::RpSet;
using pimsmd::bsr::Weight;

using BsrLines = std::vector<std::string>;

inline BootstrapRp mapping(const char *address, uint16_t holdtime_s = 150, uint8_t priority = 0)
{
    return {addr(address), holdtime_s, priority};
}

struct SaidRange {
    const char *range;
    uint8_t count;
    std::vector<BootstrapRp> rps;
};

// A Bootstrap as it comes from the wire, whose bytes it keeps.
struct HeardBootstrap {
    HeardBootstrap(const char *bsr, uint8_t priority, uint16_t tag, const std::vector<SaidRange> &said,
                   bool no_forward = false)
    {
        const Envelope from = envelope(MCAST_FAMILY_IPV4);
        std::vector<BootstrapRangeOut> ranges;
        Bootstrap out;
        Message read;
        out.no_forward = no_forward;
        out.fragment_tag = tag;
        out.hash_mask_length = 30;
        out.priority = priority;
        out.bsr = addr(bsr);
        for (const SaidRange &one : said) {
            ranges.push_back({{Prefix::parse(one.range).value(), false, zone}, one.count, one.rps});
        }
        bytes.resize(pimsmd::MAX_MESSAGE_SIZE);
        bytes.resize(pimsmd::write_bootstrap(bytes, from, out, ranges));
        EXPECT_EQ(pimsmd::read_message(from, bytes, &read), NO_DROP);
        message = std::get<Bootstrap>(read);
    }
    static inline bool zone = false;
    Bytes bytes;
    Bootstrap message;
};

// A router with neighbours 10.0.0.2 and 10.0.0.3 on link 0; the way to every BSR is over the first.
struct BsrLab final : pimsmd::BsrSurroundings, pimsmd::RpSetEvents {
    explicit BsrLab(const BsrSettings &settings = {})
        : set(MCAST_FAMILY_IPV4, queue, *this, counters),
          bsr(MCAST_FAMILY_IPV4, queue, *this, set, counters, settings)
    {
        mcastd::log_open("pimsmd", mcastd::LogLevel::Error);
    }
    void rps_changed(const Prefix & /*range*/) override
    {
    }
    pimsmd::Route route_to(const Address & /*address*/) override
    {
        pimsmd::Route route;
        route.link = 0;
        route.neighbour = addr("10.0.0.2");
        return route;
    }
    bool is_neighbour(unsigned link, const Address &address) override
    {
        const std::string name = pimsmd::to_text(address);
        return link == 0 && (name == "10.0.0.2" || name == "10.0.0.3");
    }
    bool is_own(const Address &address) override
    {
        return pimsmd::to_text(address) == "10.0.0.1";
    }
    uint32_t random(uint32_t most) override
    {
        return most / 2;
    }
    void forward(const Bootstrap &message) override
    {
        lines.push_back("forward " + pimsmd::to_text(message.bsr));
    }
    static std::string text_of(const Bootstrap &message, std::span<const BootstrapRangeOut> ranges)
    {
        std::string text = pimsmd::to_text(message.bsr) + " " + std::to_string(message.priority);
        for (const BootstrapRangeOut &one : ranges) {
            text += " " + one.range.prefix.text() + "=" + std::to_string(one.rp_count);
            for (const BootstrapRp &rp : one.rps) {
                text += " " + pimsmd::to_text(rp.address);
            }
        }
        return text;
    }
    void send_bootstrap(const Bootstrap &message, std::span<const BootstrapRangeOut> ranges) override
    {
        tags.push_back(message.fragment_tag);
        lines.push_back("send " + text_of(message, ranges));
    }
    void send_bootstrap_to(unsigned /*link*/, const Address &neighbour, const Bootstrap &message,
                           std::span<const BootstrapRangeOut> ranges) override
    {
        lines.push_back("tell " + pimsmd::to_text(neighbour) + " " + text_of(message, ranges));
    }
    void send_candidate(const Address &to, const CandidateRp &message,
                        std::span<const GroupRange> ranges) override
    {
        lines.push_back("candidate to " + pimsmd::to_text(to) + " " + pimsmd::to_text(message.rp) + " " +
                        std::to_string(ranges.size()) + (message.holdtime_s == 0 ? " goodbye" : ""));
    }
    Count hear(const HeardBootstrap &heard, const char *from = "10.0.0.2", bool unicast = false)
    {
        return bsr.bootstrap(0, addr(from), unicast, heard.message);
    }
    Count offer(const char *address, uint16_t holdtime_s = 150)
    {
        CandidateRp message;
        message.holdtime_s = holdtime_s;
        message.rp = addr(address);
        return bsr.candidate_rp(message);
    }
    void pass(uint64_t ms)
    {
        now += ms;
        queue.run_due(SIZE_MAX);
    }
    std::string rp_of(const char *group)
    {
        const std::optional<Address> rp = set.rp_of(addr(group));
        return rp ? pimsmd::to_text(*rp) : "none";
    }
    BsrLines taken()
    {
        return std::exchange(lines, {});
    }

    uint64_t now = 1000;
    pimsmd::MsQueue queue{[this] { return now; }};
    pimsmd::Counters counters;
    BsrLines lines;
    std::vector<uint16_t> tags;
    RpSet set;
    Bsr bsr;
};

inline BsrSettings candidate(uint8_t priority)
{
    BsrSettings settings;
    settings.candidate = Weight{priority, addr("10.0.0.1")};
    settings.hash_mask_length = 30;
    return settings;
}

// The only candidate waits 5 s.
constexpr uint64_t ALONE_MS = 5000;

} // namespace pimsmd_test

#endif
