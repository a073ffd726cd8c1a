/*
 * Real connections over the loopback: this router is one 127.0.0.x, the test plays the peer at another.
 */
#include <arpa/inet.h>
#include <cerrno>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>

#include "daemons/msdpd/tcp.h"
#include "tests/daemons/msdpd_lab.h"

using namespace msdpd;
using namespace msdpd_test;
using mcastd::Descriptor;

namespace
{

constexpr Ipv4 LOW = {0x7f000001};
constexpr Ipv4 HIGH = {0x7f000002};

class MsdpdTcp : public testing::Test
{
protected:
    // The speaker at local with a peer at remote, on a port that is free.
    void start(Ipv4 local, Ipv4 remote)
    {
        PeerConfig peer;
        peer.address = remote;
        peer.local_address = local;
        config.peers[remote] = peer;
        ASSERT_TRUE(tcp.open(speaker, port));
        speaker_configure(speaker, config);
    }
    // This router as the caller of a peer whose port the test holds, so that it cannot listen itself.
    void start_caller()
    {
        PeerConfig peer;
        peer.address = HIGH;
        peer.local_address = LOW;
        config.peers[HIGH] = peer;
        EXPECT_FALSE(tcp.open(speaker, port));
        speaker_configure(speaker, config);
    }
    static sockaddr_in name(Ipv4 address, uint16_t number)
    {
        sockaddr_in result{};
        result.sin_family = AF_INET;
        result.sin_addr.s_addr = to_network(address);
        result.sin_port = htons(number);
        return result;
    }
    // A socket of the peer's, bound.
    static Descriptor bound(Ipv4 address, uint16_t number)
    {
        Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const sockaddr_in at = name(address, number);
        const int yes = 1;
        setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
        EXPECT_EQ(bind(socket.get(), reinterpret_cast<const sockaddr *>(&at), sizeof(at)), 0)
            << strerror(errno);
        return socket;
    }
    // A connection from the peer to this router.
    Descriptor call(Ipv4 from, Ipv4 to)
    {
        Descriptor socket = bound(from, 0);
        const sockaddr_in at = name(to, port);
        EXPECT_EQ(connect(socket.get(), reinterpret_cast<const sockaddr *>(&at), sizeof(at)), 0);
        return socket;
    }
    // Serves what is ready until nothing is.
    void run()
    {
        for (int i = 0; i < 16; ++i) {
            reactor.run_once(0);
            tcp.flush();
        }
    }
    // Waits for bytes at the peer's end; empty at its end of file.
    static std::string received(const Descriptor &socket)
    {
        char bytes[64];
        const ssize_t size = recv(socket.get(), bytes, sizeof(bytes), 0);
        return size <= 0 ? "" : std::string(bytes, static_cast<size_t>(size));
    }
    // A port that nobody listens on.
    static uint16_t free_port()
    {
        const Descriptor probe = bound(HIGH, 0);
        sockaddr_in at{};
        socklen_t size = sizeof(at);
        EXPECT_EQ(getsockname(probe.get(), reinterpret_cast<sockaddr *>(&at), &size), 0);
        return ntohs(at.sin_port);
    }
    Peer &peer()
    {
        return *speaker.peers.begin()->second;
    }
    std::string state()
    {
        return state_name(peer().state);
    }

    const uint16_t port = free_port();
    Lab lab; // for its time
    mcastd::Reactor reactor;
    FakeMrib mrib;
    FakeRoutes routes;
    Tcp tcp{reactor};
    Speaker speaker{lab.timers, tcp, mrib, routes};
    Config config;
};

const std::string KEEPALIVE("\4\0\3", 3);

} // namespace

TEST_F(MsdpdTcp, ACallOfAPeerIsTakenAndBeginsWithAKeepalive)
{
    start(HIGH, LOW);
    const Descriptor caller = call(LOW, HIGH);

    run();
    EXPECT_EQ(state(), "established");
    EXPECT_EQ(received(caller), KEEPALIVE);
}

TEST_F(MsdpdTcp, CallsOfOthersAndToOtherAddressesAreRefused)
{
    start(HIGH, LOW);
    const Descriptor stranger = call({0x7f000003}, HIGH);
    const Descriptor astray = call(LOW, {0x7f000004});

    run();
    EXPECT_EQ(state(), "listening");
    EXPECT_EQ(received(stranger), "");
    EXPECT_EQ(received(astray), "");
    EXPECT_EQ(speaker.refused_connections, 2u);
}

