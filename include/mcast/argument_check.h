/*
 * Checks of what an operator types: groups, sources and masks as text, group ranges, and the texts that a
 * command line shows for them.
 *
 * A check parses the whole text and applies the rule of its kind: MCAST_OK, or MCAST_ERR_GENERAL for an
 * address that the rule refuses, a text that is no address, and NULL. IPv4 text is a dotted quad; "default"
 * is no address here. The checks keep no state and may be called from any thread.
 */
#ifndef MCAST_ARGUMENT_CHECK_H
#define MCAST_ARGUMENT_CHECK_H

#include "mcast/common.h"

MCAST_EXTERN_C_BEGIN

/* The block of the help texts in the platform's resources, and their number. */
#define MCAST_RC_MODULE 0x4A00000u
#define MCAST_RC_TEXT_COUNT 55u

/*
 * The help texts by index, as a daemon refers to them. 0 and 20 are empty texts. 51 and 53 are the same text
 * for two words of a command.
 */
enum MCAST_RC_TEXT_E {
    MCAST_RC_TEXT_GROUP_ADDRESS = 1,             /* "Group address" */
    MCAST_RC_TEXT_GROUP_MASK_SPEC = 2,           /* "Specify group mask" */
    MCAST_RC_TEXT_GROUP_MASK = 3,                /* "Group mask address" */
    MCAST_RC_TEXT_GROUP_MASK_LENGTH = 4,         /* "Group mask length" */
    MCAST_RC_TEXT_SOURCE_ADDRESS = 5,            /* "Source address" */
    MCAST_RC_TEXT_SOURCE_MASK_SPEC = 6,          /* "Specify source mask" */
    MCAST_RC_TEXT_SOURCE_MASK = 7,               /* "Source mask address" */
    MCAST_RC_TEXT_SOURCE_MASK_LENGTH = 8,        /* "Source mask length" */
    MCAST_RC_TEXT_IP_ADDRESS = 9,                /* "IP address" */
    MCAST_RC_TEXT_IP_MASK_ADDRESS = 10,          /* "IP mask address" */
    MCAST_RC_TEXT_ROUTES_WITH_OUT_IF = 11,       /* "Routes including this outgoing interface" */
    MCAST_RC_TEXT_ROUTES_WITHOUT_OUT_IF = 12,    /* "Routes excluding this outgoing interface" */
    MCAST_RC_TEXT_ROUTES_OF_OUT_IF = 13,         /* "Routes exactly matching this outgoing interface" */
    MCAST_RC_TEXT_IN_IF = 14,                    /* "Specify incoming interface in entries" */
    MCAST_RC_TEXT_OUT_IF = 15,                   /* "Specify outgoing interface in entries" */
    MCAST_RC_TEXT_INTERFACE_NAME = 16,           /* "Interface name" */
    MCAST_RC_TEXT_INTERFACE_TYPE = 17,           /* "Interface type" */
    MCAST_RC_TEXT_INTERFACE_NUMBER = 18,         /* "Interface number" */
    MCAST_RC_TEXT_DETAILED_INFORMATION = 19,     /* "Detailed information" */
    MCAST_RC_TEXT_AN_INTERFACE = 21,             /* "Specify an interface" */
    MCAST_RC_TEXT_FORWARDING_TABLE = 22,         /* "Display multicast forwarding table information" */
    MCAST_RC_TEXT_MULTICAST_MODULE = 23,         /* "Multicast module" */
    MCAST_RC_TEXT_ALL_DEBUGGING = 24,            /* "Specify all debugging functions" */
    MCAST_RC_TEXT_EVENT_DEBUGGING = 25,          /* "Specify event debugging" */
    MCAST_RC_TEXT_NO_MEMORY = 26,                /* "No enough memory" */
    MCAST_RC_TEXT_VPN_INSTANCE_NAME = 27,        /* "VPN instance name" */
    MCAST_RC_TEXT_ALL_VPN_INSTANCE = 28,         /* "All VPN instance" */
    MCAST_RC_TEXT_IPV6_ADDRESS = 29,             /* "IPv6 address" */
    MCAST_RC_TEXT_IPV6_GROUP_ADDRESS = 30,       /* "IPv6 group address" */
    MCAST_RC_TEXT_IPV6_SOURCE_ADDRESS = 31,      /* "IPv6 source address" */
    MCAST_RC_TEXT_IPV6_GROUP_PREFIX_LENGTH = 32, /* "IPv6 group prefix length" */
    MCAST_RC_TEXT_IPV6_PREFIX_LENGTH = 33,       /* "IPv6 prefix length" */
    MCAST_RC_TEXT_BASIC_ACL = 34,                /* "Specify a basic ACL" */
    MCAST_RC_TEXT_BASIC_ACL6 = 35,               /* "Specify a basic IPv6 ACL" */
    MCAST_RC_TEXT_BASIC_OR_ADVANCED_ACL = 36,    /* "Specify a basic or an advanced ACL" */
    MCAST_RC_TEXT_BASIC_OR_ADVANCED_ACL6 = 37,   /* "Specify a basic or an advanced IPv6 ACL" */
    MCAST_RC_TEXT_ADVANCED_ACL = 38,             /* "Specify an advanced ACL" */
    MCAST_RC_TEXT_ADVANCED_ACL6 = 39,            /* "Specify an advanced IPv6 ACL" */
    MCAST_RC_TEXT_A_MASK = 40,                   /* "Specify a mask" */
    MCAST_RC_TEXT_MASK = 41,                     /* "Mask" */
    MCAST_RC_TEXT_MASK_LENGTH = 42,              /* "Mask length" */
    MCAST_RC_TEXT_STATIC_RP_IPV6_ADDRESS = 43,   /* "Static RP IPv6 address" */
    MCAST_RC_TEXT_IPV6_PREFIX_ADDRESS = 44,      /* "IPv6 prefix address" */
    MCAST_RC_TEXT_PUBLIC_ONLY = 45,              /* "Command can be executed only on public network.\r\n" */
    MCAST_RC_TEXT_LINE = 46,                     /* "%s\r\n" */
    MCAST_RC_TEXT_INTERFACE_DEBUGGING = 47,      /* "Specify interface debugging" */
    MCAST_RC_TEXT_STATISTICS_INFORMATION = 48,   /* "Statistics information" */
    MCAST_RC_TEXT_A_GROUP = 49,                  /* "Specify multicast group" */
    MCAST_RC_TEXT_A_SOURCE = 50,                 /* "Specify multicast source" */
    MCAST_RC_TEXT_MUA_TYPE = 51,                 /* "Multicast-UA interface" */
    MCAST_RC_TEXT_MUA_NUMBER = 52,               /* "Multicast-UA interface number" */
    MCAST_RC_TEXT_MUA_INTERFACE = 53,            /* "Multicast-UA interface" */
    MCAST_RC_TEXT_NOT_READY = 54                 /* "%s is not ready." */
};

