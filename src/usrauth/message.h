/*
 * The one reader of the service's messages. It checks every bound; nothing else steps through received bytes,
 * and what it gives out is in host order.
 *
 * What a message says about itself is believed only as far as the bytes go: a name that does not lie within
 * the value counts as absent, entries end with the value whatever their count, and offsets are added in a
 * type that holds their sum.
 */
#ifndef SRC_USRAUTH_MESSAGE_H
#define SRC_USRAUTH_MESSAGE_H

#include "mcast/usrauth_wire.h"

namespace mcast::usrauth
{

struct Message {
    int32_t descriptor; /* of the connection */
    uint16_t type;      /* USRAUTH_MSG_... or any other number */
    uint16_t length;    /* bytes at value */
    const uint8_t *value;
};

/* A cursor over the messages of one read; it never leaves the bytes it was started on. */
struct MessageReader {
    const uint8_t *next;
    size_t left;
};

/* Fetches the next message. False, from then on, at the end and at the first message that is not complete. */
bool NextMessage(MessageReader *reader, Message *message);

/* A cursor over the entries of a list; all of them lie within the value. */
struct EntryReader {
    const uint8_t *next;
    size_t left;    /* bytes up to the end of the value */
    uint32_t count; /* entries still to come, at most */
    uint16_t stride;
    uint16_t family;
};

struct Entry {
    MCAST_ADDR_S group;
    MCAST_ADDR_S source;
};

/* Fetches the next entry. False, from then on, at the end. */
bool NextEntry(EntryReader *reader, Entry *entry);

/* How many entries may still come, at most. */
inline uint32_t EntriesLeft(const EntryReader &reader)
{
    const size_t fit = reader.left / sizeof(USRAUTH_GROUP_ENTRY_S);
    return fit < reader.count ? static_cast<uint32_t>(fit) : reader.count;
}

/* What an announcement, a withdrawal or an update says. Pointers are into the value. */
struct UserMessage {
    uint32_t user_id;
    uint32_t kind;
    uint32_t access_if_index;
    uint16_t node;
    uint16_t vrf_index;
    MCAST_ADDR_S address;
    MCAST_ADDR_S second_address;
    uint32_t attribute_24;
    uint16_t attribute_32;
    uint16_t attribute_34;
    uint32_t attribute_36;
    uint16_t attribute_40;
    uint16_t attribute_70;
    uint32_t attribute_80;
    uint32_t attribute_84;
    uint8_t hardware_address[6];
    uint16_t name_length; /* bytes at name; 0 when none lies within the value */
    const uint8_t *name;
    EntryReader entries;
};

/* What a group list or its end says. */
struct GroupListMessage {
    uint32_t user_id;
    uint32_t kind;
    uint16_t node;
    EntryReader entries;
};

/* What the begin or the end of a refresh says. */
struct RefreshMessage {
    uint32_t kind;
    uint16_t node;
};

/* Read the value; addresses are of the family. False when the value is shorter than its type allows. */
void ReadUser(const Message &message, uint16_t family, UserMessage *out);
bool ReadGroupList(const Message &message, uint16_t family, GroupListMessage *out);
bool ReadRefresh(const Message &message, RefreshMessage *out);

} // namespace mcast::usrauth

#endif
