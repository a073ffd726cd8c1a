/*
 * Trace lines about pairs and messages of peers. Sources are printed by %M and groups by %N, so that the
 * operator's access list applies, peers and originators by %A.
 */
#ifndef DAEMONS_MSDPD_TRACE_H
#define DAEMONS_MSDPD_TRACE_H

#include "daemons/common/trace.h"
#include "daemons/msdpd/ipv4.h"

namespace msdpd
{

using mcastd::TraceCategory;

constexpr MRIB_GMP_VRF_KEY_S TRACE_KEY = {MCAST_FAMILY_IPV4, 0};

// What became of a pair that a peer announced.
inline void trace_pair(const Pair &pair, Ipv4 peer, const char *what)
{
    if (mcastd::tracing(TraceCategory::Group)) {
        const MCAST_ADDR_S source = to_record(pair.source);
        const MCAST_ADDR_S group = to_record(pair.group);
        const MCAST_ADDR_S from = to_record(peer);

        mcastd::trace(TraceCategory::Group, TRACE_KEY, "(%M, %N) from peer %A: %s", &source, &group, &from,
                      what);
    }
}

// A message that a peer sent or is sent.
inline void trace_message(Ipv4 peer, const char *what, Ipv4 about, size_t entries)
{
    if (mcastd::tracing(TraceCategory::Packet)) {
        const MCAST_ADDR_S other = to_record(peer);
        const MCAST_ADDR_S address = to_record(about);

        mcastd::trace(TraceCategory::Packet, TRACE_KEY, "peer %A: %s, %A, %u entries", &other, what, &address,
                      static_cast<uint32_t>(entries));
    }
}

// What the MRIB process is told of a pair.
inline void trace_told(const Pair &pair, bool present)
{
    if (mcastd::tracing(TraceCategory::Channel)) {
        const MCAST_ADDR_S source = to_record(pair.source);
        const MCAST_ADDR_S group = to_record(pair.group);

        mcastd::trace(TraceCategory::Channel, TRACE_KEY, "(%M, %N) told to the MRIB process: %s", &source,
                      &group, present ? "present" : "gone");
    }
}

// That the MRIB process is told to forget the remote sources of the group, for 0.0.0.0 all of them.
inline void trace_forgotten(Ipv4 group)
{
    if (mcastd::tracing(TraceCategory::Channel)) {
        const MCAST_ADDR_S record = to_record(group);

        mcastd::trace(TraceCategory::Channel, TRACE_KEY, "every source of %A told to the MRIB process: gone",
                      &record);
    }
}

} // namespace msdpd

#endif
