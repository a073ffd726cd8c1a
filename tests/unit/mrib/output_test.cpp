#include <cstring>

#include "unit/mrib/channel_fixture.h"

namespace mrib_test
{
namespace
{

/* Messages of 12 + 2 x 16 bytes, so that few records fill one. */
class Output : public ChannelTest
{
protected:
    static constexpr uint32_t kRecord = 16;
    static constexpr uint32_t kSize = 12 + 2 * kRecord;

    /* Appends a record whose bytes are all tag. */
    bool Append(uint8_t tag, uint32_t size = kRecord)
    {
        void *record = GetOutBuffer(size);
        if (record == nullptr) {
            return false;
        }
        memset(record, tag, size);
        return true;
    }

    /* Blocks the socket and fills count messages behind it, the last of them still in the buffer. */
    void Queue(uint32_t count)
    {
        send_result = -1;
        for (uint32_t i = 0; i < 2 * count; ++i) {
            ASSERT_TRUE(Append(static_cast<uint8_t>(i / 2)));
        }
        ASSERT_EQ(Peek().pending_count, count - 1);
    }
};

TEST_F(Output, RecordsFollowOneAnotherInOneMessage)
{
    Connect(MCAST_FAMILY_IPV4, 1, kSize);

    ASSERT_TRUE(Append(0xaa));
    ASSERT_TRUE(Append(0xbb));
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(MRIB_GMP_SendAtOnce(), 0u);

    const Bytes header = SentMessage(2, 32, {});
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0], header + Bytes(16, 0xaa) + Bytes(16, 0xbb));
    EXPECT_EQ(Peek().used, 12u);
}

TEST_F(Output, RecordThatExactlyFillsTheMessageIsPlacedWithoutFlushing)
{
    Connect(MCAST_FAMILY_IPV4, 1, kSize);

    ASSERT_TRUE(Append(1));
    ASSERT_TRUE(Append(2));

    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(Peek().used, kSize);
}

TEST_F(Output, OneByteMoreFlushesAndStartsTheNextMessage)
{
    Connect(MCAST_FAMILY_IPV4, 1, kSize);

    ASSERT_TRUE(Append(1));
    ASSERT_TRUE(Append(2, kRecord + 1));

    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].size(), 12u + kRecord);
    EXPECT_EQ(Peek().used, 12u + kRecord + 1);
    EXPECT_EQ(MRIB_GMP_SendAtOnce(), 0u);
    EXPECT_EQ(Bytes(sent[1].begin() + 4, sent[1].begin() + 12), Host32(1) + Host32(kRecord + 1))
        << "the count started again";
}

TEST_F(Output, RecordThatFitsNoMessageIsRefusedAndNothingElseHappens)
{
    Connect(MCAST_FAMILY_IPV4, 1, kSize);
    ASSERT_TRUE(Append(1));

    EXPECT_FALSE(Append(2, kSize - 12 + 1));
    EXPECT_FALSE(Append(2, 0xffffffffu));

    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(Peek().used, 12u + kRecord);
    EXPECT_EQ(Peek().failed, 0);
    EXPECT_EQ(Peek().dropped_count, 0u);
}

TEST_F(Output, LargestRecordFitsAnEmptyMessage)
{
    Connect(MCAST_FAMILY_IPV4, 1, kSize);

    EXPECT_TRUE(Append(1, kSize - 12));
    EXPECT_TRUE(Append(2, kSize - 12));
    EXPECT_EQ(sent.size(), 1u);
}

TEST_F(Output, NothingIsReservedWhileNotConnected)
{
    ASSERT_EQ(Init(), 0u);

    EXPECT_FALSE(Append(1));
    EXPECT_EQ(Peek().used, 12u);
    EXPECT_EQ(Peek().failed, 0);
}

TEST_F(Output, SendingAnEmptyMessageSendsNothing)
{
    Connect();

    EXPECT_EQ(MRIB_GMP_SendAtOnce(), 0u);
    EXPECT_TRUE(sent.empty());
}

TEST_F(Output, FailedSendKeepsTheMessageForTheNextAttempt)
{
    Connect();
    ASSERT_TRUE(Append(1));
    for (ssize_t result : {-1, 0}) {
        send_result = result;
        EXPECT_EQ(MRIB_GMP_SendAtOnce(), 0x40010001u);
        EXPECT_EQ(Peek().used, 12u + kRecord);
    }
    send_result = 1;

    EXPECT_EQ(MRIB_GMP_SendAtOnce(), 0u);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].size(), 12u + kRecord);
}

TEST_F(Output, AnyPositiveSendResultCountsAsSent)
{
    Connect();
    ASSERT_TRUE(Append(1));
    scripted::send = [](auto...) { return ssize_t{1}; };

    EXPECT_EQ(MRIB_GMP_SendAtOnce(), 0u);
    EXPECT_EQ(Peek().used, 12u);
}

TEST_F(Output, FullMessageThatCannotBeSentIsQueuedWhole)
{
    Connect(MCAST_FAMILY_IPV4, 1, kSize);
    send_result = -1;
    ASSERT_TRUE(Append(1));
    ASSERT_TRUE(Append(2));

    ASSERT_TRUE(Append(3));

    EXPECT_EQ(Peek().pending_count, 1u);
    EXPECT_EQ(Peek().queued_count, 1u);
    EXPECT_EQ(Peek().used, 12u + kRecord);
    EXPECT_EQ(Peek().failed, 0);
    send_result = 1;
    EXPECT_EQ(MRIB_GMP_SendFailData(), 0u);
    ASSERT_EQ(sent.size(), 2u);
    const Bytes header = SentMessage(2, 32, {});
    EXPECT_EQ(sent[0], header + Bytes(16, 1) + Bytes(16, 2));
    EXPECT_EQ(sent[1][12], 3);
}

