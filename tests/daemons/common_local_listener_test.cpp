#include <arpa/inet.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "daemons/common/config_file.h"
#include "daemons/common/descriptor.h"
#include "daemons/common/descriptor_reserve.h"
#include "daemons/common/local_listener.h"
#include "daemons/common/log.h"
#include "platform/local_socket.h"
#include "tests/daemons/descriptor_shortage.h"
#include "tests/daemons/runtime_folder.h"

using namespace mcastd;

namespace
{

// A listening socket without a name to clash with, and what connected to it.
class Listener : public testing::Test
{
protected:
    Listener()
    {
        log_open("test", static_cast<LogLevel>(-1)); // warnings are expected
        fd_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        address_.sun_family = AF_UNIX;
        EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr *>(&address_), sizeof(sa_family_t)), 0);
        socklen_t size = sizeof(address_);
        EXPECT_EQ(getsockname(fd_, reinterpret_cast<sockaddr *>(&address_), &size), 0);
        address_size_ = size;
        EXPECT_EQ(listen(fd_, 64), 0);
        EXPECT_TRUE(reactor_.add(fd_, EPOLLIN, [this](uint32_t) {
            ++calls_;
            accept_waiting(reactor_, fd_, 4, "a test", [this](int fd) { accepted_.push_back(fd); });
        }));
    }
    ~Listener() override
    {
        reactor_.remove(fd_);
        close(fd_);
        for (const int fd : accepted_) {
            close(fd);
        }
        for (const int fd : clients_) {
            close(fd);
        }
    }

    void connect_one()
    {
        clients_.push_back(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        EXPECT_EQ(connect(clients_.back(), reinterpret_cast<sockaddr *>(&address_), address_size_), 0);
    }

    Reactor reactor_;
    sockaddr_un address_{};
    socklen_t address_size_ = 0;
    int fd_ = -1;
    unsigned calls_ = 0;
    std::vector<int> clients_;
    std::vector<int> accepted_;
};

TEST_F(Listener, AWakeUpTakesAFew)
{
    for (int i = 0; i < 6; ++i) {
        connect_one();
    }
    reactor_.run_once(0);
    EXPECT_EQ(accepted_.size(), 4u);
    reactor_.run_once(0);
    EXPECT_EQ(accepted_.size(), 6u);
}

TEST_F(Listener, WithoutDescriptorsItRestsUntilOneIsFree)
{
    const int other = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    ASSERT_TRUE(reactor_.add(other, EPOLLIN, [](uint32_t) {}));
    fill_descriptor_reserve();
    const uint64_t postponed = accepts_postponed();
    connect_one();
    const Shortage shortage;
    for (int i = 0; i < 100; ++i) {
        reactor_.run_once(0);
    }
    EXPECT_EQ(calls_, 1u) << "does not spin";
    EXPECT_EQ(accepts_postponed(), postponed + 1);
    reactor_.remove(other);
    close(other);
    reactor_.run_once(0);
    EXPECT_EQ(accepted_.size(), 1u);
}

TEST_F(Listener, WithoutDescriptorsItTriesAgainAfterASecond)
{
    connect_one();
    {
        const Shortage shortage;
        reactor_.run_once(0);
        EXPECT_EQ(calls_, 1u);
    }
    reactor_.run_once(-1); // waits until it is due
    reactor_.run_once(0);
    EXPECT_EQ(accepted_.size(), 1u);
}

TEST_F(Listener, ThatNobodyWaitsAtDoesNotRest)
{
    const Shortage shortage;
    EXPECT_EQ(accept_next(fd_), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST(LocalPort, LetsSixtyFiveConnectionsWait)
{
    constexpr uint16_t PORT = 2297;
    const RuntimeFolder folder;
    const Descriptor listener(listen_local(PORT));
    std::vector<Descriptor> waiting;
    LOCAL_SOCKET_ADDR_S address{};
    address.family = LOCAL_SOCKET_FAMILY;
    address.port_be = htons(PORT);
    address.node = LOCAL_SOCKET_NODE;
    do {
        waiting.emplace_back(socket(LOCAL_SOCKET_FAMILY, SOCK_DGRAM | SOCK_NONBLOCK, LOCAL_SOCKET_PROTOCOL));
    } while (connect(waiting.back().get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) ==
             0);
    EXPECT_EQ(waiting.size() - 1, 65u) << "the kernel lets one more wait than it is told";
}

TEST(DescriptorReserve, IsNotHandedToProgramsThatAreStarted)
{
    while (lend_descriptor(0)) {
    }
    std::vector<int> free;
    for (size_t i = 0; i < RESERVED_DESCRIPTORS; ++i) {
        free.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
    }
    for (const int fd : free) {
        close(fd);
    }
    fill_descriptor_reserve();
    for (const int fd : free) {
        EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    }
}

TEST(DescriptorReserve, AConfigurationIsReadWithoutAFreeDescriptor)
{
    char path[] = "/tmp/mcastd-reserve-XXXXXX";
    close(mkstemp(path));
    std::ofstream(path) << "[mribd]\n";
    fill_descriptor_reserve();
    std::string error;
    {
        const Shortage shortage;
        for (int i = 0; i < 2; ++i) { // what was lent is back
            EXPECT_TRUE(load_config(
                path, "mribd", [](ConfigTable &) {}, &error))
                << error;
        }
    }
    std::filesystem::remove(path);
}

} // namespace
