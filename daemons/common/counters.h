/*
 * Counters: a list of rows makes an enumeration of them and their names; a set holds one number for each.
 */
#ifndef DAEMONS_COMMON_COUNTERS_H
#define DAEMONS_COMMON_COUNTERS_H

#include <cstddef>
#include <cstdint>

#include "daemons/common/json.h"

namespace mcastd
{

// Of a macro ROWS(ROW) that is a list of ROW(identifier, "name"): the enumeration Count with the identifiers and
// Total after them, and the function count_name(Count), in the namespace in which it is written.
#define MCASTD_COUNT_IDENTIFIER(identifier, name) identifier,
#define MCASTD_COUNT_NAME(identifier, name) name,
#define MCASTD_COUNTS(ROWS)                                                                                  \
    enum class Count : uint8_t { ROWS(MCASTD_COUNT_IDENTIFIER) Total };                                      \
    inline const char *count_name(Count count)                                                               \
    {                                                                                                        \
        static constexpr const char *NAMES[] = {ROWS(MCASTD_COUNT_NAME)};                                    \
        return NAMES[static_cast<size_t>(count)];                                                            \
    }

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