TEST_F(Output, WithAMessageWaitingRecordsAreAppendedButNotSent)
{
    Connect(MCAST_FAMILY_IPV4, 1, kSize);
    Queue(2);
    send_result = 1;
    uint32_t used = Peek().used;

    EXPECT_EQ(MRIB_GMP_SendAtOnce(), 0u);
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(Peek().used, used);
    ASSERT_TRUE(Append(9)) << "the full message is queued behind, not sent before";
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(Peek().pending_count, 2u);
    ASSERT_TRUE(Append(9));
    EXPECT_EQ(Peek().pending_count, 2u) << "fits the current message";
}

TEST_F(Output, DrainingFortyMessagesSendsThirtyTwoThenTheRestInOrder)
{
    Connect(MCAST_FAMILY_IPV4, 1, kSize);
    Queue(41);
    ASSERT_EQ(Peek().pending_count, 40u);
    send_result = 1;

    EXPECT_EQ(MRIB_GMP_SendFailData(), 0u);
    EXPECT_EQ(sent.size(), 32u);
    EXPECT_EQ(Peek().pending_count, 8u);
    EXPECT_EQ(MRIB_GMP_SendFailData(), 0u);
    EXPECT_EQ(sent.size(), 41u) << "eight waiting ones, then the current one";
    EXPECT_EQ(Peek().pending_count, 0u);
    EXPECT_EQ(Peek().used, 12u);
    for (size_t i = 0; i < sent.size(); ++i) {
        EXPECT_EQ(sent[i][12], i);
    }
    EXPECT_EQ(Peek().queued_count, 40u);
}

TEST_F(Output, DrainStopsAtTheFirstNegativeResultAndKeepsThatMessageFirst)
{
    Connect(MCAST_FAMILY_IPV4, 1, kSize);
    Queue(4);
    int calls_left = 2;
    scripted::send = [&](int, const void *data, size_t length, int) -> ssize_t {
        if (calls_left-- == 0) {
            return -1;
        }
        const uint8_t *bytes = static_cast<const uint8_t *>(data);

        sent.emplace_back(bytes, bytes + length);
        return static_cast<ssize_t>(length);
    };

    EXPECT_EQ(MRIB_GMP_SendFailData(), 0x40010001u);

    EXPECT_EQ(sent.size(), 2u);
    EXPECT_EQ(Peek().pending_count, 1u);
    calls_left = 9;
    EXPECT_EQ(MRIB_GMP_SendFailData(), 0u);
    EXPECT_EQ(sent.at(2)[12], 2);
}

TEST_F(Output, DrainCountsAResultOfZeroAsSentUnlikeTheCurrentMessage)
{
    Connect(MCAST_FAMILY_IPV4, 1, kSize);
    Queue(3);
    send_result = 0;

    EXPECT_EQ(MRIB_GMP_SendFailData(), 0x40010001u) << "the current message was not taken";
    EXPECT_EQ(Peek().pending_count, 0u);
    EXPECT_EQ(Peek().used, kSize);
}

TEST_F(Output, MessageBeyondTheQueuesLimitIsDroppedAndFailsTheConnection)
{
    Connect(MCAST_FAMILY_IPV4, 1, kSize);
    Queue(8193);
    ASSERT_EQ(Peek().pending_count, 8192u);
    ASSERT_EQ(Peek().failed, 0);

    EXPECT_FALSE(Append(1));

    EXPECT_EQ(Peek().pending_count, 8192u);
    EXPECT_EQ(Peek().dropped_count, 1u);
    EXPECT_EQ(Peek().failed, 1);
    EXPECT_EQ(Peek().used, kSize) << "the current message stays";
    EXPECT_FALSE(Append(1));
    EXPECT_EQ(Peek().dropped_count, 2u);
    EXPECT_EQ(MRIB_GMP_CloseFailConnection(), 1u);
    EXPECT_EQ(Peek().pending_count, 0u);
    EXPECT_EQ(Peek().failed, 0);
    EXPECT_EQ(closed, std::vector<int>{kSocket});
    EXPECT_EQ(MRIB_GMP_CloseFailConnection(), 0u);
}

TEST_F(Output, FailedAllocationOfAWaitingMessageFailsTheConnection)
{
    Connect(MCAST_FAMILY_IPV4, 1, kSize);
    send_result = -1;
    ASSERT_TRUE(Append(1));
    ASSERT_TRUE(Append(2));
    fault::FailAllocation(1);

    EXPECT_FALSE(Append(3));

    EXPECT_EQ(Peek().allocation_failure_count, 1u);
    EXPECT_EQ(Peek().dropped_count, 0u);
    EXPECT_EQ(Peek().failed, 1);
    EXPECT_EQ(Peek().used, kSize);
    fault::FailAllocation(0);
    EXPECT_TRUE(Append(3)) << "memory is back";
    EXPECT_EQ(MRIB_GMP_CloseFailConnection(), 1u);
}

TEST_F(Output, BusyIsTheLastFlowControlValue)
{
    Connect();
    EXPECT_EQ(MRIB_GMP_IsConnectionBusy(), 0u);
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_FLOW_CONTROL, FlowControl(0x1234)), 0u);
    EXPECT_EQ(MRIB_GMP_IsConnectionBusy(), 0x1234u);
    ASSERT_EQ(Receive(Message(2, Record(MRIB_TLV_FLOW_CONTROL, {0, 0, 0}) + Record(1, {}))), 0u);
    EXPECT_EQ(MRIB_GMP_IsConnectionBusy(), 0x1234u) << "too short";
}

} // namespace
} // namespace mrib_test
