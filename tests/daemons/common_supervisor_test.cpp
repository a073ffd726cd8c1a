#include <cstddef>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "daemons/common/descriptor.h"
#include "daemons/common/supervisor.h"

using namespace mcastd;

namespace
{

// A supervisor's end, under an abstract name, and the environment that names it.
class SupervisorTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(socket_.valid());
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        // The kernel chooses a name that nobody has.
        ASSERT_EQ(bind(socket_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(sa_family_t)), 0);
        socklen_t length = sizeof(address);
        ASSERT_EQ(getsockname(socket_.get(), reinterpret_cast<sockaddr *>(&address), &length), 0);
        const size_t prefix = offsetof(sockaddr_un, sun_path) + 1;
        name = "@" + std::string(address.sun_path + 1, length - prefix);
        setenv("NOTIFY_SOCKET", name.c_str(), 1);
    }
    void TearDown() override
    {
        for (const char *variable : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"}) {
            unsetenv(variable);
        }
    }

    // The messages that have come, each in brackets.
    std::string heard() const
    {
        std::string all;
        char message[128];
        for (ssize_t size; (size = recv(socket_.get(), message, sizeof(message), MSG_DONTWAIT)) >= 0;) {
            all += "[" + std::string(message, static_cast<size_t>(size)) + "]";
        }
        return all;
    }

    std::string name;
    Supervisor supervisor;

private:
    const Descriptor socket_{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

TEST_F(SupervisorTest, IsToldOfTheStartAReloadAndTheEnd)
{
    supervisor.open();
    supervisor.ready();
    supervisor.reloading();
    supervisor.ready();
    supervisor.alive();
    supervisor.stopping();
    EXPECT_EQ(heard(), "[READY=1\nSTATUS=serving][RELOADING=1][READY=1\nSTATUS=serving][STOPPING=1]");
}

TEST_F(SupervisorTest, GetsSignsOfLifeWhenItWantsThem)
{
    setenv("WATCHDOG_USEC", "20000000", 1);
    setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
    supervisor.open();
    supervisor.alive();
    supervisor.alive();
    EXPECT_EQ(heard(), "[WATCHDOG=1][WATCHDOG=1]");
}

TEST_F(SupervisorTest, SignsOfLifeOfAnotherProcessAreNotOurs)
{
    setenv("WATCHDOG_USEC", "20000000", 1);
    setenv("WATCHDOG_PID", std::to_string(getppid()).c_str(), 1);
    supervisor.open();
    supervisor.alive();
    EXPECT_EQ(heard(), "");
}

TEST_F(SupervisorTest, WhatItHadNoRoomForIsSaidASecondLater)
{
    setenv("WATCHDOG_USEC", "20000000", 1);
    supervisor.open();
    for (int i = 0; i < 2000; ++i) {
        supervisor.alive();
    }
    supervisor.ready();
    EXPECT_EQ(heard().find("READY"), std::string::npos);
    supervisor.alive();
    supervisor.alive();
    EXPECT_EQ(heard(), "[READY=1\nSTATUS=serving][WATCHDOG=1][WATCHDOG=1]");
}

TEST_F(SupervisorTest, NoneOrOneThatIsNotThereIsNoFault)
{
    const std::string too_long(200, '/');
    for (const char *other : {"", "/no/such/folder/notify", "relative", "@", too_long.c_str()}) {
        setenv("NOTIFY_SOCKET", other, 1);
        Supervisor lonely;
        testing::internal::CaptureStderr();
        lonely.open();
        EXPECT_EQ(testing::internal::GetCapturedStderr().empty(), other[0] == '\0') << other;
        lonely.ready();
        lonely.alive();
    }
    EXPECT_EQ(heard(), "");
}

} // namespace
