#include <cstring>
#include <sys/epoll.h>

#include "unit/mrib/channel_fixture.h"

namespace mrib_test
{
namespace
{

using Connecting = ChannelTest;

TEST_F(Connecting, OpenSendsRegistrationRequestsAndSmoothAlertByteForByte)
{
    ASSERT_EQ(Init(MCAST_FAMILY_IPV4, 1), 0u);

    ASSERT_EQ(MRIB_GMP_OpenConnect(), 0u);

    const std::vector<Bytes> expected = {
        SentMessage(1, 22, Record(0, Bytes{2, 7} + HostOrder(uint64_t{0xd30b}))),
        SentMessage(1, 18, Record(4, {2, 0, 0, 0, 0, 0})),
        SentMessage(1, 18, Record(14, {2, 0, 0, 0, 0, 0})),
        SentMessage(1, 10, Record(18, {2, 0, 1, 1, 0, 0})),
    };

    EXPECT_EQ(sent, expected);
    EXPECT_EQ(calls, std::vector<std::string>{"connected 1000"});
    EXPECT_EQ(Peek().socket, kSocket);
    EXPECT_EQ(Peek().used, 12u);
}

TEST_F(Connecting, SocketIsOfTheLocalFamilyAndConnectsToTheFamilysPort)
{
    const Bytes ipv4 = Bytes{0, 37, 0x08, 0x86} + Host16(128) + Zeros(10);
    const Bytes ipv6 = Bytes{0, 37, 0x08, 0x87} + Host16(128) + Zeros(10);
    Bytes address;
    int options = 0;
    scripted::socket = [&](int family, int type, int protocol) {
        EXPECT_EQ(family, 37);
        EXPECT_EQ(type, SOCK_DGRAM);
        EXPECT_EQ(protocol, 1);
        return kSocket;
    };
    scripted::connect = [&](int descriptor, const sockaddr *to, socklen_t length) {
        EXPECT_EQ(descriptor, kSocket);
        address.assign(reinterpret_cast<const uint8_t *>(to), reinterpret_cast<const uint8_t *>(to) + length);
        return 0;
    };
    scripted::setsockopt = [&](int, int level, int option, const void *value, socklen_t length) {
        const uint32_t expected[2] = {1, 0};
        EXPECT_EQ(level, SOL_SOCKET);
        EXPECT_EQ(option, 128);
        EXPECT_EQ(length, 8u);
        EXPECT_EQ(memcmp(value, expected, sizeof(expected)), 0);
        ++options;
        errno = EINVAL;
        return -1; /* the result does not matter */
    };
    ASSERT_EQ(Init(MCAST_FAMILY_IPV4), 0u);
    ASSERT_EQ(MRIB_GMP_OpenConnect(), 0u);
    EXPECT_EQ(address, ipv4);
    MRIB_GMP_CloseConnection();
    ASSERT_EQ(Init(MCAST_FAMILY_IPV6), 0u);
    ASSERT_EQ(MRIB_GMP_OpenConnect(), 0u);
    EXPECT_EQ(address, ipv6);
    EXPECT_EQ(options, 2);
    EXPECT_EQ(sent.at(4).at(16), 10) << "the registration names the family";
}

TEST_F(Connecting, OpenWhileConnectedSendsNothing)
{
    Connect();

    EXPECT_EQ(MRIB_GMP_OpenConnect(), 0u);

    EXPECT_TRUE(sent.empty());
    EXPECT_TRUE(calls.empty());
}

TEST_F(Connecting, AlreadyConnectedSocketIsASuccess)
{
    ASSERT_EQ(Init(), 0u);
    scripted::connect = scripted::Failing(EISCONN);

    EXPECT_EQ(MRIB_GMP_OpenConnect(), 0u);
    EXPECT_EQ(Peek().socket, kSocket);
}

TEST_F(Connecting, ConnectedCallbackDecidesTheResult)
{
    connected_result = 42;
    ASSERT_EQ(Init(), 0u);

    EXPECT_EQ(MRIB_GMP_OpenConnect(), 42u);
    EXPECT_EQ(Peek().socket, kSocket);
}

TEST_F(Connecting, SocketThatIsDescriptor0IsOne)
{
    scripted::socket = [](int, int, int) { return 0; };
    scripted::send = [](int descriptor, const void *, size_t length, int) {
        EXPECT_EQ(descriptor, 0);
        return static_cast<ssize_t>(length);
    };
    ASSERT_EQ(Init(), 0u);
    EXPECT_EQ(MRIB_GMP_OpenConnect(), 0u);
    EXPECT_EQ(Peek().socket, 0);
}

TEST_F(Connecting, FailedSocketFailsWithoutClosingAnything)
{
    ASSERT_EQ(Init(), 0u);
    scripted::socket = scripted::Failing(EAFNOSUPPORT);

    EXPECT_EQ(MRIB_GMP_OpenConnect(), 0x40010001u);

    EXPECT_TRUE(closed.empty());
    EXPECT_EQ(Peek().socket, -1);
}

TEST_F(Connecting, FailedConnectClosesTheNewSocket)
{
    ASSERT_EQ(Init(), 0u);
    scripted::connect = scripted::Failing(ECONNREFUSED);

    EXPECT_EQ(MRIB_GMP_OpenConnect(), 0x40010001u);

    EXPECT_EQ(closed, std::vector<int>{kSocket});
    EXPECT_TRUE(sent.empty());
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(Peek().socket, -1);
}

/* Plays one result for each send of connection set-up. */
struct SendScript {
    std::vector<ssize_t> results;
    size_t calls = 0;

