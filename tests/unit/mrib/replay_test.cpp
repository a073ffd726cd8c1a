#include "unit/mrib/channel_fixture.h"

namespace mrib_test
{
namespace
{

class Replay : public ChannelTest
{
protected:
    uint64_t Dr(uint8_t vrf_index, uint8_t if_index, uint8_t state = 1)
    {
        return ReceiveRecord(MRIB_TLV_PIM_DR, PimDr(vrf_index, state, if_index));
    }

    uint64_t Range(uint8_t vrf_index, uint8_t if_index, uint8_t second_byte)
    {
        return ReceiveRecord(MRIB_TLV_BOUNDARY, Bytes{0, 0, 2, 0} + Host16(vrf_index) + Bytes{1, 0, 16} +
                                                    Host32(if_index) + Bytes{0, 0, 239, second_byte} +
                                                    Zeros(14));
    }

    uint64_t Scope(uint8_t vrf_index, uint8_t if_index, uint8_t scope)
    {
        return ReceiveRecord(MRIB_TLV_BOUNDARY, Bytes{0, 0, 10, 0} + Host16(vrf_index) + Bytes{1, 0, 0} +
                                                    Host32(if_index) + Bytes{1, scope} + Zeros(16));
    }

    /* A record without a value, padded with another so that the message is long enough. */
    uint64_t Bare(uint16_t type)
    {
        return Receive(Message(1, Record(type, {}) + Zeros(4)));
    }

    void Start()
    {
        ASSERT_EQ(Bare(MRIB_TLV_SMOOTH_START), 0u);
        calls.clear();
        sent.clear();
    }
};

TEST_F(Replay, StartAsksForWhatTheClientCanUse)
{
    callbacks.msdp_local_source = nullptr;
    Connect();

    EXPECT_EQ(Bare(MRIB_TLV_SMOOTH_START), 0u);

    EXPECT_EQ(sent, (std::vector<Bytes>{
                        SentMessage(1, 10, Record(5, {2, 0, 0, 0, 0, 0})),
                        SentMessage(1, 10, Record(6, {2, 0, 0, 0, 0, 0})),
                    }));
    EXPECT_EQ(g_ulMribGmpSmoothEndFlag, 3u);
}

TEST_F(Replay, StartWithoutCapabilitiesAsksForNothing)
{
    callbacks = {};
    Connect();
    EXPECT_EQ(Bare(MRIB_TLV_SMOOTH_START), 0u);
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(g_ulMribGmpSmoothEndFlag, 0u);
}

TEST_F(Replay, RequestThatIsNotSentSetsNoFlagAndFails)
{
    Connect();
    send_result = -1;
    EXPECT_NE(Bare(MRIB_TLV_SMOOTH_START), 0u);
    EXPECT_EQ(g_ulMribGmpSmoothEndFlag, 0u);
}

TEST_F(Replay, StartForgetsAnAclThatTheConnectionDidNotConfirm)
{
    Connect(MCAST_FAMILY_IPV4, 3);
    for (uint8_t index : {uint8_t{1}, uint8_t{2}}) {
        ASSERT_EQ(ReceiveRecord(MRIB_TLV_SSM_POLICY, SsmPolicy(index, 1)), 0u);
    }
    MRIB_GMP_CloseConnection();
    ASSERT_EQ(MRIB_GMP_OpenConnect(), 0u);
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_SSM_POLICY, SsmPolicy(1, 1)), 0u);
    calls.clear();

    EXPECT_EQ(Bare(MRIB_TLV_SMOOTH_START), 0u);

    EXPECT_EQ(PeekVrf(1).ssm_acl, 1u);
    EXPECT_EQ(PeekVrf(2).ssm_acl, 0xffffffffu);
    EXPECT_EQ(PeekVrf(2).flags, 0u);
    EXPECT_EQ(calls, std::vector<std::string>{"ssm policy 2 2 4294967295"});
}

TEST_F(Replay, DrEndTakesBackWhatWasNotReplayed)
{
    Connect();
    ASSERT_EQ(Dr(0, 4), 0u);
    ASSERT_EQ(Dr(0, 5), 0u);
    ASSERT_EQ(Dr(1, 3), 0u);
    ASSERT_EQ(Range(1, 3, 1), 0u);
    Start();
    ASSERT_EQ(Dr(0, 5), 0u);
    calls.clear();

    EXPECT_EQ(Bare(MRIB_TLV_PIM_DR_END), 0u);

    EXPECT_EQ(calls, (std::vector<std::string>{"dr 2 0 4 0", "dr 2 1 3 0"})) << "in the order noted";
    EXPECT_EQ(PeekInterface(0, 4), nullptr);
    ASSERT_NE(PeekInterface(0, 5), nullptr);
    EXPECT_EQ(PeekInterface(0, 5)->dr_state, 1);
    ASSERT_NE(PeekInterface(1, 3), nullptr) << "it has a boundary";
    EXPECT_EQ(PeekInterface(1, 3)->dr_state, 0);
    EXPECT_EQ(g_ulMribGmpSmoothEndFlag, 2u | (g_ulMribGmpSmoothEndFlag & 4u));
    calls.clear();
    EXPECT_EQ(Bare(MRIB_TLV_PIM_DR_END), 0u);
    EXPECT_TRUE(calls.empty()) << "nothing is stale any more";
}

