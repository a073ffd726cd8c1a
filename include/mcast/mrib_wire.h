/*
 * The bytes on the MRIB channel, for both of its ends: message and record layouts, record numbers and
 * capability flags. mcast/mrib_message.h reads and writes them.
 *
 *   datagram = message
 *   +-----------+----------+--------+--------------+-------------+----------+----------+-- - -
 *   | component | reserved | unused | record count | body length | record 1 | record 2 |
 *   | u8        | u8, 0    | 2      | u32          | u32         |          |          |
 *   +-----------+----------+--------+--------------+-------------+----------+----------+-- - -
 *   0           1          2        4              8             12
 *
 *   record
 *   +----------+--------------------+----------------------+
 *   | type u16 | value length u16   | value, length bytes  |
 *   +----------+--------------------+----------------------+
 *
 * Both ends run on one machine: integers are in host order except addresses, which are in network order as in
 * MCAST_ADDR_S. Fields follow one another without padding, so every record here is packed and may be laid
 * over any byte address. Numbering is per direction: one number names different records in the two
 * directions.
 */
#ifndef MCAST_MRIB_WIRE_H
#define MCAST_MRIB_WIRE_H

#include "mcast/common.h"

/* A record that may stand at any byte of a message. */
#define MRIB_PACKED __attribute__((packed, may_alias))

MCAST_EXTERN_C_BEGIN

/* The channel's ports on the local node, one per address family. */
#define MRIB_PORT_IPV4 2182u
#define MRIB_PORT_IPV6 2183u

/*
 * The component codes of the reference router: byte 0 of every message, and a field of the registration. The
 * MRIB shows them and treats all alike; a program of another kind takes a number of its own.
 */
#define MRIB_COMPONENT_MRIB 0u
#define MRIB_COMPONENT_GMP_IPV4 4u
#define MRIB_COMPONENT_GMP_IPV6 5u
#define MRIB_COMPONENT_MSDP 8u

/* The receiver reads at most this many bytes of a datagram. */
#define MRIB_MSG_RECV_MAX 10240u

/* A shorter datagram is refused: a message header and one record with some value do not fit in less. */
#define MRIB_MSG_MIN 20u

/* Records sent by the client. */
enum MRIB_TLV_TO_MRIB_E {
    MRIB_TLV_REGISTER = 0,                     /* MRIB_REGISTER_S */
    MRIB_TLV_GMP_ENABLE = 1,                   /* MRIB_IF_ALERT_S */
    MRIB_TLV_QUERIER_CHANGE = 2,               /* MRIB_IF_ALERT_S */
    MRIB_TLV_GMP_JOIN_PRUNE = 3,               /* MRIB_JOIN_PRUNE_S */
    MRIB_TLV_REQ_VRF_STATE = 4,                /* MRIB_REQUEST_S */
    MRIB_TLV_REQ_PIM_DR = 5,                   /* MRIB_REQUEST_S */
    MRIB_TLV_REQ_BOUNDARY = 6,                 /* MRIB_REQUEST_S */
    MRIB_TLV_DELETE_IF_MEMBER = 13,            /* MRIB_DELETE_IF_MEMBER_S */
    MRIB_TLV_REQ_SSM_POLICY = 14,              /* MRIB_REQUEST_S */
    MRIB_TLV_CHANGE_EVENTS = 15,               /* MRIB_REGISTER_S with all flags that count from now on */
    MRIB_TLV_SMOOTH_ALERT = 18,                /* MRIB_SMOOTH_ALERT_S */
    MRIB_TLV_MSDP_REMOTE_SG = 20,              /* MRIB_MSDP_REMOTE_SG_S and data */
    MRIB_TLV_MSDP_ENCAP_ENABLE = 21,           /* MRIB_MSDP_ENABLE_S */
    MRIB_TLV_MSDP_REQ_SA_ENABLE = 22,          /* MRIB_MSDP_ENABLE_S */
    MRIB_TLV_REQ_LOCAL_SRC = 23,               /* MRIB_REQUEST_S */
    MRIB_TLV_MSDP_SMOOTH_REMOTE_SG_BEGIN = 24, /* 24 to 29: MRIB_SMOOTH_ALERT_S */
    MRIB_TLV_MSDP_SMOOTH_REMOTE_SG_END = 25,
    MRIB_TLV_MSDP_SMOOTH_REQ_ENABLE_BEGIN = 26,
    MRIB_TLV_MSDP_SMOOTH_REQ_ENABLE_END = 27,
    MRIB_TLV_MSDP_SMOOTH_ENCAP_BEGIN = 28,
    MRIB_TLV_MSDP_SMOOTH_ENCAP_END = 29,
    MRIB_TLV_PROXY_ENABLE = 39,     /* MRIB_PROXY_ALERT_S */
    MRIB_TLV_PROXY_FORWARDING = 40, /* MRIB_PROXY_ALERT_S */
    MRIB_TLV_PROXY_MULTIPATH = 41,  /* MRIB_PROXY_MULTIPATH_S */
    MRIB_TLV_MAUTH_USER_INFO = 42,  /* MRIB_MAUTH_USER_INFO_S */
    MRIB_TLV_HOST_ENABLE = 45       /* MRIB_PROXY_ALERT_S */
};

