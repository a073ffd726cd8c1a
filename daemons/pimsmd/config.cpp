#include "daemons/pimsmd/config.h"

#include <net/if.h>

namespace pimsmd
{
namespace
{

using mcastd::ConfigString;
using mcastd::ConfigTable;

constexpr int64_t FIRST_ACL = 2000;
constexpr int64_t LAST_ACL = 3999;
// Three and a half of it fit into the 16 bits of a holdtime, and are not the one that never ends.
constexpr int64_t MOST_PERIOD_S = 18000;
constexpr int64_t MOST_SECONDS = 65534;
constexpr int64_t MOST_PRIORITY = 0xffffffff;
constexpr int64_t MOST_DELAY_MS = 32767;
constexpr int64_t MOST_ENTRIES = 16777216;
constexpr size_t MOST_CANDIDATE_RANGES = 255;

template <typename Number>
void read_number(ConfigTable &table, const char *key, int64_t low, int64_t high, Number *number)
{
    if (const auto value = table.optional_integer(key, low, high)) {
        *number = static_cast<Number>(*value);
    }
}

void read_acl(ConfigTable &table, const char *key, uint32_t *list)
{
    read_number(table, key, FIRST_ACL, LAST_ACL, list);
}

Address read_router(ConfigTable &table, const char *key)
{
    const std::string text = table.string(key);
    const auto address = mcastd::parse_address(text);
    if (!address || !is_unicast(*address)) {
        table.fail(key, std::string(key) + " is " + host::quoted(text) +
                            "; allowed: a unicast address of a router");
    }
    return *address;
}

// The ranges of the key, each of the family; all groups of the family without it.
std::vector<Prefix> read_ranges(ConfigTable &table, const char *key, uint16_t family)
{
    std::vector<Prefix> ranges;
    for (const ConfigString &text : table.strings(key)) {
        const auto range = Prefix::parse(text.text);

        if (!range || range->address.family != family || !range->is_routable_range()) {
            table.fail_at(text.at, std::string(key) + " has " + host::quoted(text.text) +
                                       "; allowed: ranges of groups of the address's family, such as " +
                                       (family == MCAST_FAMILY_IPV4 ? "239.0.0.0/8" : "ff08::/16"));
        }
        ranges.push_back(*range);
    }
    if (!table.has(key)) {
        ranges.push_back(whole_range(family));
    }
    return ranges;
}

void read_rps(ConfigTable &table, uint16_t family, Config *config)
{
    for (ConfigTable &rp : table.tables("rp")) {
        const Address address = read_router(rp, "address");
        const std::vector<Prefix> ranges = read_ranges(rp, "groups", address.family);

        rp.finish();
        if (address.family != family) {
            continue;
        }
        for (const Prefix &range : ranges) {
            config->rps.push_back({range, address});
        }
        if (config->rps.size() > MOST_STATIC_RPS) {
            rp.fail("groups", "too many RPs; allowed: " + std::to_string(MOST_STATIC_RPS) +
                                  ", each counted once for every range");
        }
    }
}

void read_candidate_bsr(ConfigTable &table, uint16_t family, Config *config)
{
    for (ConfigTable &one : table.tables("candidate_bsr")) {
        const Address address = read_router(one, "address");
        uint8_t priority = 64;
        uint8_t mask_length = address.family == MCAST_FAMILY_IPV4 ? 30 : 126;

        read_number(one, "priority", 0, 255, &priority);
        read_number(one, "hash_mask_length", 0, address_bits(address.family), &mask_length);
        one.finish();
        if (address.family != family) {
            continue;
        }
        if (config->bsr.candidate) {
            one.fail("address", "this router is a candidate BSR already; allowed: once for each family");
        }
        config->bsr.candidate = bsr::Weight{priority, address};
        config->bsr.hash_mask_length = mask_length;
    }
}

void read_candidate_rp(ConfigTable &table, uint16_t family, Config *config)
{
    for (ConfigTable &one : table.tables("candidate_rp")) {
        const Address address = read_router(one, "address");
        uint8_t priority = 192;
        uint16_t holdtime_s = 150;
        const std::vector<Prefix> ranges = read_ranges(one, "groups", address.family);

        read_number(one, "priority", 0, 255, &priority);
        read_number(one, "holdtime", 1, MOST_SECONDS, &holdtime_s);
        one.finish();
        if (ranges.size() > MOST_CANDIDATE_RANGES) {
            one.fail("groups", "too many ranges; allowed: " + std::to_string(MOST_CANDIDATE_RANGES));
        }
        if (address.family != family) {
            continue;
        }
        if (config->bsr.rp) {
            one.fail("address", "this router is a candidate RP already; allowed: once for each family");
        }
        config->bsr.rp = address;
        config->bsr.rp_priority = priority;
        config->bsr.rp_holdtime_s = holdtime_s;
        for (const Prefix &range : ranges) {
            config->bsr.rp_ranges.push_back({range, false, false});
        }
    }
}

void read_interfaces(ConfigTable &table, Config *config)
{
    for (ConfigTable &one : table.tables("interface")) {
        const std::string name = one.string("name");
        InterfaceConfig interface;

        if (name.empty() || name.size() >= IF_NAMESIZE || config->interfaces.contains(name)) {
            one.fail("name", "name is " + host::quoted(name) + "; allowed: an interface's name, each once");
        }
        if (const auto priority = one.optional_integer("dr_priority", 0, MOST_PRIORITY)) {
            interface.dr_priority = static_cast<uint32_t>(*priority);
        }
        if (const auto hello = one.optional_integer("hello_interval", 1, MOST_PERIOD_S)) {
            interface.hello_s = static_cast<uint32_t>(*hello);
        }
        one.finish();
        config->interfaces.emplace(name, interface);
    }
}

void read_times(ConfigTable &table, Config *config)
{
    TreeSettings &trees = config->trees;
    uint32_t bootstrap_s = config->bsr.period_ms / 1000;
    read_number(table, "hello_interval", 1, MOST_PERIOD_S, &config->hello_s);
    read_number(table, "join_prune_interval", 1, MOST_PERIOD_S, &trees.join_period_s);
    read_number(table, "keepalive", 1, MOST_SECONDS, &trees.keepalive_s);
    read_number(table, "register_suppression", 1, MOST_SECONDS, &trees.register_suppression_s);
    read_number(table, "register_probe", 1, MOST_SECONDS, &trees.register_probe_s);
    read_number(table, "propagation_delay_ms", 0, MOST_DELAY_MS, &config->propagation_ms);
    read_number(table, "override_interval_ms", 0, MOST_SECONDS, &config->override_ms);
    read_number(table, "bootstrap_interval", 1, MOST_SECONDS, &bootstrap_s);
    config->bsr.period_ms = bootstrap_s * 1000;
    config->bsr.timeout_ms = 2 * config->bsr.period_ms + 10000;
    // A null Register is half the suppression time at the earliest after a Stop, the probe before that.
    if (2 * trees.register_probe_s > trees.register_suppression_s) {
        table.fail("register_probe", "register_probe is " + std::to_string(trees.register_probe_s) +
                                         "; allowed: at most half the register_suppression of " +
                                         std::to_string(trees.register_suppression_s));
    }
}

void read_limits(ConfigTable &table, Config *config)
{
    TreeSettings &trees = config->trees;
    read_number(table, "max_neighbors", 1, MOST_ENTRIES, &config->most_neighbours);
    read_number(table, "max_entries", 1, MOST_ENTRIES, &trees.most_entries);
    read_number(table, "max_neighbor_joins", 1, MOST_ENTRIES, &trees.most_of_neighbour);
    read_number(table, "max_registered", 1, MOST_ENTRIES, &trees.most_registered);
    read_number(table, "register_rate", 1, MOST_ENTRIES, &trees.registers_per_s);
}

} // namespace

Config read_config(ConfigTable &table, uint16_t family)
{
    Config config;
    read_number(table, "dr_priority", 0, MOST_PRIORITY, &config.dr_priority);
    read_times(table, &config);
    read_limits(table, &config);
    if (table.has("spt_switch")) {
        config.spt_switch =
            table.choice("spt_switch", {"immediate", "never"}) == 0 ? SptSwitch::Immediate : SptSwitch::Never;
    }
    read_acl(table, "spt_list", &config.spt_list);
    read_acl(table, "ssm_list", &config.ssm_list);
    read_interfaces(table, &config);
    read_rps(table, family, &config);
    read_candidate_bsr(table, family, &config);
    read_candidate_rp(table, family, &config);
    return config;
}

} // namespace pimsmd
