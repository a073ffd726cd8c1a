/*
 * Addresses as PIM messages carry them (RFC 7761, section 4.9.1), all with the address family (1 or 2) and the encoding
 * (0) in front:
 *
 *     unicast   family, encoding, address
 *     group     family, encoding, flags B.....Z, mask length, address
 *     source    family, encoding, flags .....SWR, mask length, address
 *
 * Messages hold long runs of them, of a size known beforehand. Such a run is checked once, when the message is read;
 * from then on it is an array: EncodedSources takes any element out of the message's bytes, EncodedUnicasts one after the other.
 */
#ifndef DAEMONS_PIMSMD_ENCODED_ADDRESS_H
#define DAEMONS_PIMSMD_ENCODED_ADDRESS_H

#include <cstdint>
#include <optional>
#include <span>

#include "daemons/common/bytes.h"
#include "daemons/pimsmd/address.h"
#include "daemons/pimsmd/counters.h"

namespace pimsmd
{

constexpr size_t encoded_unicast_size(uint16_t family)
{
    return 2 + address_size(family);
}
constexpr size_t encoded_group_size(uint16_t family)
{
    return 4 + address_size(family);
}
constexpr size_t encoded_source_size(uint16_t family)
{
    return 4 + address_size(family);
}

// What a source in a Join/Prune stands for: (S,G); (S,G,rpt); or (*,G), with the RP in the source's place.
enum class Tree : uint8_t { Source, Rpt, Star };

struct TreeSource {
    Address address;
    Tree tree;
};

struct GroupRange {
    Prefix prefix;
    bool bidirectional = false;
    bool zone = false; // the range of an administrative scope zone
};

// Reads fields of one message of one family. The first thing wrong is its reason; from then on it yields
// unspecified addresses.
class FieldReader
{
public:
    FieldReader(uint16_t family, std::span<const uint8_t> bytes) : family_(family), in_(bytes)
    {
    }

    // A router's address.
    Address router();
    // The same among addresses of both families; nothing for one of the other.
    std::optional<Address> router_of_family();
    // A source's address, or the unspecified one.
    Address source_or_any();
    // A group, or a range of groups.
    GroupRange range();
    // A single group.
    Address group();
    TreeSource tree_source();
    uint8_t u8()
    {
        return in_.u8();
    }
    uint16_t u16()
    {
        return in_.u16();
    }
    uint32_t u32()
    {
        return in_.u32();
    }
    std::span<const uint8_t> take(size_t size)
    {
        return in_.take(size);
    }
    std::span<const uint8_t> rest() const
    {
        return in_.rest();
    }
    size_t left() const
    {
        return in_.left();
    }
    uint16_t family() const
    {
        return family_;
    }
    void refuse(Count reason)
    {
        if (!failed()) {
            reason_ = reason;
            in_.fail();
        }
    }
    bool failed() const
    {
        return in_.failed();
    }
    // Names a reason for bytes that ended too early, which ShortMessage is otherwise.
    void blame(Count reason)
    {
        if (failed() && reason_ == NO_DROP) {
            reason_ = reason;
        }
    }
    // NO_DROP, or why the message is refused.
    Count reason() const
    {
        return failed() && reason_ == NO_DROP ? Count::ShortMessage : reason_;
    }

private:
    Address unicast();
    bool is_next_of_other_family() const;
    Address masked(uint8_t *flags, uint8_t *mask_length);
    void begin();

    uint16_t family_;
    mcastd::ByteReader in_;
    Count reason_ = NO_DROP;
};

// A run of sources within a message that was read.
class EncodedSources
{
public:
    EncodedSources() = default;
    EncodedSources(uint16_t family, std::span<const uint8_t> bytes) : family_(family), bytes_(bytes)
    {
    }
    size_t size() const
    {
        return bytes_.size() / encoded_source_size(family_);
    }
    // at is below size().
    TreeSource operator[](size_t at) const;

private:
    uint16_t family_ = MCAST_FAMILY_IPV4;
    std::span<const uint8_t> bytes_;
};

// The same of unicast addresses, taken from front to back. There may be others of the other family between them, which some
// routers name with all addresses of a link; they are passed over.
class EncodedUnicasts
{
public:
    EncodedUnicasts() = default;
    EncodedUnicasts(uint16_t family, std::span<const uint8_t> bytes) : family_(family), bytes_(bytes)
    {
    }
    // Takes the next address; false when there is none.
    bool next(Address *address);

private:
    uint16_t family_ = MCAST_FAMILY_IPV4;
    std::span<const uint8_t> bytes_;
};

void write_unicast(mcastd::ByteWriter &out, const Address &address);
void write_range(mcastd::ByteWriter &out, const GroupRange &range);
void write_group(mcastd::ByteWriter &out, const Address &group);
void write_tree_source(mcastd::ByteWriter &out, const TreeSource &source);

} // namespace pimsmd

#endif
