#include <cstring>

#include "unit/mrib/channel_fixture.h"

namespace mrib_test
{
namespace
{

constexpr uint32_t kIf = 9;

/* Values of received records. */
Bytes VrfState(uint8_t vrf_index, uint8_t state)
{
    return {0xff, 0xff, 0xff, vrf_index, 0, state};
}

Bytes PimDr(uint8_t vrf_index, uint8_t state)
{
    return {0xff, 0xff, state, 0xff, vrf_index, 0, kIf, 0, 0, 0};
}

struct Boundary {
    uint8_t operation = 1;
    uint8_t remove_all = 0;
    uint8_t length = 0;
    uint8_t scope_flag = 0;
    uint8_t scope = 0;
    MCAST_ADDR_S address = Ipv4(0, 0, 0, 0);
    uint8_t vrf_index = 1;
};

Bytes ValueOf(const Boundary &b)
{
    return Bytes{0xff,
                 0xff,
                 static_cast<uint8_t>(b.address.family),
                 0xff,
                 b.vrf_index,
                 0,
                 b.operation,
                 b.remove_all,
                 b.length,
                 kIf,
                 0,
                 0,
                 0,
                 b.scope_flag,
                 b.scope} +
           Bytes(b.address.address, b.address.address + 16);
}

class Records : public ChannelTest
{
protected:
    uint64_t Apply(const Boundary &boundary)
    {
        return ReceiveRecord(MRIB_TLV_BOUNDARY, ValueOf(boundary));
    }

    uint64_t AddRange(const MCAST_ADDR_S &address, uint8_t length)
    {
        Boundary boundary;

        boundary.address = address;
        boundary.length = length;
        return Apply(boundary);
    }

    uint64_t SetScope(uint8_t scope)
    {
        Boundary boundary;

        boundary.scope_flag = 1;
        boundary.scope = scope;
        boundary.address = Ipv6({});
        return Apply(boundary);
    }

    uint64_t Remove(Boundary boundary)
    {
        boundary.operation = 0;
        return Apply(boundary);
    }

    static uint64_t Passes(const MCAST_ADDR_S &group)
    {
        const MRIB_GMP_VRF_KEY_S key = {g_ucMribGmpFamily, 1};

        return MRIB_GMP_CanPassMBoundary(&key, kIf, &group);
    }

    static uint32_t IsDr()
    {
        const MRIB_GMP_VRF_KEY_S key = {g_ucMribGmpFamily, 1};

        return MRIB_GMP_IsPimDr(&key, kIf);
    }

    static uint32_t Ranges()
    {
        return PeekInterface(1, kIf) == nullptr ? 0 : PeekInterface(1, kIf)->boundaries.count;
    }

    std::string Told(uint8_t family, uint32_t value, const char *what)
    {
        return std::string(what) + " " + std::to_string(family) + " 1 9 " + std::to_string(value);
    }
};

TEST_F(Records, VrfStateEnablesAndDisablesWithItsCallback)
{
    const MRIB_GMP_VRF_KEY_S key = {MCAST_FAMILY_IPV4, 1};

    Connect();
    EXPECT_EQ(MRIB_GMP_IsL3McEnabled(&key), 0u);
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_VRF_STATE, VrfState(1, 1)), 0u);
    EXPECT_EQ(MRIB_GMP_IsL3McEnabled(&key), 1u);
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_VRF_STATE, VrfState(1, 0)), 0u);
    EXPECT_EQ(MRIB_GMP_IsL3McEnabled(&key), 0u);
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_VRF_STATE, VrfState(1, 2)), 0u);
    EXPECT_EQ(calls, (std::vector<std::string>{"vrf enabled 2 1", "vrf disabled 2 1", "vrf disabled 2 1"}));
}

TEST_F(Records, VrfIndexEqualToTheCountIsIgnored)
{
    Connect(MCAST_FAMILY_IPV4, 2);
    for (uint8_t index : {uint8_t{2}, uint8_t{3}, uint8_t{255}}) {
        Boundary boundary;

        boundary.vrf_index = index;
        EXPECT_EQ(ReceiveRecord(MRIB_TLV_VRF_STATE, VrfState(index, 1)), 0u);
        EXPECT_EQ(ReceiveRecord(MRIB_TLV_PIM_DR, PimDr(index, 1)), 0u);
        EXPECT_EQ(ReceiveRecord(MRIB_TLV_SSM_POLICY, {0, 0, 0, index, 0, 1, 0, 0, 0}), 0u);
        EXPECT_EQ(Apply(boundary), 0u);
    }
    EXPECT_TRUE(calls.empty());
}

