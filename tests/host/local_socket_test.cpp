// Local sockets of family 37: what a client and a server see of each other, and who may come.
#include "mcasthost/local_socket.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/fsuid.h>
#include <sys/un.h>
#include <vector>

#include "local_socket_support.h"
#include "support/descriptors.h"

namespace
{

using namespace host_test;

using LocalSocket = RuntimeDirTest;

TEST_F(LocalSocket, KeepsMessageBoundariesAndOrder)
{
    Pair pair = make_pair_of_sockets();
    ASSERT_GE(pair.server, 0);
    for (size_t size : {size_t{1}, size_t{26}, size_t{71}, size_t{1400}, size_t{10240}}) {
        std::vector<char> message(size, static_cast<char>(size));
        EXPECT_EQ(send(pair.client, message.data(), size, MSG_DONTWAIT), static_cast<ssize_t>(size));
    }
    char buffer[16384];
    for (ssize_t size : {1, 26, 71, 1400, 10240}) {
        EXPECT_EQ(recv(pair.server, buffer, sizeof(buffer), 0), size);
        EXPECT_EQ(buffer[size - 1], static_cast<char>(size));
    }
    close_pair(pair);
}

TEST_F(LocalSocket, OneByteMakesTheReceiverReadable)
{
    Pair pair = make_pair_of_sockets();
    EXPECT_EQ(send(pair.client, "x", 1, 0), 1);
    pollfd wait{pair.server, POLLIN, 0};
    EXPECT_EQ(poll(&wait, 1, 0), 1);
    EXPECT_EQ(wait.revents, POLLIN);
    close_pair(pair);
}

TEST_F(LocalSocket, DescriptorsAreNotInheritedByPrograms)
{
    Pair pair = make_pair_of_sockets();
    for (int fd : {pair.listener, pair.client, pair.server}) {
        EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
    }
    close_pair(pair);
}

TEST_F(LocalSocket, TypeAndProtocolAreChecked)
{
    EXPECT_EQ(socket(LOCAL_SOCKET_FAMILY, SOCK_STREAM, 1), -1);
    EXPECT_EQ(errno, ESOCKTNOSUPPORT);
    EXPECT_EQ(socket(LOCAL_SOCKET_FAMILY, SOCK_DGRAM, 2), -1);
    EXPECT_EQ(errno, EPROTONOSUPPORT);
    int fd = local_socket(SOCK_NONBLOCK);
    ASSERT_GE(fd, 0);
    EXPECT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    close(fd);
}

TEST_F(LocalSocket, RefusedWhenNobodyListens)
{
    int client = local_socket();
    EXPECT_EQ(connect_local(client, PORT), -1); // no directory yet
    EXPECT_EQ(errno, ECONNREFUSED);

    int other = listen_local(PORT + 1);
    EXPECT_EQ(connect_local(client, PORT), -1); // no file
    EXPECT_EQ(errno, ECONNREFUSED);

    int bound = local_socket();
    ASSERT_EQ(bind_local(bound, PORT), 0);
    EXPECT_EQ(connect_local(client, PORT), -1); // bound, not listening
    EXPECT_EQ(errno, ECONNREFUSED);

    close(bound);
    EXPECT_EQ(connect_local(client, PORT), -1); // a file that nobody holds
    EXPECT_EQ(errno, ECONNREFUSED);

    int listener = listen_local(PORT);
    EXPECT_EQ(connect_local(client, PORT), 0); // the same socket may try again
    EXPECT_EQ(connect_local(client, PORT), -1);
    EXPECT_EQ(errno, EISCONN);
    close(listener);
    close(client);
    close(other);
}

TEST_F(LocalSocket, SendMeetsEagainWhenThePeerDoesNotReadAndGoesOnWhenItDoes)
{
    Pair pair = make_pair_of_sockets();
    std::vector<char> message(10240, 'm');
    int sent = 0;
    ssize_t result;
    while ((result = send(pair.client, message.data(), message.size(), MSG_DONTWAIT)) > 0 && sent < 100000) {
        ASSERT_EQ(result, 10240);
        ++sent;
    }
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GE(sent, 8);
    for (int i = 0; i < sent; ++i) {
        ASSERT_EQ(recv(pair.server, message.data(), message.size(), MSG_DONTWAIT), 10240);
    }
    EXPECT_EQ(recv(pair.server, message.data(), message.size(), MSG_DONTWAIT), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(send(pair.client, message.data(), message.size(), MSG_DONTWAIT), 10240);
    close_pair(pair);
}

TEST_F(LocalSocket, CloseGivesEndOfFileAndHangUpBehindWhatWasSent)
{
    Pair pair = make_pair_of_sockets();
    EXPECT_EQ(send(pair.client, "bye", 3, 0), 3);
    close(pair.client);
    pollfd wait{pair.server, POLLIN, 0};
    EXPECT_EQ(poll(&wait, 1, 0), 1);
    EXPECT_NE(wait.revents & POLLHUP, 0);
    char buffer[8];
    EXPECT_EQ(recv(pair.server, buffer, sizeof(buffer), 0), 3);
    EXPECT_EQ(recv(pair.server, buffer, sizeof(buffer), 0), 0);
    EXPECT_EQ(send(pair.server, "x", 1, MSG_NOSIGNAL), -1);
    EXPECT_EQ(errno, EPIPE);
    pair.client = -1;
    close_pair(pair);
}

// The connection of a process of another user that somehow got past the directory.
int connect_as_another_user(const std::string &base)
{
    int intruder = local_socket();
    EXPECT_EQ(seteuid(65534), 0);
    setfsuid(0);
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    snprintf(name.sun_path, sizeof(name.sun_path), "%s/2182", runtime_dir(base).c_str());
    int connected = connect(intruder, reinterpret_cast<sockaddr *>(&name), sizeof(name));
    EXPECT_EQ(seteuid(0), 0);
    setfsuid(0);
    EXPECT_EQ(connected, 0);
    return intruder;
}

TEST_F(LocalSocket, PeerOfAnotherUserNeverMakesAListenerThatBlocksWait)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "another user can be played by root only";
    }
    const uint64_t refused = HOST_LocalSocketRefusedPeers();
    int listener = listen_local(PORT, 16, 0);
    int intruders[] = {connect_as_another_user(base_), connect_as_another_user(base_)};
    alarm(20); // the end of a test that hangs
    EXPECT_EQ(accept(listener, nullptr, nullptr), -1);
    EXPECT_EQ(errno, ECONNABORTED);
    EXPECT_EQ(HOST_LocalSocketRefusedPeers(), refused + 2);
    int intruder = connect_as_another_user(base_);
    int friendly = local_socket();
    EXPECT_EQ(connect_local(friendly, PORT), 0);
    int server = accept(listener, nullptr, nullptr);
    alarm(0);
    EXPECT_GE(server, 0);
    for (int fd : {listener, intruders[0], intruders[1], intruder, friendly, server}) {
        close(fd);
    }
}

