/*
 * Who makes a call: the places in the daemon's image that are on the stack, innermost first, as offsets that
 * addr2line understands. For the sweeps, which try each distinct place once, and for showing where a failure is.
 */
#ifndef TESTS_SIMULATION_KERNEL_CALLERS_H
#define TESTS_SIMULATION_KERNEL_CALLERS_H

#include <string>
#include <vector>

#include "tests/simulation/kernel/image.h"

namespace sim
{

using Callers = std::vector<uintptr_t>;

Callers callers_in(const Image &image);

// One line each, with function, file and line where addr2line knows them.
std::string describe(const Callers &callers, const std::string &daemon);

} // namespace sim

#endif
