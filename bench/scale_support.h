/*
 * What the parts of the scale run's load share: the clock, and the end when a step fails.
 */
#ifndef BENCH_SCALE_SUPPORT_H
#define BENCH_SCALE_SUPPORT_H

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace scale
{

[[noreturn]] inline void fail(const char *step)
{
    perror(step);
    exit(EXIT_FAILURE);
}

inline double now_s()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

} // namespace scale

#endif
