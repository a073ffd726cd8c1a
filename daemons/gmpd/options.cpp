#include <CLI/CLI.hpp>
#include <string>

#include "daemons/common/log.h"
#include "daemons/gmpd/daemon.h"

namespace gmpd
{
namespace
{

// The greatest response time that an IGMP query can carry, in seconds.
constexpr uint32_t MOST_RESPONSE_S = 3174;
constexpr uint8_t VERSION_UNSET = 0;
// Basic lists are about single addresses.
constexpr uint32_t FIRST_BASIC_LIST = 2000;
constexpr uint32_t LAST_BASIC_LIST = 2999;

// Names as given with --user-auth, an empty one where none was.
void require_users(const std::vector<std::string> &names, Config &config)
{
    config.user_auth = true;
    config.user_auth_interfaces = names;
    for (const std::string &name : names) {
        if (name.empty()) {
            config.user_auth_interfaces.clear();
        }
    }
}

void add_what_is_served(CLI::App &app, Config &config)
{
    app.add_option(
           "--interface", config.interfaces,
           "Interface to serve; may be given more than once. Without it: every one that is up, can do "
           "multicast and is neither a loopback nor part of a bridge or bond")
        ->allow_extra_args(false);
    app.add_option(
           "--protocol-version", config.version,
           "Version to speak as querier and newest version to understand: IGMP 1 to 3, MLD 1 to 2; the "
           "default is the newest")
        ->check(CLI::Range(1, 3));
    app.add_option_function<std::vector<std::string>>(
           "--user-auth", [&config](const std::vector<std::string> &names) { require_users(names, config); },
           "Let reports count for announced users alone: on this interface, which may be given more than "
           "once; without a name on every one")
        ->expected(0, 1)
        ->take_all();
}

void add_protocol_values(CLI::App &app, Config &config)
{
    app.add_option("--query-interval", config.query_interval_s, "Seconds between general queries")
        ->check(CLI::Range(1u, MOST_QUERY_INTERVAL_S))
        ->capture_default_str();
    app.add_option("--query-response-interval", config.response_s,
                   "Seconds that hosts may take to answer; less than the query interval")
        ->check(CLI::Range(1u, MOST_RESPONSE_S))
        ->capture_default_str();
    app.add_option("--last-member-interval", config.last_member_s,
                   "Seconds between the queries that follow a leave, and to answer them")
        ->check(CLI::Range(1u, 25u))
        ->capture_default_str();
    app.add_option("--robustness", config.robustness, "How many packets in a row may be lost, plus one")
        ->check(CLI::Range(1u, 7u))
        ->capture_default_str();
    app.add_option("--querier-robustness-max", config.most_querier_robustness,
                   "Greatest robustness to take over from another querier")
        ->check(CLI::Range(1u, 7u))
        ->capture_default_str();
    app.add_option("--querier-response-max", config.most_querier_response_s,
                   "Greatest response interval to take over from another querier, in seconds")
        ->check(CLI::Range(1u, MOST_RESPONSE_S))
        ->capture_default_str();
    app.add_option("--querier-silence-max", config.most_querier_silence_s,
                   "Most seconds of silence after which another querier counts as gone; the values of this "
                   "router when those take longer")
        ->check(CLI::Range(10u, 65535u))
        ->capture_default_str();
    app.add_option("--group-query-rate", config.group_queries_per_s,
                   "Most queries about groups and sources a second on one interface; the others wait")
        ->check(CLI::Range(1u, 100000u))
        ->capture_default_str();
    app.add_flag("--immediate-leave", config.immediate_leave,
                 "End a membership with its first leave, without asking for others: for links with one host");
}

void add_surroundings(mcastd::Options &options, Config &config)
{
    CLI::App &app = options.app();
    options.add_config(
        "Configuration file, for the access lists and VPN instances in it; read again on SIGHUP",
        mcastd::Options::Config::Optional);
    app.add_option("--group-list", config.group_list,
                   "Number of a basic access list of --config: hosts may join the groups that it permits")
        ->check(CLI::Range(FIRST_BASIC_LIST, LAST_BASIC_LIST));
    app.add_flag("--start-mribd", config.start_mribd,
                 "Start mribd first when it does not run, as service 1 of the configuration file says");
    app.add_flag(
        "--standby", config.standby,
        "Wait beside the active gmpd of the family and take over when it ends; the active one at once "
        "when there is none");
}

void add_limits(CLI::App &app, Config &config)
{
    app.add_option("--max-groups", config.max_groups, "Most groups on one interface")
        ->check(CLI::Range(1u, 16777216u))
        ->capture_default_str();
    app.add_option("--max-sources", config.max_sources, "Most sources of one group")
        ->check(CLI::Range(1u, 1048576u))
        ->capture_default_str();
    app.add_option("--max-entries", config.max_entries,
                   "Most groups and sources of groups, of all interfaces")
        ->check(CLI::Range(2u, 67108864u))
        ->capture_default_str();
    app.add_option("--max-interface-entries", config.max_interface_entries, "Likewise, of one interface")
        ->check(CLI::Range(2u, 67108864u))
        ->capture_default_str();
    app.add_option("--max-host-entries", config.max_host_entries,
                   "Likewise, that one host made on an interface, or one user")
        ->check(CLI::Range(2u, 67108864u))
        ->capture_default_str();
    app.add_option("--max-memory", config.max_memory_mib, "Most memory of groups and sources, in MiB")
        ->check(CLI::Range(1u, 1048576u))
        ->capture_default_str();
    app.add_option("--max-agents", config.max_agents, "Most authentication agents connected at a time")
        ->check(CLI::Range(1u, 65536u))
        ->capture_default_str();
    app.add_option("--max-users", config.max_users, "Most users at a time")
        ->check(CLI::Range(1u, 1048576u))
        ->capture_default_str();
}

} // namespace

void add_options(mcastd::Options &options, Config &config)
{
    CLI::App &app = options.app();
    config.version = VERSION_UNSET;
    options.add_family("Family to serve: ipv4 (IGMP, the default) or ipv6 (MLD)");
    add_what_is_served(app, config);
    add_protocol_values(app, config);
    add_surroundings(options, config);
    add_limits(app, config);
}

bool finish_config(const mcastd::Options &options, Config &config)
{
    config.family = options.family();
    const bool ipv4 = config.family == MCAST_FAMILY_IPV4;
    if (config.version == VERSION_UNSET) {
        config.version = 3;
    } else if (!ipv4) {
        if (config.version > 2) {
            mcastd::log_error("--protocol-version %u: MLD has the versions 1 and 2", config.version);
            return false;
        }
        ++config.version;
    }
    if (config.start_mribd && options.config_file().empty()) {
        mcastd::log_error("--start-mribd: needs a configuration file (--config) with a [[service]] of id 1");
        return false;
    }
    if (config.group_list != MCAST_NONE && options.config_file().empty()) {
        mcastd::log_error("--group-list %u: needs the configuration file with the list (--config)",
                          config.group_list);
        return false;
    }
    if (config.response_s >= config.query_interval_s) {
        mcastd::log_error("--query-response-interval %u: must be less than the query interval of %u seconds",
                          config.response_s, config.query_interval_s);
        return false;
    }
    return true;
}

} // namespace gmpd
