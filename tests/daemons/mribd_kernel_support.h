/*
 * Links of a network namespace of the test's own: veth pairs of which one end routes and the other is the wire into which
 * packets are put.
 */
#ifndef TESTS_DAEMONS_MRIBD_KERNEL_SUPPORT_H
#define TESTS_DAEMONS_MRIBD_KERNEL_SUPPORT_H

#include <algorithm>
#include <gtest/gtest.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <unistd.h>
#include <linux/if_packet.h>

#include "daemons/mribd/address.h"
#include "daemons/mribd/kernel_mroute.h"
#include "daemons/mribd_support.h"
#include "host/namespace.h"

namespace mribd_test
{

struct Family {
    uint8_t family;
    std::string source;
    std::string group;

    friend void PrintTo(const Family &value, std::ostream *out)
    {
        *out << mribd::family_name(value.family);
    }
};

// A UDP packet without content from source to group, from the Ethernet header on. No checksum that is wrong
// keeps the kernel from routing it: it looks at IPv4's header checksum only.
inline std::vector<uint8_t> frame(const Family &family)
{
    const MCAST_ADDR_S source = address(family.source);
    const MCAST_ADDR_S group = address(family.group);
    std::vector<uint8_t> bytes(family.family == MCAST_FAMILY_IPV4 ? 42 : 62);
    uint8_t *ip = bytes.data() + 14;
    bytes[6] = 2;
    if (family.family == MCAST_FAMILY_IPV4) {
        const uint8_t ethernet[] = {1, 0, 0x5e, group.address[1], group.address[2], group.address[3]};
        std::copy(std::begin(ethernet), std::end(ethernet), bytes.begin());
        bytes[12] = 0x08;
        const uint8_t header[] = {0x45, 0, 0, 28, 0, 1, 0, 0, 8, 17};
        std::copy(std::begin(header), std::end(header), ip);
        std::copy_n(source.address, 4, ip + 12);
        std::copy_n(group.address, 4, ip + 16);
        uint32_t sum = 0;
        for (int i = 0; i < 20; i += 2) {
            sum += static_cast<uint32_t>(ip[i] << 8 | ip[i + 1]);
        }
        sum = (sum & 0xffff) + (sum >> 16);
        ip[10] = static_cast<uint8_t>(~sum >> 8);
        ip[11] = static_cast<uint8_t>(~sum);
    } else {
        const uint8_t ethernet[] = {
            0x33, 0x33, group.address[12], group.address[13], group.address[14], group.address[15]};
        std::copy(std::begin(ethernet), std::end(ethernet), bytes.begin());
        bytes[12] = 0x86;
        bytes[13] = 0xdd;
        const uint8_t header[] = {0x60, 0, 0, 0, 0, 8, 17, 8};
        std::copy(std::begin(header), std::end(header), ip);
        std::copy_n(source.address, 16, ip + 8);
        std::copy_n(group.address, 16, ip + 24);
    }
    return bytes;
}

inline void put_on_wire(const std::string &interface, const Family &family)
{
    const int fd = socket(AF_PACKET, SOCK_RAW, 0);
    sockaddr_ll where{};
    where.sll_family = AF_PACKET;
    where.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
    const auto bytes = frame(family);
    EXPECT_EQ(
        sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&where), sizeof(where)),
        static_cast<ssize_t>(bytes.size()));
    close(fd);
}

inline void make_link(const std::string &name)
{
    host_test::shell("ip link add " + name + " type veth peer name " + name + "_wire");
    host_test::shell("ip link set " + name + " up && ip link set " + name + "_wire up");
}

// Puts the packet on the wire until the kernel tells of it: a link that just came up may lose the first.
inline bool put_until_told(mribd::KernelMroute &kernel, const std::string &interface, const Family &family)
{
    pollfd waiting{kernel.descriptor(), POLLIN, 0};
    for (int tries = 0; tries < 100; ++tries) {
        put_on_wire(interface, family);
        if (poll(&waiting, 1, 100) == 1) {
            kernel.receive(16);
            return true;
        }
    }
    return false;
}

inline std::vector<mribd::Upcall> served(mribd::KernelMroute &kernel)
{
    std::vector<mribd::Upcall> result;
    while (kernel.serve(16, [&result](const mribd::Upcall &upcall) { result.push_back(upcall); })) {
    }
    return result;
}

} // namespace mribd_test

#endif
