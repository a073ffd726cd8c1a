/*
 * The smallest script that breaks the same rule: actions are taken out in halves, quarters and one by one, then what
 * is set up, as long as the rule stays broken.
 */
#ifndef TESTS_SIMULATION_RUN_SHRINK_H
#define TESTS_SIMULATION_RUN_SHRINK_H

#include "tests/simulation/run/run.h"

namespace sim
{

// Gives up after that many tries with what it has.
Script shrink(const Script &script, Rule rule, unsigned most_tries);

} // namespace sim

#endif