/*
 * A group that may be routed: 224.0.0.0/4 without 224.0.0.0/24. The second is a name of its own for the
 * first.
 */
MCAST_API MCAST_STATUS MCAST_GroupIPCheck(const char *text);
MCAST_API MCAST_STATUS MCAST_GroupIPCheckExcludeResvAddr_Ext(const char *text);

/* Any group: 224.0.0.0/4. */
MCAST_API MCAST_STATUS MCAST_GroupIPCheck_Ext(const char *text);

/* An administratively scoped group: 239.0.0.0/8. */
MCAST_API MCAST_STATUS MCAST_AdmGroupIPCheck(const char *text);

/* A mask of administratively scoped groups: contiguous, /8 to /32. */
MCAST_API MCAST_STATUS MCAST_AdmGroupMaskCheck(const char *text);

/* A group mask: contiguous, /4 to /32. */
MCAST_API MCAST_STATUS MCAST_GrpMaskCheck(const char *text);

/* Any contiguous mask, 0.0.0.0 to 255.255.255.255. */
MCAST_API MCAST_STATUS MCAST_MaskCheck(const char *text);

/* A unicast source: first octet 1 to 126 or 128 to 223. */
MCAST_API MCAST_STATUS MCAST_SrcIPStrictCheck(const char *text);

/* A unicast source, or the wildcard source 0.0.0.0. */
MCAST_API MCAST_STATUS MCAST_SourceIPCheck(const char *text);

/*
 * A group that may be routed: ff00::/8 of a scope above link-local (2), other than the reserved ff0S:: of its
 * scope. Both accept the same texts.
 */
MCAST_API MCAST_STATUS MCAST_GroupIPv6Check(const char *text);
MCAST_API MCAST_STATUS MCAST_GroupIPv6StrictCheck(const char *text);

/* Any group: ff00::/8. */
MCAST_API MCAST_STATUS MCAST_GroupIPv6Check_Ext(const char *text);

/* A unicast source that can be routed: not ::, ::1, link-local or multicast. Both accept the same texts. */
MCAST_API MCAST_STATUS MCAST_SourceIPv6Check(const char *text);
MCAST_API MCAST_STATUS MCAST_SrcIPv6Check(const char *text);

/* The same, or the wildcard source ::. */
MCAST_API MCAST_STATUS MCAST_SourceIPv6Check_Ext(const char *text);

/* A unicast source, link-local ones included: not ::, ::1 or multicast. */
MCAST_API MCAST_STATUS MCAST_SrcIPv6StrictCheck(const char *text);

/* Anything but multicast, :: and ::1 included. */
MCAST_API MCAST_STATUS MCAST_SrcIPv6RelaxCheck(const char *text);

/* A link-local address: fe80::/10. */
MCAST_API MCAST_STATUS MCAST_IPv6StrLinkCheck(const char *text);

/*
 * Whether the range group/prefix_len may be configured, group not NULL. IPv4: in 224.0.0.0/4 and not inside
 * 224.0.0.0/24. IPv6: in ff00::/8; up to /14 of any scope, at /15 of a scope from 2 on, from /16 on of a
 * scope from 3 on. The whole group counts, not only the bits within the prefix. A length above the family's
 * 32 or 128 counts like any other from /24 or /16 on. A group of any other family is refused unless its first
 * byte is 0xff, and then judged as an IPv4 range: accepted, because its first three bytes are not those of
 * 224.0.0.0/24.
 */
MCAST_API MCAST_BOOL MCAST_GrpRangeCheck(const MCAST_ADDR_S *group, uint8_t prefix_len);

/*
 * Registers the help texts with the platform under MCAST_RC_MODULE, and withdraws them. They are referred to
 * by their index, MCAST_RC_TEXT_... The platform's result.
 */
MCAST_API MCAST_STATUS MC_CommonRcInit(void);
MCAST_API MCAST_STATUS MC_CommonRcExit(void);

MCAST_EXTERN_C_END

#endif