TEST_F(Records, EveryRecordShorterThanItsMinimumIsIgnored)
{
    const std::pair<uint16_t, Bytes> records[] = {
        {MRIB_TLV_VRF_STATE, VrfState(1, 1)},
        {MRIB_TLV_BOUNDARY, ValueOf(Boundary{})},
        {MRIB_TLV_PIM_DR, PimDr(1, 1)},
        {MRIB_TLV_SSM_POLICY, {0, 0, 0, 1, 0, 1, 0, 0, 0}},
    };

    Connect();
    for (const auto &[type, value] : records) {
        for (size_t length = 0; length < value.size(); ++length) {
            uint8_t *exact = new uint8_t[length];

            memcpy(exact, value.data(), length);
            EXPECT_EQ(mribGmpTLVProc(type, static_cast<uint16_t>(length), exact), 0u);
            delete[] exact;
        }
        EXPECT_TRUE(calls.empty()) << type;
        EXPECT_EQ(mribGmpTLVProc(type, static_cast<uint16_t>(value.size()), value.data()), 0u);
        EXPECT_EQ(calls.size(), 1u) << type;
        calls.clear();
    }
}

TEST_F(Records, DisabledVrfLosesItsInterfaceRecords)
{
    Connect();
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_PIM_DR, PimDr(1, 1)), 0u);
    ASSERT_EQ(AddRange(Ipv4(239, 0, 0, 0), 8), 0u);

    ASSERT_EQ(ReceiveRecord(MRIB_TLV_VRF_STATE, VrfState(1, 0)), 0u);

    EXPECT_EQ(PeekInterface(1, kIf), nullptr);
    EXPECT_EQ(Passes(Ipv4(239, 1, 1, 1)), 1u);
}

TEST_F(Records, VrfStateConfirmsTheState)
{
    Connect();
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_VRF_STATE, VrfState(1, 1)), 0u);
    MRIB_GMP_CloseConnection();
    ASSERT_EQ(MRIB_GMP_OpenConnect(), 0u);
    ASSERT_EQ(PeekVrf(1).flags, 1u);

    ASSERT_EQ(ReceiveRecord(MRIB_TLV_VRF_STATE, VrfState(1, 1)), 0u);

    EXPECT_EQ(PeekVrf(1).flags, 0u);
}

TEST_F(Records, DesignatedRouterComesAndGoesWithItsRecord)
{
    Connect();
    EXPECT_EQ(IsDr(), 0u);
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_PIM_DR, PimDr(1, 1)), 0u);
    EXPECT_EQ(IsDr(), 1u);
    ASSERT_NE(PeekInterface(1, kIf), nullptr);
    EXPECT_EQ(PeekInterface(1, kIf)->if_index, kIf);
    EXPECT_EQ(PeekInterface(1, kIf)->owner, &g_stMribGmpVrfInfo.vrfs[1]);
    EXPECT_EQ(PeekInterface(1, kIf)->tree_index, 0);
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_PIM_DR, PimDr(1, 7)), 0u);
    EXPECT_EQ(IsDr(), 0u);
    EXPECT_EQ(PeekInterface(1, kIf), nullptr) << "nothing is left to say";
    EXPECT_EQ(calls, (std::vector<std::string>{Told(2, 1, "dr"), Told(2, 7, "dr")}));
}

TEST_F(Records, DrStateZeroOfAnUnknownInterfaceOnlyTellsTheClient)
{
    Connect();

    EXPECT_EQ(ReceiveRecord(MRIB_TLV_PIM_DR, PimDr(1, 0)), 0u);

    EXPECT_EQ(PeekInterface(1, kIf), nullptr);
    EXPECT_EQ(calls, std::vector<std::string>{Told(2, 0, "dr")});
}

TEST_F(Records, DrRecordThatCannotBeStoredFailsAndStillTellsTheClient)
{
    Connect();
    fault::FailAllocation(1);
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_PIM_DR, PimDr(1, 1)), 0x40010001u);
    fault::FailAllocation(0);
    platform::Fail(platform::Operation::kSetPrivateData, 1);
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_PIM_DR, PimDr(1, 1)), 0x40010001u);

    EXPECT_EQ(IsDr(), 0u);
    EXPECT_EQ(calls, (std::vector<std::string>{Told(2, 1, "dr"), Told(2, 1, "dr")}));
}

