/*
 * Messages of an authentication agent, written byte by byte at the offsets that the layout has.
 */
#ifndef TESTS_SUPPORT_USRAUTH_MESSAGES_H
#define TESTS_SUPPORT_USRAUTH_MESSAGES_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace usrauth_test
{

using Bytes = std::vector<uint8_t>;

Bytes operator+(Bytes first, const Bytes &second);

/* Writes size bytes of number, most significant first, at the offset; bytes must reach that far. */
void Put(Bytes *bytes, size_t offset, size_t size, uint64_t number);

/* A message of the type with the value, which says how long it is. */
Bytes Message(uint16_t type, const Bytes &value);

/*
 * One entry of 32 bytes: source and group. For the family IPv4 a byte stands for 10.0.0.s and 239.0.0.g, for
 * IPv6 for 2001::s and ff0e::g.
 */
struct Pair {
    uint8_t source;
    uint8_t group;
};
Bytes EntryBytes(uint16_t family, const Pair &pair);

/* What a user message says. Lengths, counts and offsets are right unless they are set otherwise. */
struct UserSpec {
    uint16_t family = 2;
    uint32_t user_id = 7;
    uint16_t node = 1;
    uint32_t kind = 3;
    uint32_t access_if_index = 50;
    uint8_t address = 9; /* its last byte: 192.0.2.9 or 2001:db8::9 */
    uint8_t second_address = 8;
    uint32_t attribute_24 = 24;
    uint16_t attribute_32 = 32;
    uint16_t attribute_34 = 34;
    uint32_t attribute_36 = 36;
    uint16_t attribute_40 = 40;
    uint16_t vrf_index = 5;
    uint16_t attribute_70 = 70;
    uint32_t attribute_80 = 80;
    uint32_t attribute_84 = 84;
    std::string name = "alice";
    std::vector<Pair> pairs;

    /* -1: as the rest gives it. */
    int64_t name_length = -1;
    int64_t name_offset = -1;
    int64_t entry_count = -1;
    int64_t entry_size = -1;

    Bytes Value() const;

    Bytes Announce() const
    {
        return Message(0, Value());
    }
    Bytes Withdraw() const
    {
        return Message(1, Value());
    }
    Bytes Update() const
    {
        return Message(2, Value());
    }

    /* Group lists of this user. */
    Bytes ListValue(const std::vector<Pair> &list) const;
    Bytes List(const std::vector<Pair> &list) const
    {
        return Message(3, ListValue(list));
    }
    Bytes ListEnd() const
    {
        return Message(4, ListValue({}));
    }
};

/* Begin and end of a refresh. */
Bytes RefreshBegin(uint16_t node, uint32_t kind);
Bytes RefreshEnd(uint16_t node, uint32_t kind);

} // namespace usrauth_test

#endif
