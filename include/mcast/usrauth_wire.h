/*
 * The bytes on the user authentication's service, for both of its ends: ports, message types and layouts. An
 * authentication agent connects to the service's local socket and sends; the multicast daemon only reads.
 *
 *   datagram = messages, one behind the other
 *   +----------+------------+---------------------+----------+------------+------ - -
 *   | type u16 | length u16 | value, length bytes | type u16 | length u16 | value
 *   +----------+------------+---------------------+----------+------------+------ - -
 *
 *   value of announce, withdraw and update
 *   +-----------------------------+---------------+-----------------------+-------------------------- - -
 *   | USRAUTH_USER_S, 88 bytes    | (unused)      | name, name_length     | entries, one each entry_size
 *   +-----------------------------+---------------+-----------------------+-------------------------- - -
 *   0                             88              name_offset             name_offset + name_length
 *
 *   value of a group list
 *   +-----------------------------+---------------+---------------------------------- - -
 *   | USRAUTH_GROUP_LIST_S, 20    | (unused)      | entries, one each entry_size
 *   +-----------------------------+---------------+---------------------------------- - -
 *   0                             20              list_offset
 *
 * All integers are in network order, which the names of their fields say; offsets count from the start of the
 * value. Records are packed and may be laid over any byte address. Addresses are in network order, IPv4 in
 * the first four of sixteen bytes; their family is the one of the daemon whose port the message is sent to.
 *
 * The daemon reads one datagram at a time and at most USRAUTH_MSG_RECV_MAX bytes of it. A message lies whole
 * within one datagram: the first one that does not is dropped with all that follow it.
 */
#ifndef MCAST_USRAUTH_WIRE_H
#define MCAST_USRAUTH_WIRE_H

#include "mcast/common.h"

/* A record that may stand at any byte of a message. */
#define USRAUTH_PACKED __attribute__((packed, may_alias))

MCAST_EXTERN_C_BEGIN

/* The service's ports on the local node, one per address family of the daemon. */
#define USRAUTH_PORT_IPV4 2195u
#define USRAUTH_PORT_IPV6 2192u

/* The daemon reads at most this many bytes of a datagram. */
#define USRAUTH_MSG_RECV_MAX 1400u

/* Message types. A message of any other type is skipped. */
enum USRAUTH_MSG_TYPE_E {
    USRAUTH_MSG_ANNOUNCE = 0,       /* USRAUTH_USER_S, name, entries: a user is there */
    USRAUTH_MSG_WITHDRAW = 1,       /* USRAUTH_USER_S: a user is gone */
    USRAUTH_MSG_UPDATE = 2,         /* USRAUTH_USER_S, name, entries: a known user changed */
    USRAUTH_MSG_GROUP_LIST = 3,     /* USRAUTH_GROUP_LIST_S, entries: what a known user may join as well */
    USRAUTH_MSG_GROUP_LIST_END = 4, /* USRAUTH_GROUP_LIST_S: all entries since the last end were sent */
    USRAUTH_MSG_REFRESH_BEGIN = 5,  /* USRAUTH_REFRESH_S: all users of a kind on a node follow */
    USRAUTH_MSG_REFRESH_END = 6     /* USRAUTH_REFRESH_S: those not announced since are gone */
};

/* The number of message types. */
#define USRAUTH_MSG_TYPES 7u

/* Kinds of user. Announcements, updates and refreshes of any other kind change nothing. */
#define USRAUTH_KIND_MIN 1u
#define USRAUTH_KIND_INTERFACE 2u /* the access interface is the user's interface */
#define USRAUTH_KIND_MAX 4u

/* Opens every message; its value follows. */
typedef struct USRAUTH_PACKED USRAUTH_MSG_HEADER_S {
    uint16_t type_be;   /* USRAUTH_MSG_... */
    uint16_t length_be; /* of the value, without this header */
} USRAUTH_MSG_HEADER_S;

/*
 * A user. A shorter value is read as if padded with zeroes, except that a missing user ID is 0xFFFFFFFF and a
 * missing attribute_84 is 0x0000FFFF. A field named attribute_N stands at offset N; its meaning is the
 * agent's, and all that the library does with one is to hand it out with the user (MCAST_USRAUTH_INFO_S), and
 * when a message changes it, what the field says. An agent without a use for them leaves them 0. The name
 * counts with its terminator; one that does not lie within the value is not read.
 */
typedef struct USRAUTH_PACKED USRAUTH_USER_S {
    uint32_t user_id_be;
    uint32_t access_if_index_be;
    uint8_t address[16];      /* what the user's reports come from */
    uint32_t attribute_24_be; /* a change is told to the daemon as MCAST_USRAUTH_CHANGED_ATTRIBUTE_24 */
    uint32_t kind_be;         /* USRAUTH_KIND_MIN to USRAUTH_KIND_MAX */
    uint16_t attribute_32_be; /* a change of 32, 34, 80 or 84 makes the daemon set the user up again */
    uint16_t attribute_34_be;
    uint32_t attribute_36_be; /* a change is taken over untold, as are those of 70 and the addresses */
    uint16_t attribute_40_be; /* a change is told to the daemon as MCAST_USRAUTH_CHANGED_ATTRIBUTE_40 */
    uint16_t vrf_index_be;
    uint16_t node_be;           /* the access node; user IDs are unique within one */
    uint16_t name_length_be;    /* bytes, with the terminator */
    uint8_t second_address[16]; /* takes the address's place for user IDs with 2 in their top four bits */
    uint8_t hardware_address[6];
    uint16_t attribute_70_be;
    uint32_t entry_count_be;
    uint16_t name_offset_be;
    uint16_t entry_size_be; /* bytes from one entry to the next; below 32 they overlap, with 0 all are one */
    uint32_t attribute_80_be;
    uint32_t attribute_84_be;
} USRAUTH_USER_S;

