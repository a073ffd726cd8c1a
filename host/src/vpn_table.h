// The VPN instances of a configuration.
#ifndef HOST_SRC_VPN_TABLE_H
#define HOST_SRC_VPN_TABLE_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "host/config/config_reader.h"

namespace host
{

struct VpnTable {
    // Without instance 0, which has no name.
    std::map<uint16_t, std::string> names;
    std::map<std::string, uint16_t, std::less<>> indexes;
    // By interface name; the others belong to instance 0.
    std::map<std::string, uint16_t, std::less<>> interfaces;
};

// Reads [[vpn]]. Throws ConfigError.
VpnTable read_vpns(ConfigTable &root);

} // namespace host

#endif
