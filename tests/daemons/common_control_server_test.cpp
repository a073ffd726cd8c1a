#include <arpa/inet.h>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "daemons/common/descriptor_reserve.h"
#include "daemons/common/expect.h"
#include "daemons/common/log.h"
#include "platform/local_socket.h"
#include "support/descriptors.h"
#include "tests/daemons/control_lab.h"
#include "tests/daemons/descriptor_shortage.h"
#include "tests/daemons/no_memory.h"
#include "tests/daemons/runtime_folder.h"

using namespace control_test;
using namespace mcastd;

namespace
{

// The client's end of a connection that the server serves.
class Peer
{
public:
    explicit Peer(ControlServer &server)
    {
        int fds[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, fds) != 0) {
            std::abort();
        }
        fd_ = fds[0];
        server_end_ = fds[1];
        adopt_ = [&server, this] { server.adopt(server_end_); };
    }
    ~Peer()
    {
        hang_up();
    }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    void connect()
    {
        adopt_();
    }
    void hang_up()
    {
        if (fd_ >= 0) {
            close(fd_);
            fd_ = -1;
        }
    }
    void send(const std::vector<uint8_t> &bytes) const
    {
        EXPECT_EQ(::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }
    // The status of the reply; nothing without one.
    std::optional<ControlStatus> status() const
    {
        std::vector<uint8_t> bytes(CONTROL_REPLY_MAX);
        const ssize_t size = recv(fd_, bytes.data(), bytes.size(), 0);
        ControlReply reply;
        if (size <= 0 || !decode(std::span(bytes).first(static_cast<size_t>(size)), &reply)) {
            return std::nullopt;
        }
        return reply.status;
    }
    bool is_closed() const
    {
        char byte;
        return recv(fd_, &byte, 1, MSG_PEEK) == 0;
    }

private:
    int fd_ = -1;
    int server_end_ = -1;
    std::function<void()> adopt_;
};

class ControlServerTest : public testing::Test
{
protected:
    ControlServerTest()
    {
        server.registry().add_table(SCHEMA, [](ControlRows &rows) { rows.add(row(1)); });
    }

    void serve()
    {
        for (int i = 0; i < 100; ++i) {
            ASSERT_TRUE(reactor.run_once(0));
        }
    }

    uint64_t counter(const std::string &name) const
    {
        uint64_t found = UINT64_MAX;
        server.visit_counters([&](const char *each, uint64_t value) {
            if (name == each) {
                found = value;
            }
        });
        return found;
    }

    Reactor reactor;
    ControlServer server{reactor};
};

TEST_F(ControlServerTest, ARequestIsAnsweredAndTheConnectionClosed)
{
    Peer peer(server);
    peer.connect();
    serve();
    peer.send(encode(get_next()));
    serve();
    EXPECT_EQ(peer.status(), ControlStatus::Done);
    EXPECT_TRUE(peer.is_closed());
    EXPECT_EQ(server.connections(), 0u);
}

TEST_F(ControlServerTest, ARequestThatIsThereAlreadyIsAnsweredAtOnce)
{
    Peer peer(server);
    peer.send(encode(get_next()));
    peer.connect();
    EXPECT_EQ(peer.status(), ControlStatus::Done);
    EXPECT_EQ(server.connections(), 0u);
}

TEST_F(ControlServerTest, OnlyTheFirstMessageOfAConnectionIsRead)
{
    Peer peer(server);
    for (int i = 0; i < 50; ++i) {
        peer.send({1, 2, 3});
    }
    peer.connect();
    serve();
    EXPECT_EQ(server.connections(), 0u);
    EXPECT_EQ(counter("control_requests_malformed"), 1u);
}

TEST_F(ControlServerTest, AMessageLongerThanAnyRequestIsMalformed)
{
    Peer peer(server);
    std::vector<uint8_t> bytes = encode(get_next());
    bytes.resize(5000);
    peer.send(bytes);
    peer.connect();
    EXPECT_EQ(peer.status(), ControlStatus::Malformed);
}

TEST_F(ControlServerTest, WhatCannotBeWatchedIsClosed)
{
    int ends[2];
    char byte;
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends), 0);
    ASSERT_TRUE(reactor.add(ends[1], EPOLLIN, [](uint32_t) {})); // no second time
    server.adopt(ends[1]);
    EXPECT_EQ(server.connections(), 0u);
    EXPECT_EQ(recv(ends[0], &byte, 1, 0), 0);
    close(ends[0]);
}