/* Records sent by the MRIB. The numbers up to the last that are not listed are ignored by the client. */
enum MRIB_TLV_TO_CLIENT_E {
    MRIB_TLV_VRF_STATE = 0,            /* MRIB_VRF_STATE_S */
    MRIB_TLV_BOUNDARY = 2,             /* MRIB_BOUNDARY_S */
    MRIB_TLV_PIM_DR = 7,               /* MRIB_PIM_DR_S */
    MRIB_TLV_VRF_STATE_END = 8,        /* no value */
    MRIB_TLV_PIM_DR_END = 9,           /* no value */
    MRIB_TLV_BOUNDARY_END = 10,        /* no value */
    MRIB_TLV_FLOW_CONTROL = 12,        /* MRIB_FLOW_CONTROL_S */
    MRIB_TLV_SSM_POLICY = 13,          /* MRIB_SSM_POLICY_S */
    MRIB_TLV_MSDP_LOCAL_SRC = 14,      /* MRIB_MSDP_LOCAL_SRC_S and data */
    MRIB_TLV_MSDP_REQ_REMOTE_SRC = 15, /* MRIB_MSDP_REQ_REMOTE_SRC_S */
    MRIB_TLV_SMOOTH_START = 16,        /* no value */
    MRIB_TLV_MSDP_LOCAL_SRC_END = 19,  /* no value */
    MRIB_TLV_MSDP_ENCAP_REPORT = 21    /* MRIB_MSDP_ENCAP_REPORT_S and data */
};

/* The last record number that the client looks at. */
#define MRIB_TLV_TO_CLIENT_LAST 21u

/* Capability flags of a registration: which kinds of state the MRIB shall push to this client. */
#define MRIB_CAP_VRF 0x0001u               /* VRF-enabled callback present */
#define MRIB_CAP_BOUNDARY 0x0002u          /* boundary-changed callback present */
#define MRIB_CAP_DR 0x0008u                /* DR-changed callback present */
#define MRIB_CAP_BASE 0x0100u              /* always */
#define MRIB_CAP_SSM_POLICY 0x0200u        /* SSM-policy callback present */
#define MRIB_CAP_MSDP_LOCAL_SRC 0x1000u    /* MSDP local-source callback present */
#define MRIB_CAP_MSDP_REMOTE_SRC 0x4000u   /* MSDP remote-source-request callback present */
#define MRIB_CAP_MSDP_ENCAP_REPORT 0x8000u /* MSDP encapsulated-data callback present */

/* Opens every message; the records follow back to back. */
typedef struct MRIB_PACKED MRIB_MSG_HEADER_S {
    uint8_t component; /* the sending client's code */
    uint8_t reserved;  /* written 0 */
    uint8_t unused[2]; /* receivers ignore them */
    uint32_t record_count;
    uint32_t body_length; /* receivers ignore it */
} MRIB_MSG_HEADER_S;

/* Opens every record; its value follows. */
typedef struct MRIB_PACKED MRIB_TLV_HEADER_S {
    uint16_t type;
    uint16_t length; /* of the value, without this header */
} MRIB_TLV_HEADER_S;

