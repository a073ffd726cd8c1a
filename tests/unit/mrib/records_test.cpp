#include "unit/mrib/records_fixture.h"

namespace mrib_test
{
namespace
{

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
        EXPECT_EQ(ReceiveRecord(MRIB_TLV_SSM_POLICY, SsmPolicy(index, 1)), 0u);
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
        {MRIB_TLV_SSM_POLICY, SsmPolicy(1, 1)},
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

TEST_F(Records, SsmPolicyIsStoredAndTold)
{
    Connect();
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_SSM_POLICY, SsmPolicy(1, 2000)), 0u);
    EXPECT_EQ(PeekVrf(1).ssm_acl, 2000u);
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_SSM_POLICY, SsmPolicy(1, MCAST_NONE)), 0u);
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
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_SSM_POLICY, SsmPolicy(1, 1)), 0u);
    EXPECT_EQ(IsDr(), 1u);
    EXPECT_EQ(Ranges(), 1u);
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_VRF_STATE, VrfState(1, 0)), 0u);
}

TEST_F(Records, DelDataEmptiesTheViewAndKeepsTheChannel)
{
    Connect();
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_VRF_STATE, VrfState(1, 1)), 0u);
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_SSM_POLICY, SsmPolicy(1, 1)), 0u);
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
