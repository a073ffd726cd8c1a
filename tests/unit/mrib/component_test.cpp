#include "unit/mrib/channel_fixture.h"

namespace mrib_test
{
namespace
{

using Component = ChannelTest;

TEST_F(Component, InitFillsComponentAndConnectionRecords)
{
    ASSERT_EQ(Init(MCAST_FAMILY_IPV6, 3, 20000), 0u);

    EXPECT_EQ(g_ucMribGmpFamily, MCAST_FAMILY_IPV6);
    EXPECT_EQ(g_stMRIBComponent.component, kComponent);
    EXPECT_EQ(g_stMRIBComponent.max_message_size, 20000u);
    EXPECT_EQ(g_stMRIBComponent.callbacks.dr_changed, callbacks.dr_changed);
    EXPECT_EQ(g_stMRIBComponent.callbacks.msdp_encap_report, callbacks.msdp_encap_report);
    EXPECT_NE(g_pcMribGmpRecvBuf, nullptr);
    Connection connection = Peek();

    EXPECT_EQ(connection.socket, -1);
    EXPECT_EQ(connection.busy, 0);
    EXPECT_EQ(connection.failed, 0);
    EXPECT_TRUE(connection.has_buffer);
    EXPECT_EQ(connection.used, 12u);
    EXPECT_FALSE(connection.has_pending);
    EXPECT_EQ(connection.pending_limit, 8192u);
    EXPECT_EQ(connection.copy_size, 20000u);
}

TEST_F(Component, InitFillsEveryInstanceRecord)
{
    ASSERT_EQ(Init(MCAST_FAMILY_IPV6, 3), 0u);

    ASSERT_EQ(g_stMribGmpVrfInfo.count, 3u);
    for (uint16_t i = 0; i < 3; ++i) {
        Instance instance = PeekVrf(i);

        EXPECT_EQ(instance.family, MCAST_FAMILY_IPV6);
        EXPECT_EQ(instance.vrf_index, i);
        EXPECT_EQ(instance.l3mc_state, 0);
        EXPECT_EQ(instance.flags, 0u);
        EXPECT_EQ(instance.ssm_acl, 0xffffffffu);
        EXPECT_TRUE(instance.has_table);
        EXPECT_TRUE(instance.has_sources);
    }
    EXPECT_EQ(platform::LiveInstances(), 3);
    EXPECT_EQ(platform::LiveTrees(), 3);
}

TEST_F(Component, CapabilityFlagsFollowTheCallbacksPresent)
{
    struct Row {
        void (*set)(MRIB_GMP_CALLBACKS_S &to, const MRIB_GMP_CALLBACKS_S &all);
        uint64_t flags;
    };
    using C = MRIB_GMP_CALLBACKS_S;
    const Row rows[] = {
        {[](C &, const C &) {}, 0x100},
        {[](C &to, const C &all) { to.connected = all.connected; }, 0x100},
        {[](C &to, const C &all) { to.disconnected = all.disconnected; }, 0x100},
        {[](C &to, const C &all) { to.smooth_finished = all.smooth_finished; }, 0x100},
        {[](C &to, const C &all) { to.vrf_enabled = all.vrf_enabled; }, 0x101},
        {[](C &to, const C &all) { to.vrf_disabled = all.vrf_disabled; }, 0x100},
        {[](C &to, const C &all) { to.boundary_changed = all.boundary_changed; }, 0x102},
        {[](C &to, const C &all) { to.dr_changed = all.dr_changed; }, 0x108},
        {[](C &to, const C &all) { to.ssm_policy_changed = all.ssm_policy_changed; }, 0x300},
        {[](C &to, const C &all) { to.msdp_local_source = all.msdp_local_source; }, 0x1100},
        {[](C &to, const C &all) { to.msdp_remote_source_request = all.msdp_remote_source_request; }, 0x4100},
        {[](C &to, const C &all) { to.msdp_encap_report = all.msdp_encap_report; }, 0x8100},
        {[](C &to, const C &all) { to = all; }, 0xd30b},
    };

    for (const Row &row : rows) {
        callbacks = {};
        row.set(callbacks, AllCallbacks());
        ASSERT_EQ(Init(), 0u);
        EXPECT_EQ(g_stMRIBComponent.capability_flags, row.flags);
        MRIB_GMP_Fini();
        EXPECT_EQ(g_stMRIBComponent.capability_flags, 0u);
    }
}

TEST_F(Component, CapabilityFlagsOfAnInitWithoutFiniStaySet)
{
    callbacks = {};
    callbacks.dr_changed = AllCallbacks().dr_changed;
    ASSERT_EQ(Init(), 0u);
    callbacks = {};
    callbacks.boundary_changed = AllCallbacks().boundary_changed;

    ASSERT_EQ(Init(), 0u);

    EXPECT_EQ(g_stMRIBComponent.capability_flags, 0x10au);
}

TEST_F(Component, NoCallbackRecordMeansNoCallbacks)
{
    ASSERT_EQ(MRIB_GMP_Init(1, MCAST_FAMILY_IPV4, 1, 10240, nullptr), 0u);
    EXPECT_EQ(g_stMRIBComponent.capability_flags, 0x100u);
    EXPECT_EQ(MRIB_GMP_OpenConnect(), 0u);
}

TEST_F(Component, MessageSizeOfZeroFailsAndHoldsNothing)
{
    long before = fault::LiveBlocks();

    EXPECT_EQ(Init(MCAST_FAMILY_IPV4, 2, 0), 0x40010001u);

    EXPECT_EQ(fault::LiveBlocks(), before);
    EXPECT_EQ(platform::LiveInstances(), 0);
    EXPECT_EQ(Init(MCAST_FAMILY_IPV4, 2, 10240), 0u) << "another call starts afresh";
}

TEST_F(Component, MessageSizeAboveThirtyTwoBitsFails)
{
    EXPECT_EQ(Init(MCAST_FAMILY_IPV4, 2, uint64_t{1} << 32), 0x40010001u);
}

TEST_F(Component, MessageSizeBelowAHeaderHoldsNoRecordAndOverrunsNothing)
{
    for (uint64_t size : {1u, 11u, 12u, 15u}) {
        Connect(MCAST_FAMILY_IPV4, 1, size);
        EXPECT_EQ(GetOutBuffer(4), nullptr) << size;
        EXPECT_EQ(Peek().failed, 0);
        EXPECT_EQ(MRIB_GMP_SendAtOnce(), 0u);
        MRIB_GMP_CloseConnection();
        MRIB_GMP_Fini();
    }
}

TEST_F(Component, NoInstancesIsASuccessWithAnEmptyArray)
{
    EXPECT_EQ(Init(MCAST_FAMILY_IPV4, 0), 0u);
    EXPECT_EQ(g_stMribGmpVrfInfo.count, 0u);
    EXPECT_EQ(MRIB_GMP_OpenConnect(), 0u);
    EXPECT_EQ(MRIB_GMP_DelData(), 0u);
}

TEST_F(Component, FailedInterfaceTableDoesNotStopTheLoop)
{
    platform::Fail(platform::Operation::kCreateInstance, 2);

    EXPECT_EQ(Init(MCAST_FAMILY_IPV4, 3), 0x40010001u);

    EXPECT_EQ(platform::Calls(platform::Operation::kCreateInstance), 3u);
    EXPECT_EQ(g_stMribGmpVrfInfo.count, 3u);
    EXPECT_TRUE(PeekVrf(0).has_table);
    EXPECT_FALSE(PeekVrf(1).has_table);
    EXPECT_TRUE(PeekVrf(1).has_sources);
    EXPECT_TRUE(PeekVrf(2).has_table);
    EXPECT_EQ(PeekVrf(2).vrf_index, 2);
}

TEST_F(Component, FailedSourceTreeDoesNotStopTheLoop)
{
    platform::Fail(platform::Operation::kTreeInit, 1);

    EXPECT_EQ(Init(MCAST_FAMILY_IPV4, 2), 0x40010001u);

    EXPECT_FALSE(PeekVrf(0).has_sources);
    EXPECT_TRUE(PeekVrf(0).has_table);
    EXPECT_TRUE(PeekVrf(1).has_sources);
    EXPECT_EQ(MRIB_GMP_DelData(), 0u);
}

TEST_F(Component, InstanceWithoutTablesAnswersAndAppliesRecordsSafely)
{
    platform::FailAlways(platform::Operation::kCreateInstance);
    platform::FailAlways(platform::Operation::kTreeInit);
    EXPECT_EQ(Init(MCAST_FAMILY_IPV4, 1), 0x40010001u);
    const MRIB_GMP_VRF_KEY_S key = {MCAST_FAMILY_IPV4, 0};
    const MCAST_ADDR_S group = Ipv4(239, 1, 1, 1);

    EXPECT_EQ(ReceiveRecord(MRIB_TLV_PIM_DR, PimDr(0, 1, 5)), 0x40010001u);
    EXPECT_EQ(MRIB_GMP_IsPimDr(&key, 5), 0u);
    EXPECT_EQ(MRIB_GMP_CanPassMBoundary(&key, 5, &group), 1u);
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_VRF_STATE, {0, 0, 0, 0, 0, 0}), 0u);
}

