#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>

#include "mcast/addr.h"
#include "tests/daemons/pimsmd_messages.h"

using namespace pimsmd_test;

namespace
{

struct Literal {
    uint16_t family;
    const char *bytes;
    const char *meaning;
};

// A message of each type in each family, with what it says.
const Literal LITERALS[] = {
    {MCAST_FAMILY_IPV4,
     "2000c970 00010002 00690002 000481f4 09c40013 00040000 00070014 00040102 "
     "03040018 000c0100 c0000201 0100c000 0202",
     "hello holdtime 105 delay 500 override 2500 tracking priority 7 generation 16909060 "
     "192.0.2.1 192.0.2.2"},
    {MCAST_FAMILY_IPV6,
     "20002184 00010002 00690002 000481f4 09c40013 00040000 00070014 00040102 "
     "03040018 00120200 20010db8 00000000 00000000 00000001",
     "hello holdtime 105 delay 500 override 2500 tracking priority 7 generation 16909060 "
     "2001:db8::1"},
    {MCAST_FAMILY_IPV4,
     "23008c45 01000a00 00020002 00d20100 0020ef01 01010002 00010100 07200aff "
     "00010100 0420c000 02090100 0520c000 02080100 0020e801 01010000 00010100 "
     "0420c000 0207",
     "join/prune to 10.0.0.2 for 210; 239.1.1.1/32 +10.255.0.1 star +192.0.2.9 -192.0.2.8 "
     "rpt; 232.1.1.1/32 -192.0.2.7"},
    {MCAST_FAMILY_IPV6,
     "23003909 0200fe80 00000000 00000000 00000000 00020002 00d20200 0080ff3e "
     "00000000 00000000 00000000 00010001 00000200 04802001 0db80000 00000000 "
     "00000000 00090200 0080ff0e 00000000 00000000 00000000 00020001 00010200 "
     "07802001 0db8000f 00000000 00000000 00010200 05802001 0db80000 00000000 "
     "00000000 0008",
     "join/prune to fe80::2 for 210; ff3e::1/128 +2001:db8::9; ff0e::2/128 +2001:db8:f::1 "
     "star -2001:db8::8 rpt"},
    {MCAST_FAMILY_IPV4,
     "21005eff 80000000 4500001c 00000000 10111234 c0000209 ef010101 00000000 "
     "00000000",
     "register border 192.0.2.9 239.1.1.1 packet of 28"},
    {MCAST_FAMILY_IPV6,
     "2100e0fe 00000000 60000000 00081110 20010db8 00000000 00000000 00000009 "
     "ff0e0000 00000000 00000000 00000002 00000000 00000000",
     "register 2001:db8::9 ff0e::2 packet of 48"},
    {MCAST_FAMILY_IPV4, "21009eff 40000000 45000014 00000000 00670878 c0000209 ef010101",
     "null register 192.0.2.9 239.1.1.1 packet of 20"},
    {MCAST_FAMILY_IPV6,
     "2100a0fe 40000000 60000000 00046700 20010db8 00000000 00000000 00000009 "
     "ff0e0000 00000000 00000000 00000002 0000d2c1",
     "null register 2001:db8::9 ff0e::2 packet of 44"},
    {MCAST_FAMILY_IPV4, "220029d3 01000020 ef010101 0100c000 0209", "stop 192.0.2.9 239.1.1.1"},
    {MCAST_FAMILY_IPV6,
     "2200dc4b 02000080 ff0e0000 00000000 00000000 00000002 02000000 00000000 "
     "00000000 00000000 0000",
     "stop :: ff0e::2"},
    {MCAST_FAMILY_IPV4, "25002651 01000020 ef010101 0100c000 02090000 006e0000 0014",
     "assert 192.0.2.9 239.1.1.1 110 20"},
    {MCAST_FAMILY_IPV6,
     "25005942 02000080 ff0e0000 00000000 00000000 00000002 02000000 00000000 "
     "00000000 00000000 00008000 0001ffff ffff",
     "assert :: ff0e::2 rpt 1 4294967295"},
    {MCAST_FAMILY_IPV4,
     "248057c1 abcd1e40 01000aff 00090100 0108ef00 00000201 00000100 0aff0001 "
     "0096c000 01000004 e0000000 01010000 01000aff 00030000 0000",
     "bootstrap here tag 43981 hash 30 priority 64 of 10.255.0.9; 239.0.0.0/8z of 2 "
     "10.255.0.1 for 150 at 192; 224.0.0.0/4 of 1 10.255.0.3 for 0 at 0"},
    {MCAST_FAMILY_IPV6,
     "2400fc82 00017e00 02002001 0db8000f 00000000 00000000 00090200 0008ff00 "
     "00000000 00000000 00000000 00000101 00000200 20010db8 000f0000 00000000 "
     "00000001 00960100",
     "bootstrap tag 1 hash 126 priority 0 of 2001:db8:f::9; ff00::/8 of 1 2001:db8:f::1 for "
     "150 at 1"},
    {MCAST_FAMILY_IPV4, "2800d997 01c00096 01000aff 00010100 0010ef01 0000",
     "candidate 10.255.0.1 priority 192 for 150 239.1.0.0/16"},
    {MCAST_FAMILY_IPV6, "2800aa23 00000000 02002001 0db8000f 00000000 00000000 0001",
     "candidate 2001:db8:f::1 priority 0 for 0"},
};

const Literal &literal(const char *meaning)
{
    for (const Literal &one : LITERALS) {
        if (std::strncmp(one.meaning, meaning, std::strlen(meaning)) == 0) {
            return one;
        }
    }
    throw std::out_of_range(meaning);
}

const Envelope IPV4 = envelope(MCAST_FAMILY_IPV4);
const Envelope IPV6 = envelope(MCAST_FAMILY_IPV6);

// The bytes with the checksum that belongs to them.
Bytes summed_up(const Envelope &envelope, Bytes bytes)
{
    const bool ipv6 = envelope.source.family == MCAST_FAMILY_IPV6;
    const Address none{};
    const size_t covered = (bytes[0] & 15) == 1 ? std::min<size_t>(8, bytes.size()) : bytes.size();
    const uint32_t size = static_cast<uint32_t>(covered);
    bytes[2] = bytes[3] = 0;
    const uint16_t sum = static_cast<uint16_t>(MCAST_Inet6Cksum(
        reinterpret_cast<const uint16_t *>(bytes.data()), size, ipv6 ? &envelope.source : &none,
        ipv6 ? &envelope.destination : &none, ipv6 ? size : 0, ipv6 ? pimsmd::PROTOCOL_PIM : 0));

    std::memcpy(bytes.data() + 2, &sum, sizeof(sum));
    return bytes;
}

// The header and its checksum around the fields of a type.
Bytes message(const Envelope &envelope, uint8_t type, const std::string &fields)
{
    Bytes bytes = hex("20000000" + fields);
    bytes[0] = static_cast<uint8_t>(0x20 | type);
    return summed_up(envelope, bytes);
}

std::string read4(uint8_t type, const std::string &fields)
{
    return read_text(IPV4, message(IPV4, type, fields));
}

// Fields that the refusals vary.
const std::string UPSTREAM = "01000a000002";
const std::string GROUP = "01000020ef010101";
const std::string SOURCE = "01000420c0000209";

} // namespace

