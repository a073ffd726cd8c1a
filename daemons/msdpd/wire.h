/*
 * MSDP messages (RFC 3618, section 12) as bytes and as values. Everything received goes through here.
 *
 *      0      1             3
 *     +------+-------------+----------------------+
 *     | type | length      | value                |     length counts all three, at most 9192
 *     +------+-------------+----------------------+
 *
 *     source active, response        entry count, RP address, entries of 12 bytes; then the source active may
 *                                    carry a packet of the last entry
 *     entry                          3 reserved bytes, prefix length of the source (32), group, source
 *     request                        reserved byte, group
 *     keepalive                      nothing
 */
#ifndef DAEMONS_MSDPD_WIRE_H
#define DAEMONS_MSDPD_WIRE_H

#include <cstdint>
#include <span>
#include <vector>

#include "daemons/msdpd/ipv4.h"

namespace msdpd
{

using Bytes = std::vector<uint8_t>;

constexpr size_t TLV_HEADER_SIZE = 3;
constexpr size_t MAX_TLV_SIZE = 9192;
// What the entry count can say.
constexpr size_t MAX_ENTRIES = 255;

constexpr uint8_t TLV_SOURCE_ACTIVE = 1;
constexpr uint8_t TLV_REQUEST = 2;
constexpr uint8_t TLV_RESPONSE = 3;
constexpr uint8_t TLV_KEEPALIVE = 4;

// One message in a stream; value points into the bytes given.
struct Tlv {
    uint8_t type;
    std::span<const uint8_t> value;
    size_t size; // with its header
};

enum class Framing { Complete, Incomplete, BadLength };

// Takes the message at the front of bytes. *tlv is filled when it is complete; a bad length is one that no
// message has, whatever follows.
Framing next_tlv(std::span<const uint8_t> bytes, Tlv *tlv);

// A source active message or a response.
struct SourceActive {
    Ipv4 rp;
    std::vector<Pair> pairs;
    uint32_t ignored_entries = 0; // whose source is no single address
    size_t data_size = 0;         // of what follows the entries
};

// False when the entries do not lie within the value.
bool parse_source_active(std::span<const uint8_t> value, SourceActive *message);

// False when the value is no request.
bool parse_request(std::span<const uint8_t> value, Ipv4 *group);

// type is TLV_SOURCE_ACTIVE or TLV_RESPONSE; at most MAX_ENTRIES pairs.
Bytes build_source_active(uint8_t type, Ipv4 rp, std::span<const Pair> pairs);

Bytes build_request(Ipv4 group);

Bytes build_keepalive();

} // namespace msdpd

#endif
