/*
 * A script made from a seed: a router of two instances and six links with hosts of all versions, flows of both families,
 * and hours of joins and leaves; with faults also whatever random_menu.cpp has. After each stretch comes a rest, in which
 * everything is compared.
 */
#ifndef TESTS_SIMULATION_RUN_RANDOM_SCRIPT_H
#define TESTS_SIMULATION_RUN_RANDOM_SCRIPT_H

#include "tests/simulation/run/script.h"

namespace sim
{

struct RandomPlan {
    uint64_t seed = 1;
    Ns duration = 3600 * SECOND; // without the rests
    bool faults = true;
};

Script random_script(const RandomPlan &plan);

} // namespace sim

#endif
