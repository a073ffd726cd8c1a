#include "daemons/pimsmd/socket.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <sys/socket.h>
#include <linux/filter.h>
#include <linux/sock_diag.h>

#include "daemons/common/send_header.h"
#include "daemons/pimsmd/message_type.h"

namespace pimsmd
{
namespace
{

// Internetwork control, as for all routing traffic.
constexpr int TRAFFIC_CLASS = IPTOS_CLASS_CS6;
constexpr int RECEIVE_BUFFER = 4 << 20;
constexpr int SEND_BUFFER = 1 << 20;
constexpr uint32_t WHOLE_PACKET = 0xffffffff;
constexpr size_t SMALLEST_IPV4_HEADER = 20;

// Options that older headers do not name.
constexpr int BIND_TO_IF_INDEX = 62;
constexpr int ONLY_OWN_GROUPS4 = 49; // IP_MULTICAST_ALL
constexpr int ONLY_OWN_GROUPS6 = 29; // IPV6_MULTICAST_ALL

bool may_wait(int error)
{
    return error == EAGAIN || error == ENOBUFS;
}

} // namespace

bool Socket::attach_filter(bool of_link) const
{
    const bool ipv4 = family_ == MCAST_FAMILY_IPV4;
    const auto type = [](MessageType one) { return static_cast<uint32_t>(one); };
    const uint32_t first = type(of_link ? MessageType::Hello : MessageType::Register);
    const uint32_t second = type(of_link ? MessageType::JoinPrune : MessageType::RegisterStop);
    const uint32_t third = type(of_link ? MessageType::Bootstrap : MessageType::CandidateRp);
    const uint32_t fourth = type(of_link ? MessageType::Assert : MessageType::CandidateRp);
    // IPv4 packets begin with their IP header, IPv6 ones behind it.
    sock_filter program[] = {
        ipv4 ? sock_filter BPF_STMT(BPF_LDX | BPF_B | BPF_MSH, 0)
             : sock_filter BPF_STMT(BPF_LDX | BPF_W | BPF_IMM, 0),
        BPF_STMT(BPF_LD | BPF_B | BPF_IND, 0),
        BPF_STMT(BPF_ALU | BPF_AND | BPF_K, 0xf),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, first, 3, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, second, 2, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, third, 1, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, fourth, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, WHOLE_PACKET),
        BPF_STMT(BPF_RET | BPF_K, 0),
    };
    const sock_fprog filter = {sizeof(program) / sizeof(program[0]), program};
    return mcastd::set_option(socket_, SOL_SOCKET, SO_ATTACH_FILTER, filter);
}

bool Socket::set_up_ipv4(uint32_t if_index) const
{
    using mcastd::set_option;
    ip_mreqn group{};
    memcpy(&group.imr_multiaddr, g_stPimAllRoutersAddr4.address, sizeof(group.imr_multiaddr));
    group.imr_ifindex = static_cast<int>(if_index);
    const bool common = set_option(socket_, IPPROTO_IP, IP_TOS, TRAFFIC_CLASS) &&
                        set_option(socket_, IPPROTO_IP, IP_MTU_DISCOVER, int{IP_PMTUDISC_DONT}) &&
                        set_option(socket_, IPPROTO_IP, IP_MULTICAST_LOOP, 0) &&
                        set_option(socket_, IPPROTO_IP, ONLY_OWN_GROUPS4, 0);
    return common && (if_index == 0 || (set_option(socket_, IPPROTO_IP, IP_MULTICAST_TTL, 1) &&
                                        set_option(socket_, IPPROTO_IP, IP_TTL, 1) &&
                                        set_option(socket_, IPPROTO_IP, IP_ADD_MEMBERSHIP, group)));
}

bool Socket::set_up_ipv6(uint32_t if_index) const
{
    using mcastd::set_option;
    ipv6_mreq group{};
    memcpy(&group.ipv6mr_multiaddr, g_stPimAllRoutersAddr6.address, sizeof(group.ipv6mr_multiaddr));
    group.ipv6mr_interface = if_index;
    const bool common = set_option(socket_, IPPROTO_IPV6, IPV6_TCLASS, TRAFFIC_CLASS) &&
                        set_option(socket_, IPPROTO_IPV6, IPV6_MTU_DISCOVER, int{IPV6_PMTUDISC_DONT}) &&
                        set_option(socket_, IPPROTO_IPV6, IPV6_RECVPKTINFO, 1) &&
                        set_option(socket_, IPPROTO_IPV6, IPV6_MULTICAST_LOOP, 0) &&
                        set_option(socket_, IPPROTO_IPV6, ONLY_OWN_GROUPS6, 0);
    return common && (if_index == 0 || (set_option(socket_, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, 1) &&
                                        set_option(socket_, IPPROTO_IPV6, IPV6_UNICAST_HOPS, 1) &&
                                        set_option(socket_, IPPROTO_IPV6, IPV6_ADD_MEMBERSHIP, group)));
}

