/*
 * What nothing may exceed: rule 7. Tables and queues have limits; memory and descriptors are those of what the tables
 * hold, and a base that is the daemon's own.
 */
#include <algorithm>

#include "tests/simulation/oracle/oracle.h"
#include "tests/simulation/oracle/router_tables.h"

namespace sim
{
namespace
{

constexpr uint64_t MOST_WAITING_MESSAGES = 64; // for a client of mribd
constexpr size_t MOST_ENTRIES = 262144;        // of gmpd and mribd, each family
constexpr size_t BYTES_AN_ENTRY = 1024; // a group, a source, a membership, a route: with all that hangs on it
constexpr size_t SLACK = 384 << 10;     // what a standby takes more when it becomes active, and buffers
constexpr size_t MOST_BYTES = 24 << 20; // of a daemon with the few hosts of these runs, whatever happens
constexpr size_t DESCRIPTORS = 40;      // of a daemon, and
constexpr size_t DESCRIPTORS_AN_INTERFACE = 2; // of both families

} // namespace

void Oracle::check_bytes(const Process &process, size_t entries)
{
    const size_t bytes = process.account.live_bytes();
    const size_t own = bytes - std::min(bytes, BYTES_AN_ENTRY * entries);
    const auto [base, is_new] = base_bytes_.try_emplace({process.name(), process.lives()}, bytes);
    if (!is_new && own > base->second + SLACK) {
        broken(Rule::Limits, process.name() + " has " + std::to_string(bytes) + " bytes with " +
                                 std::to_string(entries) + " entries, and had " +
                                 std::to_string(base->second) + " at its first rest");
    }
    const size_t most = DESCRIPTORS + DESCRIPTORS_AN_INTERFACE * process.machine().interfaces().size();
    if (process.descriptor_count() > most) {
        broken(Rule::Limits,
               process.name() + " has " + std::to_string(process.descriptor_count()) + " descriptors");
    }
}

void Oracle::check_limits()
{
    for (const auto &machine : world_->machines()) {
        const auto mrib = read_mrib_tables(*machine);
        size_t mrib_entries = mrib ? mrib->routes.size() : 0;
        size_t gmp_entries = 0;
        if (mrib) {
            for (const auto &[key, client] : mrib->clients) {
                if (client.waiting > MOST_WAITING_MESSAGES) {
                    broken(Rule::Limits, machine->name + ": " + std::to_string(client.waiting) +
                                             " messages wait for a client of mribd");
                }
            }
            for (const auto &[key, member] : mrib->members) {
                mrib_entries += 1 + member.joined.size() + member.blocked.size();
            }
        }
        for (const int family : {AF_INET, AF_INET6}) {
            if (const auto gmp = read_gmp_tables(*machine, family)) {
                for (const auto &[key, group] : gmp->groups) {
                    gmp_entries += 1 + group.sources.size();
                }
            }
        }
        if (mrib_entries > 2 * MOST_ENTRIES || gmp_entries > 2 * MOST_ENTRIES) {
            broken(Rule::Limits, machine->name + ": a table is longer than its limit");
        }
        for (const auto &[name, plan] : world_->daemons()) {
            if (&plan.process->machine() == machine.get() && plan.process->is_running()) {
                check_bytes(*plan.process, plan.daemon == "mribd" ? mrib_entries : gmp_entries);
            }
        }
    }
}

// At every packet.
void Oracle::check_most_bytes()
{
    for (const auto &[name, plan] : world_->daemons()) {
        if (plan.process->account.live_bytes() > MOST_BYTES) {
            broken(Rule::Limits,
                   name + " has " + std::to_string(plan.process->account.live_bytes()) + " bytes");
        }
    }
}

} // namespace sim