TEST_F(Records, LosingDrKeepsTheRecordOfAnInterfaceWithBoundaries)
{
    Connect();
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_PIM_DR, PimDr(1, 1)), 0u);
    ASSERT_EQ(AddRange(Ipv4(239, 0, 0, 0), 8), 0u);
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_PIM_DR, PimDr(1, 0)), 0u);
    ASSERT_NE(PeekInterface(1, kIf), nullptr);
    ASSERT_EQ(Remove({.length = 8, .address = Ipv4(239, 0, 0, 0)}), 0u);
    EXPECT_EQ(PeekInterface(1, kIf), nullptr);
}

TEST_F(Records, BoundaryBlocksGroupsWithinItsRangeOnly)
{
    Connect();
    ASSERT_EQ(AddRange(Ipv4(239, 1, 0xff, 0xff), 16), 0u) << "bits past the length do not count";

    EXPECT_EQ(Passes(Ipv4(239, 1, 0, 0)), 0u);
    EXPECT_EQ(Passes(Ipv4(239, 1, 255, 255)), 0u);
    EXPECT_EQ(Passes(Ipv4(239, 2, 0, 0)), 1u);
    EXPECT_EQ(Passes(Ipv4(239, 0, 255, 255)), 1u);
    EXPECT_EQ(calls, std::vector<std::string>{Told(2, 1, "boundary")});
}

TEST_F(Records, WiderRangeReplacesTheRangesInsideIt)
{
    Connect();
    ASSERT_EQ(AddRange(Ipv4(239, 1, 2, 0), 24), 0u);
    ASSERT_EQ(AddRange(Ipv4(239, 1, 3, 0), 24), 0u);
    ASSERT_EQ(AddRange(Ipv4(239, 2, 0, 0), 24), 0u);
    ASSERT_EQ(Ranges(), 3u);

    ASSERT_EQ(AddRange(Ipv4(239, 1, 0, 0), 16), 0u);

    EXPECT_EQ(Ranges(), 2u);
    EXPECT_EQ(Passes(Ipv4(239, 1, 9, 9)), 0u);
    EXPECT_EQ(Passes(Ipv4(239, 2, 0, 9)), 0u);
    ASSERT_EQ(AddRange(Ipv4(239, 1, 2, 0), 24), 0u);
    EXPECT_EQ(Ranges(), 3u) << "a narrower one is kept beside the wider";
}

TEST_F(Records, SameRangeAgainIsASuccess)
{
    Connect();
    ASSERT_EQ(AddRange(Ipv4(239, 1, 0, 0), 16), 0u);
    EXPECT_EQ(AddRange(Ipv4(239, 1, 0, 0), 16), 0u);
    EXPECT_EQ(Ranges(), 1u);
}

TEST_F(Records, SameRangeAgainRemovesTheRangesInsideIt)
{
    Connect();
    ASSERT_EQ(AddRange(Ipv4(239, 1, 0, 0), 16), 0u);
    ASSERT_EQ(AddRange(Ipv4(239, 1, 2, 0), 24), 0u);
    ASSERT_EQ(Ranges(), 2u);
    EXPECT_EQ(AddRange(Ipv4(239, 1, 0, 0), 16), 0u);
    EXPECT_EQ(Ranges(), 1u);
}

TEST_F(Records, RangeOfEveryLengthIsAccepted)
{
    Connect();
    for (unsigned length = 0; length <= 255; ++length) {
        ASSERT_EQ(AddRange(Ipv4(239, 1, 2, 3), static_cast<uint8_t>(length)), 0u);
        EXPECT_EQ(Passes(Ipv4(239, 1, 2, 3)), 0u) << length;
        ASSERT_EQ(Remove({.length = 0, .address = Ipv4(0, 0, 0, 0)}), 0u);
        EXPECT_EQ(PeekInterface(1, kIf), nullptr);
    }
}

TEST_F(Records, RemovingARangeRemovesAllWithinIt)
{
    Connect();
    ASSERT_EQ(AddRange(Ipv4(239, 1, 2, 0), 24), 0u);
    ASSERT_EQ(AddRange(Ipv4(239, 2, 2, 0), 24), 0u);
    ASSERT_EQ(AddRange(Ipv4(224, 2, 2, 0), 24), 0u);
    calls.clear();

    ASSERT_EQ(Remove({.length = 8, .address = Ipv4(239, 0, 0, 0)}), 0u);

    EXPECT_EQ(Ranges(), 1u);
    EXPECT_EQ(calls, std::vector<std::string>{Told(2, 0, "boundary")});
}

