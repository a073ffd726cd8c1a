/*
 * The daemons that mcastctl can ask.
 */
#ifndef DAEMONS_MCASTCTL_DAEMON_LIST_H
#define DAEMONS_MCASTCTL_DAEMON_LIST_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "mcast/service.h"

namespace mcastctl
{

struct DaemonInfo {
    const char *name;
    uint16_t family; // that it serves; 0: both
    MCAST_APP_ENDPOINT_S endpoint;
};

// By name, then IPv4 before IPv6.
std::span<const DaemonInfo> daemon_list();

// Those of the name, all with NULL; with a family (not 0), without those that serve only the other one.
std::vector<const DaemonInfo *> daemons_named(const char *name, uint16_t family);

// "gmpd (IPv4)", "mribd".
std::string daemon_title(const DaemonInfo &daemon);

} // namespace mcastctl

#endif
