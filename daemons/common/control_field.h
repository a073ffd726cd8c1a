/*
 * The values of control messages: what keys, rows and settings are made of.
 */
#ifndef DAEMONS_COMMON_CONTROL_FIELD_H
#define DAEMONS_COMMON_CONTROL_FIELD_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "mcast/common.h"

namespace mcastd
{

// The numbers are those on the wire.
enum class FieldType : uint8_t {
    None = 0, // there is no value
    Number = 1,
    Counter = 2, // a number that only grows
    Seconds = 3,
    Interface = 4, // an interface index
    Truth = 5,
    Family = 6, // MCAST_FAMILY_IPV4 or MCAST_FAMILY_IPV6
    Address = 7,
    Text = 8,
    Interfaces = 9, // interface indexes
    Count
};

// One value. Fields order by type, then by value: addresses by family and then as the containers order them,
// texts by bytes.
class ControlField
{
public:
    // Limits of one field.
    static constexpr size_t TEXT_MAX = 1024;
    static constexpr size_t INTERFACES_MAX = 255;

    ControlField() = default;

    static ControlField number(uint64_t value)
    {
        return {FieldType::Number, value};
    }
    static ControlField counter(uint64_t value)
    {
        return {FieldType::Counter, value};
    }
    static ControlField seconds(uint64_t value)
    {
        return {FieldType::Seconds, value};
    }
    static ControlField interface(uint32_t if_index)
    {
        return {FieldType::Interface, uint64_t{if_index}};
    }
    static ControlField truth(bool value)
    {
        return {FieldType::Truth, uint64_t{value}};
    }
    static ControlField family(uint16_t family)
    {
        return {FieldType::Family, uint64_t{family}};
    }
    static ControlField address(const MCAST_ADDR_S &address)
    {
        return {FieldType::Address, address};
    }
    static ControlField text(std::string text)
    {
        return {FieldType::Text, std::move(text)};
    }
    static ControlField interfaces(std::vector<uint32_t> if_indexes)
    {
        return {FieldType::Interfaces, std::move(if_indexes)};
    }

    FieldType type() const
    {
        return type_;
    }
    bool is(FieldType type) const
    {
        return type_ == type;
    }

    // The value in the form that belongs to the type; for other types zero or empty.
    uint64_t as_number() const;
    uint32_t as_interface() const
    {
        return static_cast<uint32_t>(as_number());
    }
    const MCAST_ADDR_S &as_address() const;
    const std::string &as_text() const;
    const std::vector<uint32_t> &as_interfaces() const;

    // Negative, 0 or positive.
    int compare(const ControlField &other) const;

    bool operator==(const ControlField &other) const
    {
        return compare(other) == 0;
    }

private:
    using Value = std::variant<uint64_t, MCAST_ADDR_S, std::string, std::vector<uint32_t>>;

    ControlField(FieldType type, Value value) : type_(type), value_(std::move(value))
    {
    }

    FieldType type_ = FieldType::None;
    Value value_ = uint64_t{0};
};

// A key, a row, the values of a request.
using ControlFields = std::vector<ControlField>;
constexpr size_t CONTROL_FIELDS_MAX = 32;

// Compares the first count fields, as far as both have them; a key that ends earlier comes first.
int compare_keys(const ControlFields &one, const ControlFields &other, size_t count);

} // namespace mcastd

#endif