TEST_F(Records, RemoveAllTakesRangesAndScope)
{
    Connect(MCAST_FAMILY_IPV6);
    ASSERT_EQ(AddRange(Ipv6({0xff, 5}), 16), 0u);
    ASSERT_EQ(SetScope(5), 0u);

    ASSERT_EQ(Remove({.remove_all = 1}), 0u);

    EXPECT_EQ(PeekInterface(1, kIf), nullptr);
}

TEST_F(Records, RemoveAllKeepsTheDesignatedRouter)
{
    Connect(MCAST_FAMILY_IPV6);
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_PIM_DR, PimDr(1, 1)), 0u);
    ASSERT_EQ(SetScope(5), 0u);
    ASSERT_EQ(Remove({.remove_all = 1}), 0u);
    ASSERT_NE(PeekInterface(1, kIf), nullptr);
    EXPECT_EQ(PeekInterface(1, kIf)->scope, 0);
    EXPECT_EQ(IsDr(), 1u);
}

TEST_F(Records, RemovingFromAnUnknownInterfaceOnlyTellsTheClient)
{
    Connect();
    EXPECT_EQ(Remove({.remove_all = 1}), 0u);
    EXPECT_EQ(Remove({.length = 8, .address = Ipv4(239, 0, 0, 0)}), 0u);
    EXPECT_EQ(Remove({.scope_flag = 1}), 0u);
    EXPECT_EQ(calls.size(), 3u);
    EXPECT_EQ(PeekInterface(1, kIf), nullptr);
}

TEST_F(Records, OperationOtherThanOneRemovesAndIsToldAsItCame)
{
    Connect();
    ASSERT_EQ(AddRange(Ipv4(239, 0, 0, 0), 8), 0u);
    calls.clear();
    ASSERT_EQ(Apply({.operation = 2, .length = 8, .address = Ipv4(239, 0, 0, 0)}), 0u);
    EXPECT_EQ(Ranges(), 0u);
    EXPECT_EQ(calls, std::vector<std::string>{Told(2, 2, "boundary")});
}

TEST_F(Records, ScopeTellsWhetherMoreIsBlockedThanBefore)
{
    Connect(MCAST_FAMILY_IPV6);
    ASSERT_EQ(SetScope(5), 0u);
    ASSERT_EQ(SetScope(8), 0u);
    ASSERT_EQ(SetScope(8), 0u);
    ASSERT_EQ(SetScope(4), 0u);
    EXPECT_EQ(calls, (std::vector<std::string>{Told(10, 1, "boundary"), Told(10, 1, "boundary"),
                                               Told(10, 1, "boundary"), Told(10, 0, "boundary")}));
    ASSERT_EQ(Remove({.scope_flag = 1}), 0u);
    EXPECT_EQ(PeekInterface(1, kIf), nullptr);
}

TEST_F(Records, MeaninglessScopeLeavesNoRecordBehind)
{
    Connect(MCAST_FAMILY_IPV6);
    for (uint8_t scope : {uint8_t{0}, uint8_t{2}, uint8_t{16}, uint8_t{255}}) {
        EXPECT_EQ(SetScope(scope), 0u);
        EXPECT_EQ(PeekInterface(1, kIf), nullptr);
    }
}

TEST_F(Records, ScopeBlocksGroupsOfItsOwnAndSmallerScopes)
{
    struct Row {
        uint8_t boundary;
        uint8_t group;
        uint64_t passes;
    };
    const Row rows[] = {
        {5, 5, 0}, {4, 5, 1}, {15, 3, 0},  {3, 3, 0},   {5, 2, 1},   {15, 2, 1},
        {8, 5, 0}, {5, 8, 1}, {14, 15, 0}, {13, 15, 1}, {15, 15, 0}, {14, 14, 0},
    };

    Connect(MCAST_FAMILY_IPV6);
    for (const Row &row : rows) {
        ASSERT_EQ(SetScope(row.boundary), 0u);
        EXPECT_EQ(Passes(Ipv6({0xff, static_cast<uint8_t>(0x70 | row.group)})), row.passes)
            << int{row.boundary} << " " << int{row.group};
    }
}

TEST_F(Records, ScopeDoesNotBlockIpv4Groups)
{
    Connect();
    ASSERT_EQ(SetScope(15), 0u);
    EXPECT_EQ(Passes(Ipv4(239, 5, 5, 5)), 1u);
}

