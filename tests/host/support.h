/*
 * What the tests of the host platform share.
 */
#ifndef TESTS_HOST_SUPPORT_H
#define TESTS_HOST_SUPPORT_H

#include <arpa/inet.h>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/local_socket.h"

namespace host_test
{

// Runs the body in a child process. Its exit status, or -1 when a signal ended it.
inline int in_child(const std::function<int()> &body)
{
    pid_t child = fork();
    if (child == 0) {
        _exit(body());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A fresh runtime directory for local sockets, removed at the end.
class RuntimeDirTest : public testing::Test
{
protected:
    void SetUp() override
    {
        char name[] = "/tmp/mcasthost-test-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        base_ = name;
        setenv("MCAST_HOST_RUNTIME_DIR", name, 1);
    }
    void TearDown() override
    {
        unsetenv("MCAST_HOST_RUNTIME_DIR");
        EXPECT_EQ(system(("rm -rf " + base_).c_str()), 0);
    }
    std::string base_;
};

inline LOCAL_SOCKET_ADDR_S local_address(uint16_t port)
{
    LOCAL_SOCKET_ADDR_S address{};
    address.family = LOCAL_SOCKET_FAMILY;
    address.port_be = htons(port);
    address.node = LOCAL_SOCKET_NODE;
    return address;
}

inline int local_socket(int flags = 0)
{
    return socket(LOCAL_SOCKET_FAMILY, SOCK_DGRAM | flags, LOCAL_SOCKET_PROTOCOL);
}

inline int bind_local(int fd, uint16_t port)
{
    LOCAL_SOCKET_ADDR_S address = local_address(port);
    return bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address));
}

inline int connect_local(int fd, uint16_t port)
{
    LOCAL_SOCKET_ADDR_S address = local_address(port);
    return connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address));
}

inline int listen_local(uint16_t port, int backlog = 16, int flags = 0)
{
    int fd = local_socket(flags);
    return bind_local(fd, port) == 0 && listen(fd, backlog) == 0 ? fd : -1;
}

} // namespace host_test

#endif