TEST_F(MsdpdTcp, ASecondCallTakesThePlaceOfTheFirst)
{
    start(HIGH, LOW);
    const Descriptor first = call(LOW, HIGH);

    run();
    received(first);
    const Descriptor second = call(LOW, HIGH);

    run();
    EXPECT_EQ(state(), "established");
    EXPECT_EQ(received(first), "");
    EXPECT_EQ(received(second), KEEPALIVE);
    EXPECT_EQ(peer().counters[Count::Replaced], 1u);
}

TEST_F(MsdpdTcp, AConnectionThatThePeerClosesIsLost)
{
    start(HIGH, LOW);
    {
        const Descriptor caller = call(LOW, HIGH);

        run();
        received(caller);
    }
    run();
    EXPECT_EQ(state(), "listening");
    EXPECT_EQ(peer().counters[Count::ClosedByPeer], 1u);
}

TEST_F(MsdpdTcp, TheLowerAddressCallsFromItsOwn)
{
    const Descriptor listener = bound(HIGH, port);

    ASSERT_EQ(listen(listener.get(), 1), 0);
    start_caller();
    sockaddr_in from{};
    socklen_t size = sizeof(from);
    const Descriptor call(accept(listener.get(), reinterpret_cast<sockaddr *>(&from), &size));

    run();
    EXPECT_EQ(from_network(from.sin_addr.s_addr), LOW);
    EXPECT_EQ(state(), "established");
    EXPECT_EQ(received(call), KEEPALIVE);
}

TEST_F(MsdpdTcp, ACallWithoutADescriptorWaitsASecondAndIsTaken)
{
    start(HIGH, LOW);
    const Descriptor caller = call(LOW, HIGH);
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const Descriptor next(dup(caller.get()));
    const rlimit none{static_cast<rlim_t>(next.get()) + 1, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);

    run();
    pollfd loop{reactor.descriptor(), POLLIN, 0};
    const int ready = poll(&loop, 1, 0);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(ready, 0) << "the loop has nothing to do";
    EXPECT_EQ(state(), "listening");
    EXPECT_EQ(speaker.postponed_accepts, 1u);
    lab.pass(1);
    run();
    EXPECT_EQ(state(), "established");
}

TEST_F(MsdpdTcp, ARefusedCallIsCountedAndTriedAgain)
{
    Descriptor listener = bound(HIGH, port);

    ASSERT_EQ(listen(listener.get(), 1), 0);
    start_caller();
    Descriptor call(accept(listener.get(), nullptr, nullptr));

    run();
    listener = Descriptor();
    call = Descriptor();
    run();
    EXPECT_EQ(state(), "connecting");
    lab.pass(30); // the listener is gone
    run();
    EXPECT_EQ(peer().counters[Count::ConnectFailed], 1u);
    EXPECT_EQ(state(), "connecting");
    listener = bound(HIGH, port);
    ASSERT_EQ(listen(listener.get(), 1), 0);
    lab.pass(30);
    run();
    EXPECT_EQ(state(), "established");
}

TEST_F(MsdpdTcp, MessagesPassInBothDirections)
{
    start(HIGH, LOW);
    const Descriptor caller = call(LOW, HIGH);

    run();
    received(caller);
    const Bytes request = build_request(pair(0, 1).group);

    mrib.local = {pair(1, 1)};
    ASSERT_EQ(send(caller.get(), request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
    run();
    const Bytes response = build_source_active(TLV_RESPONSE, peer_address(100), std::array{pair(1, 1)});

    EXPECT_EQ(received(caller), std::string(response.begin(), response.end()));
}

TEST_F(MsdpdTcp, APeerThatDoesNotReadKeepsNobodyWaiting)
{
    start(HIGH, LOW);
    const Descriptor caller = call(LOW, HIGH);

    run();
    std::vector<Pair> pairs;

    for (unsigned i = 0; i < MAX_ENTRIES; ++i) {
        pairs.push_back(pair(1, i + 1));
    }
    const Bytes message = build_source_active(TLV_SOURCE_ACTIVE, peer_address(100), pairs);

    for (int i = 0; i < 20000 && peer_send(peer(), message); ++i) {
        tcp.flush();
    }
    EXPECT_FALSE(tcp.flush()) << "nothing to do before the peer reads";
    EXPECT_EQ(state(), "established");
    EXPECT_GT(peer().counters[Count::QueueFull], 0u);
    EXPECT_LE(peer().output.size(), SendBuffer::LIMIT);
}
