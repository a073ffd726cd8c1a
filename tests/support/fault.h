/*
 * Failing allocations on purpose. Test programs that link the library's objects are linked so that the
 * library's calls to malloc, calloc, realloc and free come here.
 */
#ifndef TESTS_SUPPORT_FAULT_H
#define TESTS_SUPPORT_FAULT_H

#include <cstddef>

namespace fault
{

/* Starts counting allocations from zero and makes the nth one from now fail (1 = the next); 0 fails none. */
void FailAllocation(unsigned long nth);

/* Allocations tried since FailAllocation was last called, the failed one included. */
unsigned long AllocationCount();

/* True when the allocation chosen with FailAllocation has been reached. */
bool Fired();

/* Blocks taken and not yet freed by the code under test since the program started. */
long LiveBlocks();

/*
 * Runs body with the 1st, 2nd, ... allocation failing until a run needs no more; the index is its argument.
 */
template <typename Body> unsigned long ForEveryAllocation(Body body)
{
    for (unsigned long nth = 1;; ++nth) {
        FailAllocation(nth);
        body(nth);
        bool fired = Fired();

        FailAllocation(0);
        if (!fired) {
            return nth - 1;
        }
    }
}

} // namespace fault

#endif