/* Bytes that a record with the given value takes in a message. */
#define MRIB_RECORD_SIZE(value_size) ((uint32_t)((value_size) + sizeof(MRIB_TLV_HEADER_S)))

/* Values sent by the client; the types that use each are listed above. */

/* Who the client is and what it wants to be told, first on every connection. */
typedef struct MRIB_PACKED MRIB_REGISTER_S {
    uint8_t family;
    uint8_t component;
    uint64_t capability_flags;
} MRIB_REGISTER_S;

/*
 * value of MRIB_IF_ALERT_S. Of an enable record: the protocol runs on the interface, or no longer does, and
 * every membership that the client reported there is void. Of a querier record: this router is the querier of
 * the interface's link, as it counts without a record, or another one is. The channel carries any byte
 * unchanged; these are what client and MRIB have agreed on.
 */
#define MRIB_GMP_DISABLED 0u
#define MRIB_GMP_ENABLED 1u
#define MRIB_QUERIER_OTHER 0u
#define MRIB_QUERIER_THIS_ROUTER 1u

/* The value byte stands before the family here and after it in MRIB_PROXY_ALERT_S. */
typedef struct MRIB_PACKED MRIB_IF_ALERT_S {
    uint8_t value; /* MRIB_GMP_... or MRIB_QUERIER_... */
    uint8_t family;
    uint16_t vrf_index;
    uint32_t if_index;
} MRIB_IF_ALERT_S;

/* flag1 of MRIB_JOIN_PRUNE_S. */
#define MRIB_JOIN_PRUNE_FLAG_PRUNE 0u
#define MRIB_JOIN_PRUNE_FLAG_JOIN 1u

/*
 * flag2 of MRIB_JOIN_PRUNE_S. Exclude: the source is blocked on the interface while any source of the group
 * is joined; a join sets the block, a prune removes it. Never without a source.
 */
#define MRIB_JOIN_PRUNE_FLAG_PLAIN 0u
#define MRIB_JOIN_PRUNE_FLAG_EXCLUDE 1u

/*
 * A (source, group) pair is wanted on an interface, or no longer. The channel carries both flags unchanged;
 * their meaning is an agreement of client and MRIB, as the constants above say it.
 */
typedef struct MRIB_PACKED MRIB_JOIN_PRUNE_S {
    uint8_t family;
    uint16_t vrf_index;
    uint32_t if_index;
    uint8_t flag1;      /* MRIB_JOIN_PRUNE_FLAG_PRUNE or _JOIN */
    uint8_t flag2;      /* MRIB_JOIN_PRUNE_FLAG_PLAIN or _EXCLUDE */
    uint8_t source[16]; /* network order; zero when the daemon gave none */
    uint8_t group[16];  /* network order */
    uint8_t reserved[26];
} MRIB_JOIN_PRUNE_S;

/* Asks the MRIB for everything of one kind. */
typedef struct MRIB_PACKED MRIB_REQUEST_S {
    uint8_t family;
    uint8_t zero[5];
} MRIB_REQUEST_S;

/*
 * Which members of an interface to delete, carried unchanged. All zero: every one that the client reported;
 * the MRIB counts and ignores what else it is given.
 */
typedef struct MRIB_PACKED MRIB_MEMBER_SELECTOR_S {
    uint32_t word;
    uint8_t byte;
} MRIB_MEMBER_SELECTOR_S;

/* What the client reported on an interface is void. */
typedef struct MRIB_PACKED MRIB_DELETE_IF_MEMBER_S {
    uint8_t family;
    uint16_t vrf_index;
    uint32_t if_index;
    MRIB_MEMBER_SELECTOR_S selector;
} MRIB_DELETE_IF_MEMBER_S;

/* What a smooth alert says: the bytes 0, 1, 1, 0, 0 at connection set-up, all zero in the MSDP markers. */
typedef struct MRIB_PACKED MRIB_SMOOTH_RECORD_S {
    uint8_t bytes[5];
} MRIB_SMOOTH_RECORD_S;

/* The client has started anew and says everything again. */
typedef struct MRIB_PACKED MRIB_SMOOTH_ALERT_S {
    uint8_t family;
    MRIB_SMOOTH_RECORD_S smooth;
} MRIB_SMOOTH_ALERT_S;

