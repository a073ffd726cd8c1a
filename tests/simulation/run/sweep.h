/*
 * Every way in which the system can refuse something to a daemon, tried in a short life of it: start, join, leave, the
 * other daemon killed, rest, end. One clean life notes where each allocation and each call comes from; then each
 * distinct place has lives of its own in which its first and its last are refused, once and from then on.
 */
#ifndef TESTS_SIMULATION_RUN_SWEEP_H
#define TESTS_SIMULATION_RUN_SWEEP_H

#include <string>
#include <vector>

#include "tests/simulation/run/run.h"

namespace sim
{

// A life that broke a rule, with the script that repeats it and the place of the refusal in the daemon.
struct SweepFailure {
    Script script;
    Result result;
    std::string place;
};

struct SweepReport {
    unsigned lives = 0;
    unsigned outside = 0; // failures of code that is not the daemons'; sweep.cpp has the reasons
    std::vector<SweepFailure> failures;
};

enum class Swept { Memory, Calls };

// Tries each step-th of the chosen lives.
SweepReport sweep(Swept what, const std::string &daemon, unsigned step);

} // namespace sim

#endif
