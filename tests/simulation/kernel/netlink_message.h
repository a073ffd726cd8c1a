/*
 * Messages of rtnetlink, byte by byte as the kernel writes them: links, addresses, routes, rules, and the ends of
 * answers.
 */
#ifndef TESTS_SIMULATION_KERNEL_NETLINK_MESSAGE_H
#define TESTS_SIMULATION_KERNEL_NETLINK_MESSAGE_H

#include "tests/simulation/kernel/machine.h"

namespace sim
{

// What all parts of an answer have in common; 0 for a notification.
struct NetlinkHead {
    uint32_t sequence = 0;
    uint16_t flags = 0;
};

Bytes link_message(const Interface &interface, const NetlinkHead &head, bool removed);
Bytes address_message(const Interface &interface, const InterfaceAddress &address, const NetlinkHead &head,
                      bool removed);
Bytes route_message(const Address &destination, const Machine::Lookup &route, bool wants_prefix,
                    const NetlinkHead &head);
Bytes route_notification(const Route &route, bool removed);
Bytes rule_message(const MulticastRule &rule, const NetlinkHead &head);
Bytes done_message(const NetlinkHead &head);
// An error is positive; 0 is the acknowledgement.
Bytes error_message(int error, const NetlinkHead &head);

} // namespace sim

#endif