TEST(PimWire, ReadsAMessageOfEachTypeInEachFamily)
{
    for (const Literal &one : LITERALS) {
        EXPECT_EQ(read_text(envelope(one.family), hex(one.bytes)), one.meaning);
    }
}

TEST(PimWire, WritesTheBytesOfEachTypeInEachFamily)
{
    for (const Literal &one : LITERALS) {
        const Bytes bytes = hex(one.bytes);
        Message message;

        ASSERT_EQ(pimsmd::read_message(envelope(one.family), bytes, &message), NO_DROP) << one.meaning;
        EXPECT_EQ(written(envelope(one.family), message), bytes) << one.meaning;
        EXPECT_EQ(written(envelope(one.family), message, bytes.size()), bytes) << one.meaning;
        for (size_t room = 0; room < bytes.size(); ++room) {
            EXPECT_EQ(written(envelope(one.family), message, room), Bytes()) << one.meaning << " in " << room;
        }
    }
}

TEST(PimWire, AMessageCutShortNeverMeansTheSame)
{
    for (const Literal &one : LITERALS) {
        const Bytes bytes = hex(one.bytes);
        const Envelope from = envelope(one.family);
        const unsigned type = bytes[0] & 15;
        // A Hello, a Bootstrap and the packet in a Register end where they end.
        const bool may_be_shorter = type == 0 || type == 1 || type == 4;

        for (size_t size = 0; size < bytes.size(); ++size) {
            Bytes cut(bytes.begin(), bytes.begin() + static_cast<long>(size));

            cut.shrink_to_fit();
            const std::string meaning = read_text(from, size < 4 ? cut : summed_up(from, cut));

            EXPECT_NE(meaning, one.meaning) << size;
            EXPECT_TRUE(may_be_shorter || meaning.starts_with("dropped_")) << meaning << size;
        }
    }
}

