/*
 * Rules that lead an interface's multicast packets to a multicast forwarding table of their own: how an
 * instance gets one whose interfaces belong to no VRF device. The table itself is made with a multicast
 * routing socket (MRT_TABLE, MRT6_TABLE).
 */
#ifndef MCASTHOST_MULTICAST_RULE_H
#define MCASTHOST_MULTICAST_RULE_H

#include <stdint.h>

#include "mcasthost/loop.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The priority of these rules, before that of the kernel's own rule, and what other programs' rules must
 * not have: such a rule made by a multicast routing daemon (protocol 17) counts as left by a process that
 * was killed.
 */
#define HOST_MULTICAST_RULE_PRIORITY 2000u

/*
 * In the calling thread's network namespace, has packets of the family (AF_INET or AF_INET6) that arrive on
 * the interface, and those that this machine sends on it, forwarded by the table of that number, above 0.
 * Takes the place of the rules made for the interface before. The kernel keeps the rules by name: they hold
 * for whatever has the name, and outlive the interface and the process. 0; HOST_FAILED with errno set, and
 * then the interface has none. Needs CAP_NET_ADMIN. Linear in the rules; any thread.
 */
HOST_API uint32_t HOST_MulticastRuleSet(uint8_t family, const char *if_name, uint32_t table);

/*
 * Removes the rules that lead the interface, NULL: any interface, to the table, 0: any table, whoever made
 * them. 0, also when there are none; HOST_FAILED with errno set. Otherwise as HOST_MulticastRuleSet.
 */
HOST_API uint32_t HOST_MulticastRuleClear(uint8_t family, const char *if_name, uint32_t table);

#ifdef __cplusplus
}
#endif

#endif
