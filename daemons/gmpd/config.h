/*
 * What the operator sets, in the units of the protocol. Versions are numbered as IGMP's; see message.h.
 */
#ifndef DAEMONS_GMPD_CONFIG_H
#define DAEMONS_GMPD_CONFIG_H

#include <cstdint>
#include <string>
#include <vector>

#include "mcast/common.h"

namespace gmpd
{

// The greatest query interval, in seconds: more does not fit into a query.
constexpr uint32_t MOST_QUERY_INTERVAL_S = 31744;

struct Config {
    uint8_t family = MCAST_FAMILY_IPV4;
    uint8_t version = 3; // the version spoken as querier and the newest one understood
    uint32_t robustness = 2;
    uint32_t query_interval_s = 125;
    uint32_t response_s = 10;   // how long hosts may wait before they answer a general query
    uint32_t last_member_s = 1; // the same for group-specific queries, and the time between these
    bool immediate_leave = false;
    uint32_t max_groups = 65536;                   // on one interface
    uint32_t max_sources = 1024;                   // of one group
    uint32_t group_list = MCAST_NONE;              // access list of the groups that hosts may join
    bool start_mribd = false;                      // have the MRIB process started when it is not there
    std::vector<std::string> interfaces;           // names; empty: every suitable one
    bool standby = false;                          // wait beside the active daemon of the family
    bool user_auth = false;                        // reports count for announced users alone
    std::vector<std::string> user_auth_interfaces; // where; empty: on every one
};

} // namespace gmpd

#endif