TEST(PimWire, EveryBitOfTheCoveredBytesIsInTheChecksum)
{
    for (const Literal &one : LITERALS) {
        const Bytes bytes = hex(one.bytes);
        const size_t covered = (bytes[0] & 15) == 1 ? 8 : bytes.size();

        for (size_t bit = 8; bit < 8 * covered; ++bit) { // the first byte has version and type
            Bytes other = bytes;

            other[bit / 8] ^= static_cast<uint8_t>(1 << bit % 8);
            EXPECT_EQ(read_text(envelope(one.family), other), "dropped_checksum") << one.meaning << bit;
        }
    }
}

TEST(PimWire, TheAddressesOfAnIpv6PacketAreInTheChecksum)
{
    const Bytes hello = hex(literal("hello holdtime 105 delay 500 override 2500 tracking priority 7 "
                                    "generation 16909060 2001")
                                .bytes);
    EXPECT_EQ(read_text({addr("fe80::3"), addr("ff02::d")}, hello), "dropped_checksum");
    EXPECT_EQ(read_text({addr("fe80::1"), addr("fe80::2")}, hello), "dropped_checksum");
}

TEST(PimWire, ARegisterMayBeSummedUpWholeInIpv4Alone)
{
    Bytes whole = hex(literal("register border").bytes);
    whole[2] = 0x45;
    whole[3] = 0x91;
    EXPECT_EQ(read_text(IPV4, whole), "register border 192.0.2.9 239.1.1.1 packet of 28");
    whole.back() ^= 1; // now covered
    EXPECT_EQ(read_text(IPV4, whole), "dropped_checksum");

    Bytes six = hex(literal("register 2001").bytes);
    six[0] = 0x22; // a type that is summed up whole
    six = summed_up(IPV6, six);
    six[0] = 0x21;
    six[2] = static_cast<uint8_t>(six[2] + 1); // for the type that was another
    EXPECT_EQ(read_text(IPV6, six), "dropped_checksum");
}

TEST(PimWire, VersionAndTypeAreThoseKnown)
{
    Bytes hello = message(IPV4, 0, "");
    EXPECT_EQ(read_text(IPV4, hello), "hello");
    hello[0] = 0x10;
    EXPECT_EQ(read_text(IPV4, hello), "dropped_version");
    for (const uint8_t type : std::initializer_list<uint8_t>{6, 7, 9, 10, 15}) {
        EXPECT_EQ(read4(type, ""), "dropped_message_type") << int{type};
    }
}

TEST(PimWire, UnknownOptionsOfAHelloArePassedOver)
{
    EXPECT_EQ(read_text(IPV4, hex("20001ab0 fde90003 61626300 010002ff ff")), "hello holdtime 65535");
    EXPECT_EQ(read4(0, "fde90000 fde90000"), "hello");
}

TEST(PimWire, OptionsOfAHelloHaveTheirLengthAndComeOnce)
{
    EXPECT_EQ(read4(0, "00010001 69"), "dropped_option_length");
    EXPECT_EQ(read4(0, "00010003 006900"), "dropped_option_length");
    EXPECT_EQ(read4(0, "00020002 01f4"), "dropped_option_length");
    EXPECT_EQ(read4(0, "00130000"), "dropped_option_length");
    EXPECT_EQ(read4(0, "00140005 0102030405"), "dropped_option_length");
    EXPECT_EQ(read4(0, "00140008 01020304"), "dropped_option_length");
    EXPECT_EQ(read4(0, "0014"), "dropped_option_length");
    EXPECT_EQ(read4(0, "00180005 0100c00002"), "dropped_option_length");
    EXPECT_EQ(read4(0, "00010002 0069 00010002 0069"), "dropped_option_twice");
    EXPECT_EQ(read4(0, "00180000 00180000"), "dropped_option_twice");
    EXPECT_EQ(read4(0, "00180006 0200c0000201"), "dropped_option_length");
    EXPECT_EQ(read4(0, "00180006 0300c0000201"), "dropped_address_family");
    EXPECT_EQ(read4(0, "00180006 0100ef000001"), "dropped_router_address");
}