/* Followed by data_length bytes of opaque data. */
typedef struct MRIB_PACKED MRIB_MSDP_REMOTE_SG_S {
    uint8_t family; /* always MCAST_FAMILY_IPV4 */
    uint8_t unused;
    uint16_t vrf_index;
    uint8_t operation; /* 0 deletes */
    uint8_t entry;     /* carried unchanged */
    uint16_t data_length;
    uint32_t group_be;  /* 0 = all groups */
    uint32_t source_be; /* 0 = all sources */
} MRIB_MSDP_REMOTE_SG_S;

/* The MSDP daemon switches one of its services of an instance. */
typedef struct MRIB_PACKED MRIB_MSDP_ENABLE_S {
    uint8_t family; /* always MCAST_FAMILY_IPV4 */
    uint8_t unused1;
    uint16_t vrf_index;
    uint8_t enable;
    uint8_t unused5[3];
} MRIB_MSDP_ENABLE_S;

/* A proxy or host setting of an interface. */
typedef struct MRIB_PACKED MRIB_PROXY_ALERT_S {
    uint8_t family;
    uint8_t value;
    uint16_t vrf_index;
    uint32_t if_index;
} MRIB_PROXY_ALERT_S;

/* The multipath setting of an instance's proxy. */
typedef struct MRIB_PACKED MRIB_PROXY_MULTIPATH_S {
    uint8_t family;
    uint8_t value;
    uint16_t vrf_index;
} MRIB_PROXY_MULTIPATH_S;

/* byte2 of MRIB_MAUTH_USER_INFO_S, as client and MRIB have agreed on it. */
#define MRIB_USER_GONE 0u
#define MRIB_USER_PRESENT 1u

/*
 * One user of the user authentication; the fields taken from MCAST_USRAUTH_INFO_S carry its names and are in
 * host order. A later record about the interface replaces the one before.
 */
typedef struct MRIB_PACKED MRIB_MAUTH_USER_INFO_S {
    uint8_t byte2; /* the sender's second byte argument: MRIB_USER_PRESENT or MRIB_USER_GONE */
    uint8_t family;
    uint16_t vrf_index;
    uint32_t if_index; /* the user's own interface */
    uint32_t access_if_index;
    uint32_t user_id;
    uint32_t attribute_36;
    uint8_t block[16]; /* the address that the user reports from, network order, IPv4 in the first four */
    uint16_t attribute_32;
    uint16_t attribute_34;
    uint8_t byte1; /* the sender's first byte argument: the user's kind, 1 to 4 */
    uint32_t hardware_address_first;
    uint16_t hardware_address_last;
    uint32_t attribute_80;
    uint32_t attribute_84;
} MRIB_MAUTH_USER_INFO_S;

/* Values sent by the MRIB. The client reads none of the unused bytes; the MRIB writes them 0. */

/* Layer-3 multicast is enabled in an instance, or not. */
typedef struct MRIB_PACKED MRIB_VRF_STATE_S {
    uint8_t unused[3];
    uint16_t vrf_index;
    uint8_t state; /* 1 = layer-3 multicast enabled */
} MRIB_VRF_STATE_S;

/* Groups of a range, or of a scope, may not cross an interface any more, or may again. */
typedef struct MRIB_PACKED MRIB_BOUNDARY_S {
    uint8_t unused0[2];
    uint8_t family;
    uint8_t unused3;
    uint16_t vrf_index;
    uint8_t operation;  /* 1 = add, else remove */
    uint8_t remove_all; /* 1 in a removal = everything, whatever scope_flag says; not read in an addition */
    uint8_t prefix_length;
    uint32_t if_index;
    uint8_t scope_flag;  /* 1 = the record sets or clears the interface's IPv6 scope boundary */
    uint8_t scope;       /* 3 to 15 */
    uint8_t address[16]; /* network order, IPv4 in the first four */
} MRIB_BOUNDARY_S;

/* Whether this router is the designated router of an interface. */
typedef struct MRIB_PACKED MRIB_PIM_DR_S {
    uint8_t unused0[2];
    uint8_t state; /* 1 = this router is the designated router */
    uint8_t unused3;
    uint16_t vrf_index;
    uint32_t if_index;
} MRIB_PIM_DR_S;

