/*
 * The kernel forwards multicast by tables that one socket each controls: options of a raw IGMP or ICMPv6
 * socket set virtual interfaces and entries, and upcalls come back on it. Three things about it are easy
 * to get wrong:
 *
 *     - The socket also hears every packet of its protocol. A filter lets upcalls alone in, so that a
 *       flood of reports does not crowd them out of the receive buffer.
 *     - A table other than the default one is chosen before the socket becomes a multicast router, and
 *       gets packets only by rules that lead an interface's packets there. A rule lives as long as the
 *       interface's virtual one.
 *     - The kernel holds the packets of a new source in a list with the newest in front, and searches it
 *       for every answer. So upcalls are read as they come, kept, and answered newest first.
 *
 * The families differ in option names and records alone: FamilyCalls holds the difference, so that the
 * class is written once. Closing the socket makes the kernel forget everything, also when the process is
 * killed.
 */
#include "daemons/mribd/kernel_mroute.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <linux/filter.h>
#include <linux/icmpv6.h>
#include <linux/mroute.h>
#include <linux/mroute6.h>
#include <linux/sock_diag.h>

#include "daemons/common/log.h"
#include "daemons/common/memory.h"

namespace mribd
{

// All that differs between the families: option names, and the records that the options take.
struct FamilyCalls {
    int domain;
    int protocol;
    int level;
    int init;
    int done;
    int assert;
    int table;
    const char *kernel_option;
    int (*add_vif)(int fd, unsigned vif, uint32_t if_index);
    int (*delete_vif)(int fd, unsigned vif);
    int (*change_entry)(int fd, bool add, const MCAST_ADDR_S &source, const MCAST_ADDR_S &group,
                        unsigned parent, uint32_t outgoing);
    int (*counters)(int fd, const MCAST_ADDR_S &source, const MCAST_ADDR_S &group, EntryCounters *counters);
    void (*quieten)(int fd);
};

namespace
{

constexpr int RECEIVE_BUFFER = 8 << 20;

// Upcalls that wait to be served.
constexpr size_t WAITING_LIMIT = 16384;
constexpr size_t WAITING_WITHOUT_MEMORY = 256;

int set_option(int fd, int level, int option, const void *value, size_t size)
{
    return setsockopt(fd, level, option, value, static_cast<socklen_t>(size)) == 0 ? 0 : errno;
}

int add_vif4(int fd, unsigned vif, uint32_t if_index)
{
    vifctl control{};
    control.vifc_vifi = static_cast<vifi_t>(vif);
    control.vifc_flags = VIFF_USE_IFINDEX;
    control.vifc_threshold = 1;
    control.vifc_lcl_ifindex = static_cast<int>(if_index);
    return set_option(fd, IPPROTO_IP, MRT_ADD_VIF, &control, sizeof(control));
}

int delete_vif4(int fd, unsigned vif)
{
    vifctl control{};
    control.vifc_vifi = static_cast<vifi_t>(vif);
    return set_option(fd, IPPROTO_IP, MRT_DEL_VIF, &control, sizeof(control));
}

int change_entry4(int fd, bool add, const MCAST_ADDR_S &source, const MCAST_ADDR_S &group, unsigned parent,
                  uint32_t outgoing)
{
    mfcctl control{};
    std::memcpy(&control.mfcc_origin, source.address, sizeof(control.mfcc_origin));
    std::memcpy(&control.mfcc_mcastgrp, group.address, sizeof(control.mfcc_mcastgrp));
    control.mfcc_parent = static_cast<vifi_t>(parent);
    for (unsigned vif = 0; vif < MAX_VIFS; ++vif) {
        control.mfcc_ttls[vif] = (outgoing >> vif & 1) != 0 ? 1 : 0;
    }
    return set_option(fd, IPPROTO_IP, add ? MRT_ADD_MFC : MRT_DEL_MFC, &control, sizeof(control));
}

int counters4(int fd, const MCAST_ADDR_S &source, const MCAST_ADDR_S &group, EntryCounters *counters)
{
    sioc_sg_req request{};
    std::memcpy(&request.src, source.address, sizeof(request.src));
    std::memcpy(&request.grp, group.address, sizeof(request.grp));
    if (ioctl(fd, SIOCGETSGCNT, &request) != 0) {
        return errno;
    }
    *counters = {request.pktcnt, request.bytecnt, request.wrong_if};
    return 0;
}

// The routing socket also hears every IGMP packet. Only upcalls carry protocol 0 in what stands for the IP
// header; letting nothing else in keeps a flood of reports from crowding them out.
void quieten4(int fd)
{
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, offsetof(igmpmsg, im_mbz)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, 0xffff),
        BPF_STMT(BPF_RET | BPF_K, 0),
    };
    const sock_fprog program{static_cast<unsigned short>(std::size(code)), code};
    set_option(fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof(program));
}

