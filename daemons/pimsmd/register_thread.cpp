#include "daemons/pimsmd/register_thread.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <linux/filter.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include "daemons/common/log.h"
#include "daemons/pimsmd/checksum.h"
#include "daemons/pimsmd/message_type.h"
#include "daemons/pimsmd/ms_timer.h"
#include "daemons/pimsmd/register_packet.h"
#include "mcast/event.h"

namespace pimsmd
{
namespace
{

constexpr int REPORTS_BUFFER = 8 << 20;

// A report has a packet and some hundred bytes more.
constexpr size_t REPORT_SIZE = 65536 + 512;

// Packets that are read before it is looked whether the thread is to end.
constexpr unsigned PACKETS_AT_ONCE = 256;

constexpr uint64_t ANY_CONTEXT = 1; // nobody looks at it

bool set_option(int fd, int level, int option, const void *value, size_t size)
{
    return setsockopt(fd, level, option, value, static_cast<socklen_t>(size)) == 0;
}

bool set_number(int fd, int level, int option, int value)
{
    return set_option(fd, level, option, &value, sizeof(value));
}

bool filter_with(int fd, std::span<sock_filter> code)
{
    const sock_fprog program{static_cast<unsigned short>(code.size()), code.data()};
    return set_option(fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof(program));
}

sockaddr_storage socket_address(const Address &address, socklen_t *size)
{
    sockaddr_storage storage{};
    if (address.family == MCAST_FAMILY_IPV4) {
        auto *to = reinterpret_cast<sockaddr_in *>(&storage);
        to->sin_family = AF_INET;
        std::memcpy(&to->sin_addr, address.address, sizeof(to->sin_addr));
        *size = sizeof(*to);
    } else {
        auto *to = reinterpret_cast<sockaddr_in6 *>(&storage);
        to->sin6_family = AF_INET6;
        std::memcpy(&to->sin6_addr, address.address, sizeof(to->sin6_addr));
        *size = sizeof(*to);
    }
    return storage;
}

// The ancillary record that says from which address and over which link a packet leaves.
union PacketInfo {
    cmsghdr header;
    char bytes[CMSG_SPACE(sizeof(in6_pktinfo))];
};

template <typename Info> void put_info(msghdr *message, int level, int type, const Info &info)
{
    message->msg_controllen = CMSG_SPACE(sizeof(info));
    cmsghdr *header = CMSG_FIRSTHDR(message);
    header->cmsg_level = level;
    header->cmsg_type = type;
    header->cmsg_len = CMSG_LEN(sizeof(info));
    std::memcpy(CMSG_DATA(header), &info, sizeof(info));
}

void leave_from(const Tunnel &tunnel, PacketInfo *control, msghdr *message)
{
    *control = {};
    message->msg_control = control;
    message->msg_controllen = sizeof(*control);
    if (tunnel.from.family == MCAST_FAMILY_IPV4) {
        in_pktinfo info{};
        info.ipi_ifindex = static_cast<int>(tunnel.if_index);
        std::memcpy(&info.ipi_spec_dst, tunnel.from.address, sizeof(info.ipi_spec_dst));
        put_info(message, IPPROTO_IP, IP_PKTINFO, info);
    } else {
        in6_pktinfo info{};
        info.ipi6_ifindex = tunnel.if_index;
        std::memcpy(&info.ipi6_addr, tunnel.from.address, sizeof(info.ipi6_addr));
        put_info(message, IPPROTO_IPV6, IPV6_PKTINFO, info);
    }
}

} // namespace

RegisterThread::RegisterThread(uint16_t family, RegisterTunnels &tunnels)
    : family_(family), tunnels_(tunnels), buffer_(REPORT_SIZE)
{
}

RegisterThread::~RegisterThread()
{
    close();
}

bool RegisterThread::open(uint32_t registers_per_s)
{
    wanted_rate_ = registers_per_s;
    if (open_reports() && open_sender() && start()) {
        return true;
    }
    mcastd::log_error("cannot send Registers: %s", strerror(errno));
    close();
    return false;
}

// Reports of packets that have no entry, and of those from a wrong interface, are not for this thread.
bool RegisterThread::open_reports()
{
    const int group = family_ == MCAST_FAMILY_IPV4 ? RTNLGRP_IPV4_MROUTE_R : RTNLGRP_IPV6_MROUTE_R;
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, REPORT_KIND_AT),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, REPORT_WHOLE_PACKET, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, 0xffffffff),
        BPF_STMT(BPF_RET | BPF_K, 0),
    };
    reports_ = mcastd::Descriptor(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (reports_.get() < 0 || !filter_with(reports_.get(), code)) {
        return false;
    }
    if (!set_number(reports_.get(), SOL_SOCKET, SO_RCVBUFFORCE, REPORTS_BUFFER)) {
        set_number(reports_.get(), SOL_SOCKET, SO_RCVBUF, REPORTS_BUFFER);
    }
    sockaddr_nl local{};
    local.nl_family = AF_NETLINK;
    return bind(reports_.get(), reinterpret_cast<const sockaddr *>(&local), sizeof(local)) == 0 &&
           set_number(reports_.get(), SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, group);
}

