/*
 * Hosts send version 3 reports to a group that every router may join, but older reports to the reported group
 * itself; the kernel passes those to the routing socket alone, which another process holds. A packet socket
 * hears both, whoever routes. A filter in the kernel lets only IGMP, or the four MLD messages with or without a
 * hop-by-hop header, pass; hardware filters are opened with an all-multicast membership.
 *
 * Each interface has a socket, with a queue in the kernel, of its own, and a turn in each round of the event loop
 * that ends after so many packets or milliseconds:
 *
 *      link 1 ── flood ──► queue, full ──► ┐  64 packets or 2 ms each,
 *      link 2 ── join ───► queue ────────► ┼─ then the next socket, timers, the MRIB channel
 *      link 3 ───────────► queue ────────► ┘
 *
 * So a flood on one link fills the queue of that link, and packets are lost there alone.
 *
 * A socket sees what arrives on the wire before the kernel has checked anything, so that the parser checks
 * everything. What this machine sends is never seen by a socket bound to one protocol.
 */
#include "daemons/gmpd/receiver.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <net/if_arp.h>
#include <span>
#include <sys/epoll.h>
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

// What one interface may take of a round of the event loop; then the others have their turn.
constexpr int PACKETS_PER_TURN = 64;
constexpr std::chrono::milliseconds TURN(2);

constexpr size_t BUFFER_SIZE = 65536;
constexpr uint32_t RETRY_MS = 1000;
constexpr uint32_t WHOLE_PACKET = 0xffff;

// Room for packets that wait in the kernel: of one interface, and of all where there are many.
constexpr size_t MOST_RECEIVE_BUFFER = size_t{8} << 20;
constexpr size_t LEAST_RECEIVE_BUFFER = size_t{1} << 20;
constexpr size_t ALL_RECEIVE_BUFFERS = size_t{64} << 20;

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

// Whether no host has heard the packet, whatever its destination says. Links without such addresses do not tell.
bool is_for_this_machine_alone(const sockaddr_ll &sender)
{
    return sender.sll_hatype == ARPHRD_ETHER && sender.sll_pkttype == PACKET_HOST;
}

} // namespace

Receiver::Receiver(Process &process, mcastd::Reactor &reactor)
    : process_(process), reactor_(reactor), buffer_(BUFFER_SIZE)
{
}

Receiver::~Receiver()
{
    close();
}

