#include "daemons/common/control.h"

#include "daemons/common/log.h"
#include "platform/local_socket.h"
#include "support/descriptors.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace mcastd;

namespace
{

constexpr ControlColumn COLUMNS[] = {
    {"number", FieldType::Number},
    {"name", FieldType::Text},
    {"value", FieldType::Counter},
};
constexpr ControlSchema SCHEMA{7, "numbers", 2, COLUMNS};

ControlFields row(uint64_t number, const std::string &name = "a")
{
    return {ControlField::number(number), ControlField::text(name), ControlField::counter(number * 10)};
}

ControlFields key(uint64_t number, const std::string &name = "a")
{
    return {ControlField::number(number), ControlField::text(name)};
}

ControlReply ask(ControlRegistry &registry, const ControlRequest &request)
{
    ControlReply reply;
    EXPECT_TRUE(decode(registry.answer(encode(request)), &reply));
    return reply;
}

ControlRequest get_next(const ControlFields &after = {})
{
    ControlRequest request;
    request.table = SCHEMA.number;
    request.key = after;
    return request;
}

ControlRequest get(const ControlFields &exactly)
{
    ControlRequest request = get_next(exactly);
    request.operation = ControlOperation::Get;
    return request;
}

class RegistryTest : public testing::Test
{
protected:
    RegistryTest()
    {
        registry.add_table(SCHEMA, [this](ControlRows &rows) {
            for (const uint64_t number : numbers) {
                offered++;
                if (!rows.add(row(number))) {
                    break;
                }
            }
        });
    }

    std::vector<uint64_t> shown(const ControlReply &reply) const
    {
        std::vector<uint64_t> result;
        for (const ControlFields &fields : reply.rows) {
            result.push_back(fields[0].as_number());
        }
        return result;
    }

