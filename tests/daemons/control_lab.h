// A table of numbers for tests of the control endpoint, and the requests that ask for it.
#ifndef TESTS_DAEMONS_CONTROL_LAB_H
#define TESTS_DAEMONS_CONTROL_LAB_H

#include <string>

#include "daemons/common/control.h"

namespace control_test
{

using namespace mcastd;

inline constexpr ControlColumn COLUMNS[] = {
    {"number", FieldType::Number},
    {"name", FieldType::Text},
    {"value", FieldType::Counter},
};
inline constexpr ControlSchema SCHEMA{7, "numbers", 2, COLUMNS};

inline ControlFields row(uint64_t number, const std::string &name = "a")
{
    return {ControlField::number(number), ControlField::text(name), ControlField::counter(number * 10)};
}

inline ControlRequest get_next(const ControlFields &after = {})
{
    ControlRequest request;
    request.table = SCHEMA.number;
    request.key = after;
    return request;
}

} // namespace control_test

#endif
