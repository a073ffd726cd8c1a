#include "daemons/common/control_field.h"

#include <algorithm>
#include <cstring>

namespace mcastd
{
namespace
{

template <typename Value> int three_way(const Value &one, const Value &other)
{
    return one < other ? -1 : (other < one ? 1 : 0);
}

int compare_addresses(const MCAST_ADDR_S &one, const MCAST_ADDR_S &other)
{
    const int families = three_way(one.family, other.family);
    return families != 0 ? families : std::memcmp(one.address, other.address, sizeof(one.address));
}

// The value when the variant holds that kind, otherwise an empty one that lives for ever.
template <typename Value, typename Variant> const Value &value_or_empty(const Variant &variant)
{
    static const Value EMPTY{};
    const auto *value = std::get_if<Value>(&variant);
    return value != nullptr ? *value : EMPTY;
}

} // namespace

uint64_t ControlField::as_number() const
{
    return value_or_empty<uint64_t>(value_);
}

const MCAST_ADDR_S &ControlField::as_address() const
{
    return value_or_empty<MCAST_ADDR_S>(value_);
}

const std::string &ControlField::as_text() const
{
    return value_or_empty<std::string>(value_);
}

const std::vector<uint32_t> &ControlField::as_interfaces() const
{
    return value_or_empty<std::vector<uint32_t>>(value_);
}

int ControlField::compare(const ControlField &other) const
{
    if (type_ != other.type_) {
        return three_way(type_, other.type_);
    }
    switch (type_) {
    case FieldType::Address:
        return compare_addresses(as_address(), other.as_address());
    case FieldType::Text:
        return as_text().compare(other.as_text());
    case FieldType::Interfaces:
        return three_way(as_interfaces(), other.as_interfaces());
    default:
        return three_way(as_number(), other.as_number());
    }
}

int compare_keys(const ControlFields &one, const ControlFields &other, size_t count)
{
    const size_t common = std::min({one.size(), other.size(), count});
    for (size_t i = 0; i < common; ++i) {
        if (const int result = one[i].compare(other[i])) {
            return result;
        }
    }
    return three_way(std::min(one.size(), count), std::min(other.size(), count));
}

} // namespace mcastd