// The socket hears PIM as every raw one does, and is to keep nothing of it. Routers on the way may cut a Register.
bool RegisterThread::open_sender()
{
    const bool is_ipv4 = family_ == MCAST_FAMILY_IPV4;
    sock_filter nothing[] = {BPF_STMT(BPF_RET | BPF_K, 0)};
    sender_ = mcastd::Descriptor(socket(is_ipv4 ? AF_INET : AF_INET6, SOCK_RAW | SOCK_CLOEXEC, PROTOCOL_PIM));
    return sender_.get() >= 0 && filter_with(sender_.get(), nothing) &&
           (is_ipv4 ? set_number(sender_.get(), IPPROTO_IP, IP_MTU_DISCOVER, IP_PMTUDISC_DONT)
                    : set_number(sender_.get(), IPPROTO_IPV6, IPV6_MTU_DISCOVER, IPV6_PMTUDISC_DONT));
}

// The signals are the event loop's.
bool RegisterThread::start()
{
    sigset_t all;
    sigset_t before;
    epoll_ = mcastd::Descriptor(static_cast<int>(MCAST_CreateEpoll()));
    const auto set = static_cast<uint32_t>(epoll_.get());
    if (epoll_.get() < 0 ||
        MCAST_AddEpoll(set, static_cast<uint32_t>(reports_.get()), EPOLLIN, ANY_CONTEXT) != MCAST_OK) {
        return false;
    }
    end_ = mcastd::Descriptor(static_cast<int>(MCAST_CreateEvtFd(set, ANY_CONTEXT)));
    if (end_.get() < 0) {
        return false;
    }
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before);
    const int error = pthread_create(&thread_, nullptr, run, this);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    running_ = error == 0;
    return running_;
}

void RegisterThread::close()
{
    if (running_) {
        ending_ = true;
        eventfd_write(end_.get(), 1);
        pthread_join(thread_, nullptr);
        running_ = false;
        ending_ = false;
        thread_id_ = 0;
    }
    end_ = {};
    epoll_ = {};
    sender_ = {};
    reports_ = {};
}

register_thread::Counts RegisterThread::counts() const
{
    register_thread::Counts now;
    for (size_t i = 0; i < counts_.size(); ++i) {
        now.values[i] = counts_[i].load(std::memory_order_relaxed);
    }
    return now;
}

void RegisterThread::count(RegisterCount what, uint64_t by)
{
    counts_[static_cast<size_t>(what)].fetch_add(by, std::memory_order_relaxed);
}

void *RegisterThread::run(void *self)
{
    static_cast<RegisterThread *>(self)->serve();
    return nullptr;
}

void RegisterThread::serve()
{
    thread_id_ = MCAST_Gettid();
    while (!ending_) {
        epoll_event event{};
        if (epoll_wait(epoll_.get(), &event, 1, -1) < 0 && errno != EINTR) {
            return;
        }
        if (const uint32_t wanted = wanted_rate_; wanted != rate_per_s_) {
            rate_ = SharedRateLimit(wanted);
            rate_per_s_ = wanted;
        }
        for (unsigned i = 0; i < PACKETS_AT_ONCE && receive(); ++i) {
        }
    }
}

// Takes one report; false when there is none. Anybody with the right may send to the group: only the kernel is believed.
bool RegisterThread::receive()
{
    sockaddr_nl from{};
    socklen_t size = sizeof(from);
    const ssize_t length = recvfrom(reports_.get(), buffer_.data(), buffer_.size(), MSG_DONTWAIT,
                                    reinterpret_cast<sockaddr *>(&from), &size);
    if (length < 0) {
        if (errno == ENOBUFS) {
            count(RegisterCount::Overruns);
        }
        return errno == ENOBUFS || errno == EINTR;
    }
    if (from.nl_pid == 0) {
        take({buffer_.data(), static_cast<size_t>(length)});
    }
    return true;
}

void RegisterThread::take(std::span<uint8_t> bytes)
{
    RegisterReport report;
    while (next_report(family_, &bytes, &report)) {
        const std::optional<Tunnel> tunnel = tunnels_.find(report);
        if (!tunnel) {
            count(RegisterCount::NoTunnel);
            continue;
        }
        const PacketFate fate = prepare_packet(family_, tunnel->most_bytes, &report.packet);

        if (fate == PacketFate::Malformed) {
            count(RegisterCount::Malformed);
        } else if (fate == PacketFate::TimeToLive) {
            count(RegisterCount::TimeToLive);
        } else if (fate == PacketFate::TooLong) {
            count(RegisterCount::TooLong);
        } else if (!rate_.take(report.source, monotonic_ms())) {
            count(RegisterCount::Rate);
        } else {
            send(*tunnel, report.packet);
        }
    }
}

void RegisterThread::send(const Tunnel &tunnel, std::span<const uint8_t> packet)
{
    std::array<uint8_t, REGISTER_HEADER_SIZE> header{PIM_VERSION << 4 |
                                                     static_cast<uint8_t>(MessageType::Register)};
    put_checksum({tunnel.from, tunnel.rp}, header);
    iovec parts[] = {{header.data(), header.size()}, {const_cast<uint8_t *>(packet.data()), packet.size()}};
    PacketInfo control;
    socklen_t size = 0;
    sockaddr_storage to = socket_address(tunnel.rp, &size);
    msghdr message{};
    message.msg_name = &to;
    message.msg_namelen = size;
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    leave_from(tunnel, &control, &message);
    if (sendmsg(sender_.get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
        count(RegisterCount::Refused);
        return;
    }
    count(RegisterCount::Sent);
    count(RegisterCount::Bytes, header.size() + packet.size());
}

} // namespace pimsmd
