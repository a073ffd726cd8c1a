/*
 * msdpd's table of the configuration file. docs/msdpd.md lists the keys.
 */
#ifndef DAEMONS_MSDPD_CONFIG_H
#define DAEMONS_MSDPD_CONFIG_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "daemons/common/config_file.h"
#include "daemons/common/prefix.h"
#include "daemons/msdpd/ipv4.h"

namespace msdpd
{

struct PeerConfig {
    Ipv4 address;
    Ipv4 local_address;
    std::string description;
    bool enabled = true;
    std::string mesh_group; // empty: none
    uint32_t sa_limit = 100000;
    uint32_t filter_in = MCAST_NONE;  // ACL of the pairs that are accepted
    uint32_t filter_out = MCAST_NONE; // ACL of the pairs that are sent
    std::vector<mcastd::Prefix> rpf;  // originators for which this is the RPF peer
    bool default_peer = false;
    bool sa_request = false; // whether it is asked for sources
    uint32_t position = 0;   // in the file, from 0

    bool operator==(const PeerConfig &) const = default;
};

struct Config {
    Ipv4 originator;                        // 0: the RP that the MRIB process tells
    uint32_t originate_filter = MCAST_NONE; // ACL of the local sources that are announced
    uint32_t keepalive_s = 60;
    uint32_t hold_s = 75;
    uint32_t connect_retry_s = 30;
    uint32_t advertisement_s = 60; // a local source is announced once in this time
    uint32_t hold_down_s = 30;     // a refreshed entry is not forwarded again in this time
    uint32_t state_s = 150;        // an entry that is not refreshed lives so long
    std::map<Ipv4, PeerConfig> peers;
};

// Reads the table [msdpd]. Throws what the table throws for values that are wrong.
Config read_config(mcastd::ConfigTable &table);

} // namespace msdpd

#endif
