/*
 * The register thread against the running kernel, in a network namespace of the test's own: a source behind a veth pair, an
 * entry that sends its packets to the register interface, and a raw socket where the RP would be.
 */
#include <cstring>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <linux/if_packet.h>
#include <linux/mroute.h>
#include <linux/mroute6.h>

#include "daemons/common/descriptor.h"
#include "daemons/pimsmd/register_thread.h"
#include "daemons/pimsmd_messages.h"
#include "host/namespace.h"

using namespace pimsmd;
using mcastd::Descriptor;
using pimsmd_test::addr;
using pimsmd_test::Bytes;
using pimsmd_test::hex;
namespace
{

constexpr unsigned REGISTER_VIF = 5;

struct Family {
    uint16_t family;
    std::string source, group, own, rp;
    Bytes ethernet; // header of the packet
    Bytes packet;   // from source to group
    Bytes inner;    // what of it is in the Register
};

Family ipv4()
{
    const std::string rest = " 0a00 0102 ef01 0101 1388 1389 000b ";
    return {MCAST_FAMILY_IPV4,
            "10.0.1.2",
            "239.1.1.1",
            "10.0.1.1",
            "10.255.0.1",
            hex("0100 5e01 0101 0200 0000 0001 0800"),
            hex("4500 001f 0001 0000 0911 b6c9" + rest + "fb20 6865 79"),
            hex("4500 001f 0001 0000 0811 b7c9" + rest + "fc5c 6865 79")};
}

Family ipv6()
{
    const std::string rest =
        " 2001 0db8 0001 0000 0000 0000 0000 0002 ff1e 0000 0000 0000 0000 0000 0000 0007"
        " 1388 1389 000b ";
    return {MCAST_FAMILY_IPV6,
            "2001:db8:1::2",
            "ff1e::7",
            "2001:db8:1::1",
            "2001:db8::1",
            hex("3333 0000 0007 0200 0000 0001 86dd"),
            hex("6000 0000 000b 1109" + rest + "2cfe 6865 79"),
            hex("6000 0000 000b 1108" + rest + "ca7f 6865 79")};
}

Descriptor routing_socket(const Family &family)
{
    const bool is_ipv4 = family.family == MCAST_FAMILY_IPV4;
    Descriptor socket(is_ipv4 ? ::socket(AF_INET, SOCK_RAW, IPPROTO_IGMP)
                              : ::socket(AF_INET6, SOCK_RAW, IPPROTO_ICMPV6));
    const int on = 1;
    const auto index = if_nametoindex("in");
    if (is_ipv4) {
        vifctl in{};
        vifctl to_rp{};
        mfcctl entry{};
        in.vifc_flags = VIFF_USE_IFINDEX;
        in.vifc_threshold = 1;
        in.vifc_lcl_ifindex = static_cast<int>(index);
        to_rp.vifc_vifi = REGISTER_VIF;
        to_rp.vifc_flags = VIFF_REGISTER;
        to_rp.vifc_threshold = 1;
        std::memcpy(&entry.mfcc_origin, addr(family.source.c_str()).address, 4);
        std::memcpy(&entry.mfcc_mcastgrp, addr(family.group.c_str()).address, 4);
        entry.mfcc_ttls[REGISTER_VIF] = 1;
        EXPECT_TRUE(set_option(socket, IPPROTO_IP, MRT_INIT, on));
        EXPECT_TRUE(set_option(socket, IPPROTO_IP, MRT_PIM, on));
        EXPECT_TRUE(set_option(socket, IPPROTO_IP, MRT_ADD_VIF, in));
        EXPECT_TRUE(set_option(socket, IPPROTO_IP, MRT_ADD_VIF, to_rp));
        EXPECT_TRUE(set_option(socket, IPPROTO_IP, MRT_ADD_MFC, entry));
    } else {
        mif6ctl in{};
        mif6ctl to_rp{};
        mf6cctl entry{};
        in.vifc_threshold = 1;
        in.mif6c_pifi = static_cast<uint16_t>(index);
        to_rp.mif6c_mifi = REGISTER_VIF;
        to_rp.mif6c_flags = MIFF_REGISTER;
        to_rp.vifc_threshold = 1;
        std::memcpy(&entry.mf6cc_origin.sin6_addr, addr(family.source.c_str()).address, 16);
        std::memcpy(&entry.mf6cc_mcastgrp.sin6_addr, addr(family.group.c_str()).address, 16);
        IF_SET(REGISTER_VIF, &entry.mf6cc_ifset);
        EXPECT_TRUE(set_option(socket, IPPROTO_IPV6, MRT6_INIT, on));
        EXPECT_TRUE(set_option(socket, IPPROTO_IPV6, MRT6_PIM, on));
        EXPECT_TRUE(set_option(socket, IPPROTO_IPV6, MRT6_ADD_MIF, in));
        EXPECT_TRUE(set_option(socket, IPPROTO_IPV6, MRT6_ADD_MIF, to_rp));
        EXPECT_TRUE(set_option(socket, IPPROTO_IPV6, MRT6_ADD_MFC, entry));
    }
    return socket;
}

void put_on_wire(const Family &family)
{
    const Descriptor wire(socket(AF_PACKET, SOCK_RAW, 0));
    sockaddr_ll where{};
    where.sll_family = AF_PACKET;
    where.sll_ifindex = static_cast<int>(if_nametoindex("in_wire"));
    Bytes frame = family.ethernet;
    frame.insert(frame.end(), family.packet.begin(), family.packet.end());
    EXPECT_EQ(sendto(wire.get(), frame.data(), frame.size(), 0, reinterpret_cast<const sockaddr *>(&where),
                     sizeof(where)),
              static_cast<ssize_t>(frame.size()));
}

// Puts packets on the wire until done says so: a link that just came up may lose the first.
template <typename Done> bool put_until(const Family &family, int fd, Done done)
{
    for (int tries = 0; tries < 200; ++tries) {
        put_on_wire(family);
        pollfd waiting{fd, POLLIN, 0};
        poll(&waiting, 1, 50);
        if (done()) {
            return true;
        }
    }
    return false;
}

void set_up(const Family &family)
{
    host_test::shell("ip link set lo up && ip link add in type veth peer name in_wire");
    host_test::shell("ip link set in_wire up && ip link set in up");
    if (family.family == MCAST_FAMILY_IPV4) {
        host_test::shell("ip addr add 10.0.1.1/24 dev in && ip addr add 10.255.0.1/32 dev lo");
    } else {
        host_test::shell("ip addr add 2001:db8:1::1/64 dev in nodad && ip addr add 2001:db8::1/128 dev lo");
    }
}

class RegisterThreadTest : public testing::TestWithParam<bool>
{
protected:
    Family family = GetParam() ? ipv6() : ipv4();
};

} // namespace

