/*
 * The agent against a listening socket that plays the daemon, in a runtime directory of its own.
 */
#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "daemons/uagent/watch.h"
#include "platform/local_socket.h"
#include "tests/daemons/runtime_folder.h"

using namespace uagent;

namespace
{

constexpr size_t READ_MAX = 1400;
constexpr uint16_t PORT_IPV4 = 2195;
constexpr uint16_t PORT_IPV6 = 2192;
const std::string USER = "id=7 node=3 kind=1";

class Daemon
{
public:
    explicit Daemon(uint16_t port)
    {
        LOCAL_SOCKET_ADDR_S address{};
        address.family = LOCAL_SOCKET_FAMILY;
        address.port_be = htons(port);
        address.node = LOCAL_SOCKET_NODE;
        listener_ = socket(LOCAL_SOCKET_FAMILY, SOCK_DGRAM, LOCAL_SOCKET_PROTOCOL);
        EXPECT_EQ(bind(listener_, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
        EXPECT_EQ(listen(listener_, 8), 0);
    }
    ~Daemon()
    {
        close(listener_);
    }
    int accept_one()
    {
        return accept(listener_, nullptr, nullptr);
    }

    // The sizes of the packets of one connection, read until the agent is gone; all messages in them.
    std::vector<size_t> read_all(std::vector<uint16_t> *types)
    {
        const int fd = accept_one();
        std::vector<size_t> sizes;
        uint8_t packet[65536];
        ssize_t size;
        while ((size = recv(fd, packet, sizeof(packet), 0)) > 0) {
            sizes.push_back(static_cast<size_t>(size));
            for (ssize_t at = 0; at + 4 <= size; at += 4 + packet[at + 2] * 256 + packet[at + 3]) {
                types->push_back(packet[at + 1]);
            }
        }
        close(fd);
        return sizes;
    }

private:
    int listener_;
};

class UagentAgent : public testing::Test
{
protected:
    UagentAgent()
    {
        out = open_memstream(&printed, &printed_size);
        settings.timeout_s = 1;
    }
    ~UagentAgent() override
    {
        fclose(out);
        free(printed);
    }
    std::string file(const std::string &text) const
    {
        const std::string path = folder.path() + "/commands";
        std::ofstream(path) << text;
        return path;
    }
    std::string text()
    {
        fflush(out);
        return std::string(printed, printed_size);
    }
    bool run(const std::string &line)
    {
        Agent agent(settings, out);
        return agent.run_words(split_words(line), &error);
    }
    bool run_file(const std::string &lines)
    {
        Agent agent(settings, out);
        return agent.run_file(file(lines), &error);
    }

    // The exit code of uagent --watch with this input.
    int watch(int input)
    {
        mcastd::Options options("uagent", "the agent", mcastd::Options::Kind::Command);
        char name[] = "uagent";
        char *argv[] = {name, nullptr};
        EXPECT_FALSE(options.parse(1, argv));
        return mcastd::run_in_frame<Watch>(options, settings, input, std::string("pipe"), out);
    }

    RuntimeFolder folder;
    char *printed = nullptr;
    size_t printed_size = 0;
    FILE *out = nullptr;
    Settings settings;
    std::string error;
};

} // namespace

TEST_F(UagentAgent, ACommandGoesToThePortOfItsFamily)
{
    for (const uint16_t family : {uint16_t{MCAST_FAMILY_IPV4}, uint16_t{MCAST_FAMILY_IPV6}}) {
        Daemon daemon(family == MCAST_FAMILY_IPV4 ? PORT_IPV4 : PORT_IPV6);
        std::vector<uint16_t> types;
        std::thread reader([&] { daemon.read_all(&types); });
        settings.family = family;
        EXPECT_TRUE(run("withdraw " + USER)) << error;
        reader.join();
        EXPECT_EQ(types, std::vector<uint16_t>{1});
    }
    EXPECT_EQ(text(), "withdraw user 7 node 3 kind 1\nwithdraw user 7 node 3 kind 1\n");
}

TEST_F(UagentAgent, SmallMessagesShareAPacketAndNoPacketPassesOneRead)
{
    Daemon daemon(PORT_IPV4);
    std::vector<uint16_t> types;
    std::vector<size_t> sizes;
    std::string lines = "# three hundred users\n";
    for (int i = 0; i < 300; ++i) {
        lines += "announce id=" + std::to_string(i) +
                 " node=3 kind=1 interface=lo address=10.2.0.2 group=239.1.1.1\n";
    }
    std::thread reader([&] { sizes = daemon.read_all(&types); });
    EXPECT_TRUE(run_file(lines)) << error;
    reader.join();
    EXPECT_EQ(types.size(), 900u);
    EXPECT_EQ(types[0], 0);
    EXPECT_EQ(types[1], 3);
    EXPECT_EQ(types[2], 4);
    EXPECT_LT(sizes.size(), 50u) << "fifteen bytes a message would be wasted on packets of one message";
    for (const size_t size : sizes) {
        EXPECT_LE(size, READ_MAX);
    }
}

TEST_F(UagentAgent, NothingIsSentOfAFileWithAWrongLine)
{
    Daemon daemon(PORT_IPV4);
    EXPECT_FALSE(run_file("withdraw " + USER + "\n\nwithdraw id=7 node=3 kind=9\n"));
    EXPECT_EQ(error, folder.path() + "/commands:3: withdraw: kind=9: no number from 1 to 4");
    EXPECT_EQ(text(), "");
}

TEST_F(UagentAgent, AMissingFileAndAMissingDaemonAreNamed)
{
    Agent agent(settings, out);
    EXPECT_FALSE(agent.run_file("/nowhere/at/all", &error));
    EXPECT_EQ(error, "/nowhere/at/all: No such file or directory");
    EXPECT_FALSE(run("withdraw " + USER));
    EXPECT_EQ(error,
              "cannot connect to the user authentication: Connection refused: is gmpd running for ipv4 "
              "with --user-auth?");
}

TEST_F(UagentAgent, ADryRunNeedsNoDaemon)
{
    settings.dry_run = true;
    settings.json = true;
    EXPECT_TRUE(run("refresh-begin node=3 kind=1")) << error;
    EXPECT_EQ(text(), "{\"message\": \"refresh begin\", \"node\": 3, \"kind\": 1}\n");
}

TEST_F(UagentAgent, TheEndWaitsUntilTheDaemonHasReadEverything)
{
    Daemon daemon(PORT_IPV4);
    std::thread sender([&] { EXPECT_TRUE(run("withdraw " + USER)) << error; });
    const int fd = daemon.accept_one();
    pollfd state{fd, POLLIN, 0};
    ASSERT_EQ(poll(&state, 1, -1), 1);
    EXPECT_EQ(state.revents & POLLHUP, 0) << "a hang-up would have the daemon drop the message";
    char packet[READ_MAX];
    EXPECT_EQ(recv(fd, packet, sizeof(packet), 0), 92);
    sender.join();
    close(fd);
}

TEST_F(UagentAgent, ADaemonThatDoesNotReadIsReported)
{
    Daemon daemon(PORT_IPV4);
    std::thread sender([&] { EXPECT_FALSE(run("withdraw " + USER)); });
    const int fd = daemon.accept_one();
    sender.join();
    EXPECT_EQ(error, "the daemon does not read") << "but the socket took everything";
    close(fd);
}

TEST_F(UagentAgent, WhatADaemonThatDoesNotReadLeavesWaitingIsTold)
{
    Daemon daemon(PORT_IPV4);
    std::string lines;
    for (int i = 0; i < 30000; ++i) {
        lines += "withdraw " + USER + "\n";
    }
    std::thread sender([&] { EXPECT_FALSE(run_file(lines)); });
    const int fd = daemon.accept_one();
    sender.join();
    unsigned waiting = 0;
    EXPECT_EQ(sscanf(error.c_str(), "the daemon does not read what was sent to it, %u bytes wait", &waiting),
              1)
        << error;
    EXPECT_GT(waiting, 92u) << "more than one message";
    close(fd);
}

TEST_F(UagentAgent, WhatTheSocketDoesNotTakeWaitsAndArrivesInOrder)
{
    Daemon daemon(PORT_IPV4);
    std::vector<uint16_t> types;
    std::string lines;
    settings.timeout_s = 60;
    for (int i = 0; i < 30000; ++i) {
        lines += i % 3 == 0 ? "withdraw " + USER + "\n" : "refresh-begin node=3 kind=1\n";
    }
    bool sent = false;
    std::thread sender([&] { sent = run_file(lines); });
    std::thread reader([&] { daemon.read_all(&types); });
    sender.join();
    reader.join();
    EXPECT_TRUE(sent) << error;
    ASSERT_EQ(types.size(), 30000u);
    for (size_t i = 0; i < types.size(); ++i) {
        ASSERT_EQ(types[i], i % 3 == 0 ? 1 : 5) << i;
    }
}

TEST_F(UagentAgent, ADaemonThatClosesIsReported)
{
    Daemon daemon(PORT_IPV4);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::thread closer([&] { close(daemon.accept_one()); });
    testing::internal::CaptureStderr();
    EXPECT_EQ(watch(ends[0]), EXIT_FAILURE);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "uagent: error: the daemon closed the connection\n");
    closer.join();
    close(ends[0]);
    close(ends[1]);
}

TEST_F(UagentAgent, WatchSendsEachLineAtOnceAndPassesOverWrongOnes)
{
    Daemon daemon(PORT_IPV4);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    testing::internal::CaptureStderr();
    int code = EXIT_SUCCESS;
    std::thread watcher([&] { code = watch(ends[0]); });
    const int fd = daemon.accept_one();
    char packet[READ_MAX];
    const auto write_text = [&](const std::string &line) {
        EXPECT_EQ(write(ends[1], line.data(), line.size()), static_cast<ssize_t>(line.size()));
    };
    write_text("withdraw " + USER + "\nrefresh-be");
    EXPECT_EQ(recv(fd, packet, sizeof(packet), 0), 92);
    write_text("gin node=3 kind=1\n\nnonsense\nrefresh-end node=3 kind=1");
    EXPECT_EQ(recv(fd, packet, sizeof(packet), 0), 12);
    close(ends[1]);
    EXPECT_EQ(recv(fd, packet, sizeof(packet), 0), 12) << "the last line needs no newline";
    watcher.join();
    EXPECT_EQ(code, EXIT_FAILURE);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "uagent: error: pipe:4: nonsense: no command of that name\n"
              "uagent: error: some lines were invalid\n");
    EXPECT_EQ(text(),
              "withdraw user 7 node 3 kind 1\nrefresh begin node 3 kind 1\nrefresh end node 3 kind 1\n");
    close(fd);
    close(ends[0]);
}