TEST_F(Component, EveryFailedAllocationOfInitIsAFailureThatHoldsNothing)
{
    long before = fault::LiveBlocks();
    unsigned long needed = fault::ForEveryAllocation([&](unsigned long) {
        uint64_t result = Init();

        if (fault::Fired()) {
            EXPECT_EQ(result, 0x40010001u);
            EXPECT_EQ(fault::LiveBlocks(), before);
            EXPECT_EQ(MRIB_GMP_OpenConnect(), 0x40010001u) << "a failed set-up cannot connect";
        }
    });

    EXPECT_EQ(needed, 3u) << "receive buffer, output buffer, instance array";
}

TEST_F(Component, SecondInitReleasesTheFirstAndClosesItsConnection)
{
    Connect();
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_PIM_DR, PimDr(1, 1, 5)), 0u);
    calls.clear();
    long blocks = fault::LiveBlocks();

    ASSERT_EQ(Init(), 0u);

    EXPECT_EQ(fault::LiveBlocks(), blocks - 1) << "the interface record went";
    EXPECT_EQ(calls, std::vector<std::string>{"disconnected 1000"});
    EXPECT_EQ(closed, std::vector<int>{kSocket});
    EXPECT_EQ(platform::LiveInstances(), 2);
    EXPECT_EQ(Peek().socket, -1);
}