    void Install()
    {
        scripted::send = [this](int, const void *, size_t length, int) {
            ssize_t result = calls < results.size() ? results[calls] : static_cast<ssize_t>(length);

            ++calls;
            errno = EAGAIN;
            return result;
        };
    }
};

TEST_F(Connecting, AnyFailedSetUpSendClosesTheNewSocket)
{
    struct Row {
        std::vector<ssize_t> results;
        size_t sends;
    };
    const Row rows[] = {
        {{-1}, 1},         {{0}, 1},         {{26, -1}, 3},     {{26, 0}, 3},
        {{26, 22, -1}, 3}, {{26, 22, 0}, 3}, {{26, -1, -1}, 3},
    };

    for (const Row &row : rows) {
        SendScript script{row.results};

        ASSERT_EQ(Init(), 0u);
        closed.clear();
        script.Install();
        EXPECT_EQ(MRIB_GMP_OpenConnect(), 0x40010001u);
        EXPECT_EQ(script.calls, row.sends) << "both requests are sent even when the first fails";
        EXPECT_EQ(closed, std::vector<int>{kSocket});
        EXPECT_EQ(Peek().socket, -1);
        EXPECT_TRUE(calls.empty());
    }
}

TEST_F(Connecting, FailedSmoothAlertDoesNotFailTheConnection)
{
    SendScript script{{26, 22, 22, -1}};

    ASSERT_EQ(Init(), 0u);
    script.Install();

    EXPECT_EQ(MRIB_GMP_OpenConnect(), 0u);
    EXPECT_EQ(Peek().socket, kSocket);
    EXPECT_EQ(Peek().used, 22u) << "the alert waits in the buffer";
}

TEST_F(Connecting, OpenMarksWhatIsKnownAsStale)
{
    Connect(MCAST_FAMILY_IPV4, 3);
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_VRF_STATE, VrfState(1, 1)), 0u);
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_SSM_POLICY, SsmPolicy(2, 2000)), 0u);
    MRIB_GMP_CloseConnection();

    ASSERT_EQ(MRIB_GMP_OpenConnect(), 0u);

    EXPECT_EQ(PeekVrf(0).flags, 0u);
    EXPECT_EQ(PeekVrf(1).flags, 1u);
    EXPECT_EQ(PeekVrf(2).flags, 2u);
    EXPECT_EQ(PeekVrf(1).l3mc_state, 1);
}

TEST_F(Connecting, OpenClearsTheSmoothFlags)
{
    ASSERT_EQ(Init(), 0u);
    g_ulMribGmpSmoothEndFlag = 7;

    ASSERT_EQ(MRIB_GMP_OpenConnect(), 0u);

    EXPECT_EQ(g_ulMribGmpSmoothEndFlag, 0u);
}

