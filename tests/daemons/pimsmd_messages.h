/*
 * PIM messages for tests: bytes from hexadecimal text, a line that says what was read, and writing again what was read.
 */
#ifndef TESTS_DAEMONS_PIMSMD_MESSAGES_H
#define TESTS_DAEMONS_PIMSMD_MESSAGES_H

#include <string>
#include <variant>
#include <vector>

#include "daemons/common/line_format.h"
#include "daemons/pimsmd/message_type.h"
#include "daemons/pimsmd/wire.h"
#include "daemons/pimsmd/wire_write.h"

namespace pimsmd_test
{

using Bytes = std::vector<uint8_t>;
using pimsmd::Address;
using pimsmd::Count;
using pimsmd::Envelope;
using pimsmd::Message;
using pimsmd::NO_DROP;

inline Address addr(const char *text)
{
    return mcastd::parse_address(text).value();
}

// Blanks are passed over.
inline Bytes hex(const std::string &text)
{
    std::string digits;
    Bytes bytes;
    for (const char letter : text) {
        if (letter != ' ') {
            digits += letter;
        }
    }
    for (size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

// A packet from the first router of a link to all of them.
inline Envelope envelope(uint16_t family)
{
    return family == MCAST_FAMILY_IPV4 ? Envelope{addr("10.0.0.1"), addr("224.0.0.13")}
                                       : Envelope{addr("fe80::1"), addr("ff02::d")};
}

inline std::string text_of(const pimsmd::GroupRange &range)
{
    return range.prefix.text() + (range.bidirectional ? "b" : "") + (range.zone ? "z" : "");
}

inline std::string text_of(const pimsmd::TreeSource &source)
{
    const char *const trees[] = {"", " rpt", " star"};
    return pimsmd::to_text(source.address) + trees[static_cast<size_t>(source.tree)];
}

// Says what a message holds.
struct Describe {
    std::string operator()(const pimsmd::Hello &hello) const
    {
        std::string line = "hello";
        if (hello.holdtime_s) {
            line += " holdtime " + std::to_string(*hello.holdtime_s);
        }
        if (hello.lan_delay) {
            line += " delay " + std::to_string(hello.lan_delay->propagation_ms) + " override " +
                    std::to_string(hello.lan_delay->override_ms) +
                    (hello.lan_delay->tracking ? " tracking" : "");
        }
        if (hello.dr_priority) {
            line += " priority " + std::to_string(*hello.dr_priority);
        }
        if (hello.generation) {
            line += " generation " + std::to_string(*hello.generation);
        }
        pimsmd::EncodedUnicasts addresses = hello.addresses;
        Address address;
        while (addresses.next(&address)) {
            line += " " + pimsmd::to_text(address);
        }
        return line;
    }
    std::string operator()(const pimsmd::Register &message) const
    {
        return std::string(message.null ? "null register" : "register") +
               (message.border ? " border " : " ") + pimsmd::to_text(message.source) + " " +
               pimsmd::to_text(message.group) + " packet of " + std::to_string(message.packet.size());
    }
    std::string operator()(const pimsmd::RegisterStop &message) const
    {
        return "stop " + pimsmd::to_text(message.source) + " " + pimsmd::to_text(message.group);
    }
    std::string operator()(const pimsmd::JoinPrune &message) const
    {
        std::string line = "join/prune to " + pimsmd::to_text(message.upstream) + " for " +
                           std::to_string(message.holdtime_s);
        pimsmd::JoinPruneGroups groups = message.groups;
        pimsmd::JoinPruneGroup group;
        while (groups.next(&group)) {
            line += "; " + text_of(group.range);
            for (size_t i = 0; i < group.joins.size(); ++i) {
                line += " +" + text_of(group.joins[i]);
            }
            for (size_t i = 0; i < group.prunes.size(); ++i) {
                line += " -" + text_of(group.prunes[i]);
            }
        }
        return line;
    }
    std::string operator()(const pimsmd::Bootstrap &message) const
    {
        std::string line = std::string("bootstrap") + (message.no_forward ? " here" : "") + " tag " +
                           std::to_string(message.fragment_tag) + " hash " +
                           std::to_string(message.hash_mask_length) + " priority " +
                           std::to_string(message.priority) + " of " + pimsmd::to_text(message.bsr);
        pimsmd::BootstrapRanges ranges = message.ranges;
        pimsmd::BootstrapRange range;
        while (ranges.next(&range)) {
            line += "; " + text_of(range.range) + " of " + std::to_string(range.rp_count);
            for (size_t i = 0; i < range.rps_here; ++i) {
                const pimsmd::BootstrapRp rp = ranges.rp(range, i);

                line += " " + pimsmd::to_text(rp.address) + " for " + std::to_string(rp.holdtime_s) + " at " +
                        std::to_string(rp.priority);
            }
        }
        return line;
    }
    std::string operator()(const pimsmd::Assert &message) const
    {
        return "assert " + pimsmd::to_text(message.source) + " " + pimsmd::to_text(message.group) +
               (message.rpt ? " rpt " : " ") + std::to_string(message.preference) + " " +
               std::to_string(message.metric);
    }
    std::string operator()(const pimsmd::CandidateRp &message) const
    {
        std::string line = "candidate " + pimsmd::to_text(message.rp) + " priority " +
                           std::to_string(message.priority) + " for " + std::to_string(message.holdtime_s);
        for (size_t i = 0; i < message.range_count; ++i) {
            line += " " + text_of(message.range(i));
        }
        return line;
    }
};

// What the reader says: the description, or the name of the refusal.
inline std::string read_text(const Envelope &envelope, const Bytes &bytes)
{
    Message message;
    const Count reason = pimsmd::read_message(envelope, bytes, &message);
    return reason == NO_DROP ? std::visit(Describe(), message) : pimsmd::count_name(reason);
}

// Writes what was read; the size, 0 when it does not fit.
struct WriteAgain {
    std::span<uint8_t> out;
    const Envelope &envelope;

    size_t operator()(const pimsmd::Hello &hello) const
    {
        std::vector<Address> list;
        pimsmd::EncodedUnicasts addresses = hello.addresses;
        Address address;
        while (addresses.next(&address)) {
            list.push_back(address);
        }
        return pimsmd::write_hello(out, envelope, hello, list);
    }
    size_t operator()(const pimsmd::Register &message) const
    {
        return pimsmd::write_register(out, envelope, message);
    }
    size_t operator()(const pimsmd::RegisterStop &message) const
    {
        return pimsmd::write_register_stop(out, envelope, message);
    }
    size_t operator()(const pimsmd::JoinPrune &message) const
    {
        pimsmd::JoinPruneWriter writer(out, message.upstream, message.holdtime_s);
        pimsmd::JoinPruneGroups groups = message.groups;
        pimsmd::JoinPruneGroup group;
        while (groups.next(&group)) {
            std::vector<pimsmd::TreeSource> joins;
            std::vector<pimsmd::TreeSource> prunes;
            for (size_t i = 0; i < group.joins.size(); ++i) {
                joins.push_back(group.joins[i]);
            }
            for (size_t i = 0; i < group.prunes.size(); ++i) {
                prunes.push_back(group.prunes[i]);
            }
            if (!writer.add(group.range, joins, prunes)) {
                return 0;
            }
        }
        return writer.finish(envelope);
    }
    size_t operator()(const pimsmd::Bootstrap &message) const
    {
        std::vector<std::vector<pimsmd::BootstrapRp>> rps;
        std::vector<pimsmd::BootstrapRangeOut> ranges;
        pimsmd::BootstrapRanges left = message.ranges;
        pimsmd::BootstrapRange range;
        while (left.next(&range)) {
            rps.emplace_back();
            for (size_t i = 0; i < range.rps_here; ++i) {
                rps.back().push_back(left.rp(range, i));
            }
            ranges.push_back({range.range, range.rp_count, rps.back()});
        }
        return pimsmd::write_bootstrap(out, envelope, message, ranges);
    }
    size_t operator()(const pimsmd::Assert &message) const
    {
        return pimsmd::write_assert(out, envelope, message);
    }
    size_t operator()(const pimsmd::CandidateRp &message) const
    {
        std::vector<pimsmd::GroupRange> ranges;
        for (size_t i = 0; i < message.range_count; ++i) {
            ranges.push_back(message.range(i));
        }
        return pimsmd::write_candidate(out, envelope, message, ranges);
    }
};

// The bytes of a message that was read, written anew into so many bytes; none when they do not fit.
inline Bytes written(const Envelope &envelope, const Message &message, size_t room = pimsmd::MAX_MESSAGE_SIZE)
{
    Bytes out(room);
    out.resize(std::visit(WriteAgain{out, envelope}, message));
    return out;
}

} // namespace pimsmd_test

#endif
