#include "mcast/messager.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "support/fault.h"

namespace
{

constexpr uint64_t kFailed = 0x1'40010009; /* more than 32 bits, to see that none are lost */

/* What the next calls of the send function do; without an entry all is taken. */
struct Answer {
    uint64_t status;
    uint64_t sent;
};

std::vector<Answer> g_answers;
std::vector<std::string> g_sent; /* what each call was given */
std::vector<uint64_t> g_appended;
int g_resets;

uint64_t Send(uint32_t peer, const void *data, uint64_t length, uint64_t *sent)
{
    EXPECT_EQ(*sent, 0u);
    EXPECT_EQ(peer, 77u);
    g_sent.emplace_back(static_cast<const char *>(data), length);
    if (g_answers.empty()) {
        return 0;
    }
    Answer answer = g_answers.front();

    g_answers.erase(g_answers.begin());
    *sent = answer.sent;
    return answer.status;
}

void OnAppend(void *buffer, uint64_t length)
{
    static_cast<char *>(buffer)[0] = static_cast<char>('0' + ++static_cast<char *>(buffer)[1]);
    g_appended.push_back(length);
}

void OnReset(void *buffer)
{
    static_cast<char *>(buffer)[0] = '0';
    static_cast<char *>(buffer)[1] = 0;
    ++g_resets;
}

const MESSAGER_CALLBACKS_S kCallbacks = {OnAppend, OnReset, Send};

class Messager : public testing::Test
{
protected:
    void SetUp() override
    {
        live = fault::LiveBlocks();
        g_answers.clear();
        g_sent.clear();
        g_appended.clear();
        g_resets = 0;
    }

    void TearDown() override
    {
        fault::FailAllocation(0);
        Messager_Fini(messager);
        EXPECT_EQ(fault::LiveBlocks(), live);
    }

    void Make(uint64_t mode, uint64_t max_pending = 8, uint64_t capacity = 2048)
    {
        messager = Messager_Init(77, capacity, 16, mode, max_pending, &kCallbacks);
        ASSERT_NE(messager, nullptr);
    }

    MCAST_STATUS Say(char letter, uint16_t length, MCAST_BOOL flush = MCAST_FALSE)
    {
        return Messager_Send(messager, std::string(length, letter).data(), length, flush);
    }

    /* The messages of what the nth call of the send function was given, without the header area. */
    static std::string Body(size_t call)
    {
        return g_sent.at(call).substr(16);
    }