TEST_F(UagentAgent, WatchTakesAFileToItsEnd)
{
    Daemon daemon(PORT_IPV4);
    std::vector<uint16_t> types;
    std::thread reader([&] { daemon.read_all(&types); });
    const int input = open(file("withdraw " + USER + "\nrefresh-begin node=3 kind=1").c_str(), O_RDONLY);
    EXPECT_EQ(watch(input), EXIT_SUCCESS);
    reader.join();
    EXPECT_EQ(types.size(), 2u);
    close(input);
}

TEST_F(UagentAgent, WithReconnectTheNextDaemonIsToldEverythingAgain)
{
    Daemon daemon(PORT_IPV4);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    settings.reconnect = true;
    int code = EXIT_FAILURE;
    std::thread watcher([&] { code = watch(ends[0]); });
    const std::string lines = "announce " + USER + " interface=0x7 address=10.2.0.2 group=239.1.1.1\n" +
                              "announce id=8 node=3 kind=1 interface=0x7 address=10.2.0.3\n";
    EXPECT_EQ(write(ends[1], lines.data(), lines.size()), static_cast<ssize_t>(lines.size()));
    int fd = daemon.accept_one();
    uint8_t first[READ_MAX];
    uint8_t again[READ_MAX];
    const ssize_t size = recv(fd, first, sizeof(first), 0);
    EXPECT_GT(size, 2 * 88);
    for (int i = 0; i < 3; ++i) {
        close(fd);
        fd = daemon.accept_one();
        ASSERT_EQ(recv(fd, again, sizeof(again), 0), size);
        EXPECT_EQ(memcmp(first, again, static_cast<size_t>(size)), 0);
    }
    const std::string last = "withdraw " + USER + "\n";
    EXPECT_EQ(write(ends[1], last.data(), last.size()), static_cast<ssize_t>(last.size()));
    EXPECT_EQ(recv(fd, again, sizeof(again), 0), 92) << "and then goes on";
    close(ends[1]);
    watcher.join();
    EXPECT_EQ(code, EXIT_SUCCESS);
    close(fd);
    close(ends[0]);
}
