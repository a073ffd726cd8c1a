#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <linux/mroute.h>
#include <linux/mroute6.h>

#include "tests/simulation/parity/both_kernels.h"

using namespace parity;

namespace
{

int add_vif(const Calls &calls, int fd, unsigned vif, int if_index)
{
    vifctl control{};
    control.vifc_vifi = static_cast<vifi_t>(vif);
    control.vifc_flags = VIFF_USE_IFINDEX;
    control.vifc_threshold = 1;
    control.vifc_lcl_ifindex = if_index;
    return calls.setsockopt(fd, IPPROTO_IP, MRT_ADD_VIF, &control, sizeof(control));
}

int delete_vif(const Calls &calls, int fd, unsigned vif)
{
    vifctl control{};
    control.vifc_vifi = static_cast<vifi_t>(vif);
    return calls.setsockopt(fd, IPPROTO_IP, MRT_DEL_VIF, &control, sizeof(control));
}

int change_entry(const Calls &calls, int fd, int option, unsigned parent)
{
    mfcctl control{};
    control.mfcc_origin.s_addr = htonl(0x0a000132);
    control.mfcc_mcastgrp.s_addr = htonl(0xef010101);
    control.mfcc_parent = static_cast<vifi_t>(parent);
    control.mfcc_ttls[1] = 1;
    return calls.setsockopt(fd, IPPROTO_IP, option, &control, sizeof(control));
}

TEST(MulticastTableParity, TableOfIpv4RefusesWhatLinuxRefuses)
{
    compare([](const Calls &calls, Diary &diary) {
        const int one = 1;
        const int fd = calls.socket(AF_INET, SOCK_RAW | SOCK_NONBLOCK, IPPROTO_IGMP);
        const int rival = calls.socket(AF_INET, SOCK_RAW | SOCK_NONBLOCK, IPPROTO_IGMP);
        diary.note("init", calls.setsockopt(fd, IPPROTO_IP, MRT_INIT, &one, sizeof(one)));
        diary.note("rival", calls.setsockopt(rival, IPPROTO_IP, MRT_INIT, &one, sizeof(one)));
        diary.note("no such interface", add_vif(calls, fd, 0, 77));
        diary.note("too high", add_vif(calls, fd, 32, 2));
        diary.note("add", add_vif(calls, fd, 0, 2));
        diary.note("the number is taken", add_vif(calls, fd, 0, 3));
        diary.note("the number is taken, no such interface", add_vif(calls, fd, 0, 77));
        diary.note("a stranger adds", add_vif(calls, rival, 1, 3));
        diary.note("a stranger ends it", calls.setsockopt(rival, IPPROTO_IP, MRT_DONE, nullptr, 0));
        diary.note("init again", calls.setsockopt(fd, IPPROTO_IP, MRT_INIT, &one, sizeof(one)));
        diary.note("delete none", delete_vif(calls, fd, 5));
        diary.note("delete no entry", change_entry(calls, fd, MRT_DEL_MFC, 0));
        diary.note("entry", change_entry(calls, fd, MRT_ADD_MFC, 0));
        diary.note("entry again", change_entry(calls, fd, MRT_ADD_MFC, 0));
        diary.note("parent too high", change_entry(calls, fd, MRT_ADD_MFC, 32));
        sioc_sg_req request{};
        diary.note("counters of none", calls.ioctl(fd, SIOCGETSGCNT, &request));
        request.src.s_addr = htonl(0x0a000132);
        request.grp.s_addr = htonl(0xef010101);
        diary.note("counters", calls.ioctl(fd, SIOCGETSGCNT, &request));
        diary.note("short", calls.setsockopt(fd, IPPROTO_IP, MRT_ADD_VIF, &one, sizeof(one)));
        diary.note("delete", change_entry(calls, fd, MRT_DEL_MFC, 0));
        calls.change("lan2", "delete");
        diary.note("its virtual interface went with it", delete_vif(calls, fd, 1));
        diary.note("done", calls.setsockopt(fd, IPPROTO_IP, MRT_DONE, nullptr, 0));
        diary.note("rival then", calls.setsockopt(rival, IPPROTO_IP, MRT_INIT, &one, sizeof(one)));
        diary.note("nothing is left", delete_vif(calls, rival, 0));
        calls.close(rival);
        diary.note("a closed one is none", calls.setsockopt(fd, IPPROTO_IP, MRT_INIT, &one, sizeof(one)));
        calls.close(fd);
    });
}

TEST(MulticastTableParity, TableOfIpv6RefusesWhatLinuxRefuses)
{
    compare([](const Calls &calls, Diary &diary) {
        const int one = 1;
        const int fd = calls.socket(AF_INET6, SOCK_RAW | SOCK_NONBLOCK, IPPROTO_ICMPV6);
        diary.note("init", calls.setsockopt(fd, IPPROTO_IPV6, MRT6_INIT, &one, sizeof(one)));
        const auto add = [&](unsigned mif, unsigned if_index) {
            mif6ctl control{};
            control.mif6c_mifi = static_cast<mifi_t>(mif);
            control.vifc_threshold = 1;
            control.mif6c_pifi = static_cast<uint16_t>(if_index);
            return calls.setsockopt(fd, IPPROTO_IPV6, MRT6_ADD_MIF, &control, sizeof(control));
        };
        const auto change = [&](int option) {
            mf6cctl control{};
            control.mf6cc_origin.sin6_family = control.mf6cc_mcastgrp.sin6_family = AF_INET6;
            control.mf6cc_origin.sin6_addr.s6_addr[15] = 5;
            control.mf6cc_mcastgrp.sin6_addr.s6_addr[0] = 0xff;
            control.mf6cc_mcastgrp.sin6_addr.s6_addr[1] = 0x0e;
            return calls.setsockopt(fd, IPPROTO_IPV6, option, &control, sizeof(control));
        };
        diary.note("no such interface", add(0, 77));
        diary.note("too high", add(32, 2));
        diary.note("add", add(0, 2));
        diary.note("the number is taken", add(0, 3));
        diary.note("delete no entry", change(MRT6_DEL_MFC));
        diary.note("entry", change(MRT6_ADD_MFC));
        diary.note("delete", change(MRT6_DEL_MFC));
        calls.close(fd);
    });
}

// A report or query with the interface and the source that the sender chose.
ssize_t send_from(const Calls &calls, int fd, int if_index, uint32_t source)
{
    uint8_t bytes[8] = {0x11, 0, 0xee, 0xff, 0, 0, 0, 0};
    iovec part = {bytes, sizeof(bytes)};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in_pktinfo))] = {};
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(0xe0000001);
    msghdr message{};
    message.msg_name = &to;
    message.msg_namelen = sizeof(to);
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    cmsghdr *head = CMSG_FIRSTHDR(&message);
    head->cmsg_level = IPPROTO_IP;
    head->cmsg_type = IP_PKTINFO;
    head->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
    in_pktinfo info{};
    info.ipi_ifindex = if_index;
    info.ipi_spec_dst.s_addr = htonl(source);
    memcpy(CMSG_DATA(head), &info, sizeof(info));
    return calls.sendmsg(fd, &message, 0);
}

TEST(MulticastTableParity, RawSocketSendsByInterfacesThatAreUp)
{
    compare([](const Calls &calls, Diary &diary) {
        const int fd = calls.socket(AF_INET, SOCK_RAW | SOCK_NONBLOCK, IPPROTO_IGMP);
        diary.note("send", send_from(calls, fd, 2, 0x0a000101));
        diary.note("no such interface", send_from(calls, fd, 77, 0x0a000101));
        diary.note("somebody else's address", send_from(calls, fd, 2, 0x0a000163));
        calls.change("lan1", "down");
        diary.note("interface is down", send_from(calls, fd, 2, 0x0a000101));
        calls.change("lan1", "up");
        calls.change("lan1", "no-address 10.0.1.1/24");
        diary.note("the address is gone", send_from(calls, fd, 2, 0x0a000101));
    });
}

} // namespace
