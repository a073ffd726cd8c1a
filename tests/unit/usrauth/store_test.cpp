#include "usrauth/store.h"

#include "unit/usrauth/usrauth_fixture.h"
#include "usrauth/refresh.h"
#include "usrauth/user.h"

namespace usrauth_test
{
namespace
{

class Store : public UsrAuthTest
{
protected:
    UserSpec spec;
};

TEST_F(Store, NeedsTimersCallbacksAndASet)
{
    EXPECT_EQ(MCAST_USRAUTH_Init(2, kEpoll, nullptr, &callbacks), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_USRAUTH_Init(2, kEpoll, scripted_timer::Service(), nullptr), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_USRAUTH_Init(2, -1, scripted_timer::Service(), &callbacks), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_USRAUTH_Init(2, 0, scripted_timer::Service(), &callbacks), MCAST_OK);
}

TEST_F(Store, CannotBeStartedTwice)
{
    Start();
    PutOnline(spec);
    EXPECT_EQ(Init(MCAST_FAMILY_IPV6), MCAST_ERR_GENERAL);
    EXPECT_EQ(Online(), "1007:1/7");
}

TEST_F(Store, StartThatFailsHalfWayLeavesNothing)
{
    for (auto [operation, count] :
         {std::pair{platform::Operation::kHashInit, 2}, {platform::Operation::kTreeInit, 2}}) {
        for (int nth = 1; nth <= count; ++nth) {
            platform::Fail(operation, static_cast<unsigned long>(nth));
            EXPECT_EQ(Init(), MCAST_ERR_GENERAL);
            EXPECT_EQ(platform::LiveTables(), 0);
            EXPECT_EQ(platform::LiveTrees(), 0);
            EXPECT_STREQ(StoreFault(), nullptr);
            platform::Reset();
        }
    }
    scripted::pthread_rwlock_init = [](auto...) { return EAGAIN; };
    EXPECT_EQ(Init(), MCAST_ERR_GENERAL);
    scripted::pthread_rwlock_init = nullptr;
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 0u) << "the lock can be taken";
    EXPECT_EQ(Init(), MCAST_OK);
}

TEST_F(Store, LivesAgainAndAgain)
{
    for (int times = 0; times < 3; ++times) {
        next_descriptor = kAgent;
        Start(times == 1 ? MCAST_FAMILY_IPV6 : MCAST_FAMILY_IPV4);
        spec.pairs = {{1, 1}};
        spec.family = times == 1 ? 10 : 2;
        PutOnline(spec);
        Receive(RefreshBegin(2, 1) + RefreshEnd(1, 3));
        EXPECT_EQ(MCAST_USRAUTH_StopServer(), 1u);
        EXPECT_EQ(MCAST_USRAUTH_Fini(), MCAST_OK);
        EXPECT_TRUE(scripted_timer::platform.timers.empty());
        EXPECT_EQ(Told(), Calls{"refreshed 1 3"}) << "nobody is told of the end";
    }
}

TEST_F(Store, FiniGoesBackToTheBeginning)
{
    Start();
    MCAST_USRAUTH_SetMsgDetailLimit(3);
    Receive(spec.Announce());
    MCAST_USRAUTH_Fini();
    const mcast::usrauth::Store &store = mcast::usrauth::g_store;

    EXPECT_EQ(store.epoll_id, -1);
    EXPECT_EQ(store.family, 0);
    EXPECT_EQ(store.timer_service, nullptr);
    EXPECT_EQ(store.callbacks.user_online, nullptr);
    EXPECT_EQ(store.callbacks.message_filter, nullptr);
    EXPECT_EQ(store.detail_limit, 512u);
    EXPECT_EQ(store.statistics.receive_count, 0u);
}

TEST_F(Store, DegradeEmptiesItAndKeepsWhatItWasGiven)
{
    Start();
    spec.pairs = {{1, 1}};
    PutOnline(spec);
    MCAST_USRAUTH_SetMsgDetailLimit(3);
    Receive(RefreshBegin(2, 4) + RefreshEnd(1, 3));
    Told();
    EXPECT_EQ(MCAST_USRAUTH_Degrade(), MCAST_OK);
    MCAST_USRAUTH_STATISTICS_S statistics;

    MCAST_USRAUTH_GetStatistics(&statistics);
    EXPECT_EQ(statistics.receive_count, 0u);
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 0u);
    EXPECT_EQ(MCAST_USRAUTH_UserMsgDetailCount(), 0u);
    EXPECT_EQ(mcast::usrauth::g_store.detail_limit, 512u);
    EXPECT_FALSE(mcast::usrauth::IsRefreshOpen(2, 4));
    EXPECT_TRUE(scripted_timer::platform.timers.empty());
    EXPECT_EQ(Told(), Calls{});
    EXPECT_STREQ(StoreFault(), nullptr);
    Receive(spec.Announce() + spec.ListEnd());
    EXPECT_EQ(Told(), (Calls{"kind 1 3 up", "online 1/7"})) << "learned again";
}

TEST_F(Store, ClearingTellsOfflineUnderTheLockAndNothingElse)
{
    Start();
    for (uint32_t kind : {4u, 1u, 2u, 3u}) {
        spec.kind = kind;
        spec.user_id = kind;
        spec.access_if_index = 60;
        PutOnline(spec);
    }
    spec.user_id = 9;
    Receive(spec.Announce());
    spec.node = 2;
    spec.user_id = 5;
    PutOnline(spec);
    Told();
    expect_lock_free = false;
    on_callback = [](const std::string &) {
        EXPECT_NE(pthread_rwlock_tryrdlock(&g_stUsrAuthRWLock.posix), 0) << "lock not held";
    };
    EXPECT_EQ(MCAST_USRAUTH_ClearAllUsers(), MCAST_OK);
    on_callback = nullptr;
    EXPECT_EQ(Told(), (Calls{"offline 1/1", "offline 1/2", "offline 1/3", "offline 1/4", "offline 2/5"}));
    EXPECT_STREQ(StoreFault(), nullptr);
    EXPECT_EQ(mcast::usrauth::FindUser(1, 9), nullptr);
}

TEST_F(Store, NodesOfOneBucketAreToldApart)
{
    Start();
    for (uint16_t node : {uint16_t{1}, uint16_t{513}, uint16_t{1025}}) {
        spec.node = node;
        Receive(spec.Announce());
    }
    spec.node = 513;
    Receive(spec.Withdraw());
    EXPECT_EQ(mcast::usrauth::FindUser(513, 7), nullptr);
    EXPECT_NE(mcast::usrauth::FindUser(1, 7), nullptr);
    EXPECT_NE(mcast::usrauth::FindUser(1025, 7), nullptr);
}

} // namespace
} // namespace usrauth_test
