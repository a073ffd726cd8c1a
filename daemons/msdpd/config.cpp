#include "daemons/msdpd/config.h"

#include <optional>

namespace msdpd
{
namespace
{

using mcastd::ConfigString;
using mcastd::ConfigTable;
using mcastd::Prefix;

constexpr int64_t FIRST_ACL = 2000;
constexpr int64_t LAST_ACL = 3999;
constexpr int64_t MOST_SECONDS = 65535;
constexpr int64_t MOST_ENTRIES = 16777216;
constexpr size_t MOST_NAME_BYTES = 63;

Ipv4 address_of(ConfigTable &table, const char *key, const std::string &text)
{
    const std::optional<Ipv4> address = parse_ipv4(text);
    if (!address || !is_routable(*address)) {
        table.fail(key,
                   std::string(key) + " is " + host::quoted(text) + "; allowed: an IPv4 unicast address");
    }
    return *address;
}

uint32_t read_acl(ConfigTable &table, const char *key)
{
    const auto number = table.optional_integer(key, FIRST_ACL, LAST_ACL);
    return number ? static_cast<uint32_t>(*number) : MCAST_NONE;
}

void read_seconds(ConfigTable &table, const char *key, uint32_t lowest, uint32_t *seconds)
{
    if (const auto value = table.optional_integer(key, lowest, MOST_SECONDS)) {
        *seconds = static_cast<uint32_t>(*value);
    }
}

std::string read_name(ConfigTable &table, const char *key)
{
    std::string name = table.optional_string(key).value_or("");
    if (name.size() > MOST_NAME_BYTES) {
        table.fail(key, std::string(key) + " is too long; allowed: at most " +
                            std::to_string(MOST_NAME_BYTES) + " bytes");
    }
    return name;
}

// A range of originators; an address alone is a range of one.
std::optional<Prefix> parse_originators(const std::string &text)
{
    const auto prefix = Prefix::parse(text.find('/') == std::string::npos ? text + "/32" : text);
    return prefix && prefix->address.family == MCAST_FAMILY_IPV4 ? prefix : std::nullopt;
}

std::vector<Prefix> read_rpf(ConfigTable &table)
{
    std::vector<Prefix> prefixes;

    for (const ConfigString &text : table.strings("rpf")) {
        const std::optional<Prefix> prefix = parse_originators(text.text);

        if (!prefix) {
            table.fail_at(text.at, "rpf is " + host::quoted(text.text) +
                                       "; allowed: IPv4 prefixes of originators, such as 10.0.0.0/8");
        }
        prefixes.push_back(*prefix);
    }
    return prefixes;
}

void read_peer(ConfigTable &table, Config *config)
{
    PeerConfig peer;
    peer.address = address_of(table, "address", table.string("address"));
    peer.local_address = address_of(table, "local_address", table.string("local_address"));
    if (peer.address == peer.local_address) {
        table.fail("local_address", "local_address is the peer's own; allowed: an address of this router");
    }
    peer.description = read_name(table, "description");
    peer.enabled = table.optional_boolean("enabled").value_or(true);
    peer.mesh_group = read_name(table, "mesh_group");
    peer.sa_limit =
        static_cast<uint32_t>(table.optional_integer("sa_limit", 0, MOST_ENTRIES).value_or(peer.sa_limit));
    peer.filter_in = read_acl(table, "filter_in");
    peer.filter_out = read_acl(table, "filter_out");
    peer.rpf = read_rpf(table);
    peer.default_peer = table.optional_boolean("default_peer").value_or(false);
    peer.sa_request = table.optional_boolean("sa_request").value_or(false);
    peer.position = static_cast<uint32_t>(config->peers.size());
    table.finish();
    if (!config->peers.emplace(peer.address, peer).second) {
        table.fail("address",
                   "peer " + to_text(peer.address) + " is configured twice; allowed: each peer once");
    }
}

void read_timers(ConfigTable &table, Config *config)
{
    read_seconds(table, "keepalive", 1, &config->keepalive_s);
    read_seconds(table, "hold_time", 3, &config->hold_s);
    read_seconds(table, "connect_retry", 1, &config->connect_retry_s);
    read_seconds(table, "sa_interval", 1, &config->advertisement_s);
    read_seconds(table, "sa_hold_down", 0, &config->hold_down_s);
    read_seconds(table, "sa_state_time", 3, &config->state_s);
    if (config->keepalive_s >= config->hold_s) {
        table.fail("keepalive", "keepalive is " + std::to_string(config->keepalive_s) +
                                    "; allowed: less than the hold_time of " +
                                    std::to_string(config->hold_s));
    }
    const uint32_t least = config->advertisement_s + config->hold_down_s;

    if (config->state_s < least) {
        table.fail("sa_state_time", "sa_state_time is " + std::to_string(config->state_s) +
                                        "; allowed: at least " + std::to_string(least) +
                                        ", sa_interval and sa_hold_down together");
    }
}

} // namespace

Config read_config(ConfigTable &table)
{
    Config config;
    if (const auto originator = table.optional_string("originator")) {
        config.originator = address_of(table, "originator", *originator);
    }
    config.originate_filter = read_acl(table, "originate_filter");
    read_timers(table, &config);
    for (ConfigTable &peer : table.tables("peer")) {
        read_peer(peer, &config);
    }
    return config;
}

} // namespace msdpd