TEST_P(RegisterThreadTest, PacketReachesTheRpWithAHeaderThatTheKernelAccepts)
{
    IN_FRESH_NAMESPACE([this] {
        set_up(family);
        const bool is_ipv4 = family.family == MCAST_FAMILY_IPV4;
        const Descriptor rp(socket(is_ipv4 ? AF_INET : AF_INET6, SOCK_RAW, 103));
        const Descriptor routing = routing_socket(family);
        RegisterTunnels tunnels(family.family);
        tunnels.set_instance(0, 0, REGISTER_VIF);
        RegisterThread thread(family.family, tunnels);
        ASSERT_TRUE(thread.open(1000));
        const auto count = [&thread](RegisterCount what) { return thread.counts()[what]; };
        ASSERT_TRUE(put_until(family, rp.get(), [&] { return count(RegisterCount::NoTunnel) > 0; }));
        EXPECT_EQ(count(RegisterCount::Sent), 0u);
        EXPECT_NE(thread.thread_id(), 0u);
        tunnels.put(0, addr(family.group.c_str()), addr(family.source.c_str()),
                    {addr(family.own.c_str()), addr(family.rp.c_str()), 0, 1500});
        Bytes got(2048);
        ssize_t size = 0;
        sockaddr_storage from{};
        ASSERT_TRUE(put_until(family, rp.get(), [&] {
            socklen_t from_size = sizeof(from);
            size = recvfrom(rp.get(), got.data(), got.size(), MSG_DONTWAIT,
                            reinterpret_cast<sockaddr *>(&from), &from_size);
            return size > 0;
        }));
        got.resize(static_cast<size_t>(size));
        if (is_ipv4) { // raw sockets of IPv4 hear the IP header
            EXPECT_EQ(Bytes(got.begin() + 12, got.begin() + 20), hex("0a00 0101 0aff 0001"));
            got.erase(got.begin(), got.begin() + 20);
        } else {
            EXPECT_EQ(std::memcmp(&reinterpret_cast<sockaddr_in6 *>(&from)->sin6_addr,
                                  addr(family.own.c_str()).address, 16),
                      0);
        }
        const Envelope envelope{addr(family.own.c_str()), addr(family.rp.c_str())};
        Message message;
        ASSERT_EQ(read_message(envelope, got, &message), NO_DROP); // checksum included
        const auto &heard = std::get<Register>(message);
        EXPECT_FALSE(heard.null);
        EXPECT_FALSE(heard.border);
        EXPECT_EQ(Bytes(heard.packet.begin(), heard.packet.end()), family.inner);
        thread.close();
        EXPECT_GE(count(RegisterCount::Sent), 1u);
        EXPECT_EQ(count(RegisterCount::Bytes), count(RegisterCount::Sent) * (8 + family.inner.size()));
        EXPECT_EQ(thread.thread_id(), 0u);
        ASSERT_TRUE(thread.open(1000)); // and again
    });
}

TEST_P(RegisterThreadTest, SourceTakesAnEighthOfTheRate)
{
    IN_FRESH_NAMESPACE([this] {
        set_up(family);
        const Descriptor routing = routing_socket(family);
        RegisterTunnels tunnels(family.family);
        tunnels.set_instance(0, 0, REGISTER_VIF);
        tunnels.put(0, addr(family.group.c_str()), addr(family.source.c_str()),
                    {addr(family.own.c_str()), addr(family.rp.c_str()), 0, 1500});
        RegisterThread thread(family.family, tunnels);
        ASSERT_TRUE(thread.open(8)); // one a second of the source
        for (int i = 0; i < 300 && thread.counts()[RegisterCount::Rate] == 0; ++i) {
            for (int packets = 0; packets < 20; ++packets) {
                put_on_wire(family);
            }
            poll(nullptr, 0, 20);
        }
        EXPECT_GE(thread.counts()[RegisterCount::Sent], 1u);
        EXPECT_GE(thread.counts()[RegisterCount::Rate], 1u);
    });
}

INSTANTIATE_TEST_SUITE_P(Families, RegisterThreadTest, testing::Bool());
