// Listeners on local sockets of family 37: one a port, in a directory of their own, whatever the one before
// left.
#include <algorithm>
#include <array>
#include <barrier>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <vector>

#include "local_socket_support.h"

namespace
{

using namespace host_test;

using LocalListener = RuntimeDirTest;

TEST_F(LocalListener, FullBacklogGivesEagainToANonBlockingClient)
{
    int listener = listen_local(PORT, 1);
    std::vector<int> clients;
    int result = 0;
    while (result == 0 && clients.size() < 64) {
        clients.push_back(local_socket(SOCK_NONBLOCK));
        result = connect_local(clients.back(), PORT);
    }
    EXPECT_EQ(result, -1);
    EXPECT_EQ(errno, EAGAIN);
    close(accept(listener, nullptr, nullptr));
    EXPECT_EQ(connect_local(clients.back(), PORT), 0);
    for (int fd : clients) {
        close(fd);
    }
    close(listener);
}

TEST_F(LocalListener, SecondListenerFailsAndTheFirstKeepsServingWithoutASpuriousClient)
{
    int first = listen_local(PORT, 16, SOCK_NONBLOCK);
    ASSERT_GE(first, 0);
    int second = local_socket();
    EXPECT_EQ(bind_local(second, PORT), -1);
    EXPECT_EQ(errno, EADDRINUSE);
    EXPECT_EQ(accept(first, nullptr, nullptr), -1);
    EXPECT_EQ(errno, EAGAIN);
    int client = local_socket();
    EXPECT_EQ(connect_local(client, PORT), 0);
    int server = accept(first, nullptr, nullptr);
    EXPECT_GE(server, 0);
    for (int fd : {first, second, client, server}) {
        close(fd);
    }
}

TEST_F(LocalListener, PortIsTakenFromBindOn)
{
    int first = local_socket();
    ASSERT_EQ(bind_local(first, PORT), 0);
    int second = local_socket();
    EXPECT_EQ(bind_local(second, PORT), -1);
    EXPECT_EQ(errno, EADDRINUSE);
    EXPECT_EQ(listen(first, 4), 0);
    close(first);
    close(second);
}

TEST_F(LocalListener, PortStaysTakenAsLongAsADuplicateOfTheListenerIsOpen)
{
    int first = listen_local(PORT);
    int copy = dup(first);
    close(first);
    int second = local_socket();
    EXPECT_EQ(bind_local(second, PORT), -1);
    EXPECT_EQ(errno, EADDRINUSE);
    int client = local_socket();
    EXPECT_EQ(connect_local(client, PORT), 0);
    int server = accept(copy, nullptr, nullptr); // the copy is known as a local socket
    EXPECT_GE(server, 0);
    EXPECT_NE(fcntl(server, F_GETFD) & FD_CLOEXEC, 0);
    close(copy);
    EXPECT_EQ(bind_local(second, PORT), 0);
    for (int fd : {second, client, server}) {
        close(fd);
    }
}

TEST_F(LocalListener, ListenerReopensInTheSameProcess)
{
    for (int i = 0; i < 3; ++i) {
        int listener = listen_local(PORT);
        ASSERT_GE(listener, 0) << i;
        close(listener);
    }
}

TEST_F(LocalListener, KilledListenerNeverBlocksARestart)
{
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    pid_t child = fork();
    if (child == 0) {
        char result = static_cast<char>(listen_local(PORT) >= 0 ? 'y' : 'n');
        [[maybe_unused]] ssize_t written = write(ready[1], &result, 1);
        pause();
    }
    char result = 0;
    ASSERT_EQ(read(ready[0], &result, 1), 1);
    EXPECT_EQ(result, 'y');
    int next = local_socket();
    EXPECT_EQ(bind_local(next, PORT), -1);
    EXPECT_EQ(errno, EADDRINUSE);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(access((runtime_dir(base_) + "/2182").c_str(), F_OK), 0); // the dead name is still there
    EXPECT_EQ(bind_local(next, PORT), 0);
    EXPECT_EQ(listen(next, 4), 0);
    int client = local_socket();
    EXPECT_EQ(connect_local(client, PORT), 0);
    for (int fd : {next, client, ready[0], ready[1]}) {
        close(fd);
    }
}

TEST_F(LocalListener, OfManyListenersStartingTogetherOnADeadNameExactlyOneGetsThePort)
{
    constexpr int LISTENERS = 4;
    constexpr int ROUNDS = 300;
    std::array<int, LISTENERS> sockets;
    std::array<int, LISTENERS> errors;
    std::barrier gate(LISTENERS + 1);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < LISTENERS; ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < ROUNDS; ++round) {
                gate.arrive_and_wait();
                sockets[i] = local_socket();
                errors[i] = bind_local(sockets[i], PORT) == 0 ? 0 : errno;
                gate.arrive_and_wait();
            }
        });
    }
    int wrong_rounds = 0;
    for (int round = 0; round < ROUNDS; ++round) {
        gate.arrive_and_wait();
        gate.arrive_and_wait();
        bool right = std::count(errors.begin(), errors.end(), 0) == 1 &&
                     std::count(errors.begin(), errors.end(), EADDRINUSE) == LISTENERS - 1;
        wrong_rounds += right ? 0 : 1;
        for (int fd : sockets) {
            close(fd); // which leaves the dead name for the next round
        }
    }
    EXPECT_EQ(wrong_rounds, 0);
    for (std::thread &thread : threads) {
        thread.join();
    }
}

