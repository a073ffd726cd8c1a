/*
 * Reading. A function for each type takes the fields in their order; the first thing wrong stays the reason, and what
 * is read after it is empty, so that no step asks whether the last one went well. Only loops ask: they would go on for
 * as long as a count says.
 *
 * A Join/Prune of 64 KiB with 5000 sources is walked once to check it and once to use it, neither with any memory: a
 * group keeps two spans, and a source is taken from its span by its number.
 *
 * Bytes behind what the counts cover refuse the message: its sender meant something that would be lost without notice.
 */
#include <cstring>

#include "daemons/pimsmd/checksum.h"
#include "daemons/pimsmd/message_type.h"
#include "daemons/pimsmd/wire.h"

namespace pimsmd
{
namespace
{

// An RP of a Bootstrap: address, holdtime, priority, a reserved byte.
constexpr size_t bootstrap_rp_size(uint16_t family)
{
    return encoded_unicast_size(family) + 4;
}

// An option's value, which has one size.
template <typename Value, typename Read>
void take_option(FieldReader &in, FieldReader &value, size_t size, std::optional<Value> *option, Read read)
{
    if (option->has_value()) {
        in.refuse(Count::OptionTwice);
    } else if (value.left() != size) {
        in.refuse(Count::OptionLength);
    } else {
        *option = read(value);
    }
}

LanDelay read_lan_delay(FieldReader &value)
{
    const uint16_t propagation = value.u16();
    return {(propagation & LAN_DELAY_TRACKING) != 0, static_cast<uint16_t>(propagation & ~LAN_DELAY_TRACKING),
            value.u16()};
}

void read_addresses(FieldReader &in, std::span<const uint8_t> bytes, bool is_first,
                    EncodedUnicasts *addresses)
{
    FieldReader value(in.family(), bytes);
    if (!is_first) {
        in.refuse(Count::OptionTwice);
    }
    while (value.left() > 0 && !value.failed()) {
        value.router_of_family();
    }
    if (value.failed()) {
        value.blame(Count::OptionLength);
        in.refuse(value.reason());
    }
    *addresses = {in.family(), bytes};
}

Hello read_hello(FieldReader &in)
{
    Hello hello;
    bool has_addresses = false;
    const auto number16 = [](FieldReader &value) { return value.u16(); };
    const auto number32 = [](FieldReader &value) { return value.u32(); };

    while (in.left() > 0 && !in.failed()) {
        const uint16_t option = in.u16();
        const uint16_t size = in.u16();
        const std::span<const uint8_t> bytes = in.take(size);
        FieldReader value(in.family(), bytes);

        in.blame(Count::OptionLength);
        if (in.failed()) {
            break;
        }
        switch (option) {
        case OPTION_HOLDTIME:
            take_option(in, value, 2, &hello.holdtime_s, number16);
            break;
        case OPTION_LAN_DELAY:
            take_option(in, value, 4, &hello.lan_delay, read_lan_delay);
            break;
        case OPTION_DR_PRIORITY:
            take_option(in, value, 4, &hello.dr_priority, number32);
            break;
        case OPTION_GENERATION:
            take_option(in, value, 4, &hello.generation, number32);
            break;
        case OPTION_ADDRESSES:
            read_addresses(in, bytes, !has_addresses, &hello.addresses);
            has_addresses = true;
            break;
        default:
            break; // of a newer router
        }
    }
    return hello;
}

// The addresses of the packet in a Register; of a null Register the header may be checked.
void read_inner(FieldReader &in, Register *message)
{
    const bool ipv4 = in.family() == MCAST_FAMILY_IPV4;
    const size_t header_size = ipv4 ? IPV4_HEADER_SIZE : IPV6_HEADER_SIZE;
    if (in.failed()) {
        return;
    }
    message->packet = in.take(in.left());
    if (message->packet.size() < header_size || message->packet[0] >> 4 != (ipv4 ? 4 : 6)) {
        in.refuse(Count::InnerPacket);
        return;
    }
    const uint8_t *header = message->packet.data();

    message->source = make_address(in.family(), header + (ipv4 ? 12 : 8));
    message->group = make_address(in.family(), header + (ipv4 ? 16 : 24));
    if (ipv4 && message->null && (header[10] != 0 || header[11] != 0) &&
        checksum_of({message->source, message->group}, message->packet.first(header_size)) != 0) {
        in.refuse(Count::InnerPacket);
    } else if (!is_unicast(message->source)) {
        in.refuse(Count::SourceAddress);
    } else if (!is_multicast(message->group)) {
        in.refuse(Count::GroupAddress);
    }
}

Register read_register(FieldReader &in)
{
    Register message;
    const uint32_t flags = in.u32();
    message.border = (flags & REGISTER_BORDER) != 0;
    message.null = (flags & REGISTER_NULL) != 0;
    read_inner(in, &message);
    return message;
}

RegisterStop read_register_stop(FieldReader &in)
{
    RegisterStop message;
    message.group = in.group();
    message.source = in.source_or_any();
    return message;
}

Assert read_assert(FieldReader &in)
{
    Assert message;
    message.group = in.group();
    message.source = in.source_or_any();
    const uint32_t preference = in.u32();

    message.rpt = (preference & ASSERT_RPT) != 0;
    message.preference = preference & ~ASSERT_RPT;
    message.metric = in.u32();
    return message;
}

std::span<const uint8_t> take_sources(FieldReader &in, size_t count)
{
    return in.take(count * encoded_source_size(in.family()));
}

JoinPruneGroup read_group(FieldReader &in)
{
    JoinPruneGroup group;
    group.range = in.range();
    const uint16_t joins = in.u16();
    const uint16_t prunes = in.u16();

    group.joins = {in.family(), take_sources(in, joins)};
    group.prunes = {in.family(), take_sources(in, prunes)};
    return group;
}

void check_sources(FieldReader &in, const JoinPruneGroup &group, std::span<const uint8_t> before)
{
    const size_t sources = group.joins.size() + group.prunes.size();
    const size_t group_size = encoded_group_size(in.family()) + 4;
    FieldReader check(in.family(), before.subspan(group_size));
    for (size_t i = 0; i < sources && !check.failed(); ++i) {
        check.tree_source();
    }
    if (check.failed()) {
        in.refuse(check.reason());
    }
}

JoinPrune read_join_prune(FieldReader &in)
{
    JoinPrune message;
    message.upstream = in.router();
    in.u8();
    const uint8_t group_count = in.u8();

    message.holdtime_s = in.u16();
    const std::span<const uint8_t> groups = in.rest();

    for (unsigned i = 0; i < group_count && !in.failed(); ++i) {
        const std::span<const uint8_t> before = in.rest();
        const JoinPruneGroup group = read_group(in);

        if (!in.failed()) {
            check_sources(in, group, before);
        }
        in.blame(Count::CountBeyond);
    }
    message.groups = {in.family(), groups};
    return message;
}

BootstrapRp read_rp(FieldReader &in)
{
    BootstrapRp rp;
    rp.address = in.router();
    rp.holdtime_s = in.u16();
    rp.priority = in.u8();
    in.u8();
    return rp;
}

BootstrapRange read_range(FieldReader &in)
{
    BootstrapRange range;
    range.range = in.range();
    range.rp_count = in.u8();
    range.rps_here = in.u8();
    in.u16();
    range.rp_bytes = in.take(range.rps_here * bootstrap_rp_size(in.family()));
    return range;
}

void check_range(FieldReader &in, const BootstrapRange &range)
{
    FieldReader check(in.family(), range.rp_bytes);
    for (unsigned i = 0; i < range.rps_here && !check.failed(); ++i) {
        read_rp(check);
    }
    if (check.failed()) {
        in.refuse(check.reason());
    } else if (range.rps_here > range.rp_count) {
        in.refuse(Count::CountBeyond);
    }
}

Bootstrap read_bootstrap(FieldReader &in, uint8_t flags)
{
    Bootstrap message;
    message.no_forward = (flags & BOOTSTRAP_NO_FORWARD) != 0;
    message.fragment_tag = in.u16();
    message.hash_mask_length = in.u8();
    message.priority = in.u8();
    message.bsr = in.router();
    message.ranges = {in.family(), in.rest()};
    if (message.hash_mask_length > address_bits(in.family())) {
        in.refuse(Count::MaskLength);
    }
    while (in.left() > 0 && !in.failed()) {
        check_range(in, read_range(in));
        in.blame(Count::CountBeyond);
    }
    return message;
}

CandidateRp read_candidate(FieldReader &in)
{
    CandidateRp message;
    message.range_count = in.u8();
    message.priority = in.u8();
    message.holdtime_s = in.u16();
    message.rp = in.router();
    message.range_bytes = in.rest();
    for (unsigned i = 0; i < message.range_count && !in.failed(); ++i) {
        in.range();
        in.blame(Count::CountBeyond);
    }
    return message;
}

// The fields of the type; the reason is left in the reader.
Message read_body(FieldReader &in, uint8_t type, uint8_t flags)
{
    switch (static_cast<MessageType>(type)) {
    case MessageType::Hello:
        return read_hello(in);
    case MessageType::Register:
        return read_register(in);
    case MessageType::RegisterStop:
        return read_register_stop(in);
    case MessageType::JoinPrune:
        return read_join_prune(in);
    case MessageType::Bootstrap:
        return read_bootstrap(in, flags);
    case MessageType::Assert:
        return read_assert(in);
    case MessageType::CandidateRp:
        return read_candidate(in);
    }
    in.refuse(Count::MessageType);
    return {};
}

} // namespace

bool JoinPruneGroups::next(JoinPruneGroup *group)
{
    if (bytes_.empty()) {
        return false;
    }
    FieldReader in(family_, bytes_);

    *group = read_group(in);
    bytes_ = in.rest();
    return true;
}

bool BootstrapRanges::next(BootstrapRange *range)
{
    if (bytes_.empty()) {
        return false;
    }
    FieldReader in(family_, bytes_);

    *range = read_range(in);
    bytes_ = in.rest();
    return true;
}

BootstrapRp BootstrapRanges::rp(const BootstrapRange &range, size_t at) const
{
    const size_t size = bootstrap_rp_size(family_);
    FieldReader in(family_, range.rp_bytes.subspan(at * size, size));
    return read_rp(in);
}

GroupRange CandidateRp::range(size_t at) const
{
    const size_t size = encoded_group_size(rp.family);
    return FieldReader(rp.family, range_bytes.subspan(at * size, size)).range();
}

Count read_message(const Envelope &envelope, std::span<const uint8_t> bytes, Message *message)
{
    FieldReader in(envelope.source.family, bytes);
    const uint8_t first = in.u8();
    const uint8_t flags = in.u8();

    in.u16();
    if (in.failed()) {
        return Count::ShortMessage;
    }
    if (first >> 4 != PIM_VERSION) {
        return Count::Version;
    }
    if (!checksum_is_right(envelope, bytes)) {
        return Count::Checksum;
    }
    const Message read = read_body(in, first & 0x0f, flags);

    if (in.left() > 0) {
        in.refuse(Count::BytesBehind);
    }
    if (in.reason() == NO_DROP) {
        *message = read;
    }
    return in.reason();
}

} // namespace pimsmd
