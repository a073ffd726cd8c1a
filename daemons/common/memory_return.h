/*
 * Memory that was used in a flood and is free again goes back to the system, which the allocator does not do by
 * itself while anything lives behind it.
 */
#ifndef DAEMONS_COMMON_MEMORY_RETURN_H
#define DAEMONS_COMMON_MEMORY_RETURN_H

#include <algorithm>
#include <cstddef>
#include <malloc.h>

namespace mcastd
{

// Memory is given back whenever so many fewer things are held: seldom enough to cost little, and often enough that no
// round of the event loop takes long over it. Giving back 100 MB at once takes 60 ms.
constexpr size_t WORTH_RETURNING = 16384;

class MemoryReturn
{
public:
    // To be called after each round, with the number of things that are held.
    void round(size_t held)
    {
        peak_ = std::max(peak_, held);
        if (peak_ - held >= WORTH_RETURNING) {
            peak_ = held;
            malloc_trim(0);
        }
    }

private:
    size_t peak_ = 0; // since memory was last given back
};

} // namespace mcastd

#endif
