#include "unit/intf/mib_fixture.h"

namespace mib_test
{
namespace
{

class DaemonStatus : public Mib
{
protected:
    struct State {
        uint32_t status;
        uint32_t state;
    };

    void SetUp() override
    {
        Mib::SetUp();
        sockets_expected = 0;
        device.local_lip = 0x70003;
        device.service_status = [this](uint16_t node, uint64_t service, uint32_t *state) {
            EXPECT_EQ(service, 7u);
            *state = states.at(node).state;
            return states.at(node).status;
        };
    }

    void Reachable()
    {
        replies[0] = "x";
    }

    std::array<State, 8> states = {};
};

TEST_F(DaemonStatus, RunningHereIsProvedByAConnection)
{
    states[3] = {0, 2};
    EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), MCAST_ERR_GENERAL);
    EXPECT_EQ(device_calls, (Calls{"status 3 7", "connect 1", "close"}));
    Reachable();
    EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), MCAST_OK);
    sockets_expected = 2;
}

TEST_F(DaemonStatus, NoSocketIsNoConnection)
{
    states[3] = {0, 2};
    scripted::socket = scripted::Failing(EMFILE);
    EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), MCAST_ERR_GENERAL);
}

TEST_F(DaemonStatus, RunningHereBesideAnErrorIsNotProved)
{
    states[3] = {MCAST_ERR_GENERAL, 2};
    EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), MCAST_OK);
    EXPECT_EQ(device_calls, Calls{"status 3 7"});
}

TEST_F(DaemonStatus, OnlyNothingDoneHereAsksTheStandbyNodes)
{
    states[3] = {MCAST_ERR_NOTHING_DONE, 2};
    EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), MCAST_OK);
    EXPECT_EQ(device_calls, (Calls{"status 3 7", "standby"}));
}

TEST_F(DaemonStatus, RunningNowhereIsWellWithoutAConnection)
{
    for (uint32_t state : {0u, 1u, 3u, 4u, 0x10002u}) {
        states[3] = {0, state};
        EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), MCAST_OK);
    }
    device.standby.emplace();
    EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), MCAST_OK);
    device.standby = {{1, 2}};
    states[1] = {0, 1};
    EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), MCAST_OK);
    EXPECT_EQ(Count("connect 1"), 0u);
    EXPECT_EQ(Count("status 2 7"), 1u);
}

TEST_F(DaemonStatus, TheFirstStandbyNodeWhereItRunsEndsTheSearch)
{
    device.standby = {{6, 1, 4, 2}};
    states[6] = {MCAST_ERR_NOTHING_DONE, 2};
    states[1] = {MCAST_ERR_GENERAL, 2};
    states[4] = {0, 2};
    EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), MCAST_ERR_GENERAL);
    EXPECT_EQ(device_calls, (Calls{"status 3 7", "standby", "status 6 7", "status 1 7", "status 4 7",
                                   "connect 1", "close"}));
    Reachable();
    EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), MCAST_OK);
    sockets_expected = 2;
}

TEST_F(DaemonStatus, AnAnswerThatSetsNothingIsNotThatOfTheNodeBefore)
{
    device.standby = {{1, 4}};
    device.service_status = [](uint16_t node, uint64_t, uint32_t *state) {
        if (node == 1) {
            *state = 2;
            return MCAST_ERR_GENERAL;
        }
        return MCAST_OK;
    };
    EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), MCAST_OK);
    EXPECT_EQ(Count("connect 1"), 0u);
}

TEST_F(DaemonStatus, WithoutMemoryForTheStandbyNodesItIsTakenForWell)
{
    device.standby = {{4}};
    states[4] = {0, 2};
    EXPECT_EQ(fault::ForEveryAllocation([this](unsigned long nth) {
                  EXPECT_EQ(MCAST_MIB_GetDaemonStatus(daemons[0]), nth == 1 ? MCAST_OK : MCAST_ERR_GENERAL);
              }),
              1u);
    sockets_expected = 1;
}

} // namespace
} // namespace mib_test
