/*
 * The words of a script about daemons: their lives, and what the system refuses them.
 */
#include <cstdio>
#include <cstdlib>

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

// start DAEMON
void Run::start(const Words &words)
{
    oracle_.disturbances.note(oracle_.disturbances.timing().response + 4 * SECOND);
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
    oracle_.disturbances.note(0);
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
    oracle_.disturbances.note(oracle_.disturbances.timing().response + 4 * SECOND);
    world_.revive();
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
