/*
 * Address records from text and back. The bytes of an address stand in the record in network order, IPv4 in
 * the first four of sixteen with twelve zeros behind them, whatever the machine's order; its family is in
 * host order. Nothing is kept, and any thread may call.
 */
#ifndef MCASTHOST_ADDRESS_H
#define MCASTHOST_ADDRESS_H

#include <stddef.h>
#include <stdint.h>

#include "mcast/common.h"
#include "mcasthost/loop.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A size that holds the text of every address, terminator included. */
#define HOST_ADDRESS_TEXT_SIZE 46

/*
 * Fills *address with the record of an address: a dotted quad of four decimal numbers, or an IPv6 address
 * without a zone. 0; or HOST_FAILED with *address untouched when text is neither or either pointer is NULL.
 */
HOST_API uint32_t HOST_AddressFromText(const char *text, MCAST_ADDR_S *address);

/*
 * The same for a range of addresses, "239.1.0.0/16": *length is the number behind the slash in bits, up to 32
 * or 128; without a slash it is 32 or 128. Bits of the address beyond it stay as they are written.
 * HOST_FAILED leaves both untouched.
 */
HOST_API uint32_t HOST_PrefixFromText(const char *text, MCAST_ADDR_S *address, uint32_t *length);

/*
 * Writes the address to text (HOST_ADDRESS_TEXT_SIZE bytes) and returns text; for a record of another family
 * than MCAST_FAMILY_IPV4 and MCAST_FAMILY_IPV6 it writes "unknown address". No pointer is NULL.
 */
HOST_API const char *HOST_AddressToText(const MCAST_ADDR_S *address, char *text);

#ifdef __cplusplus
}
#endif

#endif
