/*
 * "watch" from its first connection to its end, in a child process for the signal that ends it; this process plays
 * mribd, with a channel for each family.
 */
#include <csignal>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "daemons/common/descriptor.h"
#include "daemons/common/local_listener.h"
#include "daemons/common/services.h"
#include "daemons/mcastctl/command.h"
#include "mcast/argument_check.h"
#include "mcast/mrib_message.h"
#include "mcast/mrib_wire.h"
#include "tests/daemons/runtime_folder.h"

using mcastd::Descriptor;

namespace
{

// What "there will be something to read" waits for at most; nothing depends on how much less it takes.
constexpr int PATIENCE_MS = 60000;

bool readable(int fd, int timeout_ms = PATIENCE_MS)
{
    pollfd waiting{fd, POLLIN, 0};
    return poll(&waiting, 1, timeout_ms) == 1;
}

class Watching : public testing::Test
{
protected:
    Watching()
    {
    }
    ~Watching() override
    {
        if (child_ > 0) {
            kill(child_, SIGKILL);
            waitpid(child_, nullptr, 0);
        }
    }

    void start(std::vector<const char *> words)
    {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        fflush(nullptr); // or the child would print it as well
        child_ = fork();
        if (child_ == 0) {
            dup2(ends[1], STDOUT_FILENO);
            words.insert(words.begin(), "mcastctl");
            _exit(MC_CommonRcInit() == MCAST_OK
                      ? mcastctl::run_command_line(static_cast<int>(words.size()), words.data())
                      : -1);
        }
        close(ends[1]);
        output_ = Descriptor(ends[0]);
    }
    // What it has printed when it has printed so many lines, or has ended.
    std::string lines(size_t count)
    {
        std::string text;
        char byte;
        while (count > 0 && readable(output_.get()) && read(output_.get(), &byte, 1) == 1) {
            text += byte;
            count -= byte == '\n' ? 1 : 0;
        }
        return text;
    }
    int end()
    {
        int status = -1;
        kill(child_, SIGTERM);
        EXPECT_EQ(waitpid(std::exchange(child_, -1), &status, 0) > 0, true);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    // Its connection, once it has registered.
    static Descriptor registered(int listener)
    {
        char message[MRIB_MSG_RECV_MAX];
        EXPECT_TRUE(readable(listener));
        Descriptor connection(accept(listener, nullptr, nullptr));
        EXPECT_TRUE(readable(connection.get()));
        EXPECT_GT(recv(connection.get(), message, sizeof(message), 0), 0);
        return connection;
    }
    static void say_instance(const Descriptor &connection, uint16_t vrf_index)
    {
        std::vector<uint8_t> message(MRIB_MSG_RECV_MAX);
        MRIB_VRF_STATE_S value{};
        uint32_t used = MRIB_MsgReset(message.data(), mcastd::COMPONENT_MRIBD);
        value.vrf_index = vrf_index;
        value.state = 1;
        memcpy(MRIB_MsgAppend(message.data(), &used, message.size(), MRIB_TLV_VRF_STATE, sizeof(value)),
               &value, sizeof(value));
        EXPECT_EQ(send(connection.get(), message.data(), used, 0), static_cast<ssize_t>(used));
    }

private:
    RuntimeFolder folder_;
    Descriptor output_;
    pid_t child_ = -1;
};

TEST_F(Watching, BothFamiliesAreHeardUntilASignal)
{
    const Descriptor ipv4(mcastd::listen_local(MRIB_PORT_IPV4));
    const Descriptor ipv6(mcastd::listen_local(MRIB_PORT_IPV6));
    start({"watch", "instances"});
    const Descriptor first = registered(ipv4.get());
    Descriptor second = registered(ipv6.get());
    say_instance(first, 5);
    EXPECT_EQ(lines(1), "ipv4: instance 5: enabled\n");
    say_instance(second, 6);
    EXPECT_EQ(lines(1), "ipv6: instance 6: enabled\n");
    second = Descriptor();
    EXPECT_EQ(lines(1), "ipv6: mribd is gone\n");
    EXPECT_EQ(end(), mcastctl::EXIT_DONE);
}

TEST_F(Watching, OneFamilyIsHeardAlone)
{
    const Descriptor ipv4(mcastd::listen_local(MRIB_PORT_IPV4));
    const Descriptor ipv6(mcastd::listen_local(MRIB_PORT_IPV6));
    start({"watch", "--family", "ipv6"});
    const Descriptor connection = registered(ipv6.get());
    EXPECT_FALSE(readable(ipv4.get(), 0));
    EXPECT_EQ(end(), mcastctl::EXIT_DONE);
}

} // namespace