TEST_F(Replay, BoundaryEndTakesBackWhatWasNotReplayed)
{
    Connect();
    ASSERT_EQ(Range(0, 4, 1), 0u);
    ASSERT_EQ(Range(0, 4, 2), 0u);
    ASSERT_EQ(Range(0, 5, 1), 0u);
    ASSERT_EQ(Scope(1, 6, 8), 0u);
    ASSERT_EQ(Scope(1, 7, 8), 0u);
    ASSERT_EQ(Dr(1, 6), 0u);
    Start();
    ASSERT_EQ(Range(0, 4, 2), 0u);
    ASSERT_EQ(Scope(1, 7, 8), 0u);
    calls.clear();

    EXPECT_EQ(Bare(MRIB_TLV_BOUNDARY_END), 0u);

    EXPECT_EQ(calls, (std::vector<std::string>{"boundary 2 0 4 0", "boundary 2 0 5 0", "boundary 2 1 6 0"}));
    ASSERT_NE(PeekInterface(0, 4), nullptr);
    EXPECT_EQ(PeekInterface(0, 4)->boundaries.count, 1u);
    EXPECT_EQ(PeekInterface(0, 5), nullptr);
    ASSERT_NE(PeekInterface(1, 6), nullptr);
    EXPECT_EQ(PeekInterface(1, 6)->scope, 0);
    ASSERT_NE(PeekInterface(1, 7), nullptr);
    EXPECT_EQ(PeekInterface(1, 7)->scope, 8);
    calls.clear();
    EXPECT_EQ(Bare(MRIB_TLV_BOUNDARY_END), 0u);
    EXPECT_TRUE(calls.empty());
}

TEST_F(Replay, EndsNeedTheirCapability)
{
    callbacks = {};
    Connect();
    EXPECT_EQ(Bare(MRIB_TLV_PIM_DR_END), 0x40010001u);
    EXPECT_EQ(Bare(MRIB_TLV_BOUNDARY_END), 0x40010001u);
}

TEST_F(Replay, LastEndFinishesTheSmooth)
{
    callbacks.msdp_local_source = nullptr;
    Connect();
    Start();
    EXPECT_EQ(Bare(MRIB_TLV_BOUNDARY_END), 0u);
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(Bare(MRIB_TLV_PIM_DR_END), 0u);
    EXPECT_EQ(calls, std::vector<std::string>{"smooth finished"});
}

TEST_F(Replay, VrfStateEndDisablesWhatWasNotConfirmedButKeepsInterfaces)
{
    Connect(MCAST_FAMILY_IPV4, 3);
    for (uint8_t index : {uint8_t{1}, uint8_t{2}}) {
        ASSERT_EQ(ReceiveRecord(MRIB_TLV_VRF_STATE, VrfState(index, 1)), 0u);
        ASSERT_EQ(Dr(index, 4), 0u);
    }
    MRIB_GMP_CloseConnection();
    ASSERT_EQ(MRIB_GMP_OpenConnect(), 0u);
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_VRF_STATE, VrfState(2, 1)), 0u);
    calls.clear();

    EXPECT_EQ(Bare(MRIB_TLV_VRF_STATE_END), 0u);

    EXPECT_EQ(calls, std::vector<std::string>{"vrf disabled 2 1"});
    EXPECT_EQ(PeekVrf(1).l3mc_state, 0);
    EXPECT_EQ(PeekVrf(1).flags, 0u);
    EXPECT_EQ(PeekVrf(2).l3mc_state, 1);
    EXPECT_NE(PeekInterface(1, 4), nullptr);
    EXPECT_NE(PeekInterface(2, 4), nullptr);
}

TEST_F(Replay, NoticeThatCannotBeAllocatedIsLostAlone)
{
    Connect();
    for (uint8_t if_index : {uint8_t{4}, uint8_t{5}, uint8_t{6}}) {
        ASSERT_EQ(Dr(0, if_index), 0u);
    }
    Start();
    fault::FailAllocation(2);

    EXPECT_EQ(Bare(MRIB_TLV_PIM_DR_END), 0u);

    fault::FailAllocation(0);
    EXPECT_EQ(calls, (std::vector<std::string>{"dr 2 0 4 0", "dr 2 0 6 0"}));
    EXPECT_EQ(PeekInterface(0, 5), nullptr) << "swept all the same";
}

TEST_F(Replay, CallbackMayChangeTheViewWhileNoticesAreToldAbout)
{
    callbacks.dr_changed = [](const MRIB_GMP_VRF_KEY_S *, uint32_t, uint32_t) { MRIB_GMP_DelData(); };
    Connect();
    ASSERT_EQ(Dr(0, 4, 0), 0u);
    const Bytes kept = Bytes{0, 0, 2, 0, 0, 0, 1, 0, 8} + Host32(5) + Bytes{0, 0, 239} + Zeros(15);

    ASSERT_EQ(mribGmpTLVProc(MRIB_TLV_BOUNDARY, static_cast<uint16_t>(kept.size()), kept.data()), 0u);
    g_stMRIBComponent.callbacks.dr_changed = nullptr;
    ASSERT_EQ(Dr(0, 5), 0u);
    ASSERT_EQ(Dr(1, 5), 0u);
    g_stMRIBComponent.callbacks.dr_changed = callbacks.dr_changed;
    Start();

    EXPECT_EQ(Bare(MRIB_TLV_PIM_DR_END), 0u);
    EXPECT_EQ(PeekInterface(0, 5), nullptr);
}

} // namespace
} // namespace mrib_test