bool Socket::open(uint16_t family, uint32_t if_index)
{
    using mcastd::set_option;
    family_ = family;
    const bool ipv4 = family == MCAST_FAMILY_IPV4;
    const int index = static_cast<int>(if_index);
    socket_ = mcastd::Descriptor(
        socket(ipv4 ? AF_INET : AF_INET6, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, PROTOCOL_PIM));
    const bool done = socket_.valid() && attach_filter(if_index != 0) &&
                      (if_index == 0 || set_option(socket_, SOL_SOCKET, BIND_TO_IF_INDEX, index)) &&
                      (ipv4 ? set_up_ipv4(if_index) : set_up_ipv6(if_index));

    if (!done) {
        const int error = errno;
        socket_ = mcastd::Descriptor();
        errno = error;
        return false;
    }
    // Without the right to more than the system's limit the kernel takes what it allows.
    if (!set_option(socket_, SOL_SOCKET, SO_RCVBUFFORCE, RECEIVE_BUFFER)) {
        set_option(socket_, SOL_SOCKET, SO_RCVBUF, RECEIVE_BUFFER);
    }
    if (!set_option(socket_, SOL_SOCKET, SO_SNDBUFFORCE, SEND_BUFFER)) {
        set_option(socket_, SOL_SOCKET, SO_SNDBUF, SEND_BUFFER);
    }
    return true;
}

Socket::Outcome Socket::receive(std::span<uint8_t> buffer, Arrival *arrival, Count *reason) const
{
    sockaddr_storage sender{};
    alignas(cmsghdr) std::array<uint8_t, CMSG_SPACE(sizeof(in6_pktinfo))> control{};
    iovec bytes = {buffer.data(), buffer.size()};
    msghdr header{};
    header.msg_name = &sender;
    header.msg_namelen = sizeof(sender);
    header.msg_iov = &bytes;
    header.msg_iovlen = 1;
    header.msg_control = control.data();
    header.msg_controllen = control.size();
    const ssize_t length = recvmsg(socket_.get(), &header, MSG_DONTWAIT);

    if (length < 0) {
        *reason = NO_DROP;
        // The socket reports an interface that went down once, and goes on.
        return errno == EINTR || errno == ENETDOWN || errno == ENETUNREACH || errno == EHOSTUNREACH
                   ? Outcome::Refused
                   : Outcome::Nothing;
    }
    std::span<const uint8_t> packet = buffer.first(static_cast<size_t>(length));

    if ((header.msg_flags & MSG_TRUNC) != 0) {
        *reason = Count::Truncated;
        return Outcome::Refused;
    }
    if (family_ == MCAST_FAMILY_IPV4) {
        const size_t size = packet.empty() ? 0 : size_t{4} * (packet[0] & 0xf);

        if (size < SMALLEST_IPV4_HEADER || packet.size() < size) {
            *reason = Count::IpHeader;
            return Outcome::Refused;
        }
        arrival->envelope = {make_address(family_, &packet[12]), make_address(family_, &packet[16])};
        arrival->bytes = packet.subspan(size);
        return Outcome::Packet;
    }
    const cmsghdr *message = CMSG_FIRSTHDR(&header);

    if (message == nullptr || message->cmsg_type != IPV6_PKTINFO) {
        *reason = Count::IpHeader;
        return Outcome::Refused;
    }
    in6_pktinfo info;
    memcpy(&info, CMSG_DATA(message), sizeof(info));
    arrival->envelope = {make_address(family_, &reinterpret_cast<sockaddr_in6 &>(sender).sin6_addr),
                         make_address(family_, &info.ipi6_addr)};
    arrival->bytes = packet;
    return Outcome::Packet;
}

int Socket::send_now(uint32_t if_index, const Envelope &envelope, std::span<const uint8_t> message) const
{
    const mcastd::SendHeader header(if_index, envelope.source, envelope.destination, message);
    return sendmsg(socket_.get(), header.get(), MSG_DONTWAIT) < 0 ? errno : 0;
}

void Socket::send(uint32_t if_index, const Envelope &envelope, std::span<const uint8_t> message,
                  Counters &counters)
{
    const int error = waiting_.empty() ? send_now(if_index, envelope, message) : EAGAIN;
    if (error == 0) {
        return;
    }
    if (!may_wait(error)) {
        ++counters[error == EMSGSIZE ? Count::TooLong : Count::SendFailed];
        return;
    }
    if (waiting_bytes_ + message.size() > MOST_BYTES_WAITING) {
        ++counters[Count::SendQueueFull];
        return;
    }
    ++counters[Count::SendDelayed];
    waiting_.push_back({if_index, envelope, {message.begin(), message.end()}});
    waiting_bytes_ += message.size();
}

bool Socket::flush(Counters &counters)
{
    while (!waiting_.empty()) {
        const Waiting &next = waiting_.front();
        const int error = send_now(next.if_index, next.envelope, next.message);

        if (may_wait(error)) {
            return false;
        }
        if (error != 0) {
            ++counters[Count::SendFailed];
        }
        waiting_bytes_ -= next.message.size();
        waiting_.pop_front();
    }
    return true;
}

uint64_t Socket::take_kernel_drops()
{
    uint32_t info[SK_MEMINFO_VARS] = {};
    socklen_t size = sizeof(info);
    if (getsockopt(socket_.get(), SOL_SOCKET, SO_MEMINFO, info, &size) != 0) {
        return 0;
    }
    const uint32_t fresh = info[SK_MEMINFO_DROPS] - drops_;
    drops_ = info[SK_MEMINFO_DROPS];
    return fresh;
}

} // namespace pimsmd
