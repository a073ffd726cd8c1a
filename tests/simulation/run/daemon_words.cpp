/*
 * The words of a script about daemons: their lives, and what the system refuses them.
 */
#include <array>
#include <cstdio>
#include <cstdlib>

#include "tests/simulation/kernel/local_socket.h"
#include "tests/simulation/run/run.h"

namespace sim
{
namespace
{

uint64_t number_from(const std::string &word)
{
    return word == "all" ? UINT64_MAX / 2 : strtoull(word.c_str(), nullptr, 10);
}

} // namespace

Process &Run::process(const Words &words)
{
    return *world_.daemon(words.at(0)).process;
}

// Somebody begins, and asks the hosts, of users when agents have announced them; one that stands by does not.
void Run::note_start(const DaemonPlan &plan)
{
    oracle_.disturbances.note_election();
    const Ns users = plan.user_auth.empty() ? 0 : 4 * SECOND;
    if (!oracle_.disturbances.has_standby(plan)) {
        oracle_.disturbances.note(oracle_.disturbances.timing().response + 4 * SECOND + users);
    }
}

// start DAEMON
void Run::start(const Words &words)
{
    note_start(world_.daemon(words.at(0)));
    world_.start(world_.daemon(words.at(0)));
}

// stop DAEMON: as an operator does.
void Run::stop(const Words &words)
{
    disturb_all();
    world_.daemon(words.at(0)).wanted = false;
    process(words).signal(15);
}

// kill DAEMON
void Run::kill(const Words &words)
{
    if (oracle_.disturbances.has_standby(world_.daemon(words.at(0)))) {
        oracle_.disturbances.note_takeover();
    } else {
        oracle_.disturbances.note(0);
    }
    process(words).kill();
}

// crash DAEMON CALLS: at the call after so many more.
void Run::crash(const Words &words)
{
    process(words).crash_after(number_from(words.at(1)));
}

// signal DAEMON NUMBER
void Run::signal(const Words &words)
{
    disturb_all();
    process(words).signal(static_cast<int>(number_from(words.at(1))));
}

// freeze DAEMON SECONDS: it does not run for so long.
void Run::freeze(const Words &words)
{
    const Ns time = time_from(words.at(1));
    oracle_.disturbances.note(time + oracle_.disturbances.timing().rest());
    oracle_.disturbances.note_stopped(time);
    process(words).stop_until(world_.kernel.clock.now() + time);
}

// revive: whoever ought to run and does not is started.
void Run::revive(const Words &)
{
    for (const auto &[name, plan] : world_.daemons()) {
        if (plan.wanted && !plan.process->is_running()) {
            note_start(plan);
        }
    }
    world_.revive();
}

// switch-over ROUTER ipv4|ipv6: the active gmpd of the family is to hand over, as by mcastctl.
void Run::switch_over(const Words &words)
{
    constexpr uint16_t CONTROL_PORT_IPV4 = 2202;
    constexpr uint16_t CONTROL_PORT_IPV6 = 2203;
    // Mark, version, operation "command", its number, no limit of rows, no key, no arguments.
    constexpr std::array<uint8_t, 10> REQUEST = {0x4d, 0x43, 1, 4, 0, 4, 0, 0, 0, 0};
    int error = 0;
    oracle_.disturbances.note_takeover();
    const std::shared_ptr<LocalEnd> end = connect_local(
        world_.machine(words.at(0)), words.at(1) == "ipv4" ? CONTROL_PORT_IPV4 : CONTROL_PORT_IPV6, &error);
    if (end != nullptr) {
        end->send(REQUEST.data(), REQUEST.size());
        world_.kernel.clock.after(SECOND, [end] {}); // until then it is connected
    }
}

// refuse DAEMON CALL SKIP COUNT [ERROR]: after SKIP of these calls COUNT, or all, of them fail.
void Run::refuse(const Words &words)
{
    const auto call = call_from(words.at(1));
    if (!call) {
        fprintf(stderr, "no call that can be refused: %s\n", words.at(1).c_str());
        exit(2);
    }
    Refusals &refusals = process(words).refusals;
    disturb_all();
    refusals.call = *call;
    refusals.skip = number_from(words.at(2));
    refusals.count = number_from(words.at(3));
    refusals.error = words.size() > 4 ? error_from(words[4]) : 0;
}

// refuse-memory DAEMON SKIP COUNT
void Run::refuse_memory(const Words &words)
{
    Account &account = process(words).account;
    disturb_all();
    account.skip = number_from(words.at(1));
    account.refuse = number_from(words.at(2));
}

// limit-files DAEMON NUMBER
void Run::limit_files(const Words &words)
{
    disturb_all();
    process(words).descriptor_limit = number_from(words.at(1));
}

} // namespace sim