TEST_F(LocalListener, ALinkWithThePortsNameDoesNotStandInItsWay)
{
    close(listen_local(PORT));
    const std::string name = runtime_dir(base_) + "/2182";
    for (const char *target : {"/nowhere", "lock"}) {
        unlink(name.c_str());
        ASSERT_EQ(symlink(target, name.c_str()), 0);
        int listener = listen_local(PORT);
        EXPECT_GE(listener, 0) << std::strerror(errno);
        int client = local_socket();
        EXPECT_EQ(connect_local(client, PORT), 0);
        close(client);
        close(listener);
    }
}

TEST_F(LocalListener, AForeignLockEndsTheBindWithAReason)
{
    close(listen_local(PORT));
    int lock = open((runtime_dir(base_) + "/lock").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    int fd = local_socket();
    EXPECT_EQ(bind_local(fd, PORT), -1);
    EXPECT_EQ(errno, EBUSY);
    close(lock);
    EXPECT_EQ(bind_local(fd, PORT), 0);
    close(fd);
}

TEST_F(LocalListener, RuntimeDirectoryIsPrivate)
{
    close(listen_local(PORT));
    struct stat status;
    ASSERT_EQ(stat(runtime_dir(base_).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0700u);
    EXPECT_EQ(status.st_uid, geteuid());
    ASSERT_EQ(stat((runtime_dir(base_) + "/2182").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0600u);
}

TEST_F(LocalListener, LooseForeignOrLinkedDirectoryIsRefused)
{
    close(listen_local(PORT));
    std::string dir = runtime_dir(base_);
    int fd = local_socket();

    ASSERT_EQ(chmod(dir.c_str(), 0750), 0);
    EXPECT_EQ(bind_local(fd, PORT), -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(connect_local(fd, PORT), -1);
    EXPECT_EQ(errno, EACCES);

    ASSERT_EQ(chmod(dir.c_str(), 0700), 0);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(dir.c_str(), 65534, 65534), 0);
        EXPECT_EQ(bind_local(fd, PORT), -1);
        EXPECT_EQ(errno, EACCES);
        ASSERT_EQ(chown(dir.c_str(), 0, 0), 0);
    }

    ASSERT_EQ(rename(dir.c_str(), (base_ + "/real").c_str()), 0);
    ASSERT_EQ(symlink((base_ + "/real").c_str(), dir.c_str()), 0);
    EXPECT_EQ(bind_local(fd, PORT), -1);
    EXPECT_EQ(errno, EACCES);

    ASSERT_EQ(unlink(dir.c_str()), 0);
    ASSERT_EQ(rename((base_ + "/real").c_str(), dir.c_str()), 0);
    ASSERT_EQ(chmod(base_.c_str(), 0777), 0); // the level above counts too
    EXPECT_EQ(bind_local(fd, PORT), -1);
    EXPECT_EQ(errno, EACCES);
    ASSERT_EQ(chmod(base_.c_str(), 0700), 0);
    EXPECT_EQ(bind_local(fd, PORT), 0);
    close(fd);
}

TEST_F(LocalListener, PathThatIsTooLongIsReported)
{
    std::string deep = base_ + "/" + std::string(120, 'd');
    setenv("MCAST_HOST_RUNTIME_DIR", deep.c_str(), 1);
    int fd = local_socket();
    EXPECT_EQ(bind_local(fd, PORT), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
    close(fd);
}

TEST_F(LocalListener, EveryNetworkNamespaceHasItsOwnPorts)
{
    int listener = listen_local(PORT);
    int status = in_child([] {
        if (unshare(CLONE_NEWNET) != 0) {
            return 77;
        }
        int client = local_socket();
        if (connect_local(client, PORT) == 0 || errno != ECONNREFUSED) {
            return 1;
        }
        return listen_local(PORT) >= 0 ? 0 : 2;
    });
    close(listener);
    if (status == 77) {
        GTEST_SKIP() << "network namespaces may not be created here";
    }
    EXPECT_EQ(status, 0);
}

} // namespace
