// The access control lists of a configuration.
#ifndef HOST_SRC_ACL_TABLE_H
#define HOST_SRC_ACL_TABLE_H

#include <cstdint>
#include <vector>

#include "acl_pattern.h"
#include "host/config/config_reader.h"
#include "vpn_table.h"

namespace host
{

struct AclRule {
    static constexpr uint32_t EVERY_VRF = UINT32_MAX;

    AclPattern first;
    AclPattern second; // any in a basic list
    uint32_t slots;    // ACL_SLOT_ bits of the addresses that it compares
    uint32_t vrf;      // the instance that it is for, or EVERY_VRF
    uint32_t action;   // ACL_ACTION_
    uint32_t id;
};

struct Acl {
    uint32_t number;
    uint32_t group_type;
    std::vector<AclRule> rules; // in the order of their ids
};

struct AclTable {
    std::vector<Acl> ipv4; // in the order of their numbers
    std::vector<Acl> ipv6;

    // By the platform's family index; nullptr when there is none.
    const Acl *find(uint32_t family_index, uint32_t number) const;
};

// Reads [[acl]]; rules name instances of vpns. Throws ConfigError.
AclTable read_acls(ConfigTable &root, const VpnTable &vpns);

} // namespace host

#endif
