/*
 * Links and addresses read from route netlink messages.
 */
#ifndef HOST_SRC_LINK_MESSAGE_H
#define HOST_SRC_LINK_MESSAGE_H

#include <linux/netlink.h>

#include "mcasthost/link.h"

namespace host
{

/*
 * Reads a RTM_NEWLINK or RTM_DELLINK message. False for malformed messages and for those that are not about
 * the link itself (a bridge port, a protocol's view of it).
 */
bool read_link(const nlmsghdr *message, HOST_LINK_S *link);

// Reads a RTM_NEWADDR or RTM_DELADDR message. False for malformed messages and for other families.
bool read_address(const nlmsghdr *message, HOST_ADDRESS_S *address);

} // namespace host

#endif