TEST_F(Component, FiniReleasesEverythingAndMayBeCalledTwice)
{
    Connect();
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_PIM_DR, PimDr(1, 1, 5)), 0u);
    MRIB_GMP_CloseConnection();

    EXPECT_EQ(MRIB_GMP_Fini(), 0u);
    EXPECT_EQ(MRIB_GMP_Fini(), 0u);

    EXPECT_EQ(g_stMRIBComponent.component, 0);
    EXPECT_EQ(g_stMRIBComponent.max_message_size, 0u);
    EXPECT_EQ(g_stMRIBComponent.callbacks.connected, nullptr);
    EXPECT_EQ(g_stMribGmpVrfInfo.count, 0u);
    EXPECT_EQ(g_stMribGmpVrfInfo.vrfs, nullptr);
    EXPECT_EQ(g_pcMribGmpRecvBuf, nullptr);
    EXPECT_FALSE(Peek().has_buffer);
    EXPECT_EQ(Peek().copy_size, 0u);
    EXPECT_EQ(platform::LiveInstances(), 0);
    EXPECT_EQ(platform::LiveTrees(), 0);
}

TEST_F(Component, FiniLeavesAnOpenSocketToTheClientAndSendersFailThen)
{
    const MRIB_GMP_VRF_KEY_S key = {MCAST_FAMILY_IPV4, 0};
    const MCAST_ADDR_S group = Ipv4(239, 1, 1, 1);

    Connect();
    MRIB_GMP_Fini();

    EXPECT_TRUE(closed.empty());
    EXPECT_EQ(MRIB_GMP_SendGmpJoinPrune(&key, 1, &group, nullptr, 0, 0), 0x40010001u);
    EXPECT_EQ(MRIB_GMP_SendAtOnce(), 0u);
    EXPECT_EQ(MRIB_GMP_SendFailData(), 0u);
    MRIB_GMP_CloseConnection();
    EXPECT_EQ(closed, std::vector<int>{kSocket});
}

TEST_F(Component, EverythingIsHarmlessBeforeInit)
{
    const MRIB_GMP_VRF_KEY_S key = {MCAST_FAMILY_IPV4, 0};
    const MCAST_ADDR_S group = Ipv4(239, 1, 1, 1);
    EXPECT_EQ(MRIB_GMP_OpenConnect(), 0x40010001u);
    EXPECT_EQ(MRIB_GMP_SendGmpEnableAlert(&key, 1, 1, 1), 0x40010001u);
    EXPECT_EQ(MRIB_GMP_ProcLipcMsg(1, kSocket), 0x40010001u);
    EXPECT_EQ(MRIB_GMP_CloseConnection(), 0u);
    EXPECT_EQ(MRIB_GMP_CloseFailConnection(), 0u);
    EXPECT_EQ(MRIB_GMP_SendFailData(), 0u);
    EXPECT_EQ(MRIB_GMP_IsConnectionBusy(), 0u);
    EXPECT_EQ(MRIB_GMP_DelData(), 0u);
    EXPECT_EQ(MRIB_GMP_IsL3McEnabled(&key), 0u);
    EXPECT_EQ(MRIB_GMP_IsPimDr(&key, 1), 0u);
    EXPECT_EQ(MRIB_GMP_CanPassMBoundary(&key, 1, &group), 1u);
}

TEST_F(Component, RepeatedLifeCyclesHoldNothing)
{
    long before = fault::LiveBlocks();
    for (int i = 0; i < 100; ++i) {
        Connect();
        ASSERT_EQ(ReceiveRecord(MRIB_TLV_PIM_DR, PimDr(0, 1, 5)), 0u);
        MRIB_GMP_CloseConnection();
        MRIB_GMP_Fini();
        ASSERT_EQ(fault::LiveBlocks(), before);
    }
}

} // namespace
} // namespace mrib_test
