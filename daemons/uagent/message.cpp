#include "daemons/uagent/message.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>

#include "mcast/usrauth_wire.h"

namespace uagent
{
namespace
{

constexpr size_t ENTRY_SIZE = sizeof(USRAUTH_GROUP_ENTRY_S);
constexpr size_t LIST_HEAD_SIZE = sizeof(USRAUTH_MSG_HEADER_S) + sizeof(USRAUTH_GROUP_LIST_S);
constexpr size_t ENTRIES_PER_LIST = (USRAUTH_MSG_RECV_MAX - LIST_HEAD_SIZE) / ENTRY_SIZE;

static_assert(sizeof(USRAUTH_MSG_HEADER_S) + sizeof(USRAUTH_USER_S) + NAME_MAX_LENGTH + 1 <=
                  USRAUTH_MSG_RECV_MAX,
              "every user fits into one read");

void append(std::vector<uint8_t> *bytes, const void *record, size_t size)
{
    const auto *first = static_cast<const uint8_t *>(record);
    bytes->insert(bytes->end(), first, first + size);
}

// A message of the type with room for a value of that many bytes; they follow with append.
Message begin_message(uint16_t type, size_t value_size)
{
    const USRAUTH_MSG_HEADER_S header = {htons(type), htons(static_cast<uint16_t>(value_size))};
    Message message;
    message.type = type;
    message.bytes.reserve(sizeof(header) + value_size);
    append(&message.bytes, &header, sizeof(header));
    return message;
}

USRAUTH_USER_S user_record(const Command &command)
{
    USRAUTH_USER_S record{};
    record.user_id_be = htonl(command.user_id);
    record.access_if_index_be = htonl(command.access_if_index);
    std::memcpy(record.address, command.address.address, sizeof(record.address));
    record.attribute_24_be = htonl(command.attribute_24);
    record.kind_be = htonl(command.kind);
    record.attribute_32_be = htons(command.attribute_32);
    record.attribute_34_be = htons(command.attribute_34);
    record.attribute_36_be = htonl(command.attribute_36);
    record.attribute_40_be = htons(command.attribute_40);
    record.vrf_index_be = htons(command.vrf_index);
    record.node_be = htons(command.node);
    std::memcpy(record.second_address, command.second_address.address, sizeof(record.second_address));
    std::memcpy(record.hardware_address, command.hardware_address.data(), sizeof(record.hardware_address));
    record.attribute_70_be = htons(command.attribute_70);
    record.entry_size_be = htons(ENTRY_SIZE);
    record.attribute_80_be = htonl(command.attribute_80);
    record.attribute_84_be = htonl(command.attribute_84);
    return record;
}

// The user with the name; the permissions follow in group lists.
Message user_message(uint16_t type, const Command &command)
{
    const size_t name_size = command.name.empty() ? 0 : command.name.size() + 1;
    Message message = begin_message(type, sizeof(USRAUTH_USER_S) + name_size);
    USRAUTH_USER_S record = user_record(command);
    record.name_offset_be = htons(sizeof(record));
    record.name_length_be = htons(static_cast<uint16_t>(name_size));
    append(&message.bytes, &record, sizeof(record));
    append(&message.bytes, command.name.c_str(), name_size);
    return message;
}

Message list_message(uint16_t type, const Command &command, size_t first, size_t count)
{
    Message message = begin_message(type, sizeof(USRAUTH_GROUP_LIST_S) + count * ENTRY_SIZE);
    USRAUTH_GROUP_LIST_S head{};
    head.user_id_be = htonl(command.user_id);
    head.node_be = htons(command.node);
    head.kind_be = htonl(command.kind);
    head.entry_count_be = htonl(static_cast<uint32_t>(count));
    head.list_offset_be = htons(sizeof(head));
    head.entry_size_be = htons(ENTRY_SIZE);
    append(&message.bytes, &head, sizeof(head));
    for (size_t i = first; i < first + count; ++i) {
        USRAUTH_GROUP_ENTRY_S entry;
        std::memcpy(entry.source, command.permissions[i].source.address, sizeof(entry.source));
        std::memcpy(entry.group, command.permissions[i].group.address, sizeof(entry.group));
        append(&message.bytes, &entry, sizeof(entry));
    }
    message.first_permission = first;
    message.permission_count = count;
    return message;
}

void add_lists(const Command &command, std::vector<Message> *messages)
{
    const size_t total = command.permissions.size();
    for (size_t first = 0; first < total; first += ENTRIES_PER_LIST) {
        const size_t count = std::min(ENTRIES_PER_LIST, total - first);
        messages->push_back(list_message(USRAUTH_MSG_GROUP_LIST, command, first, count));
    }
    if (!command.open) {
        messages->push_back(list_message(USRAUTH_MSG_GROUP_LIST_END, command, 0, 0));
    }
}

Message refresh_message(uint16_t type, const Command &command)
{
    Message message = begin_message(type, sizeof(USRAUTH_REFRESH_S));
    USRAUTH_REFRESH_S record{};
    record.node_be = htons(command.node);
    record.kind_be = htonl(command.kind);
    append(&message.bytes, &record, sizeof(record));
    return message;
}

} // namespace

std::vector<Message> build_messages(const Command &command)
{
    std::vector<Message> messages;
    switch (command.verb) {
    case Verb::Announce:
        messages.push_back(user_message(USRAUTH_MSG_ANNOUNCE, command));
        add_lists(command, &messages);
        break;
    case Verb::Update:
        messages.push_back(user_message(USRAUTH_MSG_UPDATE, command));
        add_lists(command, &messages);
        break;
    case Verb::Groups:
        add_lists(command, &messages);
        break;
    case Verb::Withdraw:
        messages.push_back(user_message(USRAUTH_MSG_WITHDRAW, command));
        break;
    case Verb::RefreshBegin:
        messages.push_back(refresh_message(USRAUTH_MSG_REFRESH_BEGIN, command));
        break;
    case Verb::RefreshEnd:
        messages.push_back(refresh_message(USRAUTH_MSG_REFRESH_END, command));
        break;
    }
    return messages;
}

} // namespace uagent