/* Whether the MRIB is busy, so that clients hold back. */
typedef struct MRIB_PACKED MRIB_FLOW_CONTROL_S {
    uint8_t unused[2];
    uint16_t busy;
} MRIB_FLOW_CONTROL_S;

/* The list that says which groups of an instance are source-specific. */
typedef struct MRIB_PACKED MRIB_SSM_POLICY_S {
    uint8_t unused[3];
    uint16_t vrf_index;
    uint32_t acl_number; /* MCAST_NONE = no ACL */
} MRIB_SSM_POLICY_S;

/* Followed by data_length bytes. */
typedef struct MRIB_PACKED MRIB_MSDP_LOCAL_SRC_S {
    uint8_t unused0[2];
    uint8_t family;    /* must be MCAST_FAMILY_IPV4 */
    uint8_t operation; /* 1 = add, else remove */
    uint16_t vrf_index;
    uint8_t unused6[2];
    uint32_t source_be;
    uint32_t group_be;
    uint32_t rp_be;
    uint32_t data_length;
} MRIB_MSDP_LOCAL_SRC_S;

/* The MRIB asks the MSDP daemon for the remote sources of a group. */
typedef struct MRIB_PACKED MRIB_MSDP_REQ_REMOTE_SRC_S {
    uint8_t unused0[2];
    uint8_t family; /* must be MCAST_FAMILY_IPV4 */
    uint8_t unused3;
    uint16_t vrf_index;
    uint8_t unused6[2];
    uint32_t group_be;
} MRIB_MSDP_REQ_REMOTE_SRC_S;

/* The whole value, these bytes included, goes to the client's callback. */
typedef struct MRIB_PACKED MRIB_MSDP_ENCAP_REPORT_S {
    uint8_t unused0[2];
    uint8_t family; /* must be MCAST_FAMILY_IPV4 */
    uint8_t unused3;
} MRIB_MSDP_ENCAP_REPORT_S;

