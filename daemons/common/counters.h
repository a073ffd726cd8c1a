/*
 * A set of counters, one for each value of an enumeration that ends with Total.
 */
#ifndef DAEMONS_COMMON_COUNTERS_H
#define DAEMONS_COMMON_COUNTERS_H

#include <cstddef>
#include <cstdint>

namespace mcastd
{

template <typename Count> struct CounterSet {
    uint64_t values[static_cast<size_t>(Count::Total)] = {};

    uint64_t &operator[](Count count)
    {
        return values[static_cast<size_t>(count)];
    }
    uint64_t operator[](Count count) const
    {
        return values[static_cast<size_t>(count)];
    }
};

} // namespace mcastd

#endif
