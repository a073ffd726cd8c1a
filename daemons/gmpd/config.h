/*
 * What the operator sets, in the units of the protocol. Versions are numbered as IGMP's; see message.h.
 */
#ifndef DAEMONS_GMPD_CONFIG_H
#define DAEMONS_GMPD_CONFIG_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "daemons/common/config_file.h"
#include "daemons/gmpd/address.h"
#include "mcast/common.h"

namespace gmpd
{

// The greatest query interval, in seconds: more does not fit into a query.
constexpr uint32_t MOST_QUERY_INTERVAL_S = 31744;

// Who may be the querier of an interface, by its name; on others everybody may.
using PermittedQueriers = std::map<std::string, std::vector<Address>>;

struct Config {
    uint8_t family = MCAST_FAMILY_IPV4;
    uint8_t version = 3; // the version spoken as querier and the newest one understood
    uint32_t robustness = 2;
    uint32_t query_interval_s = 125;
    uint32_t response_s = 10;   // how long hosts may wait before they answer a general query
    uint32_t last_member_s = 1; // the same for group-specific queries, and the time between these
    bool immediate_leave = false;
    // What is taken over from another querier is capped: robustness, response time, and through the interval the
    // silence after which that querier counts as gone.
    uint32_t most_querier_robustness = 7;
    uint32_t most_querier_response_s = 25;
    uint32_t most_querier_silence_s = 255;   // or by this router's own values, when those are more
    uint32_t group_queries_per_s = 100;      // queries about groups and sources, on one interface
    uint32_t max_groups = 65536;             // on one interface
    uint32_t max_sources = 1024;             // of one group
    uint32_t max_entries = 262144;           // groups and sources, on all interfaces
    uint32_t max_interface_entries = 131072; // on one interface
    uint32_t max_host_entries = 65536;       // that one host, or user, made on an interface
    uint32_t max_memory_mib = 256;           // for all entries
    uint32_t max_users = 65536;
    uint32_t max_agents = 64;                      // connected at a time
    uint32_t group_list = MCAST_NONE;              // access list of the groups that hosts may join
    bool start_mribd = false;                      // have the MRIB process started when it is not there
    std::vector<std::string> interfaces;           // names; empty: every suitable one
    PermittedQueriers queriers;                    // from the file
    bool standby = false;                          // wait beside the active daemon of the family
    bool user_auth = false;                        // reports count for announced users alone
    std::vector<std::string> user_auth_interfaces; // where; empty: on every one
};

// Reads the table [gmpd] of the configuration file. Throws ConfigError when it is wrong.
PermittedQueriers read_config_table(mcastd::ConfigTable &table);

} // namespace gmpd

#endif