TEST_F(LocalSocket, PeerOfAnotherUserIsClosedAndTheNextOneServed)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "another user can be played by root only";
    }
    int listener = listen_local(PORT, 16, SOCK_NONBLOCK);
    int intruder = connect_as_another_user(base_);
    EXPECT_EQ(accept(listener, nullptr, nullptr), -1);
    EXPECT_EQ(errno, EAGAIN);
    char byte;
    EXPECT_LE(recv(intruder, &byte, 1, MSG_DONTWAIT), 0);
    pollfd wait{intruder, POLLIN, 0};
    EXPECT_EQ(poll(&wait, 1, 0), 1);
    EXPECT_NE(wait.revents & POLLHUP, 0);

    int friendly = local_socket();
    EXPECT_EQ(connect_local(friendly, PORT), 0);
    int server = accept(listener, nullptr, nullptr);
    EXPECT_GE(server, 0);
    for (int fd : {listener, intruder, friendly, server}) {
        close(fd);
    }
}

TEST_F(LocalSocket, AcceptTellsAnAddressOfTheFamily)
{
    int listener = listen_local(PORT);
    int client = local_socket();
    ASSERT_EQ(connect_local(client, PORT), 0);
    unsigned char bytes[32];
    memset(bytes, 0xee, sizeof(bytes));
    socklen_t length = sizeof(bytes);
    int server = accept4(listener, reinterpret_cast<sockaddr *>(bytes), &length, SOCK_NONBLOCK);
    ASSERT_GE(server, 0);
    EXPECT_EQ(length, 16u);
    EXPECT_EQ(bytes[1], LOCAL_SOCKET_FAMILY);
    EXPECT_EQ(bytes[4], 0x80);
    EXPECT_EQ(bytes[16], 0xee);
    EXPECT_NE(fcntl(server, F_GETFL) & O_NONBLOCK, 0);
    for (int fd : {listener, client, server}) {
        close(fd);
    }
}

