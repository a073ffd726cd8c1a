// The names of ports that vanish, connections that a listener may not have, and what a loop does about sockets that
// its handlers can do nothing about.
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <vector>

#include "local_socket_support.h"
#include "mcasthost/local_socket.h"
#include "mcasthost/loop.h"

namespace
{

using namespace host_test;

std::function<void(uint32_t, int)> g_handler;

uint64_t handle(uint32_t events, int32_t fd)
{
    g_handler(events, fd);
    return 0;
}

class LocalPorts : public RuntimeDirTest
{
protected:
    void SetUp() override
    {
        RuntimeDirTest::SetUp();
        loop_ = HOST_LoopCreate();
    }
    void TearDown() override
    {
        HOST_LoopDestroy(loop_);
        RuntimeDirTest::TearDown();
    }

    static HOST_LOCAL_SOCKET_TEND_S tend()
    {
        HOST_LOCAL_SOCKET_TEND_S found;
        HOST_LocalSocketTend(&found);
        return found;
    }

    // Serves what is ready; whether that came to an end.
    bool serve_all()
    {
        for (int i = 0; i < 1000; ++i) {
            if (HOST_LoopRunOnce(loop_, 0) <= 0) {
                return true;
            }
        }
        return false;
    }

    void serve_until(const std::function<bool()> &done)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!done() && std::chrono::steady_clock::now() < end) {
            HOST_LoopRunOnce(loop_, 100);
        }
        EXPECT_TRUE(done());
    }

    // A client that is let in, and its other end; -1 when it was not.
    static int let_in(int listener, std::vector<int> &clients)
    {
        clients.push_back(local_socket());
        EXPECT_EQ(connect_local(clients.back(), PORT), 0);
        return accept(listener, nullptr, nullptr);
    }

    int32_t loop_ = -1;
};

TEST_F(LocalPorts, NameThatVanishedIsMadeAgainAndTheLoopServesIt)
{
    const int listener = listen_local(PORT, 16, SOCK_NONBLOCK);
    int accepted = 0;
    g_handler = [&](uint32_t, int fd) {
        const int peer = accept(fd, nullptr, nullptr);
        accepted += peer >= 0 ? 1 : 0;
        close(peer);
    };
    ASSERT_EQ(HOST_LoopAdd(loop_, listener, EPOLLIN, handle), 0u);
    for (const std::string &path : {runtime_dir(base_) + "/2182", runtime_dir(base_), base_}) {
        std::filesystem::remove_all(path);
        const HOST_LOCAL_SOCKET_TEND_S found = tend();
        EXPECT_EQ(found.rebound, 1u) << path;
        EXPECT_EQ(found.lost, 0u) << path;
        EXPECT_NE(fcntl(listener, F_GETFL) & O_NONBLOCK, 0);
        EXPECT_NE(fcntl(listener, F_GETFD) & FD_CLOEXEC, 0);
        const int client = local_socket();
        EXPECT_EQ(connect_local(client, PORT), 0) << path;
        const int before = accepted;
        EXPECT_TRUE(serve_all());
        EXPECT_EQ(accepted, before + 1) << path;
        close(client);
        EXPECT_EQ(tend().rebound, 0u);
    }
    close(listener);
}

TEST_F(LocalPorts, ConnectionsOutliveTheName)
{
    const Pair pair = make_pair_of_sockets();
    ASSERT_EQ(rename(runtime_dir(base_).c_str(), (base_ + "/moved").c_str()), 0);
    EXPECT_EQ(tend().rebound, 1u);
    ASSERT_EQ(send(pair.client, "x", 1, 0), 1);
    char byte = 0;
    EXPECT_EQ(recv(pair.server, &byte, 1, MSG_DONTWAIT), 1);
    close_pair(pair);
}

TEST_F(LocalPorts, PortThatAnotherProcessTookIsNamed)
{
    const int listener = listen_local(PORT);
    std::filesystem::remove_all(base_);
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = fork();
    if (child == 0) {
        close(listener);
        const char result = listen_local(PORT) >= 0 ? 'y' : 'n';
        [[maybe_unused]] const ssize_t written = write(ready[1], &result, 1);
        pause();
    }
    char result = 0;
    ASSERT_EQ(read(ready[0], &result, 1), 1);
    ASSERT_EQ(result, 'y');
    HOST_LOCAL_SOCKET_TEND_S found = tend();
    EXPECT_EQ(found.rebound, 0u);
    EXPECT_EQ(found.lost, 1u);
    EXPECT_EQ(found.error, EADDRINUSE);
    EXPECT_EQ(found.lost_port, PORT);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(tend().rebound, 1u);
    for (const int fd : {listener, ready[0], ready[1]}) {
        close(fd);
    }
}

