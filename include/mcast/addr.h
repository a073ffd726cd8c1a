/*
 * Addresses: the well-known constants, the checks that classify a group, a source or a mask, the converters
 * from text, the IPv6 upper-layer checksum, and the names and identifiers that go with the two families.
 *
 * Everything here is pure: no function keeps state, allocates, locks or calls back, and each may be called
 * from any thread. Checks of a record test only whether its family is MCAST_FAMILY_IPV4; any other value
 * counts as IPv6. No pointer may be NULL unless its function says so.
 */
#ifndef MCAST_ADDR_H
#define MCAST_ADDR_H

#include "mcast/common.h"

MCAST_EXTERN_C_BEGIN

/* The group that all PIM routers of a link listen to: 224.0.0.13 and ff02::d. */
MCAST_API extern const MCAST_ADDR_S g_stPimAllRoutersAddr4;
MCAST_API extern const MCAST_ADDR_S g_stPimAllRoutersAddr6;

/* The wildcard source of each family: 0.0.0.0 and ::. */
MCAST_API extern const MCAST_ADDR_S g_stMcastDefSrcAddr4;
MCAST_API extern const MCAST_ADDR_S g_stMcastDefSrcAddr6;

/* The default group of each family, the base of the whole multicast range: 224.0.0.0 and ff00::. */
MCAST_API extern const MCAST_ADDR_S g_stMcastDefGrpAddr4;
MCAST_API extern const MCAST_ADDR_S g_stMcastDefGrpAddr6;

/* kind of MCAST_IsNetworkMask: the mask of a group range, at least /4 long. */
#define MCAST_MASK_KIND_GROUP 1

/*
 * Whether addr is a group that may be routed. IPv4: in 224.0.0.0/4 above the link-local block, so greater
 * than 224.0.0.255. IPv6: multicast of a scope above link-local (2), and not the reserved address ff0S:: of
 * its scope.
 */
MCAST_API MCAST_BOOL MCAST_GrpAddrCheck(const MCAST_ADDR_S *addr);

/*
 * Whether addr is a usable unicast source. IPv4: as MCAST_IPv4SrcAddrCheck. IPv6: not ::, not ::1, not
 * link-local fe80::/10, not multicast; site-local and everything else passes.
 */
MCAST_API MCAST_BOOL MCAST_SrcAddrCheck(const MCAST_ADDR_S *addr);

/*
 * Whether a protocol packet may come from the source addr. As MCAST_SrcAddrCheck, except that IPv6 link-local
 * sources are accepted, because hellos and reports are sent from them. MCAST_OK, or MCAST_ERR_GENERAL for a
 * source to refuse: a status, not a truth value.
 */
MCAST_API MCAST_STATUS MCAST_ProtoSrcAddrCheck(const MCAST_ADDR_S *addr);

/*
 * Whether addr is neither unspecified (the address bytes of its family all zero) nor, by its first two bytes,
 * in fe80::/10 or ff00::/8. The byte tests hold for an IPv4 record too: 255.0.0.0/8 and 254.128.0.0/10 are
 * not routable, every other IPv4 address but 0.0.0.0 is.
 */
MCAST_API MCAST_BOOL MCAST_IsIPv6AddrRoutable(const MCAST_ADDR_S *addr);

/*
 * Whether addr, in host byte order, is a usable IPv4 unicast source: not in 0.0.0.0/8, not in 127.0.0.0/8 and
 * below 224.0.0.0.
 */
MCAST_API MCAST_BOOL MCAST_IPv4SrcAddrCheck(uint32_t addr);

/*
 * Whether the 16 bytes at addr (an IPv6 address in network order, not a record) are one of the reserved
 * groups ff00:: to ff0f::.
 */
MCAST_API MCAST_BOOL MCAST_IsReservedGroupAddr(const uint8_t addr[16]);

/*
 * Whether mask, in host byte order, is a network mask: ones from the top, then zeros, /0 to /32. With kind
 * MCAST_MASK_KIND_GROUP it must also be /4 or longer; any other kind adds nothing.
 */
MCAST_API MCAST_BOOL MCAST_IsNetworkMask(uint32_t mask, uint16_t kind);

/* Whether mask, in host byte order, is a run of ones from the top followed by zeros. 0 is. */
MCAST_API MCAST_BOOL MCAST_MaskIsContinous(uint32_t mask);

/*
 * The length of mask, in host byte order: 0 to 32. For a mask with holes it is the position of its lowest one
 * counted from the top (0xff00ff00 gives 24), not the number of ones.
 */
MCAST_API uint32_t MCAST_Mask2MaskLen(uint32_t mask);

/*
 * Parses the dotted quad text into *out, in host byte order. MCAST_OK, or MCAST_ERR_GENERAL with *out
 * untouched when text is no such address or either pointer is NULL.
 */
MCAST_API MCAST_STATUS MCAST_StrToIP4(const char *text, uint32_t *out);

/*
 * Parses the IPv6 address text into *out, the whole record. 1 when parsed, 0 when not. NULL is allowed for
 * either and gives 0. *out is untouched when the result is 0, except for one text: "default" is no address,
 * so its result is 0, yet *out becomes the record of ::. A caller for which "default" means :: ignores the
 * result and looks at the record; a caller for which it is an error looks at the result.
 */
MCAST_API int MCAST_StrToInet6Addr(const char *text, MCAST_ADDR_S *out);

/*
 * The Internet checksum (RFC 1071) of the IPv6 pseudo-header (RFC 8200, section 8.1) followed by data. The
 * low 16 bits of the result, stored as they are, are the checksum in network byte order; the high 16 bits are
 * ones.
 *
 * data is len bytes at any alignment, NULL allowed when len is 0; an odd last byte counts as the first of a
 * word whose second byte is zero. All 16 address bytes of src and dst count whatever their family. upper_len,
 * the upper-layer length in the pseudo-header, is in host order and need not equal len; of next_header the
 * low 8 bits count. Linear in len, at the speed at which data can be read.
 */
MCAST_API uint32_t MCAST_Inet6Cksum(const uint16_t *data, uint32_t len, const MCAST_ADDR_S *src,
                                    const MCAST_ADDR_S *dst, uint32_t upper_len, uint32_t next_header);

/*
 * The display name of a route's kind, a constant string: 1 "unicast (direct)"; 4, 5, 6 "igp"; 10 "egp";
 * 17 "multicast static"; 200 "mbgp"; anything else "unicast".
 */
MCAST_API const char *MCAST_GetRouteType(uint8_t route_type);

/*
 * The module identifier of the IPv6 twin of an IPv4 multicast component (2 to 3, 4 to 5, 6 to 7), and back.
 * Any other identifier comes back unchanged.
 */
MCAST_API uint32_t MCAST_Mid4ToMid6(uint32_t mid);
MCAST_API uint32_t MCAST_Mid6ToMid4(uint32_t mid);

MCAST_EXTERN_C_END

#endif
