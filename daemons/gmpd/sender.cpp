/*
 * One raw socket sends every query; a control message names the interface and the source address. The kernel
 * writes the IP header, with the router alert that options of the socket ask for once, and the ICMPv6 checksum.
 * Nothing is read: packets come through the receiver's sockets, and a filter keeps this one's queue empty.
 */
#include "daemons/gmpd/sender.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <linux/filter.h>

#include "daemons/common/log.h"
#include "daemons/common/send_header.h"
#include "daemons/gmpd/trace.h"

namespace gmpd
{
namespace
{

// Internetwork control, as for all routing traffic.
constexpr int TRAFFIC_CLASS = IPTOS_CLASS_CS6;
// The router alert option of IPv4, and the hop-by-hop header with that of IPv6 for MLD.
constexpr std::array<uint8_t, 4> ROUTER_ALERT4 = {0x94, 4, 0, 0};
constexpr std::array<uint8_t, 8> ROUTER_ALERT6 = {0, 0, 5, 2, 0, 0, 1, 0};
constexpr size_t LONGEST_MESSAGE = 65535;

void trace_query(const Interface &interface, const Query &query, const Address &destination, size_t size)
{
    const auto bytes = static_cast<uint32_t>(size);
    if (is_unspecified(query.group)) {
        trace(TraceCategory::Packet, interface, "%u bytes from %A to %A on %P", bytes, &interface.address,
              &destination, interface.index);
    } else {
        trace(TraceCategory::Packet, interface, "%u bytes from %A to %N on %P", bytes, &interface.address,
              &destination, interface.index);
    }
}

} // namespace

bool Sender::set_up_ipv4()
{
    return set_option(socket_, IPPROTO_IP, IP_OPTIONS, ROUTER_ALERT4) &&
           set_option(socket_, IPPROTO_IP, IP_MULTICAST_TTL, 1) &&
           set_option(socket_, IPPROTO_IP, IP_MULTICAST_LOOP, 0) &&
           set_option(socket_, IPPROTO_IP, IP_TOS, TRAFFIC_CLASS);
}

bool Sender::set_up_ipv6()
{
    return set_option(socket_, IPPROTO_IPV6, IPV6_HOPOPTS, ROUTER_ALERT6) &&
           set_option(socket_, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, 1) &&
           set_option(socket_, IPPROTO_IPV6, IPV6_MULTICAST_LOOP, 0) &&
           set_option(socket_, IPPROTO_IPV6, IPV6_TCLASS, TRAFFIC_CLASS);
}

bool Sender::open(uint16_t family)
{
    const bool ipv4 = family == MCAST_FAMILY_IPV4;
    sock_filter nothing[] = {BPF_STMT(BPF_RET | BPF_K, 0)};
    const sock_fprog filter = {1, nothing};
    family_ = family;
    socket_ = mcastd::Descriptor(socket(ipv4 ? AF_INET : AF_INET6, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC,
                                        static_cast<int>(ipv4 ? +IPPROTO_IGMP : +IPPROTO_ICMPV6)));
    if (!socket_.valid()) {
        mcastd::log_error("cannot open a raw socket: %s%s", strerror(errno),
                          errno == EPERM ? " (root or the capability CAP_NET_RAW is needed)" : "");
        return false;
    }
    // The socket is never read; the filter keeps packets from piling up in it.
    if (!set_option(socket_, SOL_SOCKET, SO_ATTACH_FILTER, filter) ||
        !(ipv4 ? set_up_ipv4() : set_up_ipv6())) {
        mcastd::log_error("cannot set up the raw socket: %s", strerror(errno));
        return false;
    }
    return true;
}

void Sender::send_query(Interface &interface, const Query &query)
{
    static std::array<uint8_t, LONGEST_MESSAGE> buffer;
    const Address destination = query_destination(query);
    const size_t size = build_query(query, buffer);
    const mcastd::SendHeader header(interface.index, interface.address, destination, {buffer.data(), size});
    trace_query(interface, query, destination, size);
    if (size == 0 || sendmsg(socket_.get(), header.get(), MSG_DONTWAIT) < 0) {
        ++interface.counters[Count::SendFailed];
        mcastd::log_info("%s: query to %s not sent: %s", interface.name.c_str(), to_text(destination).c_str(),
                         strerror(errno));
    }
}

} // namespace gmpd
