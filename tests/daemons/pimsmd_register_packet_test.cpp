/*
 * From the kernel's report of a packet to what goes into a Register, byte for byte.
 */
#include <gtest/gtest.h>

#include "daemons/pimsmd/register_packet.h"
#include "daemons/pimsmd/register_report.h"
#include "daemons/pimsmd/register_tunnels.h"
#include "daemons/pimsmd_messages.h"

using namespace pimsmd;
using pimsmd_test::addr;
using pimsmd_test::Bytes;
using pimsmd_test::hex;

namespace
{

constexpr uint32_t MTU = 1500;

// "hey" by UDP from 10.0.1.2 to 239.1.1.1, and from 2001:db8:1::2 to ff1e::7: header, rest of it, ports and length,
// checksum, text.
const std::string HEAD4 = "4500 001f 0001 0000 ";
const std::string REST4 = " 0a00 0102 ef01 0101";
const std::string UDP = " 1388 1389 000b ";
const std::string TEXT = " 6865 79";
const std::string HEAD6 = "6000 0000 000b 11";
const std::string REST6 = " 2001 0db8 0001 0000 0000 0000 0000 0002 ff1e 0000 0000 0000 0000 0000 0000 0007";

Bytes ipv4(const std::string &ttl_and_sum, const std::string &udp_sum)
{
    return hex(HEAD4 + ttl_and_sum + REST4 + UDP + udp_sum + TEXT);
}

Bytes ipv6(const std::string &hop_limit, const std::string &udp_sum)
{
    return hex(HEAD6 + hop_limit + REST6 + UDP + udp_sum + TEXT);
}

PacketFate fate_of(uint16_t family, Bytes *bytes, uint32_t most_bytes = MTU)
{
    std::span<uint8_t> packet(*bytes);
    const PacketFate fate = prepare_packet(family, most_bytes, &packet);
    bytes->resize(packet.size());
    return fate;
}

constexpr uint16_t V4 = MCAST_FAMILY_IPV4;
constexpr uint16_t V6 = MCAST_FAMILY_IPV6;

} // namespace

TEST(RegisterPacket, HasAHopLessAndTheSameUdpChecksum)
{
    Bytes packet = ipv4("0911 b6c9", "fc5c");
    EXPECT_EQ(fate_of(V4, &packet), PacketFate::Register);
    EXPECT_EQ(packet, ipv4("0811 b7c9", "fc5c"));
    packet = ipv6("09", "ca7f");
    EXPECT_EQ(fate_of(V6, &packet), PacketFate::Register);
    EXPECT_EQ(packet, ipv6("08", "ca7f"));
}

TEST(RegisterPacket, UnfinishedChecksumOfALocalSenderIsFinished)
{
    Bytes packet = ipv4("0911 b6c9", "fb20");
    EXPECT_EQ(fate_of(V4, &packet), PacketFate::Register);
    EXPECT_EQ(packet, ipv4("0811 b7c9", "fc5c"));
    packet = ipv6("09", "2cfe");
    EXPECT_EQ(fate_of(V6, &packet), PacketFate::Register);
    EXPECT_EQ(packet, ipv6("08", "ca7f"));
}

TEST(RegisterPacket, OneOfAFragmentIsLeftAsItIs)
{
    Bytes packet = hex("4500 001f 0001 2000 0911 96c9" + REST4 + UDP + "fb20" + TEXT);
    const Bytes expected = hex("4500 001f 0001 2000 0811 97c9" + REST4 + UDP + "fb20" + TEXT);
    EXPECT_EQ(fate_of(V4, &packet), PacketFate::Register);
    EXPECT_EQ(packet, expected);
}

TEST(RegisterPacket, WithoutChecksumStaysWithoutOne)
{
    Bytes packet = ipv4("0911 b6c9", "0000");
    EXPECT_EQ(fate_of(V4, &packet), PacketFate::Register);
    EXPECT_EQ(packet, ipv4("0811 b7c9", "0000"));
}

TEST(RegisterPacket, LosesWhatIsBehindItsEnd)
{
    Bytes packet = ipv4("0911 b6c9", "fc5c");
    packet.insert(packet.end(), {0, 0, 0});
    EXPECT_EQ(fate_of(V4, &packet), PacketFate::Register);
    EXPECT_EQ(packet, ipv4("0811 b7c9", "fc5c"));
    packet = ipv6("09", "ca7f");
    packet.push_back(1);
    EXPECT_EQ(fate_of(V6, &packet), PacketFate::Register);
    EXPECT_EQ(packet, ipv6("08", "ca7f"));
}

