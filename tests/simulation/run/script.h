/*
 * A script is text: what there is, and then what happens at which second. It is all that a run is made of, besides
 * the program: the same script gives the same run, to the last byte.
 *
 *     seed 7
 *     link lan1 10.0.1.0/24 2001:db8:1::/64
 *     router r1 lan1 lan2
 *     daemon r1.mribd mribd --hold-time 125
 *     host h1 lan2 3
 *     flow f1 lan1 10.0.1.50 239.1.1.1 1
 *     0 start r1.mribd
 *     5.25 join h1 239.1.1.1
 *     10 rest
 *
 * Lines that begin with a number are actions. Time stands still in them during a rest. docs/testing.md lists the
 * words.
 */
#ifndef TESTS_SIMULATION_RUN_SCRIPT_H
#define TESTS_SIMULATION_RUN_SCRIPT_H

#include <string>
#include <vector>

#include "tests/simulation/kernel/basics.h"

namespace sim
{

using Words = std::vector<std::string>;

struct Action {
    Ns when = 0; // since the start
    Words words;
};

struct Script {
    uint64_t seed = 1;
    std::vector<Words> setup;
    std::vector<Action> actions; // in the order of their times

    void add(Ns when, Words words)
    {
        actions.push_back({when, std::move(words)});
    }
};

// By time; those of one time stay in their order.
void sort_actions(Script &script);

Ns time_from(const std::string &seconds);

// Ends the program when the text is no script.
Script read_script(const std::string &text);

// The links that scripts within the program have.
inline const std::string THREE_LINKS = R"(
link lan1 10.0.1.0/24 2001:db8:1::/64
link lan2 10.0.2.0/24 2001:db8:2::/64
link lan3 10.0.3.0/24 2001:db8:3::/64
)";

std::string write_script(const Script &script);
std::string read_text_file(const std::string &path);

} // namespace sim

#endif
