#include <bit>
#include <endian.h>
#include <string.h>

#include "mcast/mtable.h"

namespace
{

static_assert(offsetof(MTABLE_GROUP_S, address) == offsetof(MTABLE_SOURCE_S, address),
              "group and source records compare alike");

uint32_t BigEndian(const uint8_t *bytes)
{
    uint32_t word;
    memcpy(&word, bytes, sizeof(word));
    return be32toh(word);
}

/* The difference of the first pair of bytes that differ among eight, or 0. */
int32_t FirstDifference(const uint8_t *first, const uint8_t *second)
{
    uint64_t words[2];

    memcpy(&words[0], first, sizeof(words[0]));
    memcpy(&words[1], second, sizeof(words[1]));
    if (words[0] == words[1]) {
        return 0;
    }

    const uint64_t difference = le64toh(words[0] ^ words[1]); /* the first byte is the least one */
    const int byte = std::countr_zero(difference) / 8;

    return first[byte] - second[byte];
}

int32_t Compare(const MCAST_ADDR_S *first, const MCAST_ADDR_S *second)
{
    if (first->family == MCAST_FAMILY_IPV4) {
        uint32_t one = BigEndian(first->address);
        uint32_t other = BigEndian(second->address);

        return one == other ? 0 : one < other ? -1 : 1;
    }

    int32_t upper = FirstDifference(first->address, second->address);

    return upper != 0 ? upper : FirstDifference(first->address + 8, second->address + 8);
}

/* The address of a group or source record. */
const MCAST_ADDR_S *AddressOf(const void *record)
{
    return &static_cast<const MTABLE_SOURCE_S *>(record)->address;
}

} // namespace

int32_t MTable_GrpAvlNodeCmp(const void *first, const void *second)
{
    return Compare(AddressOf(first), AddressOf(second));
}

int32_t MTable_SrcAvlNodeCmp(const void *first, const void *second)
{
    return Compare(AddressOf(first), AddressOf(second));
}

int32_t MTable_GrpAvlKeyCmp(const void *first, const void *second)
{
    return Compare(AddressOf(first), static_cast<const MCAST_ADDR_S *>(second));
}

int32_t MTable_SrcAvlKeyCmp(const void *first, const void *second)
{
    return Compare(AddressOf(first), static_cast<const MCAST_ADDR_S *>(second));
}
