// The configuration that is in force.
#ifndef HOST_SRC_CONFIG_STORE_H
#define HOST_SRC_CONFIG_STORE_H

#include "acl_table.h"
#include "mcasthost/config.h"
#include "node_table.h"
#include "service_table.h"
#include "vpn_table.h"

namespace host
{

struct Config {
    VpnTable vpns;
    AclTable acls;
    NodeTable nodes;
    ServiceTable services;
};

// The configuration in force, nullptr before the first load. It stays as it is until the calling thread asks
// again, whatever is loaded meanwhile.
const Config *current_config();

} // namespace host

#endif
