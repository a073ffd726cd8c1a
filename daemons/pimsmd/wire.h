/*
 * PIM version 2 messages (RFC 7761, section 4.9; RFC 5059, section 4) as bytes and as values, both families by one
 * code path. Everything received goes through read_message.
 *
 *      0          1          2           4
 *     +----+-----+----------+-----------+------------------
 *     | 2  |type | flags    | checksum  |  fields of the type
 *     +----+-----+----------+-----------+------------------
 *
 * A message is checked whole before anything of it is used: a count that lies in the last group of a Join/Prune
 * refuses the first group too. What was read are views of the message's bytes, which need no memory, whatever
 * the message says; the bytes must outlive them.
 */
#ifndef DAEMONS_PIMSMD_WIRE_H
#define DAEMONS_PIMSMD_WIRE_H

#include <cstdint>
#include <optional>
#include <span>
#include <variant>

#include "daemons/pimsmd/encoded_address.h"

namespace pimsmd
{

constexpr uint8_t PROTOCOL_PIM = 103;
constexpr size_t PIM_HEADER_SIZE = 4;

// The longest message: what an IPv4 packet holds.
constexpr size_t MAX_MESSAGE_SIZE = 65535 - 20;

// The holdtime that never ends, in Hello and Join/Prune.
constexpr uint16_t HOLDTIME_FOREVER = 0xffff;

// The addresses of the packet, both of one family.
struct Envelope {
    Address source;
    Address destination;
};

// What the option says of a LAN with several routers, in milliseconds.
struct LanDelay {
    bool tracking = false;       // the router can do without join suppression
    uint16_t propagation_ms = 0; // at most 32767
    uint16_t override_ms = 0;
};

// Options that are not there are nothing; options that this daemon does not know are passed over.
struct Hello {
    std::optional<uint16_t> holdtime_s;
    std::optional<LanDelay> lan_delay;
    std::optional<uint32_t> dr_priority;
    std::optional<uint32_t> generation;
    EncodedUnicasts addresses; // the router's others on the link
};

// A Register with the packet of a source, or a null Register, whose packet is but a header.
struct Register {
    bool border = false;
    bool null = false;
    Address source; // of the packet
    Address group;
    std::span<const uint8_t> packet;
};

// An unspecified source is every source.
struct RegisterStop {
    Address group;
    Address source;
};

struct Assert {
    Address group;
    Address source; // unspecified for (*,G)
    bool rpt = false;
    uint32_t preference = 0; // at most 0x7fffffff
    uint32_t metric = 0;
};

struct JoinPruneGroup {
    GroupRange range;
    EncodedSources joins;
    EncodedSources prunes;
};

// The groups of a Join/Prune, front to back.
class JoinPruneGroups
{
public:
    JoinPruneGroups() = default;
    JoinPruneGroups(uint16_t family, std::span<const uint8_t> bytes) : family_(family), bytes_(bytes)
    {
    }
    // Takes the next group; false when there is none.
    bool next(JoinPruneGroup *group);

private:
    uint16_t family_ = MCAST_FAMILY_IPV4;
    std::span<const uint8_t> bytes_;
};

struct JoinPrune {
    Address upstream; // the neighbour that is asked
    uint16_t holdtime_s = 0;
    JoinPruneGroups groups;
};

struct BootstrapRp {
    Address address;
    uint16_t holdtime_s = 0;
    uint8_t priority = 0;
};

// A range of groups with those of its RPs that this fragment holds; rp_count are in all fragments.
struct BootstrapRange {
    GroupRange range;
    uint8_t rp_count = 0;
    uint8_t rps_here = 0;
    std::span<const uint8_t> rp_bytes; // of which BootstrapRanges::rp takes them
};

class BootstrapRanges
{
public:
    BootstrapRanges() = default;
    BootstrapRanges(uint16_t family, std::span<const uint8_t> bytes) : family_(family), bytes_(bytes)
    {
    }
    // Takes the next range; false when there is none.
    bool next(BootstrapRange *range);
    // An RP of a range; at is below its rps_here.
    BootstrapRp rp(const BootstrapRange &range, size_t at) const;

private:
    uint16_t family_ = MCAST_FAMILY_IPV4;
    std::span<const uint8_t> bytes_;
};

struct Bootstrap {
    bool no_forward = false;
    uint16_t fragment_tag = 0;
    uint8_t hash_mask_length = 0;
    uint8_t priority = 0;
    Address bsr;
    BootstrapRanges ranges;
};

// The ranges for which a router offers itself, or another, as RP; without any it offers itself for all groups.
struct CandidateRp {
    uint8_t priority = 0;
    uint16_t holdtime_s = 0;
    Address rp;
    uint8_t range_count = 0;
    std::span<const uint8_t> range_bytes; // of which range() takes them
    GroupRange range(size_t at) const;
};

using Message = std::variant<Hello, Register, RegisterStop, JoinPrune, Bootstrap, Assert, CandidateRp>;

// Reads the message. NO_DROP with *message filled, or why it is refused, with *message as it was.
Count read_message(const Envelope &envelope, std::span<const uint8_t> bytes, Message *message);

} // namespace pimsmd

#endif
