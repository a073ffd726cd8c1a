#include "daemons/pimsmd/wire_write.h"

#include "daemons/pimsmd/checksum.h"
#include "daemons/pimsmd/message_type.h"

namespace pimsmd
{
namespace
{

using mcastd::ByteWriter;

constexpr size_t IPV4_CHECKSUM_AT = PIM_HEADER_SIZE + 4 + 10;

void write_header(ByteWriter &out, MessageType type, uint8_t flags = 0)
{
    out.u8(static_cast<uint8_t>(PIM_VERSION << 4 | static_cast<uint8_t>(type)));
    out.u8(flags);
    out.u16(0); // the checksum, when the message is complete
}

size_t finished(const ByteWriter &writer, std::span<uint8_t> out, const Envelope &envelope)
{
    if (writer.failed()) {
        return 0;
    }
    put_checksum(envelope, out.first(writer.written()));
    return writer.written();
}

void write_option(ByteWriter &out, uint16_t option, uint16_t size)
{
    out.u16(option);
    out.u16(size);
}

void write_addresses(ByteWriter &out, std::span<const Address> addresses)
{
    const size_t size = addresses.empty() ? 0 : addresses.size() * encoded_unicast_size(addresses[0].family);
    if (size > UINT16_MAX) {
        out.fail();
        return;
    }
    write_option(out, OPTION_ADDRESSES, static_cast<uint16_t>(size));
    for (const Address &address : addresses) {
        write_unicast(out, address);
    }
}

// The header that a null Register has in the place of a packet (RFC 7761, section 4.9.3).
void write_null_ipv4(ByteWriter &out, const Register &message)
{
    out.u32(0x45000000 | IPV4_HEADER_SIZE); // version, words of the header, its length
    out.u32(0);
    out.u32(PROTOCOL_PIM << 16); // behind a TTL of zero; the checksum follows
    out.put(message.source.address, 4);
    out.put(message.group.address, 4);
}

// For IPv6 a PIM header follows, of zeroes but for its checksum, so that the packet is one.
void write_null_ipv6(ByteWriter &out, const Register &message)
{
    const uint8_t empty[PIM_HEADER_SIZE] = {};
    const uint16_t sum = checksum_of({message.source, message.group}, empty);
    out.u32(0x60000000);
    out.u16(PIM_HEADER_SIZE);
    out.u8(PROTOCOL_PIM);
    out.u8(0);
    out.put(message.source.address, 16);
    out.put(message.group.address, 16);
    out.u16(0);
    out.put(reinterpret_cast<const uint8_t *>(&sum), sizeof(sum));
}

void put_ipv4_checksum(std::span<uint8_t> out)
{
    const Envelope plain{any_address(MCAST_FAMILY_IPV4), any_address(MCAST_FAMILY_IPV4)};
    const uint16_t sum = checksum_of(plain, out.subspan(REGISTER_HEADER_SIZE, IPV4_HEADER_SIZE));
    std::memcpy(out.data() + IPV4_CHECKSUM_AT, &sum, sizeof(sum));
}

} // namespace

size_t write_hello(std::span<uint8_t> out, const Envelope &envelope, const Hello &hello,
                   std::span<const Address> addresses)
{
    ByteWriter writer(out);
    write_header(writer, MessageType::Hello);
    if (hello.holdtime_s) {
        write_option(writer, OPTION_HOLDTIME, 2);
        writer.u16(*hello.holdtime_s);
    }
    if (hello.lan_delay) {
        write_option(writer, OPTION_LAN_DELAY, 4);
        writer.u16(static_cast<uint16_t>((hello.lan_delay->tracking ? LAN_DELAY_TRACKING : 0) |
                                         (hello.lan_delay->propagation_ms & ~LAN_DELAY_TRACKING)));
        writer.u16(hello.lan_delay->override_ms);
    }
    if (hello.dr_priority) {
        write_option(writer, OPTION_DR_PRIORITY, 4);
        writer.u32(*hello.dr_priority);
    }
    if (hello.generation) {
        write_option(writer, OPTION_GENERATION, 4);
        writer.u32(*hello.generation);
    }
    if (!addresses.empty()) {
        write_addresses(writer, addresses);
    }
    return finished(writer, out, envelope);
}

size_t write_register(std::span<uint8_t> out, const Envelope &envelope, const Register &message)
{
    ByteWriter writer(out);
    const bool ipv4 = envelope.source.family == MCAST_FAMILY_IPV4;
    write_header(writer, MessageType::Register);
    writer.u32((message.border ? REGISTER_BORDER : 0) | (message.null ? REGISTER_NULL : 0));
    if (!message.null) {
        writer.put(message.packet.data(), message.packet.size());
    } else if (ipv4) {
        write_null_ipv4(writer, message);
    } else {
        write_null_ipv6(writer, message);
    }
    if (message.null && ipv4 && !writer.failed()) {
        put_ipv4_checksum(out);
    }
    return finished(writer, out, envelope);
}

size_t write_register_stop(std::span<uint8_t> out, const Envelope &envelope, const RegisterStop &message)
{
    ByteWriter writer(out);
    write_header(writer, MessageType::RegisterStop);
    write_group(writer, message.group);
    write_unicast(writer, message.source);
    return finished(writer, out, envelope);
}

size_t write_assert(std::span<uint8_t> out, const Envelope &envelope, const Assert &message)
{
    ByteWriter writer(out);
    write_header(writer, MessageType::Assert);
    write_group(writer, message.group);
    write_unicast(writer, message.source);
    writer.u32((message.rpt ? ASSERT_RPT : 0) | (message.preference & ~ASSERT_RPT));
    writer.u32(message.metric);
    return finished(writer, out, envelope);
}

size_t write_bootstrap(std::span<uint8_t> out, const Envelope &envelope, const Bootstrap &message,
                       std::span<const BootstrapRangeOut> ranges)
{
    ByteWriter writer(out);
    write_header(writer, MessageType::Bootstrap, message.no_forward ? BOOTSTRAP_NO_FORWARD : 0);
    writer.u16(message.fragment_tag);
    writer.u8(message.hash_mask_length);
    writer.u8(message.priority);
    write_unicast(writer, message.bsr);
    for (const BootstrapRangeOut &range : ranges) {
        if (range.rps.size() > range.rp_count) {
            writer.fail();
        }
        write_range(writer, range.range);
        writer.u8(range.rp_count);
        writer.u8(static_cast<uint8_t>(range.rps.size()));
        writer.u16(0);
        for (const BootstrapRp &rp : range.rps) {
            write_unicast(writer, rp.address);
            writer.u16(rp.holdtime_s);
            writer.u8(rp.priority);
            writer.u8(0);
        }
    }
    return finished(writer, out, envelope);
}

size_t write_candidate(std::span<uint8_t> out, const Envelope &envelope, const CandidateRp &message,
                       std::span<const GroupRange> ranges)
{
    ByteWriter writer(out);
    if (ranges.size() > UINT8_MAX) {
        return 0;
    }
    write_header(writer, MessageType::CandidateRp);
    writer.u8(static_cast<uint8_t>(ranges.size()));
    writer.u8(message.priority);
    writer.u16(message.holdtime_s);
    write_unicast(writer, message.rp);
    for (const GroupRange &range : ranges) {
        write_range(writer, range);
    }
    return finished(writer, out, envelope);
}

JoinPruneWriter::JoinPruneWriter(std::span<uint8_t> out, const Address &upstream, uint16_t holdtime_s)
    : out_(out), family_(upstream.family)
{
    ByteWriter writer(out);
    write_header(writer, MessageType::JoinPrune);
    write_unicast(writer, upstream);
    writer.u8(0);
    writer.u8(0); // the number of groups, when the message is complete
    writer.u16(holdtime_s);
    size_ = writer.failed() ? 0 : writer.written();
}

bool JoinPruneWriter::add(const GroupRange &range, std::span<const TreeSource> joins,
                          std::span<const TreeSource> prunes)
{
    if (size_ == 0 || groups_ == MOST_GROUPS || joins.size() > MOST_SOURCES || prunes.size() > MOST_SOURCES) {
        return false;
    }
    ByteWriter writer(out_.subspan(size_));
    write_range(writer, range);
    writer.u16(static_cast<uint16_t>(joins.size()));
    writer.u16(static_cast<uint16_t>(prunes.size()));
    for (const std::span<const TreeSource> sources : {joins, prunes}) {
        for (const TreeSource &source : sources) {
            write_tree_source(writer, source);
        }
    }
    if (writer.failed()) {
        return false;
    }
    size_ += writer.written();
    ++groups_;
    return true;
}

size_t JoinPruneWriter::room() const
{
    return size_ == 0 || groups_ == MOST_GROUPS ? 0 : out_.size() - size_;
}

size_t JoinPruneWriter::finish(const Envelope &envelope)
{
    if (size_ != 0) {
        out_[head_size(family_) - 3] = static_cast<uint8_t>(groups_);
        put_checksum(envelope, out_.first(size_));
    }
    return size_;
}

} // namespace pimsmd
