/*
 * pimsmd's table of the configuration file, as one family sees it. docs/configuration.md lists the keys.
 */
#ifndef DAEMONS_PIMSMD_CONFIG_H
#define DAEMONS_PIMSMD_CONFIG_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "daemons/common/config_file.h"
#include "daemons/pimsmd/bsr.h"
#include "daemons/pimsmd/neighbour.h"
#include "daemons/pimsmd/rp_set.h"
#include "daemons/pimsmd/tree.h"

namespace pimsmd
{

// What an interface has of its own; nothing where the table's value counts.
struct InterfaceConfig {
    std::optional<uint32_t> dr_priority;
    std::optional<uint32_t> hello_s;

    bool operator==(const InterfaceConfig &) const = default;
};

// Whether packets of the shared tree make a router of hosts join the source's own.
enum class SptSwitch : uint8_t { Immediate, Never };

struct Config {
    uint32_t hello_s = 30; // between two Hellos; they hold for three and a half times as long
    uint32_t dr_priority = 1;
    uint16_t propagation_ms = DEFAULT_PROPAGATION_MS;
    uint16_t override_ms = DEFAULT_OVERRIDE_MS;
    uint32_t most_neighbours = MOST_NEIGHBOURS; // of one link

    TreeSettings trees;
    SptSwitch spt_switch = SptSwitch::Immediate;
    uint32_t spt_list =
        MCAST_NONE; // where it is immediate, the access list of what it is for; all without one
    uint32_t ssm_list = MCAST_NONE; // of the source-specific groups; those of the family's range without one

    std::vector<StaticRp> rps;
    BsrSettings bsr;

    std::map<std::string, InterfaceConfig>
        interfaces; // on which PIM runs, by name; empty: every suitable one
};

// The holdtime of Hellos that are sent so often, and of Joins.
constexpr uint16_t hold_of_period(uint32_t period_s)
{
    return static_cast<uint16_t>(period_s * 7 / 2);
}

// Reads the table [pimsmd] for the family; what is of the other is checked and left. Throws what the table throws for
// values that are wrong.
Config read_config(mcastd::ConfigTable &table, uint16_t family);

} // namespace pimsmd

#endif