TEST(RegisterPacket, LastHopAndWhatIsTooLongStayBehindUntouched)
{
    for (const uint16_t family : {V4, V6}) {
        const Bytes last = family == V4 ? ipv4("0111 bec9", "fc5c") : ipv6("01", "ca7f");
        const Bytes good = family == V4 ? ipv4("0911 b6c9", "fc5c") : ipv6("09", "ca7f");
        Bytes packet = last;
        EXPECT_EQ(fate_of(family, &packet), PacketFate::TimeToLive);
        EXPECT_EQ(packet, last);
        packet = good;
        EXPECT_EQ(fate_of(family, &packet, static_cast<uint32_t>(good.size()) - 1), PacketFate::TooLong);
        EXPECT_EQ(packet, good);
        EXPECT_EQ(fate_of(family, &packet, static_cast<uint32_t>(good.size())), PacketFate::Register);
    }
}

TEST(RegisterPacket, EveryCutOfItIsMalformed)
{
    for (const uint16_t family : {V4, V6}) {
        const Bytes whole = family == V4 ? ipv4("0911 b6c9", "fc5c") : ipv6("09", "ca7f");
        for (size_t size = 0; size < whole.size(); ++size) {
            Bytes packet(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
            EXPECT_EQ(fate_of(family, &packet), PacketFate::Malformed) << size;
        }
        Bytes other = whole;
        EXPECT_EQ(fate_of(family == V4 ? V6 : V4, &other), PacketFate::Malformed);
    }
    for (const char *head : {"44", "4f"}) { // a header shorter than it may be, and longer than the packet
        Bytes packet = hex(head);
        packet.resize(31);
        packet[3] = 31;
        packet[8] = 9;
        EXPECT_EQ(fate_of(V4, &packet), PacketFate::Malformed) << head;
    }
}

namespace
{

// Machine order, as the kernel writes them: these tests run on machines of either order.
Bytes number(uint32_t value, size_t size)
{
    Bytes bytes(size);
    const auto half = static_cast<uint16_t>(value);
    std::memcpy(bytes.data(), size == 2 ? static_cast<const void *>(&half) : &value, size);
    return bytes;
}

Bytes operator+(Bytes first, const Bytes &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Bytes attribute(uint16_t type, const Bytes &value)
{
    Bytes bytes = number(static_cast<uint32_t>(value.size()) + 4, 2) + number(type, 2) + value;
    bytes.resize((bytes.size() + 3) / 4 * 4);
    return bytes;
}

Bytes report_of(uint8_t family, const Bytes &attributes, uint16_t type = 96)
{
    return number(static_cast<uint32_t>(attributes.size()) + 20, 4) + number(type, 2) + Bytes(10) +
           Bytes{family, 0, 0, 0} + attributes;
}

const Bytes KIND = attribute(1, {3});

Bytes report4(uint32_t vif, uint32_t table)
{
    return report_of(128, KIND + attribute(2, number(vif, 4)) + attribute(3, hex("0a000102")) +
                              attribute(4, hex("ef010101")) + attribute(5, hex("45006677")) +
                              attribute(6, number(table, 4)));
}

} // namespace

TEST(RegisterReport, IsReadWithTableInterfaceAddressesAndPacket)
{
    Bytes bytes = report4(7, 253);
    std::span<uint8_t> left(bytes);
    RegisterReport report;
    EXPECT_EQ(bytes[REPORT_KIND_AT], REPORT_WHOLE_PACKET);
    ASSERT_TRUE(next_report(V4, &left, &report));
    EXPECT_EQ(report.table, 253u);
    EXPECT_EQ(report.vif, 7u);
    EXPECT_EQ(to_text(report.source), "10.0.1.2");
    EXPECT_EQ(to_text(report.group), "239.1.1.1");
    EXPECT_EQ(Bytes(report.packet.begin(), report.packet.end()), hex("45006677"));
    EXPECT_FALSE(next_report(V4, &left, &report));
}

TEST(RegisterReport, OfIpv6NamesNoTable)
{
    Bytes bytes = report_of(
        129, KIND + attribute(2, number(31, 4)) + attribute(3, hex("20010db8000100000000000000000002")) +
                 attribute(4, hex("ff1e0000000000000000000000000007")) + attribute(5, hex("60")));
    std::span<uint8_t> left(bytes);
    RegisterReport report;
    ASSERT_TRUE(next_report(V6, &left, &report));
    EXPECT_EQ(report.table, 0u);
    EXPECT_EQ(report.vif, 31u);
    EXPECT_EQ(to_text(report.source), "2001:db8:1::2");
    EXPECT_EQ(to_text(report.group), "ff1e::7");
    left = bytes;
    EXPECT_FALSE(next_report(V4, &left, &report));
}

TEST(RegisterReport, OthersBetweenAreSteppedOver)
{
    Bytes other_kind =
        report_of(128, attribute(1, {1}) + attribute(2, number(1, 4)) + attribute(3, hex("0a000102")) +
                           attribute(4, hex("ef010101")) + attribute(5, hex("45")));
    Bytes bytes = other_kind + report_of(128, KIND) + report_of(128, KIND, 24) + report4(9, 5);
    std::span<uint8_t> left(bytes);
    RegisterReport report;
    ASSERT_TRUE(next_report(V4, &left, &report));
    EXPECT_EQ(report.vif, 9u);
    EXPECT_EQ(report.table, 5u);
    EXPECT_FALSE(next_report(V4, &left, &report));
}

TEST(RegisterReport, EveryCutOfItIsNone)
{
    const Bytes whole = report4(7, 253);
    for (size_t size = 0; size < whole.size(); ++size) {
        Bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
        std::span<uint8_t> left(cut);
        RegisterReport report;
        EXPECT_FALSE(next_report(V4, &left, &report)) << size;
    }
}

TEST(RegisterReport, AttributeLongerThanTheReportEndsIt)
{
    for (const uint32_t length : {0u, 3u, 200u}) {
        Bytes bytes = report4(7, 253);
        const Bytes lie = number(length, 2);
        std::copy(lie.begin(), lie.end(), bytes.begin() + 20);
        std::span<uint8_t> left(bytes);
        RegisterReport report;
        EXPECT_FALSE(next_report(V4, &left, &report)) << length;
    }
}

TEST(RegisterTunnels, TableAndInterfaceTellTheInstance)
{
    RegisterTunnels tunnels(V4);
    const Address group = addr("239.1.1.1");
    const Address source = addr("10.0.1.2");
    tunnels.set_instance(0, 0, 7); // the default table, which reports call 253
    tunnels.set_instance(3, 100, 7);
    tunnels.put(0, group, source, {addr("10.0.0.1"), addr("10.255.0.1"), 0, MTU});
    tunnels.put(3, group, source, {addr("10.0.0.1"), addr("10.255.0.3"), 0, MTU});
    RegisterReport report{253, 7, source, group, {}};
    ASSERT_TRUE(tunnels.find(report));
    EXPECT_EQ(to_text(tunnels.find(report)->rp), "10.255.0.1");
    report.table = 100;
    EXPECT_EQ(to_text(tunnels.find(report)->rp), "10.255.0.3");
    report.vif = 8;
    EXPECT_FALSE(tunnels.find(report));
    tunnels.set_instance(3, 100, 8);
    EXPECT_TRUE(tunnels.find(report));
    report.vif = 7;
    EXPECT_FALSE(tunnels.find(report));
    tunnels.remove(3, group, source);
    report.vif = 8;
    EXPECT_FALSE(tunnels.find(report));
    EXPECT_EQ(tunnels.size(), 1u);
    tunnels.clear();
    EXPECT_EQ(tunnels.size(), 0u);
}

TEST(RegisterTunnels, InterfaceAloneTellsTheInstanceOfIpv6)
{
    RegisterTunnels tunnels(V6);
    const Address group = addr("ff1e::7");
    const Address source = addr("2001:db8:1::2");
    tunnels.set_instance(3, 100, 30);
    tunnels.put(3, group, source, {addr("2001:db8::1"), addr("2001:db8::9"), 0, MTU});
    EXPECT_TRUE(tunnels.find({0, 30, source, group, {}}));
    EXPECT_FALSE(tunnels.find({0, 31, source, group, {}}));
}
