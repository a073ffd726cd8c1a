/*
 * The one way in which the daemons read and write bytes of packets. A cursor never leaves its bytes: a read
 * or write that does not fit moves nothing, yields zero and marks the cursor failed for good.
 *
 *      first              position                last
 *        |------ done --------|------- left --------|
 */
#ifndef DAEMONS_COMMON_BYTES_H
#define DAEMONS_COMMON_BYTES_H

#include <cstdint>
#include <cstring>
#include <span>

namespace mcastd
{

// Reads network-order fields front to back. Does not own the bytes.
class ByteReader
{
public:
    ByteReader() = default;
    explicit ByteReader(std::span<const uint8_t> bytes) : left_(bytes)
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
        return static_cast<uint8_t>(number(1));
    }
    uint16_t u16()
    {
        return static_cast<uint16_t>(number(2));
    }
    uint32_t u32()
    {
        return static_cast<uint32_t>(number(4));
    }
    uint64_t u64()
    {
        return number(8);
    }
    // For a value that is not allowed in its place.
    void fail()
    {
        failed_ = true;
    }

private:
    uint64_t number(size_t size)
    {
        uint64_t value = 0;
        for (const uint8_t byte : take(size)) {
            value = value << 8 | byte;
        }
        return value;
    }

    std::span<const uint8_t> left_;
    bool failed_ = false;
};

// Writes network-order fields front to back into a caller's buffer.
class ByteWriter
{
public:
    explicit ByteWriter(std::span<uint8_t> buffer) : buffer_(buffer)
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
        const uint8_t bytes[] = {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
        put(bytes, sizeof(bytes));
    }
    void u32(uint32_t value)
    {
        u16(static_cast<uint16_t>(value >> 16));
        u16(static_cast<uint16_t>(value));
    }
    void u64(uint64_t value)
    {
        u32(static_cast<uint32_t>(value >> 32));
        u32(static_cast<uint32_t>(value));
    }
    // For a value that cannot be written.
    void fail()
    {
        failed_ = true;
    }
    void put(const uint8_t *bytes, size_t count)
    {
        if (failed_ || count > buffer_.size() - written_) {
            failed_ = true;
            return;
        }
        memcpy(buffer_.data() + written_, bytes, count);
        written_ += count;
    }

private:
    std::span<uint8_t> buffer_;
    size_t written_ = 0;
    bool failed_ = false;
};

} // namespace mcastd

#endif
