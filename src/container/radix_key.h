/*
 * Keys in registers. A key is read once from its record into host-order words, one type per key size, and all
 * bit tests and comparisons are made on the words. Bits at and beyond a type's size count as zero, so a
 * length above the tree's maximum never leads past the end of a key.
 */
#ifndef SRC_CONTAINER_RADIX_KEY_H
#define SRC_CONTAINER_RADIX_KEY_H

#include <bit>
#include <stdint.h>
#include <string.h>

namespace mcast::radix
{

/* What CommonBits gives for equal keys: above every length. */
inline constexpr unsigned kAllBits = 256;

/* Reads a big-endian word of the key. */
template <typename Word> inline Word LoadBig(const uint8_t *bytes)
{
    Word word;
    memcpy(&word, bytes, sizeof word);
    if constexpr (std::endian::native == std::endian::little) {
        word = sizeof word == 4 ? static_cast<Word>(__builtin_bswap32(static_cast<uint32_t>(word)))
                                : static_cast<Word>(__builtin_bswap64(static_cast<uint64_t>(word)));
    }
    return word;
}

/* An IPv4 key. */
struct Key32 {
    static constexpr unsigned kBits = 32;
    uint32_t word;

    static Key32 Load(const uint8_t *bytes, unsigned)
    {
        return {LoadBig<uint32_t>(bytes)};
    }

    /* bit is below kBits. */
    bool TestInside(unsigned bit) const
    {
        return (word >> (31 - bit)) & 1;
    }

    unsigned CommonBits(const Key32 &other) const
    {
        uint32_t difference = word ^ other.word;
        return difference == 0 ? kAllBits : static_cast<unsigned>(std::countl_zero(difference));
    }

    bool Above(const Key32 &other) const
    {
        return word > other.word;
    }
};

/* An IPv6 key. */
struct Key128 {
    static constexpr unsigned kBits = 128;
    uint64_t high;
    uint64_t low;

    static Key128 Load(const uint8_t *bytes, unsigned)
    {
        return {LoadBig<uint64_t>(bytes), LoadBig<uint64_t>(bytes + 8)};
    }

    bool TestInside(unsigned bit) const
    {
        uint64_t word = bit < 64 ? high : low;
        return (word >> (63 - (bit & 63))) & 1;
    }

    unsigned CommonBits(const Key128 &other) const
    {
        uint64_t difference = high ^ other.high;
        if (difference != 0) {
            return static_cast<unsigned>(std::countl_zero(difference));
        }
        difference = low ^ other.low;
        return difference == 0 ? kAllBits : 64 + static_cast<unsigned>(std::countl_zero(difference));
    }

    bool Above(const Key128 &other) const
    {
        return high != other.high ? high > other.high : low > other.low;
    }
};

/* A key of any other size, up to 255 bits. */
struct KeyAny {
    static constexpr unsigned kBits = 256;
    uint8_t byte[32];

    static KeyAny Load(const uint8_t *bytes, unsigned maximum_length)
    {
        KeyAny key = {};
        memcpy(key.byte, bytes, (maximum_length + 7) / 8);
        return key;
    }

    bool TestInside(unsigned bit) const
    {
        return (byte[bit / 8] >> (7 - bit % 8)) & 1;
    }

    unsigned CommonBits(const KeyAny &other) const
    {
        for (unsigned i = 0; i < sizeof byte; ++i) {
            auto difference = static_cast<uint8_t>(byte[i] ^ other.byte[i]);

            if (difference != 0) {
                return i * 8 + static_cast<unsigned>(std::countl_zero(difference));
            }
        }
        return kAllBits;
    }

    bool Above(const KeyAny &other) const
    {
        return memcmp(byte, other.byte, sizeof byte) > 0;
    }
};

/* The key's bit, for any bit number. */
template <typename Key> inline bool Test(const Key &key, unsigned bit)
{
    return bit < Key::kBits && key.TestInside(bit);
}

} // namespace mcast::radix

#endif