    ControlRegistry registry;
    std::set<uint64_t> numbers = {1, 2, 5, 9};
    unsigned offered = 0;
};

using Numbers = std::vector<uint64_t>;

TEST_F(RegistryTest, GetNextBeginsAtTheFirstAndGoesOnAfterTheKey)
{
    EXPECT_EQ(shown(ask(registry, get_next())), (Numbers{1, 2, 5, 9}));
    EXPECT_EQ(shown(ask(registry, get_next(key(2)))), (Numbers{5, 9}));
}

TEST_F(RegistryTest, AKeyThatHasGoneIsStillAPlace)
{
    EXPECT_EQ(shown(ask(registry, get_next(key(3)))), (Numbers{5, 9}));
    EXPECT_EQ(shown(ask(registry, get_next(key(2, "b")))), (Numbers{5, 9}));
}

TEST_F(RegistryTest, APartOfTheKeyStandsBeforeItsRows)
{
    EXPECT_EQ(shown(ask(registry, get_next({ControlField::number(2)}))), (Numbers{2, 5, 9}));
}

TEST_F(RegistryTest, TheEndIsTold)
{
    const ControlReply reply = ask(registry, get_next(key(9)));
    EXPECT_EQ(reply.status, ControlStatus::EndOfTable);
    EXPECT_TRUE(reply.rows.empty());
    numbers.clear();
    EXPECT_EQ(ask(registry, get_next()).status, ControlStatus::EndOfTable);
}

TEST_F(RegistryTest, ALimitEndsTheReplyAndTheTable)
{
    ControlRequest request = get_next();
    request.row_limit = 2;
    EXPECT_EQ(shown(ask(registry, request)), (Numbers{1, 2}));
    EXPECT_EQ(offered, 2u);
}

TEST_F(RegistryTest, GetFindsExactlyOneRow)
{
    EXPECT_EQ(shown(ask(registry, get(key(5)))), (Numbers{5}));
    EXPECT_EQ(ask(registry, get(key(4))).status, ControlStatus::NoEntry);
    EXPECT_EQ(ask(registry, get({ControlField::number(5)})).status, ControlStatus::Malformed);
}

TEST_F(RegistryTest, PagesShowEveryRowOnceWhileRowsComeAndGo)
{
    numbers.clear();
    for (uint64_t i = 0; i < 6000; i += 2) {
        numbers.insert(i);
    }
    Numbers seen;
    ControlReply reply = ask(registry, get_next());
    while (reply.status == ControlStatus::Done) {
        for (const uint64_t number : shown(reply)) {
            seen.push_back(number);
        }
        numbers.erase(seen.back()); // the place to go on from
        numbers.insert(seen.back() - 1);
        reply = ask(registry, get_next(key(seen.back())));
    }
    EXPECT_EQ(reply.status, ControlStatus::EndOfTable);
    Numbers expected;
    for (uint64_t i = 0; i < 6000; i += 2) {
        expected.push_back(i);
    }
    EXPECT_EQ(seen, expected);
}

TEST_F(RegistryTest, HostileRequestsAreAnsweredAndCounted)
{
    const auto status = [this](const ControlRequest &request) { return ask(registry, request).status; };
    ControlRequest request = get_next();
    request.table = 8;
    EXPECT_EQ(status(request), ControlStatus::UnknownTable);
    request = get_next();
    request.operation = static_cast<ControlOperation>(0);
    EXPECT_EQ(status(request), ControlStatus::UnknownOperation);
    EXPECT_EQ(status(get_next({ControlField::text("1")})), ControlStatus::Malformed);
    EXPECT_EQ(status(get_next({ControlField::number(1), ControlField::text("a"), ControlField::counter(1)})),
              ControlStatus::Malformed);
    request = get_next();
    request.operation = ControlOperation::Command;
    EXPECT_EQ(status(request), ControlStatus::UnknownTable);
    ControlReply reply;
    const uint8_t garbage[] = {1, 2, 3};
    ASSERT_TRUE(decode(registry.answer(garbage), &reply));
    EXPECT_EQ(reply.status, ControlStatus::Malformed);
    EXPECT_EQ(registry.answered(ControlStatus::Malformed), 3u);
    EXPECT_EQ(registry.answered(ControlStatus::UnknownTable), 2u);
    EXPECT_EQ(registry.answered(ControlStatus::UnknownOperation), 1u);
    EXPECT_EQ(registry.answered(ControlStatus::Done), 0u);
}

TEST(Registry, ARowThatBreaksTheSchemaFailsTheRequest)
{
    const ControlFields bad[] = {
        {ControlField::number(1)},
        {ControlField::number(1), ControlField::text("a"), ControlField::number(1)},
        {{}, ControlField::text("a"), ControlField::counter(1)},
        row(1, std::string(ControlField::TEXT_MAX + 1, 'x')),
    };
    for (const ControlFields &each : bad) {
        ControlRegistry registry;
        registry.add_table(SCHEMA, [&each](ControlRows &rows) {
            rows.add(each);
            EXPECT_FALSE(rows.add(row(9))) << "nothing is taken after it";
        });
        EXPECT_EQ(ask(registry, get_next()).status, ControlStatus::Failed);
    }
}

TEST(Registry, AValueMayBeAbsentOutsideTheKey)
{
    ControlRegistry registry;
    registry.add_table(SCHEMA, [](ControlRows &rows) {
        rows.add({ControlField::number(1), ControlField::text("a"), {}});
    });
    const ControlReply reply = ask(registry, get_next());
    ASSERT_EQ(reply.rows.size(), 1u);
    EXPECT_TRUE(reply.rows[0][2].is(FieldType::None));
}

TEST(Registry, RowsSayWhatIsWantedBeforeAWholeRowIsMade)
{
    ControlRegistry registry;
    registry.add_table(SCHEMA, [](ControlRows &rows) {
        EXPECT_FALSE(rows.wants({ControlField::number(1)}));
        EXPECT_TRUE(rows.wants({ControlField::number(2)}));
        EXPECT_FALSE(rows.wants(key(2, "a")));
        EXPECT_TRUE(rows.wants(key(2, "b")));
        EXPECT_TRUE(rows.wants({ControlField::number(3)}));
    });
    ask(registry, get_next(key(2, "a")));
    ControlRegistry exact;
    exact.add_table(SCHEMA, [](ControlRows &rows) {
        EXPECT_FALSE(rows.wants({ControlField::number(1)}));
        EXPECT_TRUE(rows.wants({ControlField::number(2)}));
        EXPECT_TRUE(rows.wants(key(2, "a")));
        EXPECT_FALSE(rows.wants({ControlField::number(3)}));
    });
    ask(exact, get(key(2, "a")));
}

TEST(Registry, ANumberThatIsTakenIsADefect)
{
    ControlRegistry registry;
    registry.add_table(SCHEMA, [](ControlRows &) {});
    EXPECT_THROW(registry.add_table(SCHEMA, [](ControlRows &) {}), std::logic_error);
    registry.add_command(1, [](const ControlFields &) { return ControlOutcome(); });
    EXPECT_THROW(registry.add_command(1, [](const ControlFields &) { return ControlOutcome(); }),
                 std::logic_error);
}

class SettingTest : public testing::Test
{
protected:
    SettingTest()
    {
        for (const char *name : {"one", "two"}) {
            registry.add_setting(SCHEMA, {name, FieldType::Number,
                                          [](const ControlFields &, const ControlField &value) {
                                              return value.as_number() > 9 ? "at most 9" : "";
                                          },
                                          [this, name](const ControlFields &at, const ControlField &value) {
                                              applied += std::string(name) + std::to_string(at.size()) +
                                                         std::to_string(value.as_number()) + " ";
                                          }});
        }
    }

