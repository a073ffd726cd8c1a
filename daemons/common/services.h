/*
 * The numbers by which the programs of the router know each other on a node: the identifier under which the
 * platform's service manager starts a daemon, and the local port on which the daemon answers control
 * requests. A configuration file names the services by the same numbers.
 */
#ifndef DAEMONS_COMMON_SERVICES_H
#define DAEMONS_COMMON_SERVICES_H

#include <cstdint>

namespace mcastd
{

constexpr uint64_t SERVICE_MRIBD = 1;
constexpr uint64_t SERVICE_GMPD_IPV4 = 2;
constexpr uint64_t SERVICE_GMPD_IPV6 = 3;
constexpr uint64_t SERVICE_MSDPD = 4;

constexpr uint16_t CONTROL_PORT_MRIBD = 2201;
constexpr uint16_t CONTROL_PORT_GMPD_IPV4 = 2202;
constexpr uint16_t CONTROL_PORT_GMPD_IPV6 = 2203;
constexpr uint16_t CONTROL_PORT_MSDPD = 2204;

// Where standbys of a gmpd hear what the active one knows.
constexpr uint16_t BACKUP_PORT_GMPD_IPV4 = 2205;
constexpr uint16_t BACKUP_PORT_GMPD_IPV6 = 2206;

} // namespace mcastd

#endif