TEST(PimWire, AddressesAreOfTheMessagesFamilyAndPlain)
{
    EXPECT_EQ(read4(2, GROUP + "0100c0000209"), "stop 192.0.2.9 239.1.1.1");
    EXPECT_EQ(read4(2, GROUP + "0200c0000209"), "dropped_address_family");
    EXPECT_EQ(read4(2, GROUP + "0000c0000209"), "dropped_address_family");
    EXPECT_EQ(read4(2, GROUP + "0101c0000209"), "dropped_address_encoding");
    EXPECT_EQ(read4(2, GROUP + "0100e0000209"), "dropped_source_address");
    EXPECT_EQ(read4(2, "01000020c0010101 0100c0000209"), "dropped_group_address");
    EXPECT_EQ(read4(2, "01000021ef010101 0100c0000209"), "dropped_mask_length");
    EXPECT_EQ(read4(2, "01000018ef010100 0100c0000209"), "dropped_mask_length");
    EXPECT_EQ(read4(3, "010000000000 00 00 00d2"), "dropped_router_address");
    EXPECT_EQ(read4(8, "01c00096 01000aff0001 01000003e0000000"), "dropped_mask_length");
    EXPECT_EQ(read4(4, "00012100 01000aff0009"), "dropped_mask_length");
}

TEST(PimWire, SourcesOfAJoinAreSingleWithFlagsThatMeanSomething)
{
    const std::string head = UPSTREAM + "000100d2" + GROUP + "00010000";
    EXPECT_EQ(read4(3, head + SOURCE), "join/prune to 10.0.0.2 for 210; 239.1.1.1/32 +192.0.2.9");
    EXPECT_EQ(read4(3, head + "0100fc20c0000209"), "join/prune to 10.0.0.2 for 210; 239.1.1.1/32 +192.0.2.9");
    EXPECT_EQ(read4(3, head + "01000620c0000209"), "dropped_source_flags");
    EXPECT_EQ(read4(3, head + "01000418c0000200"), "dropped_mask_length");
    EXPECT_EQ(read4(3, head + "01000420ef000209"), "dropped_source_address");
    EXPECT_EQ(read4(3, head + "0100042000000000"), "dropped_source_address");
    EXPECT_EQ(read4(3, head + "02000420c0000209"), "dropped_address_family");
}

TEST(PimWire, ARangeOfGroupsInAJoinIsLeftToTheReader)
{
    EXPECT_EQ(read4(3, UPSTREAM + "000100d2 01008004e0000000 00000000"),
              "join/prune to 10.0.0.2 for 210; 224.0.0.0/4b");
}

TEST(PimWire, CountsThatLieRefuseTheMessageWhole)
{
    const std::string one = GROUP + "00010000" + SOURCE;
    EXPECT_EQ(read4(3, UPSTREAM + "000200d2" + one), "dropped_count");
    EXPECT_EQ(read4(3, UPSTREAM + "000000d2" + one), "dropped_bytes_behind");
    EXPECT_EQ(read4(3, UPSTREAM + "000100d2" + one + "00"), "dropped_bytes_behind");
    EXPECT_EQ(read4(3, UPSTREAM + "000200d2" + one + GROUP + "ffffffff" + SOURCE), "dropped_count");
    EXPECT_EQ(read4(3, UPSTREAM + "000200d2" + one + GROUP + "00000001"), "dropped_count");
    EXPECT_EQ(read4(3, UPSTREAM + "0001"), "dropped_short_message");
    EXPECT_EQ(
        read4(4, "00011e00 01000aff0009 01000004e0000000 01020000 01000aff00010096c000 01000aff00020096c000"),
        "dropped_count");
    EXPECT_EQ(read4(4, "00011e00 01000aff0009 01000004e0000000 02020000 01000aff00010096c000"),
              "dropped_count");
    EXPECT_EQ(read4(8, "02c00096 01000aff0001 01000010ef010000"), "dropped_count");
    EXPECT_EQ(read4(8, "00c00096 01000aff0001 01000010ef010000"), "dropped_bytes_behind");
    EXPECT_EQ(read4(2, GROUP + "0100c000020900"), "dropped_bytes_behind");
}

TEST(PimWire, AddressesOfTheOtherFamilyInAHelloArePassedOver)
{
    const std::string ipv6 = "0200 fe800000 00000000 00000000 00000001 ";
    EXPECT_EQ(read4(0, "0018001e 0100c0000201" + ipv6 + "0100c0000202"), "hello 192.0.2.1 192.0.2.2");
    EXPECT_EQ(read4(0, "00180012" + ipv6), "hello");
    EXPECT_EQ(read4(0, "00180011" + ipv6.substr(0, ipv6.size() - 3)), "dropped_option_length");
}

