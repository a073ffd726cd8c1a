#include "daemons/mribd/config.h"

#include <algorithm>
#include <cstring>
#include <net/if.h>

#include "daemons/common/address.h"
#include "daemons/mribd/address.h"
#include "mcast/addr.h"

namespace mribd
{
namespace
{

using mcastd::ConfigString;
using mcastd::ConfigTable;

constexpr int64_t MAX_INDEX = UINT16_MAX;

// A table of one value a family: ssm_acl = { ipv4 = 2001 }.
template <typename Value>
void read_pair(ConfigTable &table, const char *key, int64_t low, int64_t high, std::array<Value, 2> *pair)
{
    ConfigTable values = table.table(key);
    for (const uint8_t family : {uint8_t{MCAST_FAMILY_IPV4}, uint8_t{MCAST_FAMILY_IPV6}}) {
        if (const auto value = values.optional_integer(family_name(family), low, high)) {
            (*pair)[family_row(family)] = static_cast<Value>(*value);
        }
    }
    values.finish();
}

uint32_t read_rp(ConfigTable &table)
{
    const auto rp = table.optional_string("rp");
    if (!rp) {
        return 0;
    }
    const auto address = mcastd::parse_address(*rp);
    if (!address || address->family != MCAST_FAMILY_IPV4 || !is_routable_source(*address)) {
        table.fail("rp", "rp is " + host::quoted(*rp) + "; allowed: an IPv4 unicast address");
    }
    uint32_t rp_be;
    std::memcpy(&rp_be, address->address, sizeof(rp_be));
    return rp_be;
}

void read_instance(ConfigTable &table, Config *config)
{
    const auto vrf_index = static_cast<uint16_t>(table.optional_integer("vrf", 0, MAX_INDEX).value_or(0));
    InstanceConfig instance;
    instance.enabled = table.optional_boolean("enabled").value_or(true);
    read_pair(table, "ssm_acl", 2000, 2999, &instance.ssm_acl);
    instance.rp_be = read_rp(table);
    if (instance.rp_be != 0 && vrf_index != PUBLIC_INSTANCE) {
        table.fail("rp", "rp is for the public instance alone, where sources are seen; allowed: none");
    }
    table.finish();
    if (!config->instances.emplace(vrf_index, instance).second) {
        table.fail("vrf", "instance " + std::to_string(vrf_index) +
                              " is configured twice; allowed: each instance once");
    }
}

std::vector<Prefix> read_boundaries(ConfigTable &table)
{
    std::vector<Prefix> boundaries;
    for (const ConfigString &text : table.strings("boundaries")) {
        const auto prefix = Prefix::parse(text.text);
        if (!prefix || !prefix->is_routable_range()) {
            table.fail_at(text.at, "boundary is " + host::quoted(text.text) +
                                       "; allowed: a prefix of multicast groups that may be routed, such as "
                                       "239.255.0.0/16 or ff15::/16");
        }
        boundaries.push_back(*prefix);
    }
    return boundaries;
}

void read_interface(ConfigTable &table, Config *config)
{
    InterfaceConfig interface;
    interface.name = table.string("name");
    if (interface.name.empty() || interface.name.size() >= IFNAMSIZ) {
        table.fail("name", "name is " + host::quoted(interface.name) + "; allowed: 1 to 15 bytes");
    }
    if (const auto vrf = table.optional_integer("vrf", 0, MAX_INDEX)) {
        interface.vrf_index = static_cast<uint16_t>(*vrf);
    }
    const uint16_t vrf_index = interface.vrf_index.value_or(PUBLIC_INSTANCE);
    if (vrf_index != PUBLIC_INSTANCE && !config->instances.contains(vrf_index)) {
        table.fail("vrf", "instance " + std::to_string(vrf_index) +
                              " is not configured; allowed: 0 and the instances of [[mribd.instance]]");
    }
    interface.designated = table.optional_boolean("dr");
    interface.boundaries = read_boundaries(table);
    interface.scope_boundary =
        static_cast<uint8_t>(table.optional_integer("scope_boundary", 3, 15).value_or(0));
    table.finish();
    if (std::any_of(config->interfaces.begin(), config->interfaces.end(),
                    [&](const InterfaceConfig &other) { return other.name == interface.name; })) {
        table.fail("name", "interface " + host::quoted(interface.name) +
                               " is configured twice; allowed: each interface once");
    }
    config->interfaces.push_back(std::move(interface));
}

} // namespace

Config read_config(ConfigTable &table)
{
    Config config;
    read_pair(table, "flow_control", 0, UINT16_MAX, &config.busy);
    for (ConfigTable &instance : table.tables("instance")) {
        read_instance(instance, &config);
    }
    size_t boundaries = 0;
    for (ConfigTable &interface : table.tables("interface")) {
        read_interface(interface, &config);
        boundaries += config.interfaces.back().boundaries.size();
        if (boundaries > BOUNDARY_LIMIT) {
            interface.fail("boundaries", "the file has too many boundaries; allowed: " +
                                             std::to_string(BOUNDARY_LIMIT) + " for all interfaces");
        }
    }
    return config;
}

} // namespace mribd
