// What tests of local sockets begin with: a listener with one client, and where the sockets are.
#ifndef TESTS_HOST_LOCAL_SOCKET_SUPPORT_H
#define TESTS_HOST_LOCAL_SOCKET_SUPPORT_H

#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support.h"

namespace host_test
{

inline constexpr uint16_t PORT = 2182;

using LocalSocket = RuntimeDirTest;

struct Pair {
    int listener;
    int client;
    int server;
};

inline Pair make_pair_of_sockets()
{
    Pair pair{listen_local(PORT), local_socket(), -1};
    EXPECT_EQ(connect_local(pair.client, PORT), 0);
    pair.server = accept(pair.listener, nullptr, nullptr);
    return pair;
}

inline void close_pair(const Pair &pair)
{
    close(pair.listener);
    close(pair.client);
    close(pair.server);
}

// The folder below base that the sockets of this network namespace are in.
inline std::string runtime_dir(const std::string &base)
{
    struct stat status;
    stat("/proc/self/ns/net", &status);
    return base + "/net-" + std::to_string(status.st_ino);
}

} // namespace host_test

#endif
