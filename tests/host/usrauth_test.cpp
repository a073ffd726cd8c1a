// The user authentication over the host's local sockets and timers, with agents at the other end.
#include "mcast/usrauth.h"

#include <vector>

#include "mcast/usrauth_wire.h"
#include "mcasthost/loop.h"
#include "support.h"
#include "support/usrauth_messages.h"

namespace
{

using usrauth_test::UserSpec;
using usrauth_test::operator+;

std::vector<std::string> g_told;

std::string name_of(const MCAST_USRAUTH_USER_S *user)
{
    return std::to_string(MCAST_USRAUTH_GetNode(user)) + "/" + std::to_string(user->user_id);
}

const MCAST_USRAUTH_CALLBACKS_S CALLBACKS = {
    [](MCAST_USRAUTH_USER_S *user, uint32_t *if_index) {
        g_told.push_back("online " + name_of(user));
        *if_index = 100 + user->user_id;
    },
    [](MCAST_USRAUTH_USER_S *user) { g_told.push_back("offline " + name_of(user)); },
    nullptr,
    [](uint16_t node, uint32_t kind) {
        g_told.push_back("refreshed " + std::to_string(node) + " " + std::to_string(kind));
    },
    [](uint16_t node, uint32_t kind, uint32_t up) {
        g_told.push_back("kind " + std::to_string(node) + " " + std::to_string(kind) + " " +
                         std::to_string(up));
    },
    nullptr,
};

class UsrAuthService : public host_test::RuntimeDirTest
{
protected:
    void SetUp() override
    {
        RuntimeDirTest::SetUp();
        g_told.clear();
        loop_ = HOST_LoopCreate();
        ASSERT_EQ(MCAST_USRAUTH_Init(MCAST_FAMILY_IPV4, loop_, HOST_LoopTimerService(loop_), &CALLBACKS), 0u);
        ASSERT_EQ(MCAST_USRAUTH_Upgrade(MCAST_FAMILY_IPV4, loop_), 0u);
    }
    void TearDown() override
    {
        MCAST_USRAUTH_StopServer();
        MCAST_USRAUTH_Fini();
        HOST_LoopDestroy(loop_);
        RuntimeDirTest::TearDown();
    }

    int connect_agent(uint16_t port = USRAUTH_PORT_IPV4)
    {
        const LOCAL_SOCKET_ADDR_S address = host_test::local_address(port);
        int fd = socket(LOCAL_SOCKET_FAMILY, SOCK_DGRAM, LOCAL_SOCKET_PROTOCOL);
        if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
            close(fd);
            return -1;
        }
        return fd;
    }

    void say(int agent, const usrauth_test::Bytes &data)
    {
        ASSERT_EQ(send(agent, data.data(), data.size(), 0), static_cast<ssize_t>(data.size()));
    }

    // Serves what is ready.
    void serve()
    {
        while (HOST_LoopRunOnce(loop_, 0) == 1) {
        }
    }

    std::vector<std::string> told()
    {
        return std::exchange(g_told, {});
    }

    int32_t loop_ = -1;
    UserSpec spec_;
};

using Told = std::vector<std::string>;

TEST_F(UsrAuthService, AgentsAnnounceAndWithdrawUsers)
{
    int first = connect_agent(), second = connect_agent();
    ASSERT_GE(first, 0);
    ASSERT_GE(second, 0);
    spec_.pairs = {{1, 1}};
    say(first, spec_.Announce() + spec_.ListEnd());
    serve();
    EXPECT_EQ(told(), (Told{"kind 1 3 1", "online 1/7"}));
    EXPECT_EQ(MCAST_USRAUTH_GetVrfIndexAndUserIDByIfIndex(107, nullptr, nullptr), 7u);
    say(second, spec_.Withdraw());
    serve();
    EXPECT_EQ(told(), (Told{"offline 1/7", "kind 1 3 0"}));
    close(first);
    close(second);
    serve();
}

TEST_F(UsrAuthService, AgentThatLeavesTakesNobodyAlong)
{
    int agent = connect_agent();
    say(agent, spec_.Announce() + spec_.ListEnd());
    serve();
    close(agent);
    serve();
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 1u);
    agent = connect_agent();
    say(agent, spec_.Withdraw());
    serve();
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 0u);
    close(agent);
}

TEST_F(UsrAuthService, RefreshDeletesByTheLoopsTimer)
{
    int agent = connect_agent();
    for (spec_.user_id = 1; spec_.user_id <= 9; ++spec_.user_id) {
        say(agent, spec_.Announce() + spec_.ListEnd());
    }
    say(agent, usrauth_test::RefreshBegin(1, 3) + usrauth_test::RefreshEnd(1, 3));
    serve();
    EXPECT_EQ(told().back(), "refreshed 1 3");
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 9u);
    while (MCAST_USRAUTH_UserCount() > 0) {
        ASSERT_GE(HOST_LoopRunOnce(loop_, 10000), 0);
    }
    EXPECT_EQ(told().back(), "kind 1 3 0");
    close(agent);
}

TEST_F(UsrAuthService, StoppedServiceIsNotThereAndOpensAgain)
{
    int agent = connect_agent();
    serve();
    EXPECT_EQ(MCAST_USRAUTH_StopServer(), MCAST_TRUE);
    EXPECT_EQ(connect_agent(), -1);
    char byte = 0;
    EXPECT_LE(recv(agent, &byte, 1, 0), 0) << "closed from the other side";
    close(agent);
    EXPECT_EQ(MCAST_USRAUTH_Upgrade(MCAST_FAMILY_IPV6, loop_), 0u);
    agent = connect_agent(USRAUTH_PORT_IPV6);
    EXPECT_GE(agent, 0);
    close(agent);
}

} // namespace
