/*
 * Hosts send version 3 reports to a group that every router may join, but older reports to the reported group
 * itself; the kernel passes those to the routing socket alone, which another process holds. A packet socket
 * hears both, whoever routes. It is bound to the IP protocol, not to an interface: the sender's record names
 * the interface. A filter in the kernel lets only IGMP, or the four MLD messages with or without a hop-by-hop
 * header, pass; hardware filters are opened per interface with an all-multicast membership.
 *
 * The socket sees what arrives on the wire before the kernel has checked anything, so that the parser checks
 * everything. What this machine sends is never seen by a socket bound to one protocol.
 */
#include "daemons/gmpd/receiver.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <span>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>

#include "daemons/common/log.h"
#include "daemons/gmpd/message_handler.h"
#include "daemons/gmpd/packet_parse.h"
#include "daemons/gmpd/trace.h"

namespace gmpd
{
namespace
{

constexpr int PACKETS_PER_ROUND = 64;
constexpr int RECEIVE_BUFFER = 8 << 20;
constexpr uint32_t WHOLE_PACKET = 0xffff;

// Offsets count from the IP header.
constexpr sock_filter IPV4_FILTER[] = {
    BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 9), // protocol
    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 2, 0, 1),
    BPF_STMT(BPF_RET | BPF_K, WHOLE_PACKET),
    BPF_STMT(BPF_RET | BPF_K, 0),
};

constexpr sock_filter IPV6_FILTER[] = {
    BPF_STMT(BPF_LDX | BPF_W | BPF_IMM, 40), // where the ICMPv6 header begins
    BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 6),   // next header
    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 58, 7, 0),
    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 0, 12),
    BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 40), // next header after hop-by-hop
    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 58, 0, 10),
    BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 41), // length of the hop-by-hop header
    BPF_STMT(BPF_ALU | BPF_LSH | BPF_K, 3),
    BPF_STMT(BPF_ALU | BPF_ADD | BPF_K, 48),
    BPF_STMT(BPF_MISC | BPF_TAX, 0),
    BPF_STMT(BPF_LD | BPF_B | BPF_IND, 0), // ICMPv6 type
    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 143, 3, 0),
    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 132, 2, 0),
    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 131, 1, 0),
    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 130, 0, 1),
    BPF_STMT(BPF_RET | BPF_K, WHOLE_PACKET),
    BPF_STMT(BPF_RET | BPF_K, 0),
};

} // namespace

bool Receiver::open()
{
    const bool ipv4 = process_.config.family == MCAST_FAMILY_IPV4;

    // Protocol 0: nothing arrives before the filter stands.
    socket_ = mcastd::Descriptor(socket(AF_PACKET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!socket_.valid()) {
        mcastd::log_error("cannot open a packet socket: %s%s", strerror(errno),
                          errno == EPERM ? " (root or the capability CAP_NET_RAW is needed)" : "");
        return false;
    }
    const std::span<const sock_filter> program =
        ipv4 ? std::span<const sock_filter>(IPV4_FILTER) : IPV6_FILTER;
    const sock_fprog filter = {static_cast<unsigned short>(program.size()),
                               const_cast<sock_filter *>(program.data())};
    sockaddr_ll address{};

    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ipv4 ? ETH_P_IP : ETH_P_IPV6);
    if (!set_option(socket_, SOL_SOCKET, SO_ATTACH_FILTER, filter) ||
        bind(socket_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        mcastd::log_error("cannot set up the packet socket: %s", strerror(errno));
        return false;
    }
    if (!set_option(socket_, SOL_SOCKET, SO_RCVBUFFORCE, RECEIVE_BUFFER) &&
        !set_option(socket_, SOL_SOCKET, SO_RCVBUF, RECEIVE_BUFFER)) {
        mcastd::log_warning("cannot enlarge the receive buffer: %s", strerror(errno));
    }
    return true;
}

void Receiver::close()
{
    kernel_drops(); // which end with the socket
    socket_ = mcastd::Descriptor();
}

void Receiver::membership(int option, uint32_t if_index)
{
    packet_mreq request{};
    request.mr_ifindex = static_cast<int>(if_index);
    request.mr_type = PACKET_MR_ALLMULTI;
    // Leaving fails for an interface that is gone, which has taken the membership with it.
    if (!set_option(socket_, SOL_PACKET, option, request) && option == PACKET_ADD_MEMBERSHIP) {
        mcastd::log_warning("interface %u does not hand over every group: %s", if_index, strerror(errno));
    }
}

void Receiver::join(uint32_t if_index)
{
    membership(PACKET_ADD_MEMBERSHIP, if_index);
}

void Receiver::leave(uint32_t if_index)
{
    membership(PACKET_DROP_MEMBERSHIP, if_index);
}

// False when no packet waits.
bool Receiver::read_one()
{
    sockaddr_ll sender{};
    socklen_t sender_size = sizeof(sender);
    const ssize_t length = recvfrom(socket_.get(), buffer_.data(), buffer_.size(), MSG_TRUNC,
                                    reinterpret_cast<sockaddr *>(&sender), &sender_size);

    if (length < 0) {
        // The socket reports an interface that went down once, and goes on.
        return errno == EINTR || errno == ENETDOWN;
    }
    if (sender.sll_pkttype == PACKET_OUTGOING || sender.sll_pkttype == PACKET_OTHERHOST) {
        return true;
    }
    const auto found = process_.interfaces.find(static_cast<uint32_t>(sender.sll_ifindex));

    if (found == process_.interfaces.end() || !found->second->running) {
        return true;
    }
    Interface &interface = *found->second;
    Message message;
    const size_t size = static_cast<size_t>(length);
    const Count drop = size > buffer_.size()
                           ? Count::Truncated
                           : parse_packet(process_.config.family, std::span(buffer_).first(size), message);

    if (drop != NO_DROP) {
        ++interface.counters[drop];
        trace(TraceCategory::Packet, interface, "packet of %u bytes on %P: %s", static_cast<uint32_t>(size),
              interface.index, count_name(drop));
        return true;
    }
    handle_message(interface, message);
    return true;
}

void Receiver::read_some()
{
    for (int i = 0; i < PACKETS_PER_ROUND; ++i) {
        if (!read_one()) {
            return;
        }
    }
    const uint64_t drops = kernel_drops();

    if (drops > drops_warned_) {
        mcastd::log_warning("%llu packets were lost because they came faster than they were read",
                            static_cast<unsigned long long>(drops - drops_warned_));
        drops_warned_ = drops;
    }
}

uint64_t Receiver::kernel_drops()
{
    tpacket_stats statistics{};
    socklen_t size = sizeof(statistics);
    // Reading sets the kernel's counter back to 0.
    if (getsockopt(socket_.get(), SOL_PACKET, PACKET_STATISTICS, &statistics, &size) == 0) {
        kernel_drops_ += statistics.tp_drops;
    }
    return kernel_drops_;
}

} // namespace gmpd
