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
 * Whether the range group/prefixLen may be configured, group not NULL. IPv4: in 224.0.0.0/4 and not inside
 * 224.0.0.0/24. IPv6: in ff00::/8; up to /14 of any scope, at /15 of a scope from 2 on, from /16 on of a
 * scope from 3 on. The whole group counts, not only the bits within the prefix.
 */
MCAST_API MCAST_BOOL MCAST_GrpRangeCheck(const MCAST_ADDR_S *group, uint8_t prefixLen);

/*
 * Registers the help texts with the platform under MCAST_RC_MODULE, and withdraws them. They are referred to
 * by their index in the table. The platform's result.
 */
MCAST_API MCAST_STATUS MC_CommonRcInit(void);
MCAST_API MCAST_STATUS MC_CommonRcExit(void);

MCAST_EXTERN_C_END

#endif