TEST_F(ControlServerTest, WhoHangsUpCostsNothing)
{
    Peer silent(server);
    silent.connect();
    silent.hang_up();
    Peer asking(server);
    asking.send(encode(get_next()));
    asking.hang_up();
    asking.connect();
    serve();
    EXPECT_EQ(server.connections(), 0u);
    EXPECT_EQ(counter("control_replies_unsent"), 1u);
}

TEST_F(ControlServerTest, SilentClientsGiveWayToNewcomersTheOldestFirst)
{
    std::vector<std::unique_ptr<Peer>> silent;
    for (size_t i = 0; i < ControlServer::CONNECTION_LIMIT; ++i) {
        silent.push_back(std::make_unique<Peer>(server));
        silent.back()->connect();
    }
    EXPECT_FALSE(silent[0]->is_closed());
    Peer newcomer(server);
    newcomer.connect();
    EXPECT_EQ(server.connections(), ControlServer::CONNECTION_LIMIT);
    EXPECT_TRUE(silent[0]->is_closed());
    EXPECT_FALSE(silent[1]->is_closed());
    newcomer.send(encode(get_next()));
    serve();
    EXPECT_EQ(newcomer.status(), ControlStatus::Done);
    EXPECT_EQ(counter("control_connections_displaced"), 1u);
}

TEST_F(ControlServerTest, CountersComeByAscendingName)
{
    std::vector<std::string> names;
    server.visit_counters([&names](const char *name, uint64_t) { names.push_back(name); });
    EXPECT_FALSE(names.empty());
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
}

constexpr uint16_t PORT = 2299;

// A server on a port of a runtime directory of its own.
class ControlPortTest : public ControlServerTest
{
protected:
    ControlPortTest()
    {
        log_open("test", LogLevel::Error);
    }

    static int connect_to_server()
    {
        LOCAL_SOCKET_ADDR_S address{};
        address.family = LOCAL_SOCKET_FAMILY;
        address.port_be = htons(PORT);
        address.node = LOCAL_SOCKET_NODE;
        const int fd = socket(LOCAL_SOCKET_FAMILY, SOCK_DGRAM | SOCK_NONBLOCK, LOCAL_SOCKET_PROTOCOL);
        EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
        return fd;
    }
    // Whether the server closed the connection, perhaps after an answer.
    static bool has_ended(int fd)
    {
        std::vector<uint8_t> bytes(CONTROL_REPLY_MAX);
        ssize_t size;
        while ((size = recv(fd, bytes.data(), bytes.size(), 0)) > 0) {
        }
        return size == 0;
    }

private:
    RuntimeFolder folder_;
};

