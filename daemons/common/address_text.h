/*
 * Addresses that people write, in files and on command lines.
 */
#ifndef DAEMONS_COMMON_ADDRESS_TEXT_H
#define DAEMONS_COMMON_ADDRESS_TEXT_H

#include <optional>
#include <string>

#include "mcast/common.h"

namespace mcastd
{

// The address that the whole text is, of either family; nothing when it is none.
std::optional<MCAST_ADDR_S> parse_address(const std::string &text);

} // namespace mcastd

#endif
