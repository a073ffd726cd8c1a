/*
 * A set of counters, one for each value of an enumeration that ends with Total.
 */
#ifndef DAEMONS_COMMON_COUNTERS_H
#define DAEMONS_COMMON_COUNTERS_H

#include <cstddef>
#include <cstdint>

#include "daemons/common/json.h"

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

// The object "counters" of those that are not 0, under the names that count_name of the enumeration gives.
template <typename Count> void write_counters(Json &json, const CounterSet<Count> &counters)
{
    json.open("counters", '{');
    for (size_t i = 0; i < static_cast<size_t>(Count::Total); ++i) {
        const Count count = static_cast<Count>(i);

        if (counters[count] != 0) {
            json.number(count_name(count), counters[count]);
        }
    }
    json.close('}');
}

} // namespace mcastd

#endif
