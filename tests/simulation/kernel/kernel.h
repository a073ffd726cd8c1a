/*
 * One run: the clock, the draws, the trace, the machines and their processes, and who runs next.
 *
 *      ┌ run_until ───────────────────────────────────────────────────────────────────┐
 *      │  while any process is runnable: one of them, drawn, runs until it waits       │
 *      │  then the clock goes to the next event or timer                               │
 *      └───────────────────────────────────────────────────────────────────────────────┘
 */
#ifndef TESTS_SIMULATION_KERNEL_KERNEL_H
#define TESTS_SIMULATION_KERNEL_KERNEL_H

#include <functional>
#include <vector>

#include "tests/simulation/kernel/clock.h"
#include "tests/simulation/kernel/draw.h"
#include "tests/simulation/kernel/process.h"
#include "tests/simulation/kernel/trace.h"

namespace sim
{

class Kernel
{
public:
    explicit Kernel(uint64_t seed) : draw(seed)
    {
    }
    Kernel(const Kernel &) = delete;
    Kernel &operator=(const Kernel &) = delete;

    Clock clock;
    Draw draw;
    Trace trace;
    std::vector<Process *> processes;
    bool verbose = false; // whether log lines are printed as they come
    // Called when a process ended by itself, before its descriptors are closed.
    std::function<void(Process &)> on_end;

    // Ends early when a rule is broken.
    void run_until(Ns end);
    void run_for(Ns time)
    {
        run_until(clock.now() + time);
    }
    // The clock jumps and nothing runs in between, as when the machine sleeps.
    void suspend(Ns time);

    // For processes.
    bool another_is_runnable(const Process &process) const;
    void ended(Process &process);
    void broken(Rule rule, const std::string &what)
    {
        trace.broken(rule, clock.now(), what);
    }

private:
    Process *choose();
    Ns next_time() const;

    Ns busy_since_ = 0;
    uint64_t runs_without_time_ = 0;
};

} // namespace sim

#endif