TEST_F(ControlPortTest, AnswersOnItsPort)
{
    ASSERT_TRUE(server.open(PORT));
    const int fd = connect_to_server();
    const std::vector<uint8_t> request = encode(get_next());
    ASSERT_EQ(send(fd, request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
    serve();
    std::vector<uint8_t> bytes(CONTROL_REPLY_MAX);
    const ssize_t size = recv(fd, bytes.data(), bytes.size(), 0);
    ASSERT_GT(size, 0);
    ControlReply reply;
    ASSERT_TRUE(decode(std::span(bytes).first(static_cast<size_t>(size)), &reply));
    EXPECT_EQ(reply.rows.size(), 1u);
    close(fd);
}

TEST_F(ControlPortTest, AnswersOnDescriptorZero)
{
    ASSERT_TRUE(server.open(PORT));
    const int fd = connect_to_server();
    const int standard_input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    reactor.run_once(0);
    EXPECT_EQ(server.connections(), 1u);
    EXPECT_GE(fcntl(STDIN_FILENO, F_GETFD), 0) << "its connection";
    const std::vector<uint8_t> request = encode(get_next());
    ASSERT_EQ(send(fd, request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
    serve();
    char byte;
    EXPECT_GT(recv(fd, &byte, 1, 0), 0);
    EXPECT_EQ(server.connections(), 0u);
    dup2(standard_input, STDIN_FILENO);
    close(standard_input);
    close(fd);
}

// The request is there when the connection is taken, or comes afterwards.
TEST_F(ControlPortTest, WhatThereIsNoMemoryForEndsTheConnection)
{
    NEEDS_FAILING_ALLOCATIONS();
    log_open("test", static_cast<LogLevel>(-1)); // that is said
    ASSERT_TRUE(server.open(PORT));
    const std::vector<uint8_t> request = encode(get_next());
    for (const bool late : {false, true}) {
        unsigned long failures = 1;
        for (unsigned long first = 0; failures > 0; ++first) {
            const int fd = connect_to_server();
            if (late) {
                reactor.run_once(0);
            }
            ASSERT_EQ(send(fd, request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
            {
                const no_memory::Period period(first);
                reactor.run_once(0);
                failures = period.failures();
            }
            serve();
            EXPECT_TRUE(has_ended(fd)) << late << ", allocation " << first;
            EXPECT_EQ(server.connections(), 0u) << late << ", allocation " << first;
            close(fd);
        }
    }
}

TEST_F(ControlPortTest, ASecondServerOnThePortIsRefused)
{
    ASSERT_TRUE(server.open(PORT));
    ControlServer second(reactor);
    log_open("test", static_cast<LogLevel>(-1)); // the error is expected
    EXPECT_FALSE(second.open(PORT));
}

TEST_F(ControlPortTest, AClosedServerLeavesThePortAndMayOpenItAgain)
{
    server.close();
    ASSERT_TRUE(server.open(PORT));
    const int waiting = connect_to_server();
    reactor.run_once(0);
    EXPECT_EQ(server.connections(), 1u);
    server.close();
    server.close();
    EXPECT_EQ(server.connections(), 0u);
    char byte;
    EXPECT_EQ(recv(waiting, &byte, 1, MSG_DONTWAIT), 0);
    close(waiting);
    {
        ControlServer other(reactor);
        EXPECT_TRUE(other.open(PORT));
    }
    EXPECT_TRUE(server.open(PORT));
}

TEST_F(ControlPortTest, WithoutDescriptorsTheReserveServesSomeAndThenTheOldestGivesWay)
{
    ASSERT_TRUE(server.open(PORT));
    std::vector<int> silent;
    for (size_t i = 0; i <= RESERVED_DESCRIPTORS - RESERVED_FROM_CONTROL; ++i) {
        silent.push_back(connect_to_server());
    }
    const Shortage shortage;
    serve();
    EXPECT_EQ(server.connections(), silent.size() - 1);
    char byte;
    EXPECT_EQ(recv(silent[0], &byte, 1, MSG_DONTWAIT), 0) << "waited longest, gives way";
    EXPECT_EQ(counter("control_connections_displaced"), 1u);
    for (size_t i = 1; i < silent.size(); ++i) {
        EXPECT_EQ(recv(silent[i], &byte, 1, MSG_DONTWAIT), -1) << "has a place";
    }
    const std::vector<uint8_t> request = encode(get_next());
    EXPECT_GT(send(silent.back(), request.data(), request.size(), 0), 0);
    serve();
    EXPECT_GT(recv(silent.back(), &byte, 1, MSG_DONTWAIT), 0) << "answered";
    for (const int fd : silent) {
        close(fd);
    }
}

TEST_F(ControlPortTest, AnInvariantThatDoesNotHoldIsReportedAndCounted)
{
    const uint64_t before = counter("failed_assertions");
    testing::internal::CaptureStdout();
    expect(true);
    expect(false, "place.cpp", 7);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "assertion failed, file: place.cpp, line: 7\n");
    EXPECT_EQ(counter("failed_assertions"), before + 1);
}

TEST_F(ControlPortTest, NothingStaysOpenBehindAServer)
{
    const int before = OpenDescriptors();
    int fd = -1;
    {
        ControlServer other(reactor);
        ASSERT_TRUE(other.open(PORT));
        fd = connect_to_server();
        serve();
        EXPECT_EQ(other.connections(), 1u);
    }
    close(fd);
    EXPECT_EQ(OpenDescriptors(), before);
}

} // namespace
