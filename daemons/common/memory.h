/*
 * The end of a process whose memory is used up. Every table here is bounded, so that this means the machine
 * has none left; the MRIB process drops what a dead client had joined, and a restart learns it anew.
 */
#ifndef DAEMONS_COMMON_MEMORY_H
#define DAEMONS_COMMON_MEMORY_H

#include <cstdlib>

#include "daemons/common/log.h"

namespace mcastd
{

// Says so and ends the process. Also serves as the handler of operator new.
[[noreturn]] inline void out_of_memory()
{
    log_error("out of memory");
    std::_Exit(EXIT_FAILURE);
}

// pointer, which a creating function of the library returned, unless it is NULL.
template <typename Record> Record *must_have(Record *pointer)
{
    if (pointer == nullptr) {
        out_of_memory();
    }
    return pointer;
}

} // namespace mcastd

#endif
