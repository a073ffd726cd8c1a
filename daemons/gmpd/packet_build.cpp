#include "daemons/gmpd/packet_build.h"

#include <algorithm>

#include "daemons/gmpd/float_code.h"
#include "daemons/gmpd/protocol.h"
#include "daemons/gmpd/wire.h"

namespace gmpd
{
namespace
{

// IPv4 header with router alert; IPv6 header and the hop-by-hop header with router alert.
constexpr size_t IPV4_OVERHEAD = 24;
constexpr size_t IPV6_OVERHEAD = 48;
// Readers take at most this many sources; the count field itself is 16 bits wide.
constexpr size_t MOST_SOURCES = 65535;

uint32_t igmp_time(const Query &query)
{
    if (query.version == 1) {
        return 0;
    }
    uint32_t tenths = query.max_response_ms / 100;

    // A version 2 query with time 0 would read as version 1.
    return query.version == 3 ? encode_float_down(tenths, SHORT_MANTISSA)
                              : std::clamp<uint32_t>(tenths, 1, 255);
}

uint32_t mld_time(const Query &query)
{
    return query.version == 3 ? encode_float_down(query.max_response_ms, LONG_MANTISSA)
                              : std::min<uint32_t>(query.max_response_ms, 65535);
}

} // namespace

size_t build_query(const Query &query, std::span<uint8_t> buffer)
{
    const uint16_t family = query.group.family;
    const bool ipv4 = family == MCAST_FAMILY_IPV4;
    Writer out(buffer);

    out.u8(types_of(family).query);
    out.u8(ipv4 ? static_cast<uint8_t>(igmp_time(query)) : uint8_t{0});
    out.u16(0);
    if (!ipv4) {
        out.u16(static_cast<uint16_t>(mld_time(query)));
        out.u16(0);
    }
    out.addr(query.group);
    if (query.version == 3) {
        uint32_t robustness = query.robustness > ROBUSTNESS_MASK ? 0 : query.robustness;

        out.u8(static_cast<uint8_t>((query.suppress ? SUPPRESS_FLAG : 0u) | robustness));
        out.u8(static_cast<uint8_t>(encode_float_up(query.query_interval_s, SHORT_MANTISSA)));
        out.u16(static_cast<uint16_t>(query.sources.size()));
        for (const Address &source : query.sources) {
            out.addr(source);
        }
    }
    if (out.failed() || query.sources.size() > MOST_SOURCES) {
        return 0;
    }
    if (ipv4) {
        uint16_t checksum = internet_checksum(buffer.first(out.written()));

        buffer[2] = static_cast<uint8_t>(checksum >> 8);
        buffer[3] = static_cast<uint8_t>(checksum);
    }
    return out.written();
}

size_t sources_per_query(uint16_t family, uint32_t mtu)
{
    const bool ipv4 = family == MCAST_FAMILY_IPV4;
    const size_t fixed =
        ipv4 ? IPV4_OVERHEAD + OLD_IGMP_LENGTH + QUERY_TAIL : IPV6_OVERHEAD + OLD_MLD_LENGTH + QUERY_TAIL;
    const size_t room = mtu > fixed ? (mtu - fixed) / address_size(family) : 0;
    return std::clamp<size_t>(room, 1, MOST_SOURCES);
}

Address query_destination(const Query &query)
{
    return is_unspecified(query.group) ? all_systems(query.group.family) : query.group;
}

} // namespace gmpd
