/*
 * Text as the library prints it: addresses, interfaces, durations and its help texts.
 */
#ifndef DAEMONS_MCASTCTL_TEXT_H
#define DAEMONS_MCASTCTL_TEXT_H

#include <cstdint>
#include <string>

#include "mcast/common.h"

namespace mcastctl
{

// The library's help texts that serve here, by their index.
enum class Help : uint32_t {
    GroupAddress = 1,
    SourceAddress = 5,
    IncomingInterface = 14,
    OutgoingInterface = 15,
    InterfaceName = 16,
    DetailedInformation = 19,
    SpecifyInterface = 21,
    ForwardingTable = 22,
    MulticastModule = 23,
    AllDebugging = 24,
    Acl = 36,
    InterfaceDebugging = 47,
    Statistics = 48,
    SpecifyGroup = 49,
    SpecifySource = 50,
    NotReady = 54, // with %s for the name
};

// The registered text.
const char *help_text(Help help);

// The text that says that a daemon cannot be reached.
std::string not_ready_text(const std::string &daemon);

// The interface's name, or its index in hexadecimal. Asked of the platform once an interface.
const std::string &interface_text(uint32_t if_index);

std::string address_text(const MCAST_ADDR_S &address);

// hh:mm:ss up to a day, then days and hours, then weeks and days.
std::string duration_text(uint64_t seconds);

} // namespace mcastctl

#endif
