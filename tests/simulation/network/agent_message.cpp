#include "tests/simulation/network/agent_message.h"

namespace sim
{
namespace
{

constexpr uint16_t ANNOUNCE = 0;
constexpr uint16_t WITHDRAW = 1;
constexpr uint16_t GROUPS = 3;
constexpr uint16_t GROUPS_END = 4;
constexpr uint16_t REFRESH_BEGINS = 5;
constexpr uint16_t REFRESH_ENDS = 6;
constexpr uint32_t KIND = 1;
constexpr uint16_t NODE = 0;
constexpr size_t USER_SIZE = 88;
constexpr size_t LIST_SIZE = 20;
constexpr size_t ENTRY_SIZE = 32;
constexpr size_t ADDRESS_ROOM = 16;

void put16(Bytes &bytes, size_t at, size_t value)
{
    bytes[at] = static_cast<uint8_t>(value >> 8);
    bytes[at + 1] = static_cast<uint8_t>(value);
}

void put32(Bytes &bytes, size_t at, uint32_t value)
{
    put16(bytes, at, value >> 16);
    put16(bytes, at + 2, value & 0xffff);
}

void put_address(Bytes &bytes, size_t at, const Address &address)
{
    for (size_t i = 0; i < ADDRESS_ROOM; ++i) {
        bytes[at + i] = address.bytes[i];
    }
}

Bytes message(uint16_t type, const Bytes &value)
{
    Bytes bytes(4);
    put16(bytes, 0, type);
    put16(bytes, 2, value.size());
    bytes.insert(bytes.end(), value.begin(), value.end());
    return bytes;
}

Bytes user_value(const AgentUser &user)
{
    Bytes value(USER_SIZE);
    put32(value, 0, user.id);
    put32(value, 4, user.if_index);
    put_address(value, 8, user.address);
    put32(value, 28, KIND);
    put16(value, 44, NODE);
    put16(value, 76, USER_SIZE); // where a name would be
    put16(value, 78, ENTRY_SIZE);
    return value;
}

} // namespace

Bytes announce_message(const AgentUser &user)
{
    return message(ANNOUNCE, user_value(user));
}

Bytes groups_message(uint32_t id, const std::set<Permission> &permissions)
{
    Bytes list(LIST_SIZE);
    put32(list, 0, id);
    put16(list, 4, NODE);
    put32(list, 8, KIND);
    const Bytes end = message(GROUPS_END, list);
    put32(list, 12, static_cast<uint32_t>(permissions.size()));
    put16(list, 16, LIST_SIZE);
    put16(list, 18, ENTRY_SIZE);
    for (const auto &[source, group] : permissions) {
        const size_t at = list.size();
        list.resize(at + ENTRY_SIZE);
        put_address(list, at, source);
        put_address(list, at + ADDRESS_ROOM, group);
    }
    Bytes packet = message(GROUPS, list);
    packet.insert(packet.end(), end.begin(), end.end());
    return packet;
}

Bytes withdraw_message(uint32_t id)
{
    AgentUser user{};
    user.id = id;
    return message(WITHDRAW, user_value(user));
}

Bytes refresh_message(bool begins)
{
    Bytes value(8);
    put16(value, 0, NODE);
    put32(value, 4, KIND);
    return message(begins ? REFRESH_BEGINS : REFRESH_ENDS, value);
}

} // namespace sim
