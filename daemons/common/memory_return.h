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

// Memory is given back when what is held falls below a quarter of at least so much.
constexpr size_t WORTH_RETURNING = 16384;

class MemoryReturn
{
public:
    // To be called after each round, with the number of things that are held.
    void round(size_t held)
    {
        peak_ = std::max(peak_, held);
        if (peak_ >= WORTH_RETURNING && held < peak_ / 4) {
            peak_ = held;
            malloc_trim(0);
        }
    }

private:
    size_t peak_ = 0;
};

} // namespace mcastd

#endif
