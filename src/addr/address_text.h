/*
 * The text of an address.
 */
#ifndef SRC_ADDR_ADDRESS_TEXT_H
#define SRC_ADDR_ADDRESS_TEXT_H

#include <stddef.h>

#include "mcast/common.h"

namespace mcast
{

/* Room for the text of any address, terminator included. */
inline constexpr size_t kAddressTextSize = 46;

/*
 * Writes the text that inet_ntop gives for the record, "unknown address" for a family that is neither, to out
 * (kAddressTextSize bytes). The length.
 */
size_t WriteAddress(char *out, const MCAST_ADDR_S *addr);

} // namespace mcast

#endif