    long live;
    MESSAGER_S *messager = nullptr;
};

TEST_F(Messager, FreshOneHoldsOnlyTheHeaderAreaAndSendsNothing)
{
    Make(MESSAGER_KEEP_TAIL);
    EXPECT_EQ(Messager_GetDataLen(messager), 16u);
    EXPECT_EQ(g_resets, 1);
    EXPECT_EQ(messager->peer, 77u);
    EXPECT_EQ(messager->free, 2032u);
    EXPECT_EQ(messager->buffer[0], '0');
    for (size_t index = 1; index < 2048; ++index) {
        ASSERT_EQ(messager->buffer[index], 0);
    }
    EXPECT_EQ(Messager_Announce(messager), 0u);
    EXPECT_TRUE(g_sent.empty());
    EXPECT_EQ(g_resets, 1) << "no reset without a packet";
}

TEST_F(Messager, AppendsBehindTheHeaderAreaAndTellsTheOwner)
{
    Make(MESSAGER_KEEP_TAIL);
    EXPECT_EQ(Say('a', 10), MCAST_OK);
    EXPECT_EQ(Say('b', 20), MCAST_OK);
    EXPECT_EQ(messager->used, 46u);
    EXPECT_EQ(messager->free, 2002u);
    EXPECT_EQ(g_appended, (std::vector<uint64_t>{10, 20}));
    EXPECT_TRUE(g_sent.empty());
    EXPECT_EQ(Messager_Announce(messager), 0u);
    ASSERT_EQ(g_sent.size(), 1u);
    EXPECT_EQ(g_sent[0][0], '2') << "the owner counted two messages in its header";
    EXPECT_EQ(Body(0), std::string(10, 'a') + std::string(20, 'b'));
    EXPECT_EQ(Messager_GetDataLen(messager), 16u);
    EXPECT_EQ(messager->buffer[0], '0') << "a fresh header";
}

TEST_F(Messager, AMessageWithFlushIsSentAtOnce)
{
    Make(MESSAGER_KEEP_TAIL);
    Say('a', 3);
    EXPECT_EQ(Say('b', 4, MCAST_TRUE), MCAST_OK);
    ASSERT_EQ(g_sent.size(), 1u);
    EXPECT_EQ(Body(0), "aaabbbb");
    EXPECT_EQ(Say('c', 1, 2), MCAST_OK);
    EXPECT_EQ(g_sent.size(), 1u) << "only 1 flushes";
}

TEST_F(Messager, APacketLeavesOnceItPasses1199Bytes)
{
    Make(MESSAGER_KEEP_TAIL);
    Say('a', 1183);
    EXPECT_EQ(messager->used, 1199u);
    EXPECT_TRUE(g_sent.empty());
    Say('b', 1);
    ASSERT_EQ(g_sent.size(), 1u);
    EXPECT_EQ(g_sent[0].size(), 1200u);
    EXPECT_EQ(messager->used, 16u);
    EXPECT_EQ(messager->free, 2032u);
}

TEST_F(Messager, AMessageThatDoesNotFitSendsThePacketFirst)
{
    Make(MESSAGER_KEEP_TAIL, 8, 116);
    Say('a', 60);
    Say('b', 41);
    ASSERT_EQ(g_sent.size(), 1u);
    EXPECT_EQ(Body(0), std::string(60, 'a'));
    EXPECT_EQ(messager->used, 57u);
    Say('c', 59);
    EXPECT_EQ(g_sent.size(), 1u) << "it fits exactly";
    EXPECT_EQ(messager->free, 0u);
}

TEST_F(Messager, AnUnsentTailWaitsInModeZero)
{
    Make(MESSAGER_KEEP_TAIL);
    g_answers = {{kFailed, 100}};
    EXPECT_EQ(Say('a', 484, MCAST_TRUE), MCAST_OK) << "the flush's result is not reported";
    ASSERT_EQ(messager->pending_count, 1u);
    EXPECT_EQ(messager->pending_head->length, 400u);
    EXPECT_EQ(messager->pending_head->current, messager->pending_head->storage);
    EXPECT_EQ(Messager_GetDataLen(messager), 416u);
    EXPECT_EQ(messager->used, 16u);
    EXPECT_EQ(Messager_Announce(messager), 0u);
    EXPECT_EQ(g_sent[1], g_sent[0].substr(100));
    EXPECT_EQ(messager->pending_head, nullptr);
    EXPECT_EQ(messager->pending_tail, nullptr);
    EXPECT_EQ(messager->pending_count, 0u);
}

TEST_F(Messager, TheWholePacketWaitsInModeOneAndInAnyOther)
{
    for (uint64_t mode : {uint64_t{1}, uint64_t{3}, UINT64_MAX, (uint64_t{1} << 32) + 2}) {
        Make(mode);
        g_sent.clear();
        g_answers = {{kFailed, 100}, {kFailed, 300}};
        Say('a', 484, MCAST_TRUE);
        ASSERT_EQ(messager->pending_count, 1u);
        EXPECT_EQ(messager->pending_head->length, 500u);
        EXPECT_EQ(Messager_Announce(messager), kFailed);
        EXPECT_EQ(messager->pending_head->length, 500u) << "a retry keeps it whole too";
        EXPECT_EQ(Messager_Announce(messager), 0u);
        EXPECT_EQ(g_sent[2], g_sent[0]);
        Messager_Fini(messager);
    }
    messager = nullptr;
}

TEST_F(Messager, NothingWaitsInModeTwo)
{
    Make(MESSAGER_DROP);
    g_answers = {{kFailed, 100}};
    Say('a', 484, MCAST_TRUE);
    EXPECT_EQ(messager->pending_count, 0u);
    EXPECT_EQ(Messager_GetDataLen(messager), 16u);
    g_answers = {{kFailed, 0}};
    Say('b', 1);
    EXPECT_EQ(Messager_Announce(messager), kFailed);
    EXPECT_EQ(Messager_GetDataLen(messager), 16u);
}

TEST_F(Messager, ARetryContinuesWhereTheLastOneStopped)
{
    Make(MESSAGER_KEEP_TAIL);
    g_answers = {{kFailed, 0}, {kFailed, 30}, {kFailed, 0}, {kFailed, 60}};
    Say('a', 84, MCAST_TRUE);
    EXPECT_EQ(Messager_Announce(messager), kFailed);
    EXPECT_EQ(messager->pending_head->current, messager->pending_head->storage + 30);
    EXPECT_EQ(messager->pending_head->length, 70u);
    EXPECT_EQ(Messager_Announce(messager), kFailed);
    EXPECT_EQ(messager->pending_head->length, 70u);
    EXPECT_EQ(Messager_Announce(messager), kFailed);
    EXPECT_EQ(messager->pending_head->length, 10u);
    EXPECT_EQ(Messager_Announce(messager), 0u);
    EXPECT_EQ(g_sent[4], std::string(10, 'a'));
}

TEST_F(Messager, AFailedRetryLeavesThePacketAlone)
{
    Make(MESSAGER_KEEP_PACKET);
    g_answers = {{kFailed, 0}, {kFailed, 0}};
    Say('a', 10, MCAST_TRUE);
    Say('b', 10, MCAST_TRUE);
    EXPECT_EQ(messager->pending_count, 1u);
    EXPECT_EQ(messager->used, 26u);
    EXPECT_EQ(Messager_Announce(messager), 0u);
    ASSERT_EQ(g_sent.size(), 4u);
    EXPECT_EQ(Body(2), std::string(10, 'a'));
    EXPECT_EQ(Body(3), std::string(10, 'b'));
}

TEST_F(Messager, AFullPacketGoesBehindWhatWaitsAndIsTriedInOrder)
{
    Make(MESSAGER_KEEP_TAIL, 8, 116);
    g_answers = {{kFailed, 0}, {kFailed, 0}};
    Say('a', 50, MCAST_TRUE);
    Say('b', 80);
    EXPECT_EQ(g_sent.size(), 1u);
    Say('c', 90); /* no room: the packet of b is queued whole, then a is tried and fails */
    EXPECT_EQ(messager->pending_count, 2u);
    EXPECT_EQ(messager->pending_tail->length, 96u);
    EXPECT_EQ(messager->used, 106u);
    EXPECT_EQ(Messager_GetDataLen(messager), 66u + 96u + 106u);
    EXPECT_EQ(Messager_Announce(messager), 0u);
    ASSERT_EQ(g_sent.size(), 5u);
    EXPECT_EQ(Body(2), std::string(50, 'a'));
    EXPECT_EQ(Body(3), std::string(80, 'b'));
    EXPECT_EQ(Body(4), std::string(90, 'c'));
}

TEST_F(Messager, MessagesAreRefusedWhileMaxPendingBlocksWait)
{
    Make(MESSAGER_KEEP_PACKET, 1);
    g_answers = {{kFailed, 0}};
    EXPECT_EQ(Say('a', 10, MCAST_TRUE), MCAST_OK);
    EXPECT_EQ(Say('b', 10, MCAST_TRUE), MCAST_ERR_GENERAL);
    EXPECT_EQ(messager->used, 16u);
    EXPECT_EQ(g_sent.size(), 1u) << "refused without a try";
    EXPECT_EQ(g_appended.size(), 1u);
    EXPECT_EQ(Messager_Announce(messager), 0u);
    EXPECT_EQ(Say('b', 10), MCAST_OK);
    messager->max_pending = 0;
    EXPECT_EQ(Say('c', 1), MCAST_ERR_GENERAL);
}

TEST_F(Messager, DataIsLostWhenABlockCannotBeMadeAndThePacketStartsOver)
{
    Make(MESSAGER_KEEP_TAIL);
    unsigned long needed = fault::ForEveryAllocation([this](unsigned long) {
        g_answers = {{kFailed, 0}};
        EXPECT_EQ(Say('a', 10, MCAST_TRUE), MCAST_OK);
        EXPECT_EQ(messager->pending_count, fault::Fired() ? 0u : 1u);
        EXPECT_EQ(messager->used, 16u);
    });
    EXPECT_EQ(needed, 2u);
    EXPECT_EQ(Messager_Announce(messager), 0u);
}

TEST_F(Messager, InitUndoesItselfWithoutMemoryAndNeedsASendFunction)
{
    MESSAGER_CALLBACKS_S without_send = {OnAppend, OnReset, nullptr};
    unsigned long needed = fault::ForEveryAllocation([](unsigned long) {
        MESSAGER_S *other = Messager_Init(1, 100, 4, 0, 1, &kCallbacks);

        EXPECT_EQ(other == nullptr, fault::Fired());
        Messager_Fini(other);
    });

    EXPECT_EQ(needed, 2u);
    EXPECT_EQ(Messager_Init(1, 100, 4, 0, 1, nullptr), nullptr);
    EXPECT_EQ(Messager_Init(1, 100, 4, 0, 1, &without_send), nullptr);
    EXPECT_EQ(Messager_Init(1, 100, 101, 0, 1, &kCallbacks), nullptr);
}

TEST_F(Messager, WorksWithoutTheOptionalCallbacksAndWithoutAHeaderArea)
{
    MESSAGER_CALLBACKS_S only_send = {nullptr, nullptr, Send};
    messager = Messager_Init(77, 100, 0, 0, 1, &only_send);
    EXPECT_EQ(Say('a', 100), MCAST_OK);
    EXPECT_EQ(Say('b', 1, MCAST_TRUE), MCAST_OK);
    EXPECT_EQ(g_sent, (std::vector<std::string>{std::string(100, 'a'), "b"}));
}

TEST_F(Messager, RefusesWhatNoPacketCanHold)
{
    Make(MESSAGER_KEEP_TAIL, 8, 116);
    Say('a', 10);
    EXPECT_EQ(Say('b', 101), MCAST_ERR_GENERAL);
    EXPECT_EQ(Messager_Send(messager, nullptr, 1, MCAST_FALSE), MCAST_ERR_GENERAL);
    EXPECT_EQ(messager->used, 26u);
    EXPECT_TRUE(g_sent.empty());
    EXPECT_EQ(Messager_Send(messager, nullptr, 0, MCAST_FALSE), MCAST_OK);
    EXPECT_EQ(g_appended, (std::vector<uint64_t>{10, 0}));
}

TEST_F(Messager, ASendFunctionThatClaimsTooMuchTakesNoMoreThanThereIs)
{
    Make(MESSAGER_KEEP_TAIL);
    g_answers = {{kFailed, 1000}, {kFailed, 7}};
    Say('a', 10, MCAST_TRUE);
    EXPECT_EQ(messager->pending_head->length, 0u);
    EXPECT_EQ(Messager_Announce(messager), kFailed);
    EXPECT_EQ(messager->pending_head->length, 0u);
    EXPECT_EQ(Messager_Announce(messager), 0u);
}

TEST_F(Messager, ClearForgetsEverythingAndStartsThePacketOver)
{
    Make(MESSAGER_KEEP_TAIL);
    g_answers = {{kFailed, 0}};
    Say('a', 10, MCAST_TRUE);
    Say('b', 10);
    int resets = g_resets;

    EXPECT_EQ(Messager_Clear(messager), MCAST_OK);
    EXPECT_EQ(g_resets, resets + 1);
    EXPECT_EQ(Messager_GetDataLen(messager), 16u);
    EXPECT_EQ(messager->pending_head, nullptr);
    EXPECT_EQ(messager->pending_tail, nullptr);
    EXPECT_EQ(messager->pending_count, 0u);
    EXPECT_EQ(Messager_Announce(messager), 0u);
    EXPECT_EQ(g_sent.size(), 1u);
}

TEST_F(Messager, FiniFreesWhatWaits)
{
    Make(MESSAGER_KEEP_TAIL);
    g_answers = {{kFailed, 0}, {kFailed, 0}};
    Say('a', 10, MCAST_TRUE);
    Say('b', 10, MCAST_TRUE);
    EXPECT_GE(Messager_GetDataLen(messager), 20u) << "both wait";
}

TEST_F(Messager, NullIsHarmless)
{
    EXPECT_EQ(Messager_Send(nullptr, "a", 1, MCAST_TRUE), MCAST_OK);
    EXPECT_EQ(Messager_Announce(nullptr), 0u);
    EXPECT_EQ(Messager_GetDataLen(nullptr), 0u);
    EXPECT_EQ(Messager_Clear(nullptr), MCAST_OK);
    Messager_Fini(nullptr);
}

TEST_F(Messager, SeveralThreadsMaySendAtOnce)
{
    Make(MESSAGER_KEEP_TAIL);
    std::vector<std::thread> threads;

    for (char letter : {'a', 'b', 'c', 'd'}) {
        threads.emplace_back([this, letter] {
            for (int index = 0; index < 500; ++index) {
                Say(letter, 9);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    Messager_Announce(messager);
    size_t bytes = 0;

    for (const std::string &packet : g_sent) {
        ASSERT_EQ((packet.size() - 16) % 9, 0u);
        for (size_t start = 16; start < packet.size(); start += 9) {
            ASSERT_EQ(packet.substr(start, 9), std::string(9, packet[start])) << "a message is in one piece";
        }
        bytes += packet.size() - 16;
    }
    EXPECT_EQ(bytes, 4u * 500 * 9);
}

/* A peer that takes a stream: of every third call nothing or a part. Runs under the messager's lock. */
struct Stream {
    std::string taken;
    unsigned calls;
    unsigned failures;
};

Stream g_stream;

uint64_t SendSome(uint32_t, const void *data, uint64_t length, uint64_t *sent)
{
    bool fails = ++g_stream.calls % 3 == 0;
    *sent = fails ? length * (g_stream.calls % 4) / 4 : 0;
    g_stream.taken.append(static_cast<const char *>(data), fails ? *sent : length);
    g_stream.failures += fails ? 1 : 0;
    return fails ? kFailed : 0;
}

TEST_F(Messager, TwoThreadsLoseNothingToAPeerThatTakesPartsAndToRefusals)
{
    struct Numbered {
        uint32_t thread;
        uint32_t number;
    };
    constexpr uint32_t kMessages = 20000;
    const MESSAGER_CALLBACKS_S callbacks = {nullptr, nullptr, SendSome};
    std::vector<std::thread> threads;

    g_stream = {};
    messager = Messager_Init(1, 1300, 0, MESSAGER_KEEP_TAIL, 1, &callbacks);
    ASSERT_NE(messager, nullptr);
    for (uint32_t thread = 0; thread < 2; ++thread) {
        threads.emplace_back([this, thread] {
            for (uint32_t number = 0; number < kMessages; ++number) {
                const Numbered message = {thread, number};

                while (Messager_Send(messager, &message, sizeof(message), number % 64 == 0) != MCAST_OK) {
                    Messager_Announce(messager);
                }
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    while (Messager_GetDataLen(messager) != 0) {
        Messager_Announce(messager);
    }
    EXPECT_GT(g_stream.failures, 0u);
    ASSERT_EQ(g_stream.taken.size(), 2 * kMessages * sizeof(Numbered));
    uint32_t next[2] = {0, 0};

    for (size_t start = 0; start < g_stream.taken.size(); start += sizeof(Numbered)) {
        Numbered message;

        memcpy(&message, &g_stream.taken[start], sizeof(message));
        ASSERT_LT(message.thread, 2u);
        ASSERT_EQ(message.number, next[message.thread]++);
    }
    g_stream = {};
}

} // namespace
