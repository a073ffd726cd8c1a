/*
 * The daemons of the router and the numbers by which they know each other on a node: the identifier under
 * which the platform's service manager starts a daemon, and the local port on which the daemon answers
 * control requests. A configuration file names the services by the same numbers, and may have a table with
 * the name of each daemon.
 */
#ifndef DAEMONS_COMMON_SERVICES_H
#define DAEMONS_COMMON_SERVICES_H

#include <cstdint>

#include "mcast/mrib_wire.h"

namespace mcastd
{

constexpr uint64_t SERVICE_MRIBD = 1;
constexpr uint64_t SERVICE_GMPD_IPV4 = 2;
constexpr uint64_t SERVICE_GMPD_IPV6 = 3;
constexpr uint64_t SERVICE_MSDPD = 4;
constexpr uint64_t SERVICE_PIMSMD_IPV4 = 5;
constexpr uint64_t SERVICE_PIMSMD_IPV6 = 6;

constexpr uint16_t CONTROL_PORT_MRIBD = 2201;
constexpr uint16_t CONTROL_PORT_GMPD_IPV4 = 2202;
constexpr uint16_t CONTROL_PORT_GMPD_IPV6 = 2203;
constexpr uint16_t CONTROL_PORT_MSDPD = 2204;

// Where standbys of a gmpd hear what the active one knows.
constexpr uint16_t BACKUP_PORT_GMPD_IPV4 = 2205;
constexpr uint16_t BACKUP_PORT_GMPD_IPV6 = 2206;

constexpr uint16_t CONTROL_PORT_PIMSMD_IPV4 = 2207;
constexpr uint16_t CONTROL_PORT_PIMSMD_IPV6 = 2208;

struct RouterDaemon {
    const char *name;
    uint16_t family; // that the process serves; 0: both
    uint64_t service;
    uint16_t control_port;
};

// Every daemon of the router, by name, then IPv4 before IPv6.
inline constexpr RouterDaemon ROUTER_DAEMONS[] = {
    {"gmpd", MCAST_FAMILY_IPV4, SERVICE_GMPD_IPV4, CONTROL_PORT_GMPD_IPV4},
    {"gmpd", MCAST_FAMILY_IPV6, SERVICE_GMPD_IPV6, CONTROL_PORT_GMPD_IPV6},
    {"mribd", 0, SERVICE_MRIBD, CONTROL_PORT_MRIBD},
    {"msdpd", MCAST_FAMILY_IPV4, SERVICE_MSDPD, CONTROL_PORT_MSDPD},
    {"pimsmd", MCAST_FAMILY_IPV4, SERVICE_PIMSMD_IPV4, CONTROL_PORT_PIMSMD_IPV4},
    {"pimsmd", MCAST_FAMILY_IPV6, SERVICE_PIMSMD_IPV6, CONTROL_PORT_PIMSMD_IPV6},
};

// The component that a daemon is to the MRIB process; an IPv6 gmpd or pimsmd has the twin of the IPv4 one.
constexpr uint8_t COMPONENT_MRIBD = MRIB_COMPONENT_MRIB;
constexpr uint8_t COMPONENT_GMPD_IPV4 = MRIB_COMPONENT_GMP_IPV4;
constexpr uint8_t COMPONENT_PIMSMD_IPV4 = 6;
constexpr uint8_t COMPONENT_MSDPD = MRIB_COMPONENT_MSDP;

// The instance that always exists.
constexpr uint16_t PUBLIC_INSTANCE = 0;

} // namespace mcastd

#endif