/* One (source, group) pair that a user may join. entry_size may leave room behind it. */
typedef struct USRAUTH_PACKED USRAUTH_GROUP_ENTRY_S {
    uint8_t source[16];
    uint8_t group[16];
} USRAUTH_GROUP_ENTRY_S;

/* The user whose list follows or ends. A shorter value is dropped. */
typedef struct USRAUTH_PACKED USRAUTH_GROUP_LIST_S {
    uint32_t user_id_be;
    uint16_t node_be;
    uint16_t reserved; /* written 0, not read */
    uint32_t kind_be;
    uint32_t entry_count_be; /* this field and those that follow are not read in an end of list */
    uint16_t list_offset_be;
    uint16_t entry_size_be;
} USRAUTH_GROUP_LIST_S;

/* The kind and the node that a refresh is about. A shorter value is dropped. */
typedef struct USRAUTH_PACKED USRAUTH_REFRESH_S {
    uint16_t node_be;
    uint16_t reserved; /* written 0, not read */
    uint32_t kind_be;
} USRAUTH_REFRESH_S;

/* The layouts, once more as numbers. */
#define USRAUTH_LAYOUT_SIZE(record, size)                                                                    \
    MCAST_STATIC_ASSERT(sizeof(record) == (size), #record " is " #size " bytes")
#define USRAUTH_LAYOUT_AT(record, field, offset)                                                             \
    MCAST_STATIC_ASSERT(offsetof(record, field) == (offset), #record "." #field " is at " #offset)

USRAUTH_LAYOUT_SIZE(USRAUTH_MSG_HEADER_S, 4);
USRAUTH_LAYOUT_AT(USRAUTH_MSG_HEADER_S, length_be, 2);
USRAUTH_LAYOUT_SIZE(USRAUTH_USER_S, 88);
USRAUTH_LAYOUT_AT(USRAUTH_USER_S, access_if_index_be, 4);
USRAUTH_LAYOUT_AT(USRAUTH_USER_S, address, 8);
USRAUTH_LAYOUT_AT(USRAUTH_USER_S, attribute_24_be, 24);
USRAUTH_LAYOUT_AT(USRAUTH_USER_S, kind_be, 28);
USRAUTH_LAYOUT_AT(USRAUTH_USER_S, attribute_32_be, 32);
USRAUTH_LAYOUT_AT(USRAUTH_USER_S, attribute_34_be, 34);
USRAUTH_LAYOUT_AT(USRAUTH_USER_S, attribute_36_be, 36);
USRAUTH_LAYOUT_AT(USRAUTH_USER_S, attribute_40_be, 40);
USRAUTH_LAYOUT_AT(USRAUTH_USER_S, vrf_index_be, 42);
USRAUTH_LAYOUT_AT(USRAUTH_USER_S, node_be, 44);
USRAUTH_LAYOUT_AT(USRAUTH_USER_S, name_length_be, 46);
USRAUTH_LAYOUT_AT(USRAUTH_USER_S, second_address, 48);
USRAUTH_LAYOUT_AT(USRAUTH_USER_S, hardware_address, 64);
USRAUTH_LAYOUT_AT(USRAUTH_USER_S, attribute_70_be, 70);
USRAUTH_LAYOUT_AT(USRAUTH_USER_S, entry_count_be, 72);
USRAUTH_LAYOUT_AT(USRAUTH_USER_S, name_offset_be, 76);
USRAUTH_LAYOUT_AT(USRAUTH_USER_S, entry_size_be, 78);
USRAUTH_LAYOUT_AT(USRAUTH_USER_S, attribute_80_be, 80);
USRAUTH_LAYOUT_AT(USRAUTH_USER_S, attribute_84_be, 84);
USRAUTH_LAYOUT_SIZE(USRAUTH_GROUP_ENTRY_S, 32);
USRAUTH_LAYOUT_AT(USRAUTH_GROUP_ENTRY_S, group, 16);
USRAUTH_LAYOUT_SIZE(USRAUTH_GROUP_LIST_S, 20);
USRAUTH_LAYOUT_AT(USRAUTH_GROUP_LIST_S, node_be, 4);
USRAUTH_LAYOUT_AT(USRAUTH_GROUP_LIST_S, kind_be, 8);
USRAUTH_LAYOUT_AT(USRAUTH_GROUP_LIST_S, entry_count_be, 12);
USRAUTH_LAYOUT_AT(USRAUTH_GROUP_LIST_S, list_offset_be, 16);
USRAUTH_LAYOUT_AT(USRAUTH_GROUP_LIST_S, entry_size_be, 18);
USRAUTH_LAYOUT_SIZE(USRAUTH_REFRESH_S, 8);
USRAUTH_LAYOUT_AT(USRAUTH_REFRESH_S, kind_be, 4);

MCAST_EXTERN_C_END

#endif