int add_vif6(int fd, unsigned vif, uint32_t if_index)
{
    mif6ctl control{};
    if (if_index > UINT16_MAX) {
        return ERANGE; // the kernel's record has 16 bits for it
    }
    control.mif6c_mifi = static_cast<mifi_t>(vif);
    control.vifc_threshold = 1;
    control.mif6c_pifi = static_cast<uint16_t>(if_index);
    return set_option(fd, IPPROTO_IPV6, MRT6_ADD_MIF, &control, sizeof(control));
}

int delete_vif6(int fd, unsigned vif)
{
    const mifi_t index = static_cast<mifi_t>(vif);
    return set_option(fd, IPPROTO_IPV6, MRT6_DEL_MIF, &index, sizeof(index));
}

sockaddr_in6 socket_address6(const MCAST_ADDR_S &address)
{
    sockaddr_in6 result{};
    result.sin6_family = AF_INET6;
    std::memcpy(&result.sin6_addr, address.address, sizeof(result.sin6_addr));
    return result;
}

int change_entry6(int fd, bool add, const MCAST_ADDR_S &source, const MCAST_ADDR_S &group, unsigned parent,
                  uint32_t outgoing)
{
    mf6cctl control{};
    control.mf6cc_origin = socket_address6(source);
    control.mf6cc_mcastgrp = socket_address6(group);
    control.mf6cc_parent = static_cast<mifi_t>(parent);
    control.mf6cc_ifset.ifs_bits[0] = outgoing;
    return set_option(fd, IPPROTO_IPV6, add ? MRT6_ADD_MFC : MRT6_DEL_MFC, &control, sizeof(control));
}

int counters6(int fd, const MCAST_ADDR_S &source, const MCAST_ADDR_S &group, EntryCounters *counters)
{
    sioc_sg_req6 request{};
    request.src = socket_address6(source);
    request.grp = socket_address6(group);
    if (ioctl(fd, SIOCGETSGCNT_IN6, &request) != 0) {
        return errno;
    }
    *counters = {request.pktcnt, request.bytecnt, request.wrong_if};
    return 0;
}

// Upcalls pass this filter of message types, the namespace's ICMPv6 does not.
void quieten6(int fd)
{
    icmp6_filter filter;
    std::memset(&filter, 0xff, sizeof(filter));
    set_option(fd, IPPROTO_ICMPV6, ICMPV6_FILTER, &filter, sizeof(filter));
}

constexpr FamilyCalls CALLS_IPV4 = {
    AF_INET,  IPPROTO_IGMP, IPPROTO_IP,    MRT_INIT,  MRT_DONE, MRT_ASSERT, MRT_TABLE, "CONFIG_IP_MROUTE",
    add_vif4, delete_vif4,  change_entry4, counters4, quieten4};
constexpr FamilyCalls CALLS_IPV6 = {AF_INET6,  IPPROTO_ICMPV6, IPPROTO_IPV6,  MRT6_INIT,
                                    MRT6_DONE, MRT6_ASSERT,    MRT6_TABLE,    "CONFIG_IPV6_MROUTE",
                                    add_vif6,  delete_vif6,    change_entry6, counters6,
                                    quieten6};

} // namespace

KernelMroute::KernelMroute(TableRules &rules, uint32_t table)
    : calls_(rules.family() == MCAST_FAMILY_IPV4 ? CALLS_IPV4 : CALLS_IPV6), rules_(rules), table_(table)
{
}

KernelMroute::~KernelMroute()
{
    shut();
}

KernelMroute::OpenResult KernelMroute::open_failed(const char *step, int error, std::string *reason)
{
    shut();
    *reason = std::string(step) + ": " + std::strerror(error);
    switch (error) {
    case EADDRINUSE:
        if (table_ != 0) {
            *reason +=
                "; another process, or another instance, has multicast table " + std::to_string(table_);
            return OpenResult::Failed;
        }
        *reason += "; another process is this network namespace's multicast router. Only one may be: end the "
                   "other routing daemon, or run mribd in a namespace of its own";
        return OpenResult::Failed;
    case EPERM:
    case EACCES:
        *reason += "; mribd needs CAP_NET_ADMIN and CAP_NET_RAW";
        return OpenResult::Failed;
    case ENOPROTOOPT:
    case EOPNOTSUPP:
    case EAFNOSUPPORT:
        *reason += std::string("; the kernel lacks ") + calls_.kernel_option +
                   (table_ != 0 ? "_MULTIPLE_TABLES" : "");
        return OpenResult::NotSupported;
    default:
        return OpenResult::Failed;
    }
}

KernelMroute::OpenResult KernelMroute::open(std::string *reason)
{
    fd_ = socket(calls_.domain, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, calls_.protocol);
    if (fd_ < 0) {
        return open_failed("raw socket", errno, reason);
    }
    prepare_receiving();
    // Before it becomes a multicast router, which it then is of that table.
    int error = table_ == 0 ? 0 : set_option(fd_, calls_.level, calls_.table, &table_, sizeof(table_));
    if (error != 0) {
        return open_failed("choosing a multicast table", error, reason);
    }
    const int one = 1;
    error = set_option(fd_, calls_.level, calls_.init, &one, sizeof(one));
    if (error != 0) {
        return open_failed("becoming the multicast router", error, reason);
    }
    // Without it the kernel says nothing about packets on a wrong interface.
    error = set_option(fd_, calls_.level, calls_.assert, &one, sizeof(one));
    if (error != 0) {
        return open_failed("asking for wrong-interface reports", error, reason);
    }
    return OpenResult::Ready;
}

