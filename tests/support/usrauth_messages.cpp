#include "support/usrauth_messages.h"

namespace usrauth_test
{
namespace
{

void PutAddress(Bytes *bytes, size_t offset, uint16_t family, const Bytes &ipv4_head, const Bytes &ipv6_head,
                uint8_t last)
{
    const Bytes &head = family == 2 ? ipv4_head : ipv6_head;
    for (size_t i = 0; i < head.size(); ++i) {
        (*bytes)[offset + i] = head[i];
    }
    (*bytes)[offset + (family == 2 ? 3 : 15)] = last;
}

uint64_t Or(int64_t chosen, uint64_t otherwise)
{
    return chosen >= 0 ? static_cast<uint64_t>(chosen) : otherwise;
}

} // namespace

Bytes operator+(Bytes first, const Bytes &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

void Put(Bytes *bytes, size_t offset, size_t size, uint64_t number)
{
    for (size_t i = 0; i < size; ++i) {
        bytes->at(offset + i) = static_cast<uint8_t>(number >> 8 * (size - 1 - i));
    }
}

Bytes Message(uint16_t type, const Bytes &value)
{
    Bytes head(4);
    Put(&head, 0, 2, type);
    Put(&head, 2, 2, value.size());
    return head + value;
}

Bytes EntryBytes(uint16_t family, const Pair &pair)
{
    Bytes bytes(32);
    PutAddress(&bytes, 0, family, {10, 0, 0}, {0x20, 0x01}, pair.source);
    PutAddress(&bytes, 16, family, {239, 0, 0}, {0xff, 0x0e}, pair.group);
    return bytes;
}

Bytes UserSpec::Value() const
{
    Bytes value(88);
    const size_t name_room = name.empty() ? 0 : name.size() + 1;
    Put(&value, 0, 4, user_id);
    Put(&value, 4, 4, access_if_index);
    PutAddress(&value, 8, family, {192, 0, 2}, {0x20, 0x01, 0x0d, 0xb8}, address);
    Put(&value, 24, 4, attribute_24);
    Put(&value, 28, 4, kind);
    Put(&value, 32, 2, attribute_32);
    Put(&value, 34, 2, attribute_34);
    Put(&value, 36, 4, attribute_36);
    Put(&value, 40, 2, attribute_40);
    Put(&value, 42, 2, vrf_index);
    Put(&value, 44, 2, node);
    Put(&value, 46, 2, Or(name_length, name_room));
    PutAddress(&value, 48, family, {198, 51, 100}, {0x20, 0x01, 0x0d, 0xb9}, second_address);
    for (size_t i = 0; i < 6; ++i) {
        value[64 + i] = static_cast<uint8_t>(0xa0 + i);
    }
    Put(&value, 70, 2, attribute_70);
    Put(&value, 72, 4, Or(entry_count, pairs.size()));
    Put(&value, 76, 2, Or(name_offset, 88));
    Put(&value, 78, 2, Or(entry_size, 32));
    Put(&value, 80, 4, attribute_80);
    Put(&value, 84, 4, attribute_84);
    value.insert(value.end(), name.begin(), name.end());
    value.resize(88 + name_room);
    for (const Pair &pair : pairs) {
        value = value + EntryBytes(family, pair);
    }
    return value;
}

Bytes UserSpec::ListValue(const std::vector<Pair> &list) const
{
    Bytes value(20);
    Put(&value, 0, 4, user_id);
    Put(&value, 4, 2, node);
    Put(&value, 8, 4, kind);
    Put(&value, 12, 4, Or(entry_count, list.size()));
    Put(&value, 16, 2, 20);
    Put(&value, 18, 2, Or(entry_size, 32));
    for (const Pair &pair : list) {
        value = value + EntryBytes(family, pair);
    }
    return value;
}

static Bytes RefreshMessage(uint16_t type, uint16_t node, uint32_t kind)
{
    Bytes value(8);
    Put(&value, 0, 2, node);
    Put(&value, 4, 4, kind);
    return Message(type, value);
}

Bytes RefreshBegin(uint16_t node, uint32_t kind)
{
    return RefreshMessage(5, node, kind);
}

Bytes RefreshEnd(uint16_t node, uint32_t kind)
{
    return RefreshMessage(6, node, kind);
}

} // namespace usrauth_test
