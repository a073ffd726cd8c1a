/*
 * The outermost part of a program: whatever happens before its event loop runs, the parsing of its command line
 * included, a lack of memory ends it with a line that says so. Once the loop runs, memory.h has the rule.
 */
#ifndef DAEMONS_COMMON_PROGRAM_H
#define DAEMONS_COMMON_PROGRAM_H

#include <cstdlib>
#include <new>

#include "daemons/common/log.h"

namespace mcastd
{

// The exit code that work returns, or that of a failure when there was not enough memory for it. The name begins the
// lines of the log.
template <typename Work> int run_program(const char *name, const Work &work)
{
    log_open(name, LogLevel::Info); // until the command line says otherwise
    try {
        return work();
    } catch (const std::bad_alloc &) {
        log_error("the memory was not enough to start");
        return EXIT_FAILURE;
    }
}

} // namespace mcastd

#endif
