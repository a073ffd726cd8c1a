#include <sys/epoll.h>

#include "unit/mrib/channel_fixture.h"

namespace mrib_test
{
namespace
{

using Receiving = ChannelTest;

const Bytes kBusy1 = Record(MRIB_TLV_FLOW_CONTROL, FlowControl(1));
const Bytes kBusy2 = Record(MRIB_TLV_FLOW_CONTROL, FlowControl(2));

TEST_F(Receiving, FailedOrEmptyReadIsAnError)
{
    Connect();
    scripted::recv = scripted::Failing<ssize_t>(EAGAIN);
    EXPECT_EQ(MRIB_GMP_ProcLipcMsg(EPOLLIN, kSocket), 0x40010001u);
    scripted::recv = [](auto...) { return ssize_t{0}; };
    EXPECT_EQ(MRIB_GMP_ProcLipcMsg(EPOLLIN, kSocket), 0x40010001u);
    EXPECT_EQ(Peek().socket, kSocket) << "closing is for the hang-up event";
}

TEST_F(Receiving, NineteenBytesAreAnErrorAndTwentyAreApplied)
{
    Connect();
    const Bytes twenty = Message(1, kBusy1);

    ASSERT_EQ(twenty.size(), 20u);
    EXPECT_EQ(Receive(Bytes(twenty.begin(), twenty.end() - 1)), 0x40010001u);
    EXPECT_EQ(MRIB_GMP_IsConnectionBusy(), 0u);
    EXPECT_EQ(Receive(twenty), 0u);
    EXPECT_EQ(MRIB_GMP_IsConnectionBusy(), 1u);
}

TEST_F(Receiving, CountOfZeroIsASuccessThatAppliesNothing)
{
    Connect();
    EXPECT_EQ(Receive(Message(0, kBusy1)), 0u);
    EXPECT_EQ(MRIB_GMP_IsConnectionBusy(), 0u);
}

TEST_F(Receiving, CountDecidesHowManyRecordsAreRead)
{
    Connect();
    EXPECT_EQ(Receive(Message(1, kBusy1 + kBusy2)), 0u);
    EXPECT_EQ(MRIB_GMP_IsConnectionBusy(), 1u);
    EXPECT_EQ(Receive(Message(2, kBusy1 + kBusy2)), 0u);
    EXPECT_EQ(MRIB_GMP_IsConnectionBusy(), 2u);
    EXPECT_EQ(Receive(Message(100, kBusy2 + kBusy1)), 0u);
    EXPECT_EQ(MRIB_GMP_IsConnectionBusy(), 1u);
}

TEST_F(Receiving, RecordThatRunsPastTheEndEndsTheDatagram)
{
    Connect();
    Bytes records = kBusy1 + kBusy2 + kBusy1;

    records[8 + 2] = 200; /* length of the second */
    EXPECT_EQ(Receive(Message(3, records)), 0u);
    EXPECT_EQ(MRIB_GMP_IsConnectionBusy(), 1u);
}

TEST_F(Receiving, ResultsOfAllRecordsAreCombined)
{
    callbacks.dr_changed = nullptr;
    Connect();
    const Bytes failing = Record(MRIB_TLV_PIM_DR_END, {});

    EXPECT_EQ(Receive(Message(3, kBusy1 + failing + kBusy2)), 0x40010001u);
    EXPECT_EQ(MRIB_GMP_IsConnectionBusy(), 2u) << "records after the failing one are applied";
}

TEST_F(Receiving, UnknownTypesAreIgnored)
{
    Connect();
    for (uint32_t type = 0; type <= 0xffff; type += type < 64 ? 1 : 4099) {
        bool known = type == 0 || type == 2 || (type >= 7 && type <= 10) || (type >= 12 && type <= 16) ||
                     type == 19 || type == 21;

        if (!known) {
            EXPECT_EQ(ReceiveRecord(static_cast<uint16_t>(type), Bytes(40, 0)), 0u) << type;
        }
    }
    EXPECT_TRUE(calls.empty());
    EXPECT_TRUE(sent.empty());
}

TEST_F(Receiving, SmallMessageSizeDoesNotLetADatagramOverrunTheReceiveBuffer)
{
    Connect(MCAST_FAMILY_IPV4, 1, 1400);
    Bytes records;

    for (int i = 0; i < 2000; ++i) {
        records = records + kBusy2;
    }
    EXPECT_EQ(Receive(Message(2000, records)), 0u) << "cut at 10240 bytes";
    EXPECT_EQ(MRIB_GMP_IsConnectionBusy(), 2u);
}

TEST_F(Receiving, LastRecordOfATruncatedDatagramIsNotApplied)
{
    Connect();
    const Bytes filler = Record(MRIB_TLV_FLOW_CONTROL, Bytes(10240 - 12 - 8 - 4 - 1, 0));

    EXPECT_EQ(Receive(Message(3, kBusy2 + filler + kBusy1)), 0u);
    EXPECT_EQ(MRIB_GMP_IsConnectionBusy(), 0u) << "the filler was the last to fit";
}

TEST_F(Receiving, SmoothFinishedIsCalledWhenTheLastBitClears)
{
    Connect();
    g_ulMribGmpSmoothEndFlag = 7;
    EXPECT_EQ(MRIB_GMP_ClearSmoothFlag(1), 0u);
    EXPECT_EQ(MRIB_GMP_ClearSmoothFlag(4), 0u);
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(g_ulMribGmpSmoothEndFlag, 2u);
    EXPECT_EQ(MRIB_GMP_ClearSmoothFlag(2), 0u);
    EXPECT_EQ(calls, std::vector<std::string>{"smooth finished"});
}

TEST_F(Receiving, ClearingTheLastBitWithoutACallbackIsHarmless)
{
    callbacks.smooth_finished = nullptr;
    Connect();
    g_ulMribGmpSmoothEndFlag = 1;
    EXPECT_EQ(MRIB_GMP_ClearSmoothFlag(1), 0u);
}

TEST_F(Receiving, CallbackMayCloseTheConnectionInTheMiddleOfADatagram)
{
    callbacks.vrf_enabled = [](const MRIB_GMP_VRF_KEY_S *) { MRIB_GMP_CloseConnection(); };
    Connect();
    const Bytes enabled = Record(MRIB_TLV_VRF_STATE, {0, 0, 0, 0, 0, 1});

    EXPECT_EQ(Receive(Message(2, enabled + kBusy2)), 0u);
    EXPECT_EQ(Peek().socket, -1);
    EXPECT_EQ(closed, std::vector<int>{kSocket});
}

} // namespace
} // namespace mrib_test