bool Receiver::open()
{
    // Protocol 0: nothing arrives.
    const mcastd::Descriptor socket(::socket(AF_PACKET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!socket.valid()) {
        mcastd::log_error("cannot open a packet socket: %s%s", strerror(errno),
                          errno == EPERM ? " (root or the capability CAP_NET_RAW is needed)" : "");
    }
    return socket.valid();
}

void Receiver::close()
{
    while (!ears_.empty()) {
        leave(ears_.begin()->first);
    }
    mcastd::timer_stop(process_.timers, retry_);
}

void Receiver::open_ear(uint32_t if_index, Ear &ear)
{
    const bool ipv4 = process_.config.family == MCAST_FAMILY_IPV4;
    const std::span<const sock_filter> program =
        ipv4 ? std::span<const sock_filter>(IPV4_FILTER) : IPV6_FILTER;
    const sock_fprog filter = {static_cast<unsigned short>(program.size()),
                               const_cast<sock_filter *>(program.data())};
    const int room = static_cast<int>(
        std::max(LEAST_RECEIVE_BUFFER, std::min(MOST_RECEIVE_BUFFER, ALL_RECEIVE_BUFFERS / ears_.size())));
    sockaddr_ll address{};
    packet_mreq request{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ipv4 ? ETH_P_IP : ETH_P_IPV6);
    address.sll_ifindex = static_cast<int>(if_index);
    request.mr_ifindex = address.sll_ifindex;
    request.mr_type = PACKET_MR_ALLMULTI;
    // Protocol 0: nothing arrives before the filter is in place and the socket is bound to the interface.
    ear.socket = mcastd::Descriptor(socket(AF_PACKET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!ear.socket.valid() || !set_option(ear.socket, SOL_SOCKET, SO_ATTACH_FILTER, filter) ||
        bind(ear.socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 ||
        !reactor_.add(ear.socket.get(), EPOLLIN, [this, if_index](uint32_t) { read_some(if_index); })) {
        mcastd::log_warning("cannot hear interface %u: %s, trying every second", if_index, strerror(errno));
        ear.socket = mcastd::Descriptor();
        return;
    }
    if (!set_option(ear.socket, SOL_PACKET, PACKET_ADD_MEMBERSHIP, request)) {
        mcastd::log_warning("interface %u does not hand over every group: %s", if_index, strerror(errno));
    }
    if (!set_option(ear.socket, SOL_SOCKET, SO_RCVBUFFORCE, room) &&
        !set_option(ear.socket, SOL_SOCKET, SO_RCVBUF, room)) {
        mcastd::log_warning("cannot enlarge the receive buffer: %s", strerror(errno));
    }
}

void Receiver::open_if_closed(uint32_t if_index, Ear &ear)
{
    if (!ear.socket.valid()) {
        open_ear(if_index, ear);
    }
    if (!ear.socket.valid()) {
        retry_later();
    }
}

void Receiver::join(uint32_t if_index)
{
    open_if_closed(if_index, ears_[if_index]);
}

void Receiver::leave(uint32_t if_index)
{
    const auto found = ears_.find(if_index);
    if (found == ears_.end()) {
        return;
    }
    if (found->second.socket.valid()) {
        count_drops(if_index, found->second);
        reactor_.remove(found->second.socket.get());
    }
    gone_drops_ += found->second.drops;
    ears_.erase(found);
}

void Receiver::retry_later()
{
    mcastd::timer_start(
        process_.timers, retry_, RETRY_MS, [](void *owner) { static_cast<Receiver *>(owner)->retry(); },
        this);
}

void Receiver::retry()
{
    for (auto &[if_index, ear] : ears_) {
        open_if_closed(if_index, ear);
    }
}

// False when no packet waits.
bool Receiver::read_one(uint32_t if_index, const Ear &ear)
{
    sockaddr_ll sender{};
    socklen_t sender_size = sizeof(sender);
    const ssize_t length = recvfrom(ear.socket.get(), buffer_.data(), buffer_.size(), MSG_TRUNC,
                                    reinterpret_cast<sockaddr *>(&sender), &sender_size);

    if (length < 0) {
        // The socket reports an interface that went down once, and goes on.
        return errno == EINTR || errno == ENETDOWN;
    }
    const auto found = process_.interfaces.find(if_index);

    if (sender.sll_pkttype == PACKET_OUTGOING || sender.sll_pkttype == PACKET_OTHERHOST ||
        found == process_.interfaces.end() || !found->second->running) {
        return true;
    }
    Interface &interface = *found->second;
    Message message;
    const size_t size = static_cast<size_t>(length);
    Count drop = size > buffer_.size()
                     ? Count::Truncated
                     : parse_packet(process_.config.family, std::span(buffer_).first(size), message);

    if (drop == NO_DROP && message.kind == MessageKind::Query && is_for_this_machine_alone(sender)) {
        drop = Count::UnicastQuery;
    }
    if (drop != NO_DROP) {
        ++interface.counters[drop];
        trace(TraceCategory::Packet, interface, "packet of %u bytes on %P: %s", static_cast<uint32_t>(size),
              interface.index, count_name(drop));
        return true;
    }
    handle_message(interface, message);
    return true;
}

void Receiver::read_some(uint32_t if_index)
{
    Ear &ear = ears_.at(if_index);
    const auto end = std::chrono::steady_clock::now() + TURN;
    for (int i = 0; i < PACKETS_PER_TURN && std::chrono::steady_clock::now() < end; ++i) {
        if (!read_one(if_index, ear)) {
            return;
        }
    }
    count_drops(if_index, ear);
    if (ear.drops > ear.drops_warned) {
        mcastd::log_warning(
            "interface %u: %llu packets were lost because they came faster than they were read", if_index,
            static_cast<unsigned long long>(ear.drops - ear.drops_warned));
        ear.drops_warned = ear.drops;
    }
}

void Receiver::count_drops(uint32_t if_index, Ear &ear)
{
    tpacket_stats statistics{};
    socklen_t size = sizeof(statistics);
    const auto found = process_.interfaces.find(if_index);
    // Reading sets the kernel's counter back to 0.
    if (getsockopt(ear.socket.get(), SOL_PACKET, PACKET_STATISTICS, &statistics, &size) == 0) {
        ear.drops += statistics.tp_drops;
        if (found != process_.interfaces.end()) {
            found->second->counters[Count::LostInKernel] += statistics.tp_drops;
        }
    }
}

uint64_t Receiver::kernel_drops()
{
    uint64_t drops = gone_drops_;
    for (auto &[if_index, ear] : ears_) {
        if (ear.socket.valid()) {
            count_drops(if_index, ear);
        }
        drops += ear.drops;
    }
    return drops;
}

} // namespace gmpd