    ControlReply set(const ControlFields &values, const ControlFields &at = {})
    {
        ControlRequest request = get_next(at);
        request.operation = ControlOperation::Set;
        request.values = values;
        return ask(registry, request);
    }

    ControlRegistry registry;
    std::string applied;
};

TEST_F(SettingTest, AllValuesOfARequestAreSet)
{
    EXPECT_EQ(set({ControlField::text("one"), ControlField::number(3), ControlField::text("two"),
                   ControlField::number(4)},
                  {ControlField::number(1)})
                  .status,
              ControlStatus::Done);
    EXPECT_EQ(applied, "one13 two14 ");
}

TEST_F(SettingTest, OneWrongValueKeepsAllFromBeingSetAndIsNamed)
{
    const ControlReply reply = set({ControlField::text("one"), ControlField::number(3),
                                    ControlField::text("two"), ControlField::number(10)});
    EXPECT_EQ(reply.status, ControlStatus::BadValue);
    EXPECT_EQ(reply.error_index, 1u);
    EXPECT_EQ(reply.message, "at most 9");
    EXPECT_EQ(applied, "");
}

TEST_F(SettingTest, WhatIsNoSettingIsRefused)
{
    EXPECT_EQ(set({}).status, ControlStatus::Malformed);
    EXPECT_EQ(set({ControlField::text("one")}).status, ControlStatus::Malformed);
    EXPECT_EQ(set({ControlField::text("three"), ControlField::number(1)}).status,
              ControlStatus::UnknownSetting);
    EXPECT_EQ(set({ControlField::number(1), ControlField::number(1)}).status, ControlStatus::UnknownSetting);
    EXPECT_EQ(set({ControlField::text("one"), ControlField::text("1")}).status, ControlStatus::BadValue);
    EXPECT_EQ(applied, "");
    EXPECT_EQ(ask(registry, get_next()).status, ControlStatus::UnknownTable) << "it cannot be read";
}

TEST(Registry, ACommandGetsItsArgumentsAndAnswers)
{
    ControlRegistry registry;
    registry.add_command(3, [](const ControlFields &arguments) {
        return ControlOutcome{ControlStatus::BadValue, 0, arguments.at(0).as_text() + "?"};
    });
    ControlRequest request;
    request.operation = ControlOperation::Command;
    request.table = 3;
    request.values = {ControlField::text("what")};
    const ControlReply reply = ask(registry, request);
    EXPECT_EQ(reply.status, ControlStatus::BadValue);
    EXPECT_EQ(reply.error_index, 0u);
    EXPECT_EQ(reply.message, "what?");
}

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
        for (int i = 0; i < 100; i++) {
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
    for (int i = 0; i < 50; i++) {
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
    for (size_t i = 0; i < ControlServer::CONNECTION_LIMIT; i++) {
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
        char path[] = "/tmp/mcastd-control-XXXXXX";
        directory_ = mkdtemp(path);
        setenv("MCAST_HOST_RUNTIME_DIR", directory_.c_str(), 1);
        log_open("test", LogLevel::Error);
    }
    ~ControlPortTest() override
    {
        unsetenv("MCAST_HOST_RUNTIME_DIR");
        std::filesystem::remove_all(directory_);
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

private:
    std::string directory_;
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

TEST_F(ControlPortTest, ASecondServerOnThePortIsRefused)
{
    ASSERT_TRUE(server.open(PORT));
    ControlServer second(reactor);
    log_open("test", static_cast<LogLevel>(-1)); // the error is expected
    EXPECT_FALSE(second.open(PORT));
}

TEST_F(ControlPortTest, WithoutDescriptorsClientsAreTurnedAwayAndServedAgainLater)
{
    ASSERT_TRUE(server.open(PORT));
    const int fd = connect_to_server();
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{static_cast<rlim_t>(fd + 1), before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    serve();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    char byte;
    EXPECT_EQ(recv(fd, &byte, 1, 0), 0) << "closed, not left waiting";
    close(fd);
    EXPECT_EQ(counter("control_connections_turned_away"), 1u);
    const int later = connect_to_server();
    serve();
    EXPECT_EQ(server.connections(), 1u);

    const int next = connect_to_server();
    const rlimit few{static_cast<rlim_t>(next + 1), before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    serve();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(recv(later, &byte, 1, 0), 0) << "who is silent gives way";
    EXPECT_EQ(server.connections(), 1u);
    EXPECT_EQ(counter("control_connections_displaced"), 1u);
    close(later);
    close(next);
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