TEST_F(LocalPorts, WhatWasClosedIsForgotten)
{
    const int listener = listen_local(PORT);
    close(listener);
    const int other = local_socket(); // which has its number
    ASSERT_EQ(other, listener);
    std::filesystem::remove_all(base_);
    const HOST_LOCAL_SOCKET_TEND_S found = tend();
    EXPECT_EQ(found.rebound, 0u);
    EXPECT_EQ(found.lost, 0u);
    close(other);
}

TEST_F(LocalPorts, FolderThatCannotBeMadeIsAReasonAndTriedAgain)
{
    const int listener = listen_local(PORT);
    std::filesystem::remove_all(base_);
    ASSERT_EQ(mkdir(base_.c_str(), 0755), 0); // open to others
    HOST_LOCAL_SOCKET_TEND_S found = tend();
    EXPECT_EQ(found.lost, 1u);
    EXPECT_EQ(found.error, EACCES);
    ASSERT_EQ(chmod(base_.c_str(), 0700), 0);
    EXPECT_EQ(tend().rebound, 1u);
    close(listener);
}

TEST_F(LocalPorts, ConnectionsBeyondTheLimitAreClosedAndCounted)
{
    const int listener = listen_local(PORT, 16, SOCK_NONBLOCK);
    const uint64_t before = HOST_LocalSocketOverLimit();
    std::vector<int> clients;
    ASSERT_EQ(HOST_LocalSocketLimit(PORT, 2), 0u);
    const int first = let_in(listener, clients);
    const int second = let_in(listener, clients);
    EXPECT_GE(first, 0);
    EXPECT_GE(second, 0);
    EXPECT_EQ(let_in(listener, clients), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(HOST_LocalSocketOverLimit(), before + 1);
    close(first);
    const int next = let_in(listener, clients);
    EXPECT_GE(next, 0);
    ASSERT_EQ(HOST_LocalSocketLimit(PORT, 0), 0u);
    const int further = let_in(listener, clients);
    EXPECT_GE(further, 0);
    clients.insert(clients.end(), {listener, second, next, further});
    for (const int fd : clients) {
        close(fd);
    }
}

TEST_F(LocalPorts, PeerThatStoppedSendingIsHungUpOnAfterASecond)
{
    const Pair pair = make_pair_of_sockets();
    unsigned calls = 0;
    bool hung_up = false;
    std::string heard;
    g_handler = [&](uint32_t events, int fd) { // which waits for nothing but hang-up
        ++calls;
        hung_up = (events & EPOLLHUP) != 0;
        char byte = 0;
        if (!hung_up && recv(fd, &byte, 1, MSG_DONTWAIT) > 0) {
            heard += byte;
        }
        if (hung_up) {
            HOST_LoopRemove(loop_, fd);
        }
    };
    ASSERT_EQ(HOST_LoopAdd(loop_, pair.server, EPOLLIN, handle), 0u);
    for (const char *byte : {"a", "b", "c"}) {
        ASSERT_EQ(send(pair.client, byte, 1, 0), 1);
    }
    ASSERT_EQ(shutdown(pair.client, SHUT_WR), 0);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(serve_all());
    EXPECT_EQ(heard, "abc");
    EXPECT_FALSE(hung_up);
    serve_until([&] { return hung_up; });
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(900));
    EXPECT_LE(calls, 5u);
    close_pair(pair);
}

TEST_F(LocalPorts, ListenerWithoutADescriptorRestsUntilThereIsOne)
{
    const int listener = listen_local(PORT);
    const int client = local_socket();
    ASSERT_EQ(connect_local(client, PORT), 0);
    int accepted = -1;
    g_handler = [&](uint32_t, int fd) { accepted = accept(fd, nullptr, nullptr); };
    ASSERT_EQ(HOST_LoopAdd(loop_, listener, EPOLLIN, handle), 0u);
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const int filler = dup(client); // the lowest free number; those that are free now are beyond the limit
    ASSERT_GE(filler, 0);
    const rlimit none{static_cast<rlim_t>(filler) + 1, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_TRUE(serve_all());
    EXPECT_EQ(accepted, -1);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    serve_until([&] { return accepted >= 0; });
    for (const int fd : {accepted, client, filler, listener}) {
        close(fd);
    }
}

} // namespace
