/*
 * The IPv6 upper-layer checksum, at the speed of memory.
 *
 * The Internet checksum is the complement of a sum of 16-bit words with the carries added back in, which
 * makes it a sum modulo 0xffff whose zero is written 0xffff unless every word was zero. Any way of adding
 * that keeps the residue, and keeps a sum of non-zero words from becoming zero, gives the same result (RFC
 * 1071, section 2). So the words are added eight at a time:
 *
 *     16 bytes    w0 w1 w2 w3 w4 w5 w6 w7          each unsigned, 0..0xffff
 *     xor 0x8000  s0 s1 s2 s3 s4 s5 s6 s7          each signed, w - 0x8000
 *     multiply-add by ones   s0+s1  s2+s3  s4+s5  s6+s7     32-bit lanes, added to an accumulator
 *
 * A lane is short of the true sum by 2 * 0x8000 for each block, a known figure, which the accumulator holds
 * before the first block. Lanes wrap modulo 2^32, so they are exact as long as the true sum fits: at most 2 *
 * 0xffff a block, hence no more than 0x8000 blocks before the lanes are drained into 64 bits. Four
 * accumulators keep the additions from waiting for each other.
 *
 * Words are taken in memory order, so the sum is in network byte order on its own; loads are unaligned, which
 * costs nothing extra on the processors this runs on.
 */
#include "mcast/addr.h"

#include <arpa/inet.h>
#include <emmintrin.h>
#include <string.h>

namespace
{

constexpr size_t kBlock = sizeof(__m128i);
constexpr size_t kStride = 4 * kBlock;
constexpr size_t kMostBlocksUndrained = 0x8000;
constexpr int kShortfallPerBlock = 2 * 0x8000;

/* The lane sums of one block, each short by kShortfallPerBlock. */
inline __m128i PairSums(const uint8_t *block)
{
    __m128i words = _mm_loadu_si128(reinterpret_cast<const __m128i *>(block));

    return _mm_madd_epi16(_mm_xor_si128(words, _mm_set1_epi16(-0x8000)), _mm_set1_epi16(1));
}

/* What an accumulator starts from so that blocks further blocks bring its lanes to their true sums. */
inline __m128i Shortfall(size_t blocks)
{
    return _mm_set1_epi32(static_cast<int>(static_cast<uint32_t>(blocks) * kShortfallPerBlock));
}

inline uint64_t SumLanes(__m128i lanes)
{
    __m128i even = _mm_and_si128(lanes, _mm_set_epi32(0, -1, 0, -1));
    __m128i both = _mm_add_epi64(even, _mm_srli_epi64(lanes, 32));

    return static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_add_epi64(both, _mm_unpackhi_epi64(both, both))));
}

/* The sum of whole blocks, no more than kMostBlocksUndrained of them, onto lanes. */
inline __m128i AddBlocks(__m128i lanes, const uint8_t *data, size_t blocks)
{
    lanes = _mm_add_epi32(lanes, Shortfall(blocks));
    if (blocks >= 4) {
        __m128i second = _mm_setzero_si128();
        __m128i third = _mm_setzero_si128();
        __m128i fourth = _mm_setzero_si128();

        for (; blocks >= 4; blocks -= 4, data += kStride) {
            lanes = _mm_add_epi32(lanes, PairSums(data));
            second = _mm_add_epi32(second, PairSums(data + kBlock));
            third = _mm_add_epi32(third, PairSums(data + 2 * kBlock));
            fourth = _mm_add_epi32(fourth, PairSums(data + 3 * kBlock));
        }
        lanes = _mm_add_epi32(_mm_add_epi32(lanes, second), _mm_add_epi32(third, fourth));
    }
    for (; blocks > 0; --blocks, data += kBlock) {
        lanes = _mm_add_epi32(lanes, PairSums(data));
    }
    return lanes;
}

template <typename Word> Word Load(const uint8_t *data)
{
    Word word;

    memcpy(&word, data, sizeof(word));
    return word;
}

/* The sum of the fewer than kBlock bytes at data; an odd last byte is the first of its word. */
inline uint64_t SumTail(const uint8_t *data, size_t length)
{
    uint64_t sum = 0;

    if (length & 8) {
        uint64_t words = Load<uint64_t>(data);

        sum += (words & 0xffffffff) + (words >> 32);
        data += 8;
    }
    if (length & 4) {
        sum += Load<uint32_t>(data);
        data += 4;
    }
    if (length & 2) {
        sum += Load<uint16_t>(data);
        data += 2;
    }
    if (length & 1) {
        const uint8_t padded[2] = {*data, 0};

        sum += Load<uint16_t>(padded);
    }
    return sum;
}

inline uint32_t Fold(uint64_t sum)
{
    while (sum >> 16 != 0) {
        sum = (sum & 0xffff) + (sum >> 16);
    }
    return static_cast<uint32_t>(sum);
}

} // namespace

uint32_t MCAST_Inet6Cksum(const uint16_t *data, uint32_t len, const MCAST_ADDR_S *src,
                          const MCAST_ADDR_S *dst, uint32_t upperLen, uint32_t nextHeader)
{
    const uint8_t *bytes = reinterpret_cast<const uint8_t *>(data);
    size_t blocks = len / kBlock;
    uint64_t sum = htonl(upperLen) + static_cast<uint64_t>(htons(static_cast<uint8_t>(nextHeader)));
    __m128i lanes = _mm_add_epi32(Shortfall(2), PairSums(src->address));

    lanes = _mm_add_epi32(lanes, PairSums(dst->address));
    while (blocks > kMostBlocksUndrained - 2) {
        size_t now = kMostBlocksUndrained - 2;

        sum += SumLanes(AddBlocks(lanes, bytes, now));
        lanes = _mm_setzero_si128();
        bytes += now * kBlock;
        blocks -= now;
    }
    sum += SumLanes(AddBlocks(lanes, bytes, blocks));
    sum += SumTail(bytes + blocks * kBlock, len % kBlock);
    return ~Fold(sum);
}
