/*
 * The records between pimsmd and mribd, from bytes written by hand. Integers are in host order: the bytes are those of a
 * little-endian machine, and turned round on another.
 */
#include <array>
#include <bit>
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

#include "daemons/common/pim_records.h"

using namespace mcastd;

namespace
{

using Bytes = std::vector<uint8_t>;

constexpr std::array<uint8_t, 16> v4(uint8_t a, uint8_t b, uint8_t c, uint8_t d)
{
    return {a, b, c, d};
}

void append(Bytes &bytes, const std::array<uint8_t, 16> &address)
{
    bytes.insert(bytes.end(), address.begin(), address.end());
}

// The integers, each of a width, in host order.
void append(Bytes &bytes, uint64_t value, size_t width)
{
    for (size_t i = 0; i < width; ++i) {
        const size_t shift = std::endian::native == std::endian::little ? i : width - 1 - i;
        bytes.push_back(static_cast<uint8_t>(value >> 8 * shift));
    }
}

template <typename Value> const Value *read(const Bytes &bytes)
{
    return pim_value<Value>(MRIB_RECORD_S{0, static_cast<uint16_t>(bytes.size()), bytes.data()});
}

constexpr auto SOURCE = v4(10, 1, 1, 2);
constexpr auto GROUP = v4(239, 1, 2, 3);
constexpr std::array<uint8_t, 16> NONE{};
constexpr uint8_t IPV4 = MCAST_FAMILY_IPV4;
constexpr uint8_t IPV6 = MCAST_FAMILY_IPV6;

Bytes tree_bytes()
{
    Bytes bytes{IPV4, PIM_FROM_INTERFACE};
    append(bytes, 7, 2);
    append(bytes, 0x01020304, 4);
    append(bytes, PIM_TREE_SPT | PIM_TREE_ANSWER, 2);
    bytes.insert(bytes.end(), {32, 0});
    append(bytes, SOURCE);
    append(bytes, GROUP);
    return bytes;
}

template <typename Value> Value made(const Bytes &bytes)
{
    Value value;
    EXPECT_EQ(bytes.size(), sizeof(value));
    std::memcpy(&value, bytes.data(), sizeof(value));
    return value;
}

TEST(PimRecords, NumbersAreThoseOfTheChannel)
{
    EXPECT_EQ(PIM_TLV_INTERFACE, 46);
    EXPECT_EQ(PIM_TLV_TREE, 47);
    EXPECT_EQ(PIM_TLV_ASSERT, 48);
    EXPECT_EQ(PIM_TLV_REGISTERED, 49);
    EXPECT_EQ(PIM_TLV_BEGIN, 50);
    EXPECT_EQ(PIM_TLV_END, 51);
    EXPECT_EQ(PIM_TLV_REQUEST, 52);
    EXPECT_EQ(PIM_TLV_MEMBER, 64);
    EXPECT_EQ(PIM_TLV_SOURCE, 65);
    EXPECT_EQ(PIM_TLV_REMOTE, 66);
    EXPECT_EQ(PIM_TLV_INSTANCE, 67);
    EXPECT_EQ(PIM_TLV_REPLAYED, 68);
    EXPECT_GT(PIM_TLV_INTERFACE, MRIB_TLV_HOST_ENABLE);
    EXPECT_GT(PIM_TLV_MEMBER, MRIB_TLV_TO_CLIENT_LAST);
    EXPECT_EQ(PIM_EVENTS &
                  (MRIB_CAP_VRF | MRIB_CAP_BOUNDARY | MRIB_CAP_DR | MRIB_CAP_BASE | MRIB_CAP_SSM_POLICY |
                   MRIB_CAP_MSDP_LOCAL_SRC | MRIB_CAP_MSDP_REMOTE_SRC | MRIB_CAP_MSDP_ENCAP_REPORT),
              0u);
}

TEST(PimRecords, TreeIsReadFromItsBytes)
{
    Bytes bytes = tree_bytes();
    const auto *value = read<PimTree>(bytes);
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(value->vrf_index, 7);
    EXPECT_EQ(value->if_index, 0x01020304u);
    EXPECT_EQ(value->flags, PIM_TREE_SPT | PIM_TREE_ANSWER);
    EXPECT_EQ(value->group_length, 32);
    EXPECT_EQ(std::memcmp(value->source, SOURCE.data(), 16), 0);
    EXPECT_EQ(std::memcmp(value->group, GROUP.data(), 16), 0);
    EXPECT_EQ(check_pim(IPV4, *value), PimFault::None);
    bytes.pop_back();
    EXPECT_EQ(read<PimTree>(bytes), nullptr);
}

TEST(PimRecords, TreeOutOfRangeIsRefused)
{
    const auto fault = [](size_t at, uint8_t byte) {
        Bytes bytes = tree_bytes();
        bytes[at] = byte;
        return check_pim(IPV4, made<PimTree>(bytes));
    };
    EXPECT_EQ(fault(0, IPV6), PimFault::Family);
    EXPECT_EQ(fault(1, 4), PimFault::Flags);
    EXPECT_EQ(fault(1, PIM_FROM_REGISTER), PimFault::Interface); // with an index
    EXPECT_EQ(fault(std::endian::native == std::endian::little ? 8 : 9, 16), PimFault::Flags);
    EXPECT_EQ(fault(10, 33), PimFault::Flags);
    EXPECT_EQ(fault(10, 31), PimFault::Group); // bits after the length
    EXPECT_EQ(fault(12, 239), PimFault::Source);
    EXPECT_EQ(fault(28, 10), PimFault::Group);
    PimTree tree = made<PimTree>(tree_bytes());
    tree.if_index = 0;
    EXPECT_EQ(check_pim(IPV4, tree), PimFault::Interface);
    std::memset(tree.source, 0, sizeof(tree.source));
    tree.from = PIM_FROM_NOWHERE;
    EXPECT_EQ(check_pim(IPV4, tree), PimFault::None); // (*,G)
}

TEST(PimRecords, RangeOfATreeHasNoSourceAndNoFurtherBits)
{
    PimTree tree{};
    tree.family = IPV4;
    tree.from = PIM_FROM_REGISTER;
    tree.group_length = 8;
    tree.group[0] = 239;
    EXPECT_EQ(check_pim(IPV4, tree), PimFault::None);
    tree.group[1] = 1;
    EXPECT_EQ(check_pim(IPV4, tree), PimFault::Group);
    tree.group[1] = 0;
    tree.source[0] = 10;
    EXPECT_EQ(check_pim(IPV4, tree), PimFault::Source);
    tree.source[0] = 0;
    tree.group_length = 3;
    tree.group[0] = 0xe0;
    EXPECT_EQ(check_pim(IPV4, tree), PimFault::Group);
    tree.family = IPV6;
    tree.group_length = 8;
    tree.group[0] = 0xff;
    EXPECT_EQ(check_pim(IPV6, tree), PimFault::None);
    tree.group_length = 16;
    tree.group[1] = 0x0e;
    EXPECT_EQ(check_pim(IPV6, tree), PimFault::None);
    tree.group[15] = 1;
    EXPECT_EQ(check_pim(IPV6, tree), PimFault::Group);
}

TEST(PimRecords, InterfaceIsReadFromItsBytes)
{
    Bytes bytes{IPV6, PIM_DESIGNATED};
    append(bytes, 5, 2);
    append(bytes, 3, 4);
    auto value = made<PimInterface>(bytes);
    EXPECT_EQ(check_pim(IPV6, value), PimFault::None);
    EXPECT_EQ(value.vrf_index, 5);
    EXPECT_EQ(value.if_index, 3u);
    value.state = 3;
    EXPECT_EQ(check_pim(IPV6, value), PimFault::Flags);
    value.if_index = 0;
    EXPECT_EQ(check_pim(IPV6, value), PimFault::Interface);
    EXPECT_EQ(check_pim(IPV4, value), PimFault::Family);
}

TEST(PimRecords, AssertIsReadFromItsBytes)
{
    Bytes bytes{IPV4, PIM_ASSERT_WON};
    append(bytes, 0, 2);
    append(bytes, 9, 4);
    append(bytes, NONE);
    append(bytes, GROUP);
    auto value = made<PimAssert>(bytes);
    EXPECT_EQ(check_pim(IPV4, value), PimFault::None);
    EXPECT_EQ(value.if_index, 9u);
    value.state = 3;
    EXPECT_EQ(check_pim(IPV4, value), PimFault::Flags);
    value.state = PIM_ASSERT_NONE;
    value.source[0] = 127;
    EXPECT_EQ(check_pim(IPV4, value), PimFault::Source);
    value.group[0] = 1;
    EXPECT_EQ(check_pim(IPV4, value), PimFault::Group);
    value.if_index = 0;
    EXPECT_EQ(check_pim(IPV4, value), PimFault::Interface);
}

TEST(PimRecords, RegisteredIsReadFromItsBytes)
{
    Bytes bytes{IPV4, 1};
    append(bytes, 0, 2);
    append(bytes, v4(10, 255, 0, 1));
    append(bytes, SOURCE);
    append(bytes, GROUP);
    auto value = made<PimRegistered>(bytes);
    EXPECT_EQ(check_pim(IPV4, value), PimFault::None);
    EXPECT_EQ(value.rp[0], 10);
    EXPECT_EQ(value.source[3], 2);
    std::memset(value.source, 0, 4);
    EXPECT_EQ(check_pim(IPV4, value), PimFault::Source);
    std::memset(value.rp, 0, 4);
    EXPECT_EQ(check_pim(IPV4, value), PimFault::Flags);
}

TEST(PimRecords, ReplayIsReadFromItsBytes)
{
    Bytes bytes{IPV4, 0, 0, 0, 0, 0, 0, 0};
    append(bytes, 0xf0000, 8);
    auto value = made<PimReplay>(bytes);
    EXPECT_EQ(value.events, PIM_EVENTS);
    EXPECT_EQ(check_pim(IPV4, value), PimFault::None);
    value.events = MRIB_CAP_VRF;
    EXPECT_EQ(check_pim(IPV4, value), PimFault::Flags);
}

TEST(PimRecords, SourceIsReadFromItsBytes)
{
    Bytes bytes{IPV4, PIM_SOURCE_WRONG};
    append(bytes, 2, 2);
    append(bytes, PIM_REGISTER_INTERFACE, 4);
    bytes.insert(bytes.end(), {1, 0, 0, 0});
    append(bytes, SOURCE);
    append(bytes, GROUP);
    auto value = made<PimSource>(bytes);
    EXPECT_EQ(check_pim(IPV4, value), PimFault::None);
    EXPECT_EQ(value.if_index, PIM_REGISTER_INTERFACE);
    EXPECT_EQ(value.connected, 1);
    value.state = 0;
    EXPECT_EQ(check_pim(IPV4, value), PimFault::Flags);
    value.state = PIM_SOURCE_GONE + 1;
    EXPECT_EQ(check_pim(IPV4, value), PimFault::Flags);
}

TEST(PimRecords, RemoteAndInstanceAreReadFromTheirBytes)
{
    Bytes bytes{IPV4, 1};
    append(bytes, 0, 2);
    append(bytes, SOURCE);
    append(bytes, GROUP);
    auto remote = made<PimRemote>(bytes);
    EXPECT_EQ(check_pim(IPV4, remote), PimFault::None);
    remote.present = 2;
    EXPECT_EQ(check_pim(IPV4, remote), PimFault::Flags);

    bytes = {IPV6, 1};
    append(bytes, 5, 2);
    append(bytes, 100000, 4);
    append(bytes, 31, 4);
    auto instance = made<PimInstance>(bytes);
    EXPECT_EQ(instance.table, 100000u);
    EXPECT_EQ(check_pim(IPV6, instance), PimFault::None);
    instance.register_vif = PIM_NO_VIF;
    EXPECT_EQ(check_pim(IPV6, instance), PimFault::None);
    instance.register_vif = 32;
    EXPECT_EQ(check_pim(IPV6, instance), PimFault::Flags);
}

TEST(PimRecords, MemberHasASourceToExclude)
{
    MRIB_JOIN_PRUNE_S value{};
    value.family = IPV4;
    value.if_index = 2;
    value.flag1 = MRIB_JOIN_PRUNE_FLAG_JOIN;
    std::memcpy(value.group, GROUP.data(), 16);
    EXPECT_EQ(check_pim(IPV4, value), PimFault::None);
    value.flag2 = MRIB_JOIN_PRUNE_FLAG_EXCLUDE;
    EXPECT_EQ(check_pim(IPV4, value), PimFault::Source);
    value.source[0] = 10;
    EXPECT_EQ(check_pim(IPV4, value), PimFault::None);
}

} // namespace
