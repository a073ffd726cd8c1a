#include "usrauth/message.h"

#include <endian.h>
#include <string.h>

namespace mcast::usrauth
{
namespace
{

/* The record that a value shorter than one begins. */
USRAUTH_USER_S Padded(const Message &message)
{
    USRAUTH_USER_S record = {};
    record.user_id_be = 0xffffffffu;
    record.attribute_84_be = htobe32(0x0000ffffu);
    memcpy(&record, message.value, message.length);
    return record;
}

MCAST_ADDR_S AddressAt(const uint8_t bytes[16], uint16_t family)
{
    MCAST_ADDR_S address = {family, 0, {}};
    memcpy(address.address, bytes, family == MCAST_FAMILY_IPV4 ? 4 : sizeof(address.address));
    return address;
}

/* The entries that the value has from offset on. */
EntryReader EntriesAt(const Message &message, size_t offset, uint32_t count, uint16_t stride, uint16_t family)
{
    if (offset > message.length) {
        return {nullptr, 0, 0, 0, family};
    }
    return {message.value + offset, message.length - offset, count, stride, family};
}

void ReadName(const Message &message, size_t offset, uint16_t length, UserMessage *out)
{
    const bool inside = offset + length <= message.length;
    out->name = inside ? message.value + offset : nullptr;
    out->name_length = inside ? length : 0;
}

} // namespace

bool NextMessage(MessageReader *reader, Message *message)
{
    const USRAUTH_MSG_HEADER_S *header = reinterpret_cast<const USRAUTH_MSG_HEADER_S *>(reader->next);
    if (reader->left < sizeof(*header)) {
        return false;
    }
    message->type = be16toh(header->type_be);
    message->length = be16toh(header->length_be);
    reader->next += sizeof(*header);
    reader->left -= sizeof(*header);
    if (message->length > reader->left) {
        reader->left = 0;
        return false;
    }
    message->value = reader->next;
    reader->next += message->length;
    reader->left -= message->length;
    return true;
}

/* With stride 0 all entries are the same one, so it is read once. */
bool NextEntry(EntryReader *reader, Entry *entry)
{
    const USRAUTH_GROUP_ENTRY_S *at = reinterpret_cast<const USRAUTH_GROUP_ENTRY_S *>(reader->next);
    if (reader->count == 0 || reader->left < sizeof(*at)) {
        return false;
    }
    entry->source = AddressAt(at->source, reader->family);
    entry->group = AddressAt(at->group, reader->family);
    if (reader->stride == 0 || reader->stride > reader->left) {
        reader->count = 0;
        return true;
    }
    reader->next += reader->stride;
    reader->left -= reader->stride;
    --reader->count;
    return true;
}

void ReadUser(const Message &message, uint16_t family, UserMessage *out)
{
    USRAUTH_USER_S padded;
    const USRAUTH_USER_S *record = reinterpret_cast<const USRAUTH_USER_S *>(message.value);

    if (message.length < sizeof(padded)) {
        padded = Padded(message);
        record = &padded;
    }
    out->user_id = be32toh(record->user_id_be);
    out->kind = be32toh(record->kind_be);
    out->access_if_index = be32toh(record->access_if_index_be);
    out->node = be16toh(record->node_be);
    out->vrf_index = be16toh(record->vrf_index_be);
    out->address = AddressAt(record->address, family);
    out->second_address = AddressAt(record->second_address, family);
    out->attribute_24 = be32toh(record->attribute_24_be);
    out->attribute_32 = be16toh(record->attribute_32_be);
    out->attribute_34 = be16toh(record->attribute_34_be);
    out->attribute_36 = be32toh(record->attribute_36_be);
    out->attribute_40 = be16toh(record->attribute_40_be);
    out->attribute_70 = be16toh(record->attribute_70_be);
    out->attribute_80 = be32toh(record->attribute_80_be);
    out->attribute_84 = be32toh(record->attribute_84_be);
    memcpy(out->hardware_address, record->hardware_address, sizeof(out->hardware_address));

    const uint16_t name_length = be16toh(record->name_length_be);
    const size_t name_offset = be16toh(record->name_offset_be);

    ReadName(message, name_offset, name_length, out);
    out->entries = EntriesAt(message, name_offset + name_length, be32toh(record->entry_count_be),
                             be16toh(record->entry_size_be), family);
}

bool ReadGroupList(const Message &message, uint16_t family, GroupListMessage *out)
{
    const USRAUTH_GROUP_LIST_S *record = reinterpret_cast<const USRAUTH_GROUP_LIST_S *>(message.value);
    if (message.length < sizeof(*record)) {
        return false;
    }
    out->user_id = be32toh(record->user_id_be);
    out->kind = be32toh(record->kind_be);
    out->node = be16toh(record->node_be);
    out->entries = EntriesAt(message, be16toh(record->list_offset_be), be32toh(record->entry_count_be),
                             be16toh(record->entry_size_be), family);
    return true;
}

bool ReadRefresh(const Message &message, RefreshMessage *out)
{
    const USRAUTH_REFRESH_S *record = reinterpret_cast<const USRAUTH_REFRESH_S *>(message.value);
    if (message.length < sizeof(*record)) {
        return false;
    }
    out->node = be16toh(record->node_be);
    out->kind = be32toh(record->kind_be);
    return true;
}

} // namespace mcast::usrauth
