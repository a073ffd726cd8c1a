/*
 * Addresses and checksums in the bytes of packets.
 */
#ifndef DAEMONS_GMPD_WIRE_H
#define DAEMONS_GMPD_WIRE_H

#include <cstdint>
#include <span>

#include "daemons/common/bytes.h"
#include "daemons/gmpd/address.h"

namespace gmpd
{

// Reads fields of packets, addresses among them.
class Reader : public mcastd::ByteReader
{
public:
    using ByteReader::ByteReader;

    Address addr(uint16_t family)
    {
        std::span<const uint8_t> bytes = take(address_size(family));
        return bytes.empty() ? any_address(family) : make_address(family, bytes.data());
    }
};

// Writes fields of packets, addresses among them.
class Writer : public mcastd::ByteWriter
{
public:
    using ByteWriter::ByteWriter;

    void addr(const Address &address)
    {
        put(address.address, address_size(address.family));
    }
};

// The Internet checksum (RFC 1071) over bytes, in host order; 0 over bytes that hold a correct one.
inline uint16_t internet_checksum(std::span<const uint8_t> bytes)
{
    uint64_t sum = 0;
    size_t at = 0;
    for (; at + 1 < bytes.size(); at += 2) {
        sum += static_cast<uint64_t>(bytes[at] << 8 | bytes[at + 1]);
    }
    if (at < bytes.size()) {
        sum += static_cast<uint64_t>(bytes[at] << 8);
    }
    while (sum >> 16) {
        sum = (sum & 0xffff) + (sum >> 16);
    }
    return static_cast<uint16_t>(~sum);
}

} // namespace gmpd

#endif
