#include "daemons/mribd/kernel_calls.h"

#include <cerrno>
#include <cstring>
#include <iterator>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <linux/filter.h>
#include <linux/icmpv6.h>
#include <linux/mroute.h>
#include <linux/mroute6.h>

#include "daemons/common/pim_records.h"

namespace mribd
{

int set_option(int fd, int level, int option, const void *value, size_t size)
{
    return setsockopt(fd, level, option, value, static_cast<socklen_t>(size)) == 0 ? 0 : errno;
}

namespace
{

int add_vif4(int fd, unsigned vif, uint32_t if_index)
{
    const bool is_register = if_index == mcastd::PIM_REGISTER_INTERFACE;
    vifctl control{};
    control.vifc_vifi = static_cast<vifi_t>(vif);
    control.vifc_flags = is_register ? VIFF_REGISTER : VIFF_USE_IFINDEX;
    control.vifc_threshold = 1;
    control.vifc_lcl_ifindex = is_register ? 0 : static_cast<int>(if_index);
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
// header; letting nothing else in keeps a flood of reports from crowding them out. Whole packets on their way to the register
// interface are pimsmd's, which reads them elsewhere.
void quieten4(int fd)
{
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, offsetof(igmpmsg, im_mbz)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 0, 3),
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, offsetof(igmpmsg, im_msgtype)),
        BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, IGMPMSG_WHOLEPKT, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, 0xffff),
        BPF_STMT(BPF_RET | BPF_K, 0),
    };
    const sock_fprog program{static_cast<unsigned short>(std::size(code)), code};
    set_option(fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof(program));
}

int add_vif6(int fd, unsigned vif, uint32_t if_index)
{
    const bool is_register = if_index == mcastd::PIM_REGISTER_INTERFACE;
    mif6ctl control{};
    if (if_index > UINT16_MAX && !is_register) {
        return ERANGE; // the kernel's record has 16 bits for it
    }
    control.mif6c_mifi = static_cast<mifi_t>(vif);
    control.vifc_threshold = 1;
    control.mif6c_flags = is_register ? MIFF_REGISTER : 0;
    control.mif6c_pifi = is_register ? uint16_t{0} : static_cast<uint16_t>(if_index);
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

// Upcalls pass the filter of message types, the namespace's ICMPv6 does not. The other filter is as in quieten4.
void quieten6(int fd)
{
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, offsetof(mrt6msg, im6_msgtype)),
        BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, MRT6MSG_WHOLEPKT, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, 0xffff),
        BPF_STMT(BPF_RET | BPF_K, 0),
    };
    const sock_fprog program{static_cast<unsigned short>(std::size(code)), code};
    set_option(fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof(program));
    icmp6_filter filter;
    std::memset(&filter, 0xff, sizeof(filter));
    set_option(fd, IPPROTO_ICMPV6, ICMPV6_FILTER, &filter, sizeof(filter));
}

} // namespace

const FamilyCalls CALLS_IPV4 = {AF_INET,     IPPROTO_IGMP,  IPPROTO_IP, MRT_INIT,           MRT_DONE,
                                MRT_ASSERT,  MRT_PIM,       MRT_TABLE,  "CONFIG_IP_MROUTE", add_vif4,
                                delete_vif4, change_entry4, counters4,  quieten4,           "pimreg"};
const FamilyCalls CALLS_IPV6 = {
    AF_INET6,   IPPROTO_ICMPV6,       IPPROTO_IPV6, MRT6_INIT,   MRT6_DONE,     MRT6_ASSERT, MRT6_PIM,
    MRT6_TABLE, "CONFIG_IPV6_MROUTE", add_vif6,     delete_vif6, change_entry6, counters6,   quieten6,
    "pim6reg"};

} // namespace mribd
