#include "daemons/pimsmd/encoded_address.h"

namespace pimsmd
{
namespace
{

// The numbers that address families have on the wire, and the only encoding there is.
constexpr uint8_t FAMILY_IPV4 = 1;
constexpr uint8_t FAMILY_IPV6 = 2;
constexpr uint8_t NATIVE = 0;

constexpr uint8_t GROUP_BIDIRECTIONAL = 0x80;
constexpr uint8_t GROUP_ZONE = 0x01;

constexpr uint8_t SOURCE_SPARSE = 0x04;
constexpr uint8_t SOURCE_WILDCARD = 0x02;
constexpr uint8_t SOURCE_RPT = 0x01;

constexpr uint8_t family_number(uint16_t family)
{
    return family == MCAST_FAMILY_IPV4 ? FAMILY_IPV4 : FAMILY_IPV6;
}

void begin(mcastd::ByteWriter &out, const Address &address)
{
    out.u8(family_number(address.family));
    out.u8(NATIVE);
}

void put(mcastd::ByteWriter &out, const Address &address)
{
    out.put(address.address, address_size(address.family));
}

} // namespace

void FieldReader::begin()
{
    const uint8_t family = in_.u8();
    const uint8_t encoding = in_.u8();
    if (failed()) {
        return;
    }
    if (family != family_number(family_)) {
        refuse(Count::AddressFamily);
    } else if (encoding != NATIVE) {
        refuse(Count::AddressEncoding);
    }
}

Address FieldReader::unicast()
{
    begin();
    const std::span<const uint8_t> bytes = in_.take(address_size(family_));
    return failed() ? any_address(family_) : make_address(family_, bytes.data());
}

Address FieldReader::masked(uint8_t *flags, uint8_t *mask_length)
{
    begin();
    *flags = in_.u8();
    *mask_length = in_.u8();
    const std::span<const uint8_t> bytes = in_.take(address_size(family_));
    if (!failed() && *mask_length > address_bits(family_)) {
        refuse(Count::MaskLength);
    }
    return failed() ? any_address(family_) : make_address(family_, bytes.data());
}

Address FieldReader::router()
{
    const Address address = unicast();
    if (!is_unicast(address)) {
        refuse(Count::RouterAddress);
    }
    return address;
}

bool FieldReader::is_next_of_other_family() const
{
    const std::span<const uint8_t> next = in_.rest();
    const uint8_t other = family_ == MCAST_FAMILY_IPV4 ? FAMILY_IPV6 : FAMILY_IPV4;
    return !next.empty() && next[0] == other;
}

std::optional<Address> FieldReader::router_of_family()
{
    if (is_next_of_other_family()) {
        in_.take(encoded_unicast_size(family_ == MCAST_FAMILY_IPV4 ? MCAST_FAMILY_IPV6 : MCAST_FAMILY_IPV4));
        return std::nullopt;
    }
    return router();
}

Address FieldReader::source_or_any()
{
    const Address address = unicast();
    if (!is_unicast(address) && !is_unspecified(address)) {
        refuse(Count::SourceAddress);
    }
    return address;
}

GroupRange FieldReader::range()
{
    uint8_t flags = 0;
    uint8_t mask_length = 0;
    const Address address = masked(&flags, &mask_length);
    if (!is_multicast(address)) {
        refuse(Count::GroupAddress);
    } else if (mask_length < (family_ == MCAST_FAMILY_IPV4 ? 4 : 8)) {
        refuse(Count::MaskLength); // it would hold more than groups
    }
    return {Prefix::of(address, mask_length), (flags & GROUP_BIDIRECTIONAL) != 0, (flags & GROUP_ZONE) != 0};
}

Address FieldReader::group()
{
    const GroupRange one = range();
    if (one.prefix.length != address_bits(family_)) {
        refuse(Count::MaskLength);
    }
    return one.prefix.address;
}

TreeSource FieldReader::tree_source()
{
    uint8_t flags = 0;
    uint8_t mask_length = 0;
    const Address address = masked(&flags, &mask_length);
    const bool rpt = (flags & SOURCE_RPT) != 0;
    const bool wildcard = (flags & SOURCE_WILDCARD) != 0;
    if (!is_unicast(address)) {
        refuse(Count::SourceAddress);
    } else if (mask_length != address_bits(family_)) {
        refuse(Count::MaskLength);
    } else if (wildcard && !rpt) {
        refuse(Count::SourceFlags);
    }
    return {address, wildcard ? Tree::Star : rpt ? Tree::Rpt : Tree::Source};
}

TreeSource EncodedSources::operator[](size_t at) const
{
    const size_t size = encoded_source_size(family_);
    return FieldReader(family_, bytes_.subspan(at * size, size)).tree_source();
}

bool EncodedUnicasts::next(Address *address)
{
    while (!bytes_.empty()) {
        FieldReader in(family_, bytes_);
        const std::optional<Address> found = in.router_of_family();

        bytes_ = in.rest();
        if (found) {
            *address = *found;
            return true;
        }
    }
    return false;
}

void write_unicast(mcastd::ByteWriter &out, const Address &address)
{
    begin(out, address);
    put(out, address);
}

void write_range(mcastd::ByteWriter &out, const GroupRange &range)
{
    begin(out, range.prefix.address);
    out.u8(static_cast<uint8_t>((range.bidirectional ? GROUP_BIDIRECTIONAL : 0) |
                                (range.zone ? GROUP_ZONE : 0)));
    out.u8(range.prefix.length);
    put(out, range.prefix.address);
}

void write_group(mcastd::ByteWriter &out, const Address &group)
{
    write_range(out, {{group, address_bits(group.family)}});
}

void write_tree_source(mcastd::ByteWriter &out, const TreeSource &source)
{
    uint8_t flags = SOURCE_SPARSE;
    if (source.tree != Tree::Source) {
        flags |= SOURCE_RPT;
    }
    if (source.tree == Tree::Star) {
        flags |= SOURCE_WILDCARD;
    }
    begin(out, source.address);
    out.u8(flags);
    out.u8(address_bits(source.address.family));
    put(out, source.address);
}

} // namespace pimsmd
