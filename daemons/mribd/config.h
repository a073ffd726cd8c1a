/*
 * mribd's table of the configuration file: what its clients are to be told. docs/mribd.md lists the keys.
 */
#ifndef DAEMONS_MRIBD_CONFIG_H
#define DAEMONS_MRIBD_CONFIG_H

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "daemons/common/config_file.h"
#include "daemons/common/services.h"
#include "daemons/mribd/address.h"

namespace mribd
{

using mcastd::PUBLIC_INSTANCE;

// Where the family stands in the pairs below.
constexpr size_t family_row(uint8_t family)
{
    return family == MCAST_FAMILY_IPV4 ? 0 : 1;
}

struct InstanceConfig {
    bool enabled = true;
    std::array<uint32_t, 2> ssm_acl{MCAST_NONE, MCAST_NONE}; // ACL numbers by family_row
    uint32_t rp_be = 0;                                      // 0: the router serves no rendezvous point
};

struct InterfaceConfig {
    std::string name;
    std::optional<uint16_t> vrf_index; // in place of the instance that the interface is in
    std::optional<bool> designated;    // in place of what the querier election says
    std::vector<Prefix> boundaries;    // both families
    uint8_t scope_boundary = 0;        // IPv6, 3 to 15; 0: none
};

struct Config {
    std::array<uint16_t, 2> busy{}; // flow control value by family_row
    std::map<uint16_t, InstanceConfig> instances;
    std::vector<InterfaceConfig> interfaces; // each name once
};

// Boundaries of all interfaces together: what a client's queue takes in one answer.
constexpr size_t BOUNDARY_LIMIT = 16384;

// Reads the table [mribd]. Throws what the table throws for values that are wrong.
Config read_config(mcastd::ConfigTable &table);

} // namespace mribd

#endif