TEST_F(Connecting, CloseResetsAllTransportState)
{
    const MRIB_GMP_VRF_KEY_S key = {MCAST_FAMILY_IPV4, 0};

    Connect(MCAST_FAMILY_IPV4, 1, 24);
    send_result = -1;
    for (int i = 0; i < 3; ++i) {
        ASSERT_NE(GetOutBuffer(12), nullptr);
    }
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_FLOW_CONTROL, FlowControl(9)), 0u);
    g_ulMribGmpSmoothEndFlag = 5;
    ASSERT_EQ(Peek().pending_count, 2u);

    EXPECT_EQ(MRIB_GMP_CloseConnection(), 0u);

    EXPECT_EQ(Peek().socket, -1);
    EXPECT_EQ(Peek().pending_count, 0u);
    EXPECT_FALSE(Peek().has_pending);
    EXPECT_EQ(Peek().used, 12u);
    EXPECT_EQ(Peek().failed, 0);
    EXPECT_EQ(Peek().queued_count, 2u) << "counters outlive the connection";
    EXPECT_EQ(MRIB_GMP_IsConnectionBusy(), 0u);
    EXPECT_EQ(g_ulMribGmpSmoothEndFlag, 0u);
    EXPECT_EQ(calls, std::vector<std::string>{"disconnected 1000"});
    EXPECT_EQ(closed, std::vector<int>{kSocket});
    EXPECT_EQ(MRIB_GMP_SendGmpEnableAlert(&key, 1, 1, 1), 0x40010001u);
}

TEST_F(Connecting, CloseWhenNotConnectedCallsNothing)
{
    ASSERT_EQ(Init(), 0u);

    EXPECT_EQ(MRIB_GMP_CloseConnection(), 0u);

    EXPECT_TRUE(calls.empty());
    EXPECT_TRUE(closed.empty());
}

TEST_F(Connecting, ClosedConnectionOpensAgainWithTheWholeSequence)
{
    Connect();
    MRIB_GMP_CloseConnection();

    EXPECT_EQ(MRIB_GMP_OpenConnect(), 0u);
    EXPECT_EQ(sent.size(), 4u);
}

TEST_F(Connecting, CloseFailConnectionActsOnlyOnLostData)
{
    Connect();

    EXPECT_EQ(MRIB_GMP_CloseFailConnection(), 0u);
    EXPECT_EQ(Peek().socket, kSocket);
}

TEST_F(Connecting, ErrorOrHangUpClosesEvenWhenDataIsReadable)
{
    for (uint32_t events : {0x08u, 0x10u, 0x08u | EPOLLIN, 0x10u | EPOLLIN}) {
        Connect();
        scripted::recv = [](auto...) {
            ADD_FAILURE() << "read from a dead connection";
            return ssize_t{0};
        };
        EXPECT_EQ(MRIB_GMP_ProcLipcMsg(events, kSocket), 0u);
        EXPECT_EQ(Peek().socket, -1);
        EXPECT_EQ(calls, std::vector<std::string>{"disconnected 1000"});
    }
}

TEST_F(Connecting, CallbackMayCloseTheConnectionItWasToldAbout)
{
    callbacks.connected = [](int32_t) -> uint64_t { return MRIB_GMP_CloseConnection(); };
    callbacks.disconnected = nullptr;
    ASSERT_EQ(Init(), 0u);

    EXPECT_EQ(MRIB_GMP_OpenConnect(), 0u);

    EXPECT_EQ(Peek().socket, -1);
    EXPECT_EQ(closed, std::vector<int>{kSocket});
}

TEST_F(Connecting, CallbackMayReopenTheConnectionThatWasClosed)
{
    callbacks.disconnected = [](int32_t) {
        scripted::socket = [](auto...) { return kSocket + 1; };
        scripted::send = [](int, const void *, size_t length, int) { return static_cast<ssize_t>(length); };
        MRIB_GMP_OpenConnect();
    };
    Connect();

    MRIB_GMP_CloseConnection();

    EXPECT_EQ(Peek().socket, kSocket + 1);
    EXPECT_EQ(closed, std::vector<int>{kSocket}) << "only the old one";
    g_stMRIBComponent.callbacks.disconnected = nullptr;
}

} // namespace
} // namespace mrib_test
