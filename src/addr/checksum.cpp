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
 * What is lost, 8 * 0x8000 a block, is added back at the end. Lanes wrap modulo 2^32, so their total is exact
 * as long as the true sum fits: at most 8 * 0xffff a block, hence no more than 0x2000 blocks before the lanes
 * are drained into 64 bits. Four accumulators keep the additions from waiting for each other.
 *
 * Words are taken in memory order, so the sum is in network byte order on its own; loads are unaligned, which
 * costs nothing extra on the processors this runs on. Those without the instructions for it (SSE2) add halves
 * of 64-bit words instead.
 */
#include <arpa/inet.h>
#include <bit>
#include <string.h>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "mcast/addr.h"

namespace
{

template <typename Word> Word Load(const uint8_t *data)
{
    Word word;
    memcpy(&word, data, sizeof(word));
    return word;
}

inline uint64_t SumHalves(const uint8_t *data)
{
    const uint64_t words = Load<uint64_t>(data);
    return (words & 0xffffffff) + (words >> 32);
}

/* The sum of the fewer than 16 bytes at data; an odd last byte is the first of its word. */
inline uint64_t SumTail(const uint8_t *data, size_t length)
{
    uint64_t sum = 0;

    if (length == 0) {
        return 0;
    }
    if (length & 8) {
        sum += SumHalves(data);
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

/*
 * The sum in 16 bits. Adding a number to itself with the halves swapped leaves, in the upper half, the sum of
 * the halves with its carry added back in.
 */
inline uint32_t Fold(uint64_t sum)
{
    sum += std::rotl(sum, 32);
    uint32_t half = static_cast<uint32_t>(sum >> 32);

    return (half + std::rotl(half, 16)) >> 16;
}

#if defined(__SSE2__)

constexpr size_t kBlock = sizeof(__m128i);
constexpr size_t kStride = 4 * kBlock;
constexpr size_t kMostBlocksUndrained = 0x2000;
/* Long data is drained after each part of this many blocks; that leaves room for the addresses. */
constexpr size_t kPartBlocks = 0x1000;
constexpr size_t kPart = kPartBlocks * kBlock;
constexpr uint32_t kShortfallPerBlock = 8 * 0x8000;
static_assert(kPartBlocks + 2 <= kMostBlocksUndrained);

/* The lane sums of one block, together short by kShortfallPerBlock. */
inline __m128i PairSums(const uint8_t *block)
{
    __m128i words = _mm_loadu_si128(reinterpret_cast<const __m128i *>(block));
    return _mm_madd_epi16(_mm_xor_si128(words, _mm_set1_epi16(-0x8000)), _mm_set1_epi16(1));
}

/* The true sum of the blocks, no more than kMostBlocksUndrained of them, that were added to lanes. */
inline uint32_t Drain(__m128i lanes, size_t blocks)
{
    lanes = _mm_add_epi32(lanes, _mm_shuffle_epi32(lanes, _MM_SHUFFLE(1, 0, 3, 2)));
    lanes = _mm_add_epi32(lanes, _mm_shuffle_epi32(lanes, _MM_SHUFFLE(2, 3, 0, 1)));
    return static_cast<uint32_t>(_mm_cvtsi128_si32(lanes)) +
           static_cast<uint32_t>(blocks) * kShortfallPerBlock;
}

inline __m128i AddBlocks(__m128i lanes, const uint8_t *data, size_t blocks)
{
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

/* The sum of whole parts. Apart from the rest, so that a checksum over a packet does not pay for it. */
__attribute__((noinline)) uint64_t SumParts(const uint8_t *data, size_t parts)
{
    uint64_t sum = 0;
    for (; parts > 0; --parts, data += kPart) {
        sum += Drain(AddBlocks(_mm_setzero_si128(), data, kPartBlocks), kPartBlocks);
    }
    return sum;
}

/* The sum of the two addresses of the pseudo-header and of data. */
inline uint64_t SumAddressesAndData(const uint8_t *src, const uint8_t *dst, const uint8_t *data,
                                    size_t length)
{
    uint64_t sum = 0;

    if (__builtin_expect(length >= kPart, false)) {
        sum = SumParts(data, length / kPart);
        data += length / kPart * kPart;
        length %= kPart;
    }

    size_t blocks = length / kBlock;
    __m128i lanes = _mm_add_epi32(PairSums(src), PairSums(dst));

    sum += Drain(AddBlocks(lanes, data, blocks), blocks + 2);
    return sum + SumTail(data + blocks * kBlock, length % kBlock);
}

#else

/* As above. 2^32 bytes leave the sum far below 64 bits. */
inline uint64_t SumAddressesAndData(const uint8_t *src, const uint8_t *dst, const uint8_t *data,
                                    size_t length)
{
    uint64_t sum = SumHalves(src) + SumHalves(src + 8) + SumHalves(dst) + SumHalves(dst + 8);
    for (; length >= 16; length -= 16, data += 16) {
        sum += SumHalves(data) + SumHalves(data + 8);
    }
    return sum + SumTail(data, length);
}

#endif

} // namespace

uint32_t MCAST_Inet6Cksum(const uint16_t *data, uint32_t len, const MCAST_ADDR_S *src,
                          const MCAST_ADDR_S *dst, uint32_t upper_len, uint32_t next_header)
{
    uint64_t sum = static_cast<uint64_t>(htonl(upper_len)) + htons(static_cast<uint8_t>(next_header));
    sum += SumAddressesAndData(src->address, dst->address, reinterpret_cast<const uint8_t *>(data), len);
    return ~Fold(sum);
}