TEST(PimWire, APacketInARegisterIsOfTheFamilyAndMulticast)
{
    const std::string ipv4 = "4500001400000000 01 11 0000 c0000209 ef010101";
    EXPECT_EQ(read4(1, "00000000" + ipv4), "register 192.0.2.9 239.1.1.1 packet of 20");
    EXPECT_EQ(read4(1, "40000000" + ipv4), "null register 192.0.2.9 239.1.1.1 packet of 20");
    EXPECT_EQ(read4(1, "40000000 4500001400000000 01 11 0001 c0000209 ef010101"), "dropped_inner_packet");
    EXPECT_EQ(read4(1, "00000000 4500001400000000 01 11 0000 c0000209 ef0101"), "dropped_inner_packet");
    EXPECT_EQ(read4(1, "00000000 6500001400000000 01 11 0000 c0000209 ef010101"), "dropped_inner_packet");
    EXPECT_EQ(read4(1, "00000000 4500001400000000 01 11 0000 e0000209 ef010101"), "dropped_source_address");
    EXPECT_EQ(read4(1, "00000000 4500001400000000 01 11 0000 c0000209 0a010101"), "dropped_group_address");
    EXPECT_EQ(read4(1, "00000000"), "dropped_inner_packet");
    EXPECT_EQ(read4(1, "0000"), "dropped_short_message");
}

TEST(PimWire, FiveThousandSourcesInAMessageOfSixtyFourKibibytes)
{
    std::vector<pimsmd::TreeSource> sources;
    for (uint32_t i = 0; i < 8000; ++i) {
        const uint8_t bytes[] = {10, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};

        sources.push_back({pimsmd::make_address(MCAST_FAMILY_IPV4, bytes), pimsmd::Tree::Source});
    }
    Bytes out(pimsmd::MAX_MESSAGE_SIZE);
    pimsmd::JoinPruneWriter writer(out, addr("10.0.0.2"), 210);
    const std::span<const pimsmd::TreeSource> all(sources);

    ASSERT_TRUE(writer.add({{addr("239.1.1.1"), 32}}, all.first(5000), all.subspan(5000)));
    ASSERT_TRUE(writer.add({{addr("239.1.1.2"), 32}}, all.first(180), {}));
    EXPECT_FALSE(writer.add({{addr("239.1.1.3"), 32}}, all.first(180), {}));
    out.resize(writer.finish(IPV4));
    EXPECT_GT(out.size(), 65000u - 100);

    Message message;

    ASSERT_EQ(pimsmd::read_message(IPV4, out, &message), NO_DROP);
    pimsmd::JoinPruneGroups groups = std::get<pimsmd::JoinPrune>(message).groups;
    pimsmd::JoinPruneGroup group;

    ASSERT_TRUE(groups.next(&group));
    EXPECT_EQ(group.joins.size(), 5000u);
    EXPECT_EQ(group.prunes.size(), 3000u);
    EXPECT_EQ(pimsmd::to_text(group.prunes[2999].address), "10.0.31.63");
    ASSERT_TRUE(groups.next(&group));
    EXPECT_EQ(group.joins.size(), 180u);
    EXPECT_FALSE(groups.next(&group));
}

TEST(PimWire, AGroupBeyondTheCountOfGroupsIsRefusedByTheWriter)
{
    Bytes out(pimsmd::MAX_MESSAGE_SIZE);
    pimsmd::JoinPruneWriter writer(out, addr("fe80::2"), 210);
    for (unsigned i = 0; i < 255; ++i) {
        ASSERT_TRUE(writer.add({{addr("ff3e::1"), 128}}, {}, {}));
    }
    EXPECT_EQ(writer.room(), 0u);
    EXPECT_FALSE(writer.add({{addr("ff3e::1"), 128}}, {}, {}));
    out.resize(writer.finish(IPV6));
    EXPECT_EQ(read_text(IPV6, out).find("dropped"), std::string::npos);
}

TEST(PimWire, ListsTooLongToBeCountedAreNotWritten)
{
    Bytes out(200000);
    const std::vector<Address> addresses(3641, addr("2001:db8::1")); // 65538 bytes
    EXPECT_EQ(pimsmd::write_hello(out, IPV6, {}, addresses), 0u);
    EXPECT_NE(pimsmd::write_hello(out, IPV6, {}, std::span(addresses).first(3640)), 0u);
    const std::vector<pimsmd::GroupRange> ranges(256, {{addr("239.0.0.0"), 8}});
    EXPECT_EQ(pimsmd::write_candidate(out, IPV4, {0, 0, addr("10.0.0.1"), 0, {}}, ranges), 0u);
    const std::vector<pimsmd::BootstrapRp> rps(2);
    const pimsmd::BootstrapRangeOut range{{{addr("239.0.0.0"), 8}}, 1, rps};
    EXPECT_EQ(pimsmd::write_bootstrap(out, IPV4, {false, 1, 30, 0, addr("10.0.0.1"), {}}, {&range, 1}), 0u);
}