TEST_F(LocalSocket, FamilyOptionsAreAcceptedWithTheirLengthsOnly)
{
    int fd = local_socket();
    uint32_t value[2] = {1, 0};
    EXPECT_EQ(setsockopt(fd, SOL_SOCKET, LOCAL_SOCKET_OPTION_LINGER, value, 8), 0);
    EXPECT_EQ(setsockopt(fd, SOL_SOCKET, 0x200, value, 4), 0);
    EXPECT_EQ(setsockopt(fd, SOL_SOCKET, LOCAL_SOCKET_OPTION_LINGER, value, 4), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(setsockopt(fd, SOL_SOCKET, 0x200, value, 8), -1);
    EXPECT_EQ(errno, EINVAL);
    const void *none = nullptr;
    EXPECT_EQ(setsockopt(fd, SOL_SOCKET, 0x200, none, 4), -1);
    EXPECT_EQ(errno, EFAULT);
    int size = 65536;
    EXPECT_EQ(setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size)), 0); // the kernel's own still work
    close(fd);
}

TEST_F(LocalSocket, BadAddressesAreRefused)
{
    int fd = local_socket();
    LOCAL_SOCKET_ADDR_S address = local_address(PORT);
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), 8), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr *>(&address), 8), -1);
    EXPECT_EQ(errno, EINVAL);
    address.node = 3;
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)), -1);
    EXPECT_EQ(errno, EADDRNOTAVAIL);
    EXPECT_EQ(bind_local(fd, 0), -1);
    EXPECT_EQ(errno, EADDRNOTAVAIL);
    EXPECT_EQ(bind_local(-1, PORT), -1);
    EXPECT_EQ(errno, EBADF);
    close(fd);
}

TEST_F(LocalSocket, FailedCallsLeakNoDescriptor)
{
    int first = listen_local(PORT);
    int second = local_socket();
    int before = OpenDescriptors();
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(bind_local(second, PORT), -1);
        EXPECT_EQ(connect_local(second, PORT + 1), -1);
    }
    EXPECT_EQ(OpenDescriptors(), before);
    close(first);
    close(second);
}

TEST_F(LocalSocket, OtherFamiliesAreLeftToTheKernel)
{
    int listener = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(fcntl(listener, F_GETFD) & FD_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    ASSERT_EQ(listen(listener, 1), 0);
    socklen_t length = sizeof(address);
    ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length), 0);
    int client = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(connect(client, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    sockaddr_in peer{};
    length = sizeof(peer);
    int server = accept(listener, reinterpret_cast<sockaddr *>(&peer), &length);
    ASSERT_GE(server, 0);
    EXPECT_EQ(peer.sin_family, AF_INET);
    EXPECT_EQ(fcntl(server, F_GETFD) & FD_CLOEXEC, 0);
    uint32_t value[2] = {1, 0};
    EXPECT_EQ(setsockopt(server, SOL_SOCKET, LOCAL_SOCKET_OPTION_LINGER, value, 8), -1);
    EXPECT_EQ(errno, ENOPROTOOPT);
    for (int fd : {listener, client, server}) {
        close(fd);
    }
    int mine[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, mine), 0); // of the same kind, but not a local socket
    EXPECT_EQ(setsockopt(mine[0], SOL_SOCKET, LOCAL_SOCKET_OPTION_LINGER, value, 8), -1);
    EXPECT_EQ(errno, ENOPROTOOPT);
    close(mine[0]);
    close(mine[1]);
}

} // namespace
