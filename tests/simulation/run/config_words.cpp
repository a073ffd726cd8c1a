/*
 * The words of a script about the configuration file. They write into a draft, which a reload puts in force; what
 * there is at the start is in force from then on.
 */
#include <csignal>
#include <cstdlib>
#include <vector>

#include "tests/simulation/run/run.h"

namespace sim
{
namespace
{

constexpr Ns TIME_TO_READ = SECOND;

uint16_t index_from(const std::string &word)
{
    return static_cast<uint16_t>(strtoul(word.c_str(), nullptr, 10));
}

} // namespace

RouterConfig &Run::draft(const Words &words)
{
    return drafts_[world_.machine(words.at(0)).name];
}

// boundary ROUTER LINK PREFIX...: the ranges of groups that do not pass there.
void Run::boundary(const Words &words)
{
    RouterConfig &config = draft(words);
    config.boundaries[words.at(1)].assign(words.begin() + 2, words.end());
    if (words.size() == 2) {
        config.boundaries.erase(words[1]);
    }
}

// deny ROUTER PREFIX...: the ranges of groups that no host may join.
void Run::deny(const Words &words)
{
    draft(words).denied.assign(words.begin() + 1, words.end());
}

// designated ROUTER LINK yes|no
void Run::designated(const Words &words)
{
    RouterConfig &config = draft(words);
    if (words.at(2) == "no") {
        config.undesignated.insert(words.at(1));
    } else {
        config.undesignated.erase(words.at(1));
    }
}

// instance ROUTER INDEX NAME LINK...: with these interfaces.
void Run::instance(const Words &words)
{
    draft(words).instances[index_from(words.at(1))] = {words.at(2), {words.begin() + 3, words.end()}};
}

// no-instance ROUTER INDEX: there is none of that index any more.
void Run::no_instance(const Words &words)
{
    draft(words).instances.erase(index_from(words.at(1)));
}

// disable ROUTER INDEX
void Run::disable(const Words &words)
{
    draft(words).disabled.insert(index_from(words.at(1)));
}

// enable ROUTER INDEX
void Run::enable(const Words &words)
{
    draft(words).disabled.erase(index_from(words.at(1)));
}

// rendezvous ROUTER ADDRESS: its local sources are announced for this address.
void Run::rendezvous(const Words &words)
{
    draft(words).rendezvous = words.at(1);
}

// peer ROUTER ADDRESS OWN: an MSDP peer at that address, to which the router speaks from its own.
void Run::peer(const Words &words)
{
    draft(words).peers[words.at(1)] = words.at(2);
}

// no-peer ROUTER ADDRESS: it is none any more.
void Run::no_peer(const Words &words)
{
    draft(words).peers.erase(words.at(1));
}

void Run::put_in_force(Machine &machine)
{
    RouterConfig &config = world_.config(machine);
    config = drafts_[machine.name];
    machine.files[CONFIG_PATH] = config.text();
}

void Run::signal_all(const Machine &machine, int number)
{
    for (auto &[name, plan] : world_.daemons()) {
        if (&plan.process->machine() == &machine && plan.process->is_running()) {
            plan.process->signal(number);
        }
    }
}

// reload ROUTER: the file is written and all daemons are told.
void Run::reload(const Words &words)
{
    Machine &machine = world_.machine(words.at(0));
    oracle_.disturbances.note(oracle_.disturbances.timing().response + 4 * SECOND);
    put_in_force(machine);
    signal_all(machine, SIGHUP);
}

// spoil ROUTER: daemons are told to read a file that is wrong, which changes nothing. Those that had not read the one
// before, for they were stopped, are told once more when the file is right again: else they would never hear of it.
void Run::spoil(const Words &words)
{
    Machine &machine = world_.machine(words.at(0));
    std::vector<Process *> late;
    for (auto &[name, plan] : world_.daemons()) {
        if (&plan.process->machine() == &machine && plan.process->is_told(SIGHUP)) {
            late.push_back(plan.process.get());
        }
    }
    machine.files[CONFIG_PATH] += WRONG_LINE;
    signal_all(machine, SIGHUP);
    world_.kernel.clock.after(TIME_TO_READ, [this, &machine, late] {
        machine.files[CONFIG_PATH] = world_.config(machine).text();
        for (Process *process : late) {
            if (process->is_running()) {
                process->signal(SIGHUP);
            }
        }
    });
}

} // namespace sim