TEST_F(Records, Ipv6RangeBlocksByAllItsBits)
{
    Connect(MCAST_FAMILY_IPV6);
    ASSERT_EQ(AddRange(Ipv6({0xff, 0x0e, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14}), 127), 0u);
    EXPECT_EQ(PeekInterface(1, kIf)->tree_index, 1);
    EXPECT_EQ(Passes(Ipv6({0xff, 0x0e, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 15})), 0u);
    EXPECT_EQ(Passes(Ipv6({0xff, 0x0e, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 16})), 1u);
}

TEST_F(Records, FailedBoundaryLeavesTheViewAsItWas)
{
    Connect();
    EXPECT_EQ(fault::ForEveryAllocation([&](unsigned long) {
                  uint64_t result = AddRange(Ipv4(239, 1, 0, 0), 16);

                  EXPECT_EQ(result, fault::Fired() ? 0x40010001u : 0u);
                  EXPECT_EQ(PeekInterface(1, kIf) == nullptr, fault::Fired());
              }),
              2u)
        << "interface record and range";
    calls.clear();
    platform::Fail(platform::Operation::kPrefixInsert, 1);
    EXPECT_EQ(AddRange(Ipv4(239, 0, 0, 0), 8), 0x40010001u);
    EXPECT_EQ(Ranges(), 1u) << "the range inside is still there";
    EXPECT_EQ(Passes(Ipv4(239, 1, 1, 1)), 0u);
    EXPECT_TRUE(calls.empty());
}

TEST_F(Records, FailedInsertDeletesAnInterfaceRecordItHasMade)
{
    Connect();
    platform::Fail(platform::Operation::kPrefixInsert, 1);
    EXPECT_EQ(AddRange(Ipv4(239, 0, 0, 0), 8), 0x40010001u);
    EXPECT_EQ(PeekInterface(1, kIf), nullptr);
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_PIM_DR, PimDr(1, 1)), 0u);
    platform::Fail(platform::Operation::kPrefixInsert, 1);
    EXPECT_EQ(AddRange(Ipv4(239, 0, 0, 0), 8), 0x40010001u);
    EXPECT_EQ(IsDr(), 1u) << "the record was there before";
}

TEST_F(Records, SsmPolicyIsStoredAndTold)
{
    Connect();
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_SSM_POLICY, {0xff, 0xff, 0xff, 1, 0, 0xd0, 0x07, 0, 0}), 0u);
    EXPECT_EQ(PeekVrf(1).ssm_acl, 2000u);
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_SSM_POLICY, {0, 0, 0, 1, 0, 0xff, 0xff, 0xff, 0xff}), 0u);
    EXPECT_EQ(PeekVrf(1).ssm_acl, 0xffffffffu);
    EXPECT_EQ(calls, (std::vector<std::string>{"ssm policy 2 1 2000", "ssm policy 2 1 4294967295"}));
}

TEST_F(Records, WithoutCallbacksEveryRecordIsAppliedSilently)
{
    callbacks = {};
    Connect();
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_VRF_STATE, VrfState(1, 1)), 0u);
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_PIM_DR, PimDr(1, 1)), 0u);
    EXPECT_EQ(AddRange(Ipv4(239, 0, 0, 0), 8), 0u);
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_SSM_POLICY, {0, 0, 0, 1, 0, 1, 0, 0, 0}), 0u);
    EXPECT_EQ(IsDr(), 1u);
    EXPECT_EQ(Ranges(), 1u);
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_VRF_STATE, VrfState(1, 0)), 0u);
}

TEST_F(Records, DelDataEmptiesTheViewAndKeepsTheChannel)
{
    Connect();
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_VRF_STATE, VrfState(1, 1)), 0u);
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_SSM_POLICY, {0, 0, 0, 1, 0, 1, 0, 0, 0}), 0u);
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_PIM_DR, PimDr(1, 1)), 0u);
    ASSERT_EQ(AddRange(Ipv4(239, 0, 0, 0), 8), 0u);
    MRIB_GMP_CloseConnection();
    ASSERT_EQ(MRIB_GMP_OpenConnect(), 0u);
    ASSERT_EQ(PeekVrf(1).flags, 3u);
    calls.clear();

    EXPECT_EQ(MRIB_GMP_DelData(), 0u);

    EXPECT_EQ(PeekVrf(1).flags, 0u);
    EXPECT_EQ(PeekVrf(1).l3mc_state, 0);
    EXPECT_EQ(PeekVrf(1).ssm_acl, 0xffffffffu);
    EXPECT_EQ(PeekInterface(1, kIf), nullptr);
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(Peek().socket, kSocket);
}

} // namespace
} // namespace mrib_test