/* The layouts, once more as numbers. */
#define MRIB_LAYOUT_SIZE(record, size)                                                                       \
    MCAST_STATIC_ASSERT(sizeof(record) == (size), #record " is " #size " bytes")
#define MRIB_LAYOUT_AT(record, field, offset)                                                                \
    MCAST_STATIC_ASSERT(offsetof(record, field) == (offset), #record "." #field " is at " #offset)

MRIB_LAYOUT_SIZE(MRIB_MSG_HEADER_S, 12);
MRIB_LAYOUT_AT(MRIB_MSG_HEADER_S, record_count, 4);
MRIB_LAYOUT_AT(MRIB_MSG_HEADER_S, body_length, 8);
MRIB_LAYOUT_SIZE(MRIB_TLV_HEADER_S, 4);
MRIB_LAYOUT_AT(MRIB_TLV_HEADER_S, length, 2);
MRIB_LAYOUT_SIZE(MRIB_REGISTER_S, 10);
MRIB_LAYOUT_AT(MRIB_REGISTER_S, component, 1);
MRIB_LAYOUT_AT(MRIB_REGISTER_S, capability_flags, 2);
MRIB_LAYOUT_SIZE(MRIB_IF_ALERT_S, 8);
MRIB_LAYOUT_AT(MRIB_IF_ALERT_S, family, 1);
MRIB_LAYOUT_AT(MRIB_IF_ALERT_S, vrf_index, 2);
MRIB_LAYOUT_AT(MRIB_IF_ALERT_S, if_index, 4);
MRIB_LAYOUT_SIZE(MRIB_JOIN_PRUNE_S, 67);
MRIB_LAYOUT_AT(MRIB_JOIN_PRUNE_S, vrf_index, 1);
MRIB_LAYOUT_AT(MRIB_JOIN_PRUNE_S, if_index, 3);
MRIB_LAYOUT_AT(MRIB_JOIN_PRUNE_S, flag1, 7);
MRIB_LAYOUT_AT(MRIB_JOIN_PRUNE_S, flag2, 8);
MRIB_LAYOUT_AT(MRIB_JOIN_PRUNE_S, source, 9);
MRIB_LAYOUT_AT(MRIB_JOIN_PRUNE_S, group, 25);
MRIB_LAYOUT_AT(MRIB_JOIN_PRUNE_S, reserved, 41);
MRIB_LAYOUT_SIZE(MRIB_REQUEST_S, 6);
MRIB_LAYOUT_SIZE(MRIB_MEMBER_SELECTOR_S, 5);
MRIB_LAYOUT_AT(MRIB_MEMBER_SELECTOR_S, byte, 4);
MRIB_LAYOUT_SIZE(MRIB_DELETE_IF_MEMBER_S, 12);
MRIB_LAYOUT_AT(MRIB_DELETE_IF_MEMBER_S, vrf_index, 1);
MRIB_LAYOUT_AT(MRIB_DELETE_IF_MEMBER_S, if_index, 3);
MRIB_LAYOUT_AT(MRIB_DELETE_IF_MEMBER_S, selector, 7);
MRIB_LAYOUT_SIZE(MRIB_SMOOTH_RECORD_S, 5);
MRIB_LAYOUT_SIZE(MRIB_SMOOTH_ALERT_S, 6);
MRIB_LAYOUT_AT(MRIB_SMOOTH_ALERT_S, smooth, 1);
MRIB_LAYOUT_SIZE(MRIB_MSDP_REMOTE_SG_S, 16);
MRIB_LAYOUT_AT(MRIB_MSDP_REMOTE_SG_S, vrf_index, 2);
MRIB_LAYOUT_AT(MRIB_MSDP_REMOTE_SG_S, operation, 4);
MRIB_LAYOUT_AT(MRIB_MSDP_REMOTE_SG_S, entry, 5);
MRIB_LAYOUT_AT(MRIB_MSDP_REMOTE_SG_S, data_length, 6);
MRIB_LAYOUT_AT(MRIB_MSDP_REMOTE_SG_S, group_be, 8);
MRIB_LAYOUT_AT(MRIB_MSDP_REMOTE_SG_S, source_be, 12);
MRIB_LAYOUT_SIZE(MRIB_MSDP_ENABLE_S, 8);
MRIB_LAYOUT_AT(MRIB_MSDP_ENABLE_S, vrf_index, 2);
MRIB_LAYOUT_AT(MRIB_MSDP_ENABLE_S, enable, 4);
MRIB_LAYOUT_SIZE(MRIB_PROXY_ALERT_S, 8);
MRIB_LAYOUT_AT(MRIB_PROXY_ALERT_S, value, 1);
MRIB_LAYOUT_AT(MRIB_PROXY_ALERT_S, vrf_index, 2);
MRIB_LAYOUT_AT(MRIB_PROXY_ALERT_S, if_index, 4);
MRIB_LAYOUT_SIZE(MRIB_PROXY_MULTIPATH_S, 4);
MRIB_LAYOUT_AT(MRIB_PROXY_MULTIPATH_S, value, 1);
MRIB_LAYOUT_AT(MRIB_PROXY_MULTIPATH_S, vrf_index, 2);
MRIB_LAYOUT_SIZE(MRIB_MAUTH_USER_INFO_S, 55);
MRIB_LAYOUT_AT(MRIB_MAUTH_USER_INFO_S, family, 1);
MRIB_LAYOUT_AT(MRIB_MAUTH_USER_INFO_S, vrf_index, 2);
MRIB_LAYOUT_AT(MRIB_MAUTH_USER_INFO_S, if_index, 4);
MRIB_LAYOUT_AT(MRIB_MAUTH_USER_INFO_S, access_if_index, 8);
MRIB_LAYOUT_AT(MRIB_MAUTH_USER_INFO_S, user_id, 12);
MRIB_LAYOUT_AT(MRIB_MAUTH_USER_INFO_S, attribute_36, 16);
MRIB_LAYOUT_AT(MRIB_MAUTH_USER_INFO_S, block, 20);
MRIB_LAYOUT_AT(MRIB_MAUTH_USER_INFO_S, attribute_32, 36);
MRIB_LAYOUT_AT(MRIB_MAUTH_USER_INFO_S, attribute_34, 38);
MRIB_LAYOUT_AT(MRIB_MAUTH_USER_INFO_S, byte1, 40);
MRIB_LAYOUT_AT(MRIB_MAUTH_USER_INFO_S, hardware_address_first, 41);
MRIB_LAYOUT_AT(MRIB_MAUTH_USER_INFO_S, hardware_address_last, 45);
MRIB_LAYOUT_AT(MRIB_MAUTH_USER_INFO_S, attribute_80, 47);
MRIB_LAYOUT_AT(MRIB_MAUTH_USER_INFO_S, attribute_84, 51);
MRIB_LAYOUT_SIZE(MRIB_VRF_STATE_S, 6);
MRIB_LAYOUT_AT(MRIB_VRF_STATE_S, vrf_index, 3);
MRIB_LAYOUT_AT(MRIB_VRF_STATE_S, state, 5);
MRIB_LAYOUT_SIZE(MRIB_BOUNDARY_S, 31);
MRIB_LAYOUT_AT(MRIB_BOUNDARY_S, family, 2);
MRIB_LAYOUT_AT(MRIB_BOUNDARY_S, vrf_index, 4);
MRIB_LAYOUT_AT(MRIB_BOUNDARY_S, operation, 6);
MRIB_LAYOUT_AT(MRIB_BOUNDARY_S, remove_all, 7);
MRIB_LAYOUT_AT(MRIB_BOUNDARY_S, prefix_length, 8);
MRIB_LAYOUT_AT(MRIB_BOUNDARY_S, if_index, 9);
MRIB_LAYOUT_AT(MRIB_BOUNDARY_S, scope_flag, 13);
MRIB_LAYOUT_AT(MRIB_BOUNDARY_S, scope, 14);
MRIB_LAYOUT_AT(MRIB_BOUNDARY_S, address, 15);
MRIB_LAYOUT_SIZE(MRIB_PIM_DR_S, 10);
MRIB_LAYOUT_AT(MRIB_PIM_DR_S, state, 2);
MRIB_LAYOUT_AT(MRIB_PIM_DR_S, vrf_index, 4);
MRIB_LAYOUT_AT(MRIB_PIM_DR_S, if_index, 6);
MRIB_LAYOUT_SIZE(MRIB_FLOW_CONTROL_S, 4);
MRIB_LAYOUT_AT(MRIB_FLOW_CONTROL_S, busy, 2);
MRIB_LAYOUT_SIZE(MRIB_SSM_POLICY_S, 9);
MRIB_LAYOUT_AT(MRIB_SSM_POLICY_S, vrf_index, 3);
MRIB_LAYOUT_AT(MRIB_SSM_POLICY_S, acl_number, 5);
MRIB_LAYOUT_SIZE(MRIB_MSDP_LOCAL_SRC_S, 24);
MRIB_LAYOUT_AT(MRIB_MSDP_LOCAL_SRC_S, family, 2);
MRIB_LAYOUT_AT(MRIB_MSDP_LOCAL_SRC_S, operation, 3);
MRIB_LAYOUT_AT(MRIB_MSDP_LOCAL_SRC_S, vrf_index, 4);
MRIB_LAYOUT_AT(MRIB_MSDP_LOCAL_SRC_S, source_be, 8);
MRIB_LAYOUT_AT(MRIB_MSDP_LOCAL_SRC_S, group_be, 12);
MRIB_LAYOUT_AT(MRIB_MSDP_LOCAL_SRC_S, rp_be, 16);
MRIB_LAYOUT_AT(MRIB_MSDP_LOCAL_SRC_S, data_length, 20);
MRIB_LAYOUT_SIZE(MRIB_MSDP_REQ_REMOTE_SRC_S, 12);
MRIB_LAYOUT_AT(MRIB_MSDP_REQ_REMOTE_SRC_S, family, 2);
MRIB_LAYOUT_AT(MRIB_MSDP_REQ_REMOTE_SRC_S, vrf_index, 4);
MRIB_LAYOUT_AT(MRIB_MSDP_REQ_REMOTE_SRC_S, group_be, 8);
MRIB_LAYOUT_SIZE(MRIB_MSDP_ENCAP_REPORT_S, 4);
MRIB_LAYOUT_AT(MRIB_MSDP_ENCAP_REPORT_S, family, 2);

MCAST_EXTERN_C_END

#endif
