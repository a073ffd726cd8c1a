#include "daemons/msdpd/wire.h"

#include "daemons/common/bytes.h"

namespace msdpd
{
namespace
{

using mcastd::ByteReader;
using mcastd::ByteWriter;

constexpr size_t ENTRY_SIZE = 12;
constexpr size_t SOURCE_ACTIVE_HEADER_SIZE = TLV_HEADER_SIZE + 5;
constexpr size_t REQUEST_SIZE = TLV_HEADER_SIZE + 5;
constexpr uint8_t HOST_PREFIX_LENGTH = 32;

void write_header(ByteWriter &out, uint8_t type, size_t size)
{
    out.u8(type);
    out.u16(static_cast<uint16_t>(size));
}

} // namespace

Framing next_tlv(std::span<const uint8_t> bytes, Tlv *tlv)
{
    ByteReader in(bytes);
    const uint8_t type = in.u8();
    const uint16_t size = in.u16();

    if (in.failed()) {
        return Framing::Incomplete;
    }
    if (size < TLV_HEADER_SIZE || size > MAX_TLV_SIZE) {
        return Framing::BadLength;
    }
    const std::span<const uint8_t> value = in.take(size - TLV_HEADER_SIZE);

    if (in.failed()) {
        return Framing::Incomplete;
    }
    *tlv = {type, value, size};
    return Framing::Complete;
}

bool parse_source_active(std::span<const uint8_t> value, SourceActive *message)
{
    ByteReader in(value);
    const uint8_t count = in.u8();

    message->rp = {in.u32()};
    message->pairs.clear();
    message->ignored_entries = 0;
    for (unsigned i = 0; i < count && !in.failed(); ++i) {
        in.take(3);
        const uint8_t prefix_length = in.u8();
        const Ipv4 group = {in.u32()};
        const Ipv4 source = {in.u32()};

        if (prefix_length == HOST_PREFIX_LENGTH) {
            message->pairs.push_back({group, source});
        } else {
            ++message->ignored_entries;
        }
    }
    message->data_size = in.left();
    return !in.failed();
}

bool parse_request(std::span<const uint8_t> value, Ipv4 *group)
{
    ByteReader in(value);
    in.u8();
    *group = {in.u32()};
    return !in.failed() && in.left() == 0;
}

Bytes build_source_active(uint8_t type, Ipv4 rp, std::span<const Pair> pairs)
{
    Bytes bytes(SOURCE_ACTIVE_HEADER_SIZE + pairs.size() * ENTRY_SIZE);
    ByteWriter out(bytes);
    write_header(out, type, bytes.size());
    out.u8(static_cast<uint8_t>(pairs.size()));
    out.u32(rp.number);
    for (const Pair &pair : pairs) {
        out.u32(HOST_PREFIX_LENGTH); // behind three reserved bytes
        out.u32(pair.group.number);
        out.u32(pair.source.number);
    }
    return bytes;
}

Bytes build_request(Ipv4 group)
{
    Bytes bytes(REQUEST_SIZE);
    ByteWriter out(bytes);
    write_header(out, TLV_REQUEST, bytes.size());
    out.u8(0);
    out.u32(group.number);
    return bytes;
}

Bytes build_keepalive()
{
    Bytes bytes(TLV_HEADER_SIZE);
    ByteWriter out(bytes);
    write_header(out, TLV_KEEPALIVE, bytes.size());
    return bytes;
}

} // namespace msdpd
