/*
 * Text formatting: the trace and display lines of the daemons, and the small texts that stand in them.
 *
 * Output is bounded: nothing is written past the stated capacity, what is written is terminated, and a
 * returned length is that of what was stored, without the terminator. The functions keep no state but the
 * assertion counter, take no lock and may be called from any thread.
 */
#ifndef MCAST_FORMAT_H
#define MCAST_FORMAT_H

#include <stdarg.h>

#include "mcast/common.h"

MCAST_EXTERN_C_BEGIN

/* What counts of a format. */
#define MCAST_FORMAT_MAX 512

/* Buffer sizes, terminator included. */
#define MCAST_INST_STR_SIZE 41
#define MCAST_VRF_BRACKET_SIZE 34
#define MCAST_VRF_NAME_SIZE 32
#define MCAST_TIME_STR_SIZE 20

/* Assertions reported; counted without a lock, so that some may be lost when threads report at once. */
MCAST_API extern uint32_t g_uiMcastAssertCnt;

/*
 * Formats a line into buffer (size bytes; NULL allowed when size is 0) and tells whether it passes the
 * operator's filters: the number of characters stored, or 0 when the line is filtered out, though its text is
 * in buffer all the same. acl_number is a list for the line's source and group, MCAST_NONE for none; ctx
 * names the family and VPN instance in which it is asked, and is not looked at without a list. if_filter is
 * an interface index, 0 for none. args holds one argument for each conversion; the caller ends it.
 *
 * A conversion runs from a '%' to the next one. Flags (one or more of - + space # 0 '), width and precision
 * are those of printf, the last two in digits; a conversion with one above INT_MAX takes its argument and
 * drops all text up to the next '%'. Its letter is the first letter behind the '%':
 *
 *   d i o u x X c    int32_t or uint32_t
 *   l                int32_t widened to 64 bits; d i o u x X follows, or another l and then one of these
 *   p s              pointer
 *   e f g E G        double
 *   A                const MCAST_ADDR_S *: the address, "unknown address" for a family that is none; NULL
 *                    gives the address printed last in this call, or nothing
 *   M, N             as A, and the record is the line's source (M) or group (N); NULL is not
 *   I                uint32_t: the name of the interface with this index, or the index as "0x%x"
 *   P                as I, and the interface is the line's
 *
 * "%%" gives "%". Any other letter (h and z included), or none, takes no argument and drops all text up to
 * the next '%'. A conversion that is malformed in front of its letter or behind an l takes its argument and
 * is printed as it is written. Of a format longer than MCAST_FORMAT_MAX characters the rest does not count.
 *
 * A line without any '%' is never filtered. Otherwise a line with a source or a group passes the list as
 * MCAST_IsAclPermit says, the source being its first address and the group its second; and a line with an
 * interface, not 0, passes if_filter when it is the same. Where there are several, the last source, group
 * and interface count.
 */
MCAST_API uint64_t MCAST_vsprintf(const MRIB_GMP_VRF_KEY_S *ctx, uint32_t acl_number, uint32_t if_filter,
                                  const char *format, va_list args, size_t size, char *buffer);

/*
 * Writes the start of a line about an instance to buffer (MCAST_INST_STR_SIZE bytes): "IPv6: " or nothing for
 * the public instance, "IPv6 (NAME): " or "(NAME): " for others. Any family but MCAST_FAMILY_IPV6 counts as
 * IPv4. vrf_name is looked at for others only. The length.
 */
MCAST_API uint32_t MCAST_GetInstStr(const MRIB_GMP_VRF_KEY_S *ctx, const char *vrf_name, char *buffer);

/*
 * Writes the name of an instance in parentheses, or nothing for the public one, to buffer
 * (MCAST_VRF_BRACKET_SIZE bytes). Of vrf_index the low 16 bits count. A look-up that fails leaves between the
 * parentheses what the platform wrote, which is nothing where it writes nothing. buffer.
 */
MCAST_API char *MCAST_GetVrfBracketStr(uint32_t vrf_index, char *buffer);

/*
 * Writes the name of an instance, empty for the public one, to buffer (MCAST_VRF_NAME_SIZE bytes). Of
 * vrf_index the low 16 bits count. 0, or the platform's result, with the name as the platform left it: empty
 * where it writes nothing.
 */
MCAST_API uint32_t MCAST_GetVrfNameByVrfIndex(uint32_t vrf_index, char *buffer);

/*
 * Writes a duration to buffer (MCAST_TIME_STR_SIZE bytes), each end included: up to one day hours, minutes
 * and seconds of two digits each, "24:00:00" for a day; up to one week days without padding and the other
 * hours of two digits, "1d:02h"; beyond weeks and the other days, neither padded, "1w:2d". Does nothing when
 * buffer is NULL.
 */
MCAST_API void MCAST_ConvertTimeToString(uint32_t seconds, char *buffer);

/*
 * Reports a failed assertion: counts it and prints "assertion failed, file: FILE, line: LINE" on standard
 * output. The process goes on. The result of printf.
 */
MCAST_API int MCAST_Assert_X(const char *file, int line);

MCAST_EXTERN_C_END

#endif
