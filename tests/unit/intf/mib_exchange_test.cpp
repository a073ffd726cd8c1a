#include "support/descriptors.h"
#include "unit/intf/mib_fixture.h"

namespace mib_test
{
namespace
{

TEST_F(Mib, GetSendsTheRequestAndHandsTheReplyToTheParser)
{
    replies[0] = "answer";
    g_parsing.act = [](void *output, void *, void *) {
        memcpy(output, "parsed", 7);
        return 0x12345678u;
    };
    EXPECT_EQ(MCAST_MIB_Get(daemons[0], Parse, records[0]), 0x12345678u);
    EXPECT_EQ(device_calls, Conversation());
    EXPECT_EQ(g_parsing.calls, 1);
    EXPECT_EQ(g_parsing.reply, "answer");
    EXPECT_EQ(g_parsing.output, requests[0].output.data());
    EXPECT_EQ(g_parsing.extra1, nullptr);
    EXPECT_EQ(g_parsing.extra2, nullptr);
    EXPECT_STREQ(requests[0].output.data(), "parsed");
    EXPECT_EQ(requests[0].mib.reply_length, 6u);
    EXPECT_EQ(requests[0].mib.result, kUntouched) << "results belong to the get-next calls";
}

TEST_F(Mib, AReplyLongerThanItsBufferIsCut)
{
    replies[0] = "longer than twelve";
    g_parsing.act = [](auto...) { return MCAST_OK; };
    EXPECT_EQ(MCAST_MIB_Get(daemons[0], Parse, records[0]), MCAST_OK);
    EXPECT_EQ(g_parsing.reply, "longer than ");
    EXPECT_EQ(requests[0].mib.reply_length, 12u);
    EXPECT_EQ(Count("recv"), 1u) << "the rest is not asked for";
}

TEST_F(Mib, AReplyOfOneByteIsAReply)
{
    replies[0] = "x";
    g_parsing.act = [](auto...) { return MCAST_OK; };
    EXPECT_EQ(MCAST_MIB_Get(daemons[0], Parse, records[0]), MCAST_OK);
    EXPECT_EQ(requests[0].mib.reply_length, 1u);
}

TEST_F(Mib, APartialSendIsNotCompletedAndTheReplyIsAwaited)
{
    Answer(0, MCAST_OK);
    scripted::send = [](auto...) {
        device_calls.emplace_back("send");
        return ssize_t{1};
    };
    EXPECT_EQ(MCAST_MIB_Get(daemons[0], Parse, records[0]), MCAST_OK);
    EXPECT_EQ(device_calls, Conversation());
}

TEST_F(Mib, SignalsRepeatSendAndReceiveUntilTheyAreThrough)
{
    int sends = 0;
    int receives = 0;
    Answer(0, MCAST_OK);
    scripted::send = [&](int, const void *, size_t length, int) {
        errno = EINTR;
        return ++sends <= 1000 ? ssize_t{-1} : static_cast<ssize_t>(length);
    };
    scripted::recv = [&](int, void *data, size_t, int) {
        errno = EINTR;
        memset(data, 0, 4);
        return ++receives <= 1000 ? ssize_t{-1} : ssize_t{4};
    };
    EXPECT_EQ(MCAST_MIB_Get(daemons[0], Parse, records[0]), MCAST_OK);
    EXPECT_EQ(sends, 1001);
    EXPECT_EQ(receives, 1001);
    EXPECT_EQ(requests[0].mib.reply_length, 4u);
}

TEST_F(Mib, AFailedSendEndsTheExchange)
{
    sockets_expected = 0;
    Answer(0, MCAST_OK);
    for (auto [result, error] : {std::pair{-1, EPIPE}, {-1, EAGAIN}, {-1, EMSGSIZE}, {0, 0}, {0, EINTR}}) {
        scripted::send = scripted::Failing(error, ssize_t{result});
        device_calls.clear();
        EXPECT_EQ(MCAST_MIB_Get(daemons[0], Parse, records[0]), MCAST_MIB_NO_ENTRY);
        EXPECT_EQ(device_calls, (Calls{"connect 1", "close"}));
    }
    device_calls.clear();
    EXPECT_EQ(g_parsing.calls, 0);
    EXPECT_EQ(requests[0].mib.reply_length, kUntouched);
}

TEST_F(Mib, AFailedReceiveOrAPeerThatClosesEndsTheExchange)
{
    sockets_expected = 0;
    Answer(0, MCAST_OK);
    for (auto [result, error] : {std::pair{-1, ECONNRESET}, {-1, EAGAIN}, {0, 0}, {0, EINTR}}) {
        scripted::recv = scripted::Failing(error, ssize_t{result});
        device_calls.clear();
        EXPECT_EQ(MCAST_MIB_Get(daemons[0], Parse, records[0]), MCAST_MIB_NO_ENTRY);
        EXPECT_EQ(device_calls, (Calls{"connect 1", "send", "close"}));
    }
    device_calls.clear();
    EXPECT_EQ(g_parsing.calls, 0);
    EXPECT_EQ(requests[0].mib.reply_length, kUntouched);
}

TEST_F(Mib, AnUnreachableDaemonHasNoEntry)
{
    EXPECT_EQ(MCAST_MIB_Get(daemons[0], Parse, records[0]), MCAST_MIB_NO_ENTRY);
    EXPECT_EQ(MCAST_MIB_Get(nullptr, Parse, records[0]), MCAST_MIB_NO_ENTRY);
    scripted::socket = scripted::Failing(EMFILE, -3);
    EXPECT_EQ(MCAST_MIB_Get(daemons[0], Parse, records[0]), MCAST_MIB_NO_ENTRY);
    EXPECT_EQ(MCAST_MIB_SetGlobal(daemons[0], Parse, records[0]), MCAST_MIB_NO_ENTRY);
    EXPECT_EQ(g_parsing.calls, 0);
}

TEST_F(Mib, SetGlobalGivesTheParserNothingToWriteTo)
{
    Answer(0, 0x40010001);
    EXPECT_EQ(MCAST_MIB_SetGlobal(daemons[0], Parse, records[0]), 0x40010001u);
    EXPECT_EQ(device_calls, Conversation());
    EXPECT_EQ(g_parsing.output, nullptr);
    EXPECT_EQ(g_parsing.extra1, nullptr);
    EXPECT_EQ(g_parsing.extra2, nullptr);
}

TEST_F(Mib, SetTablePresetsTheParsersSlotsAndGivesTheErrorIndexWhateverTheResult)
{
    Answer(0, 0);
    for (MCAST_STATUS result : {MCAST_OK, kOther}) {
        uint32_t wrong = 5;

        g_parsing.act = [=](void *output, void *extra1, void *extra2) {
            uint32_t type = 0;
            uint16_t count = 0xffff;
            uint32_t index = 0;

            memcpy(&type, output, sizeof(type));
            memcpy(&count, extra1, sizeof(count));
            memcpy(&index, extra2, sizeof(index));
            EXPECT_EQ(type, 8u);
            EXPECT_EQ(count, 0u);
            EXPECT_EQ(index, 0xffffffffu);
            memset(output, 0xee, sizeof(type));
            memset(extra1, 0xee, sizeof(count));
            memset(extra2, 0x01, sizeof(index));
            return result;
        };
        EXPECT_EQ(MCAST_MIB_SetTable(daemons[0], Parse, records[0], &wrong), result);
        EXPECT_EQ(wrong, 0x01010101u);
    }
    sockets_expected = 2;
}

TEST_F(Mib, SetTableWithoutADaemonHasNoErrorIndex)
{
    uint32_t wrong = 5;
    EXPECT_EQ(MCAST_MIB_SetTable(daemons[0], Parse, records[0], &wrong), MCAST_MIB_NO_ENTRY);
    EXPECT_EQ(wrong, 0xffffffffu);
    EXPECT_EQ(g_parsing.calls, 0);
}

TEST_F(Mib, SetTableLeavesTheErrorIndexAtNoneWhenTheParserDoes)
{
    uint32_t wrong = 5;
    Answer(0, kOther);
    EXPECT_EQ(MCAST_MIB_SetTable(daemons[0], Parse, records[0], &wrong), kOther);
    EXPECT_EQ(wrong, 0xffffffffu);
}

/* Every exchange takes a descriptor and gives it back, whatever becomes of it. */
TEST(MibSockets, NoDescriptorStaysOpenAndAClosedPeerEndsNothing)
{
    MCAST_APP_ENDPOINT_S daemon = {7, 1, 0};
    char reply[16] = {};
    MCAST_MIB_REQUEST_S request = {5, "query", sizeof(reply), reply, 0, 0};
    int before = OpenDescriptors();
    int peer = -1;

    scripted::Reset();
    scripted::ResetDevice();
    g_parsing = {};
    g_parsing.act = [](auto...) { return MCAST_OK; };
    scripted::socket = [&](int, int, int) {
        int pair[2] = {-1, -1};

        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair), 0);
        peer = pair[1];
        return pair[0];
    };
    scripted::setsockopt = [](auto...) { return 0; };

