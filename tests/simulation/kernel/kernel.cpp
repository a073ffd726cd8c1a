#include "tests/simulation/kernel/kernel.h"

#include <algorithm>

namespace sim
{
namespace
{

// More runs than that without the clock moving are a busy loop.
constexpr uint64_t MOST_RUNS_WITHOUT_TIME = 200000;

} // namespace

Process *Kernel::choose()
{
    std::vector<Process *> runnable;
    for (Process *process : processes) {
        if (process->is_runnable()) {
            runnable.push_back(process);
        }
    }
    if (runnable.size() < 2) {
        return runnable.empty() ? nullptr : runnable.front();
    }
    return runnable[draw.below(Stream::Scheduler, 0, runnable.size())];
}

Ns Kernel::next_time() const
{
    Ns next = clock.next();
    for (const Process *process : processes) {
        next = std::min(next, process->due());
    }
    return next;
}

void Kernel::run_until(Ns end)
{
    while (trace.is_good()) {
        if (Process *process = choose()) {
            runs_without_time_ = busy_since_ == clock.now() ? runs_without_time_ + 1 : 0;
            busy_since_ = clock.now();
            if (runs_without_time_ > MOST_RUNS_WITHOUT_TIME) {
                broken(Rule::CleanEnd, process->name() + " is in a busy loop");
                return;
            }
            process->run();
            continue;
        }
        const Ns next = next_time();
        if (next > end) {
            clock.advance(end);
            return;
        }
        clock.advance(next);
    }
}

void Kernel::suspend(Ns time)
{
    clock.advance(clock.now() + time);
}

bool Kernel::another_is_runnable(const Process &process) const
{
    return std::any_of(processes.begin(), processes.end(), [&process](const Process *other) {
        return other != &process && other->is_runnable();
    });
}

void Kernel::ended(Process &process)
{
    trace.note(static_cast<uint64_t>(process.end()));
    if (on_end) {
        on_end(process);
    }
}

} // namespace sim