void KernelMroute::prepare_receiving()
{
    const int size = RECEIVE_BUFFER;
    if (set_option(fd_, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof(size)) != 0) {
        set_option(fd_, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
        mcastd::log_warning("cannot force a receive buffer of %d bytes; bursts of new sources may be lost",
                            size);
    }
    calls_.quieten(fd_);
}

void KernelMroute::shut()
{
    given_up_ = lost_upcalls() + waiting_.size();
    if (fd_ >= 0) {
        set_option(fd_, calls_.level, calls_.done, nullptr, 0);
        close(fd_);
        fd_ = -1;
    }
    for (unsigned vif = 0; vif < MAX_VIFS; ++vif) {
        lead_no_more(vif);
    }
    waiting_.clear(); // told of virtual interfaces that are gone
}

void KernelMroute::receive(unsigned limit)
{
    std::array<uint8_t, 256> bytes; // an upcall is 20 to 60 bytes; the packet behind it is of no interest
    const size_t most = mcastd::memory_is_short() ? WAITING_WITHOUT_MEMORY : WAITING_LIMIT;
    for (unsigned count = 0; count < limit; ++count) {
        const ssize_t size = recv(fd_, bytes.data(), bytes.size(), MSG_DONTWAIT);
        if (size < 0) {
            return;
        }
        if (const auto upcall = parse_upcall(rules_.family(), bytes.data(), static_cast<size_t>(size))) {
            waiting_.push_back(*upcall);
        }
        while (waiting_.size() > most) {
            waiting_.pop_front();
            ++given_up_;
        }
    }
}

// The kernel looks for the packets that wait for an entry in a list with the newest in front: in a burst of
// new sources, answering the oldest first would cost a walk over the whole list each time.
bool KernelMroute::serve(unsigned limit, const std::function<void(const Upcall &)> &take)
{
    for (; limit > 0 && !waiting_.empty(); --limit) {
        const Upcall upcall = waiting_.back();
        waiting_.pop_back();
        take(upcall);
    }
    return !waiting_.empty();
}

uint64_t KernelMroute::lost_upcalls() const
{
    std::array<uint32_t, SK_MEMINFO_VARS> info{};
    socklen_t size = sizeof(info);
    if (fd_ < 0) {
        return given_up_;
    }
    getsockopt(fd_, SOL_SOCKET, SO_MEMINFO, info.data(), &size);
    return given_up_ + info[SK_MEMINFO_DROPS];
}

int KernelMroute::lead(unsigned vif, uint32_t if_index)
{
    char name[IF_NAMESIZE];
    if (table_ == 0 || vif >= MAX_VIFS) {
        return 0;
    }
    if (!led_[vif].empty()) {
        return EADDRINUSE;
    }
    if (if_indextoname(if_index, name) == nullptr) {
        return errno;
    }
    const int error = rules_.lead(name, table_);
    if (error == 0) {
        led_[vif] = name;
    }
    return error;
}

void KernelMroute::lead_no_more(unsigned vif)
{
    if (vif < MAX_VIFS && !led_[vif].empty()) {
        rules_.lead_no_more(std::exchange(led_[vif], {}), table_);
    }
}

// The rule comes first and goes last: in between the packets would be told to a table that does not know
// their interface.
int KernelMroute::add_vif(unsigned vif, uint32_t if_index)
{
    int error = fd_ < 0 ? ENOTCONN : lead(vif, if_index);
    if (error != 0) {
        return error;
    }
    error = calls_.add_vif(fd_, vif, if_index);
    if (error != 0) {
        lead_no_more(vif);
    }
    return error;
}

int KernelMroute::delete_vif(unsigned vif)
{
    const int error = fd_ < 0 ? ENOTCONN : calls_.delete_vif(fd_, vif);
    lead_no_more(vif);
    return error;
}

int KernelMroute::set_entry(const MCAST_ADDR_S &source, const MCAST_ADDR_S &group, unsigned parent,
                            uint32_t outgoing)
{
    return fd_ < 0 ? ENOTCONN : calls_.change_entry(fd_, true, source, group, parent, outgoing);
}

int KernelMroute::delete_entry(const MCAST_ADDR_S &source, const MCAST_ADDR_S &group)
{
    return fd_ < 0 ? ENOTCONN : calls_.change_entry(fd_, false, source, group, 0, 0);
}

std::optional<EntryCounters> KernelMroute::counters(const MCAST_ADDR_S &source, const MCAST_ADDR_S &group)
{
    EntryCounters result;
    if (fd_ < 0 || calls_.counters(fd_, source, group, &result) != 0) {
        return std::nullopt;
    }
    return result;
}

} // namespace mribd
