/*
 * Of several gmpd of a family that are started to stand by for each other one is active, and each other one is ready to
 * take over: it knows everything, the users' indexes too. Rule 3, by what they print for their operator.
 */
#include <algorithm>
#include <cstdlib>

#include "tests/simulation/oracle/oracle.h"
#include "tests/simulation/oracle/router_tables.h"

namespace sim
{
namespace
{

bool says(const std::string &status, const char *what)
{
    return status.find(what) != std::string::npos;
}

// The number behind the name in a status; nothing without it.
std::optional<uint64_t> number_in(const std::string &status, const std::string &name)
{
    const std::string label = "\"" + name + "\": ";
    const size_t at = status.find(label);
    return at == std::string::npos
               ? std::nullopt
               : std::optional<uint64_t>(strtoull(status.c_str() + at + label.size(), nullptr, 10));
}

} // namespace

void Oracle::check_standbys(Machine &machine, int family)
{
    unsigned active = 0;
    uint64_t ready = 0;
    std::optional<uint64_t> counted;
    std::vector<std::pair<std::string, uint64_t>> backed_up;
    for (auto &[name, plan] : world_->daemons()) {
        const auto has = [&arguments = plan.arguments](const char *option) {
            return std::find(arguments.begin(), arguments.end(), option) != arguments.end();
        };
        if (&plan.process->machine() != &machine || plan.daemon != "gmpd" || !plan.wanted ||
            !has("--standby") || has("-6") != (family == AF_INET6)) {
            continue;
        }
        const std::string status = ask_for_status(*plan.process);
        ++counts_.rows;
        if (says(status, "\"role\": \"active\"")) {
            ++active;
            counted = number_in(status, "standbys");
        } else if (says(status, "\"synchronised\": true")) {
            ++ready;
            backed_up.emplace_back(name, number_in(status, "users_backed_up").value_or(0));
        } else {
            broken(Rule::Roles, name + " is neither active nor a standby that could take over");
            return;
        }
    }
    if (active + ready == 0) {
        return;
    }
    if (active != 1 || counted != ready) {
        broken(Rule::Roles, machine.name + ": of the gmpd of " + (family == AF_INET ? "IPv4" : "IPv6") + " " +
                                std::to_string(active) + " are active, with " +
                                std::to_string(counted.value_or(0)) + " of " + std::to_string(ready) +
                                " standbys");
        return;
    }
    const auto users = read_users(machine, family);
    for (const auto &[name, count] : backed_up) {
        if (users && count != users->users.size()) {
            broken(Rule::Roles, name + " knows the indexes of " + std::to_string(count) + " users of " +
                                    std::to_string(users->users.size()));
        }
    }
}

void Oracle::check_standbys()
{
    for (const auto &machine : world_->machines()) {
        check_standbys(*machine, AF_INET);
        check_standbys(*machine, AF_INET6);
    }
}

} // namespace sim
