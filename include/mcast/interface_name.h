/*
 * Interface naming: the names of the library's own interfaces, the name of any interface, what an operator
 * types for one, and the command-line help for it.
 *
 * A Multicast-UA interface is called "Multicast-UA" and its number, an NBMA link interface "Multicast-NBMA"
 * and its number; all others have the platform's names. Numbers that may be typed run from 0 to
 * MCAST_IF_TYPED_NUMBER_MAX.
 *
 * The functions keep no state, take no lock and may be called from any thread, from callbacks too. A failure
 * is MCAST_ERR_GENERAL, here in 64 bits, and leaves outputs untouched. A check of typed text costs what the C
 * library takes to compile its regular expression, tens of microseconds. No pointer may be NULL unless its
 * function says so; text is terminated.
 */
#ifndef MCAST_INTERFACE_NAME_H
#define MCAST_INTERFACE_NAME_H

#include "mcast/common.h"
#include "platform/resource.h"

MCAST_EXTERN_C_BEGIN

/* Buffer sizes, terminator included: for a name, and for a simple name or index. */
#define MCAST_IF_NAME_SIZE 48
#define MCAST_IF_SIMPLE_NAME_SIZE 25

/* The highest interface number that may be typed; a private index can hold two more. */
#define MCAST_IF_TYPED_NUMBER_MAX 33554429u

/* Texts of the help calls, in the resources of the product: the interface type and its number. */
#define MCAST_RC_MUA_TYPE 0x04A00033u
#define MCAST_RC_MUA_NUMBER 0x04A00034u

/*
 * Writes the Multicast-UA or NBMA name of the number in if_index, whatever its type bits, to buf
 * (MCAST_IF_NAME_SIZE bytes). The number of characters written.
 */
MCAST_API uint64_t MCAST_GetMUANameByIfIndex(uint32_t if_index, char *buf);
MCAST_API uint64_t MCAST_GetNBMANameByIfIndex(uint32_t if_index, char *buf);

/*
 * Whether text is a Multicast-UA interface as an operator may type it: the type, abbreviated to any length
 * from "m" on and in any case, then up to 19 leading zeros and 1 to 8 digits, in all at most
 * MCAST_IF_TYPED_NUMBER_MAX. As a POSIX extended expression without regard to case:
 *
 *   ^m(u(l(t(i(c(a(s(t(-(ua?)?)?)?)?)?)?)?)?)?)?0{0,19}[0-9]{1,8}$
 *
 * 0, or a failure; also for NULL and when there is no memory for the expression.
 */
MCAST_API uint64_t MCAST_MuaIfNameCheck(const char *text);

/* The same for the number alone: ^0{0,19}[0-9]{1,8}$ and the same limit. */
MCAST_API uint64_t MCAST_MuaIfNumCheck(const char *text);

/*
 * Writes the whole name of the Multicast-UA interface that was typed, without leading zeros, to buf
 * (MCAST_IF_NAME_SIZE bytes). 0, or a failure as from MCAST_MuaIfNameCheck.
 */
MCAST_API uint64_t MCAST_GetMUANameFromStr(const char *text, char *buf);

/*
 * The index of the Multicast-UA interface of the family (MCAST_FAMILY_IPV4, or anything else for IPv6) with
 * this name, which must be as MCAST_GetMUANameFromStr writes it: the twelve characters of the type are passed
 * over unseen, and the number behind them is added to the first index of the type, modulo 2^32.
 */
MCAST_API uint32_t MCAST_GetIfIndexByMUAName(uint32_t family, const char *name);

/*
 * Writes the name of an interface to buf (MCAST_IF_NAME_SIZE bytes). 0, or for an interface that is not the
 * library's own the platform's result.
 */
MCAST_API uint64_t MCAST_GetIfName(uint32_t if_index, char *buf);

/*
 * Writes the short name of an interface to buf (MCAST_IF_SIMPLE_NAME_SIZE bytes). The result is 0 for an NBMA
 * link interface, otherwise the platform's. A Multicast-UA interface has its name written, and then the
 * platform is asked for the short name of the same index into the same buffer.
 */
MCAST_API uint64_t MCAST_GetIfSimpleName(uint32_t if_index, char *buf);

/*
 * Writes the name of an interface, or its index as "0x%x" when it is 0 or has no name, to buf
 * (MCAST_IF_NAME_SIZE bytes). Does nothing when buf is NULL.
 */
MCAST_API void MCAST_GetIfNameOrIndex(uint32_t if_index, char *buf);

/*
 * Writes the short name of an interface to buf (MCAST_IF_SIMPLE_NAME_SIZE bytes) and returns 0; or, when the
 * index is 0 or MCAST_GetIfSimpleName fails, writes the index as "0x%x" and returns the number of characters.
 */
MCAST_API uint64_t MCAST_GetIfSimpleNameOrIndex(uint32_t if_index, char *buf);

/*
 * Completes an interface name as typed to the platform's full name, among the interfaces that a query may
 * ask about. full_name has room for IF_FILLED_NAME_SIZE bytes. The platform's result, 0 when found.
 */
MCAST_API uint64_t MCAST_IF_GetFullName(const char *text, char *full_name);

/*
 * The index of the interface that was typed as type and number, or 0. name_buf (MCAST_IF_NAME_SIZE bytes) is
 * in and out, and is not NULL. An empty one receives the two texts joined, cut to its size, where a NULL text
 * counts as empty; the texts are not looked at when name_buf holds a name already. When the name can be
 * completed name_buf then holds the full name, cut to its size; the look-up of the index has the whole of it.
 * Otherwise name_buf keeps what it held.
 */
MCAST_API uint32_t MCAST_GetIfIndexByIfName(const char *type_text, const char *number_text, char *name_buf);

/*
 * Help for a Multicast-UA interface: for its type, its number, or both in one word. text is what was typed so
 * far, "?" for nothing yet (but no "?" in the third); an entry that fits is added to list with
 * CLI_NewHelpInfo, a syntax and a description. 0, or a failure without an entry when none fits or text is
 * NULL. Up to 27 digits fit, whatever the checks say about them.
 *
 *   type      ?                                           Multicast-UA    RC_LoadString(MCAST_RC_MUA_TYPE)
 *             ^m(u(l(t(i(c(a(s(t(-(ua?)?)?)?)?)?)?)?)?)?)?$          Multicast-UA    empty
 *   number    ?                                           <0-33554429>    RC_LoadString(MCAST_RC_MUA_NUMBER)
 *             ^[0-9]{1,27}$                               <0-33554429>    empty
 *   name      the type's expression, then [0-9]{0,27}$    <0-33554429>    empty
 */
MCAST_API uint64_t MCAST_MuaIfTypeHelp(const char *text, CLI_HELP_LIST_S *list);
MCAST_API uint64_t MCAST_MuaIfNumHelp(const char *text, CLI_HELP_LIST_S *list);
MCAST_API uint64_t MCAST_MuaIfNameHelp(const char *text, CLI_HELP_LIST_S *list);

MCAST_EXTERN_C_END

#endif
