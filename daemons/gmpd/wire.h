/*
 * The one way in which bytes of packets are read and written here. A cursor never leaves its bytes: a read or
 * write that does not fit moves nothing, yields zero and marks the cursor failed for good.
 *
 *      first              position                last
 *        |------ done --------|------- left --------|
 */
#ifndef GMPD_WIRE_H
#define GMPD_WIRE_H

#include <cstdint>
#include <cstring>
#include <span>

#include "daemons/gmpd/address.h"

namespace gmpd
{

// Reads network-order fields front to back. Does not own the bytes.
class Reader
{
public:
    Reader() = default;
    explicit Reader(std::span<const uint8_t> bytes) : left_(bytes)
    {
    }

    bool failed() const
    {
        return failed_;
    }
    size_t left() const
    {
        return left_.size();
    }
    // The bytes not yet read.
    std::span<const uint8_t> rest() const
    {
        return left_;
    }
    // The next count bytes, or none when fewer are left.
    std::span<const uint8_t> take(size_t count)
    {
        if (failed_ || count > left_.size()) {
            failed_ = true;
            return {};
        }
        std::span<const uint8_t> taken = left_.first(count);

        left_ = left_.subspan(count);
        return taken;
    }
    uint8_t u8()
    {
        std::span<const uint8_t> bytes = take(1);
        return bytes.empty() ? uint8_t{0} : bytes[0];
    }
    uint16_t u16()
    {
        std::span<const uint8_t> bytes = take(2);
        return bytes.empty() ? uint16_t{0} : static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
    }
    Address addr(uint16_t family)
    {
        std::span<const uint8_t> bytes = take(address_size(family));
        return bytes.empty() ? any_address(family) : make_address(family, bytes);
    }

private:
    std::span<const uint8_t> left_;
    bool failed_ = false;
};

// Writes network-order fields front to back into a caller's buffer.
class Writer
{
public:
    explicit Writer(std::span<uint8_t> buffer) : buffer_(buffer)
    {
    }

    bool failed() const
    {
        return failed_;
    }
    size_t written() const
    {
        return written_;
    }
    void u8(uint8_t value)
    {
        put(&value, 1);
    }
    void u16(uint16_t value)
    {
        uint8_t bytes[] = {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
        put(bytes, sizeof(bytes));
    }
    void addr(const Address &address)
    {
        put(address.address, address_size(address.family));
    }

private:
    void put(const uint8_t *bytes, size_t count)
    {
        if (failed_ || count > buffer_.size() - written_) {
            failed_ = true;
            return;
        }
        memcpy(buffer_.data() + written_, bytes, count);
        written_ += count;
    }

    std::span<uint8_t> buffer_;
    size_t written_ = 0;
    bool failed_ = false;
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
