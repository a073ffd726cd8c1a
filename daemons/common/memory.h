/*
 * The end of a process whose memory is used up. Every table here is bounded, so that this means the machine
 * has none left; the MRIB process drops what a dead client had joined, and a restart learns it anew.
 */
#ifndef GMPD_MEMORY_H
#define GMPD_MEMORY_H

#include <cstdlib>

#include "daemons/common/log.h"

namespace gmpd
{

// Says so and ends the process. Also serves as the handler of operator new.
[[noreturn]] inline void out_of_memory()
{
    mcastd::log_error("out of memory");
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

} // namespace gmpd

#endif