    /* Nobody there: SIGPIPE, if it were sent, would end this program. */
    scripted::connect = [&](auto...) { return close(peer); };
    EXPECT_EQ(MCAST_MIB_Get(&daemon, Parse, &request), MCAST_MIB_NO_ENTRY);

    /* Two replies are there; the first is taken, an empty one is none. */
    scripted::connect = [&](auto...) {
        EXPECT_EQ(send(peer, "first", 5, 0), 5);
        EXPECT_EQ(send(peer, "second", 6, 0), 6);
        return 0;
    };
    EXPECT_EQ(MCAST_MIB_Get(&daemon, Parse, &request), MCAST_OK);
    EXPECT_EQ(g_parsing.reply, "first");
    close(peer);
    scripted::connect = [&](auto...) { return send(peer, "", 0, 0) == 0 ? 0 : -1; };
    EXPECT_EQ(MCAST_MIB_Get(&daemon, Parse, &request), MCAST_MIB_NO_ENTRY);
    close(peer);

    /* Nothing to send is nothing to wait for. */
    scripted::connect = [](auto...) { return 0; };
    request.request_length = 0;
    EXPECT_EQ(MCAST_MIB_Get(&daemon, Parse, &request), MCAST_MIB_NO_ENTRY);
    close(peer);
    EXPECT_EQ(OpenDescriptors(), before);
    scripted::Reset();
}

} // namespace
} // namespace mib_test
