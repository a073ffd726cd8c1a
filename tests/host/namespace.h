/*
 * Tests inside a network namespace of their own.
 */
#ifndef TESTS_HOST_NAMESPACE_H
#define TESTS_HOST_NAMESPACE_H

#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <linux/netlink.h>

namespace host_test
{

// Runs the body on a thread in a fresh network namespace, which ends with it. False when that is not
// permitted.
inline bool in_fresh_namespace(const std::function<void()> &body)
{
    bool permitted = false;
    std::thread([&] {
        permitted = unshare(CLONE_NEWNET) == 0;
        if (permitted) {
            body();
        }
    }).join();
    return permitted;
}

inline void shell(const std::string &command)
{
    EXPECT_EQ(system(command.c_str()), 0) << command;
}

// The process's netlink socket that belongs to a group, or -1.
inline int notification_socket()
{
    for (int fd = 3; fd < 1024; ++fd) {
        int family = 0;
        socklen_t length = sizeof(family);
        sockaddr_nl name{};
        socklen_t name_length = sizeof(name);
        if (getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &family, &length) == 0 && family == AF_NETLINK &&
            getsockname(fd, reinterpret_cast<sockaddr *>(&name), &name_length) == 0 && name.nl_groups != 0) {
            return fd;
        }
    }
    return -1;
}

} // namespace host_test

#define IN_FRESH_NAMESPACE(...)                                                                              \
    if (!host_test::in_fresh_namespace(__VA_ARGS__)) {                                                       \
        GTEST_SKIP() << "network namespaces may not be created here";                                        \
    }

#endif
