#include "usrauth/refresh.h"

#include "unit/usrauth/usrauth_fixture.h"
#include "usrauth/user.h"

namespace usrauth_test
{
namespace
{

class Refresh : public UsrAuthTest
{
protected:
    Refresh()
    {
        Start();
    }

    /* Users 1 to count of the kind, online. */
    void Populate(uint32_t count, uint32_t kind = 3)
    {
        spec.kind = kind;
        for (uint32_t id = 1; id <= count; ++id) {
            spec.user_id = id + 100 * kind;
            spec.access_if_index = id;
            PutOnline(spec);
        }
    }

    UserSpec spec;
};

TEST_F(Refresh, BeginOpensTheKindOnTheNode)
{
    Receive(RefreshBegin(1, 3));
    EXPECT_TRUE(mcast::usrauth::IsRefreshOpen(1, 3));
    EXPECT_FALSE(mcast::usrauth::IsRefreshOpen(1, 4));
    EXPECT_FALSE(mcast::usrauth::IsRefreshOpen(2, 3));
    EXPECT_FALSE(mcast::usrauth::IsRefreshOpen(513, 3)) << "the same bucket";
    EXPECT_EQ(Told(), Calls{});
}

TEST_F(Refresh, OfAKindThatIsNoneIsCountedOnly)
{
    MCAST_USRAUTH_STATISTICS_S statistics;
    for (uint32_t kind : {0u, 5u, 6u, 7u, 32u, 33u, 0xffffffffu}) {
        Receive(RefreshBegin(1, kind) + RefreshEnd(1, kind));
    }
    MCAST_USRAUTH_GetStatistics(&statistics);
    for (uint32_t kind : {0u, 5u, 6u}) {
        EXPECT_EQ(statistics.messages[kind][5], 1u);
        EXPECT_EQ(statistics.messages[kind][6], 1u);
    }
    EXPECT_FALSE(mcast::usrauth::IsRefreshOpen(1, 1));
    EXPECT_EQ(Told(), Calls{});
    EXPECT_EQ(MCAST_USRAUTH_UserMsgDetailCount(), 0u) << "a refresh names no user";
}

TEST_F(Refresh, ShorterThanItsRecordIsDropped)
{
    Receive(Message(5, {0, 1, 0, 0, 0, 0, 0}));
    EXPECT_FALSE(mcast::usrauth::IsRefreshOpen(1, 0));
    Receive(Message(6, Bytes(7)));
    EXPECT_EQ(Told(), Calls{});
}

TEST_F(Refresh, EndDeletesWhoWasNotAnnouncedEightAStep)
{
    Populate(20);
    Receive(RefreshBegin(1, 3));
    spec.user_id = 305;
    spec.access_if_index = 5;
    Receive(spec.Announce());
    EXPECT_EQ(Flags(1, 305), MCAST_USRAUTH_REFRESHED);
    Receive(RefreshEnd(1, 3));
    EXPECT_EQ(Told(), Calls{"refreshed 1 3"});
    EXPECT_EQ(Flags(1, 305), 0u);
    EXPECT_EQ(Flags(1, 304), MCAST_USRAUTH_MARKED);
    EXPECT_FALSE(mcast::usrauth::IsRefreshOpen(1, 3));
    EXPECT_EQ(scripted_timer::Calls(), "create 2 500");
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 20u) << "nobody goes before the timer";

    EXPECT_EQ(FireTimers(), 1u);
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 12u);
    EXPECT_EQ(Told(), (Calls{"offline 1/301", "offline 1/302", "offline 1/303", "offline 1/304",
                             "offline 1/306", "offline 1/307", "offline 1/308", "offline 1/309"}));
    EXPECT_EQ(FireTimers(), 1u);
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 4u);
    EXPECT_EQ(FireTimers(), 1u);
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 1u);
    EXPECT_EQ(FireTimers(), 0u);
    EXPECT_EQ(Online(), "1305:1/305");
}

TEST_F(Refresh, AnotherStepFollowsEightDeletionsAndNoFewer)
{
    Populate(9);
    spec.user_id = 399;
    PutOnline(spec);
    Receive(RefreshBegin(1, 3));
    Receive(spec.Announce());
    Receive(RefreshEnd(1, 3));
    EXPECT_EQ(FireTimers(), 1u);
    EXPECT_EQ(FireTimers(), 1u);
    EXPECT_EQ(FireTimers(), 0u);
    Populate(8);
    Receive(RefreshBegin(1, 3));
    spec.user_id = 399;
    spec.access_if_index = 9;
    Receive(spec.Announce());
    Receive(RefreshEnd(1, 3));
    EXPECT_EQ(FireTimers(), 1u);
    EXPECT_EQ(FireTimers(), 1u) << "it finds nobody";
    EXPECT_EQ(FireTimers(), 0u);
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 1u);
}

TEST_F(Refresh, LastUserOfANodeEndsTheBatch)
{
    Populate(8);
    Receive(RefreshEnd(1, 3));
    Told();
    EXPECT_EQ(FireTimers(), 1u);
    EXPECT_EQ(FireTimers(), 0u);
    EXPECT_EQ(Told().back(), "kind 1 3 down");
}

TEST_F(Refresh, KindIsToldDownWithItsLastUser)
{
    Populate(2);
    Populate(1, 4);
    Receive(RefreshEnd(1, 3));
    Told();
    FireTimers();
    EXPECT_EQ(Told(), (Calls{"offline 1/301", "offline 1/302", "kind 1 3 down"}));
}

TEST_F(Refresh, SparesOtherKindsAndNodes)
{
    Populate(2);
    Populate(2, 4);
    spec.node = 2;
    Populate(2);
    Receive(RefreshBegin(1, 3) + RefreshEnd(1, 3));
    FireTimers();
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 2u);
    EXPECT_NE(Flags(1, 401), MCAST_USRAUTH_MARKED);
}

TEST_F(Refresh, UserCreatedWhileItIsOpenIsRefreshed)
{
    Receive(RefreshBegin(1, 3));
    Receive(spec.Announce());
    EXPECT_EQ(Flags(1, 7), MCAST_USRAUTH_NEW | MCAST_USRAUTH_REFRESHED);
    Receive(RefreshEnd(1, 3));
    EXPECT_EQ(Flags(1, 7), MCAST_USRAUTH_NEW);
    EXPECT_EQ(FireTimers(), 0u);
}

TEST_F(Refresh, UpdateDoesNotRefresh)
{
    PutOnline(spec);
    Receive(RefreshBegin(1, 3));
    Receive(spec.Update());
    EXPECT_EQ(Flags(1, 7), 0u);
}

TEST_F(Refresh, TwoKindsOfANodeAreOpenIndependently)
{
    Receive(RefreshBegin(1, 3) + RefreshBegin(1, 4) + RefreshBegin(1, 4));
    Receive(RefreshEnd(1, 3));
    EXPECT_TRUE(mcast::usrauth::IsRefreshOpen(1, 4));
    Receive(RefreshEnd(1, 4));
    EXPECT_FALSE(mcast::usrauth::IsRefreshOpen(1, 4));
    EXPECT_EQ(Told(), (Calls{"refreshed 1 3", "refreshed 1 4"}));
}

TEST_F(Refresh, EndsWithoutABeginDeleteAll)
{
    Populate(2);
    Receive(RefreshEnd(1, 3));
    EXPECT_EQ(Told(), Calls{"refreshed 1 3"});
    FireTimers();
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 0u);
}

TEST_F(Refresh, RepeatedEndsMakeNoSecondTimer)
{
    Populate(10);
    for (int i = 0; i < 100; ++i) {
        Receive(RefreshEnd(1, 3));
    }
    EXPECT_EQ(scripted_timer::platform.timers.size(), 1u);
    scripted_timer::Calls();
}

TEST_F(Refresh, WithoutATimerAllGoAtOnceAndBeforeTheEndIsTold)
{
    Populate(10);
    scripted_timer::platform.fail_create = true;
    Receive(RefreshEnd(1, 3));
    const Calls calls = Told();

    ASSERT_EQ(calls.size(), 12u);
    EXPECT_EQ(calls.front(), "offline 1/301");
    EXPECT_EQ(calls[10], "kind 1 3 down");
    EXPECT_EQ(calls.back(), "refreshed 1 3");
}

TEST_F(Refresh, WhenALaterTimerFailsTheRestGoesAtOnce)
{
    Populate(20);
    Receive(RefreshEnd(1, 3));
    scripted_timer::platform.fail_create = true;
    EXPECT_EQ(FireTimers(), 1u);
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 0u);
}

TEST_F(Refresh, RemovedNodeLosesItsUsersOfKindsThreeFourAndTwo)
{
    for (uint32_t kind : {1u, 2u, 3u, 4u}) {
        spec.kind = kind;
        spec.user_id = kind;
        spec.access_if_index = 60;
        PutOnline(spec);
    }
    Receive(RefreshBegin(1, 3));
    spec.kind = spec.user_id = 3;
    Receive(spec.Announce());
    Told();
    EXPECT_EQ(MCAST_USRAUTH_RefreshAllUserByNodeRemove(1), MCAST_OK);
    EXPECT_EQ(scripted_timer::platform.timers.size(), 3u);
    EXPECT_EQ(Told(), Calls{});
    EXPECT_EQ(Flags(1, 3), MCAST_USRAUTH_MARKED | MCAST_USRAUTH_REFRESHED) << "announced or not";
    FireTimers();
    EXPECT_EQ(Told(), (Calls{"offline 1/3", "kind 1 3 down", "offline 1/4", "kind 1 4 down", "offline 1/2",
                             "kind 1 2 down"}));
    EXPECT_EQ(Online(), "1001:1/1");
    EXPECT_EQ(MCAST_USRAUTH_RefreshAllUserByNodeRemove(9), MCAST_OK) << "a node without users";
}

TEST_F(Refresh, TimersOfANodeGoWithItsLastUser)
{
    Populate(1);
    Populate(1, 4);
    MCAST_USRAUTH_RefreshAllUserByNodeRemove(1);
    EXPECT_EQ(scripted_timer::platform.timers.size(), 2u);
    spec.kind = 3;
    spec.user_id = 301;
    Receive(spec.Withdraw());
    EXPECT_EQ(scripted_timer::platform.timers.size(), 2u);
    spec.user_id = 401;
    Receive(spec.Withdraw());
    EXPECT_TRUE(scripted_timer::platform.timers.empty());
}

TEST_F(Refresh, TimerThatFiresTooLateFindsNothing)
{
    Populate(1);
    Receive(RefreshEnd(1, 3));
    scripted_timer::Timer late = scripted_timer::Only();

    MCAST_USRAUTH_Degrade();
    late.handler(late.parameters);
    Populate(1);
    late.handler(late.parameters);
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 1u) << "not marked";
    Receive(RefreshEnd(1, 3));
    late.handler(late.parameters);
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 1u) << "another timer's";
    EXPECT_EQ(scripted_timer::platform.timers.size(), 1u);
    MCAST_USRAUTH_Fini();
    late.handler(late.parameters);
    uint64_t garbage[4] = {~0ull, ~0ull, ~0ull, ~0ull};
    late.handler(garbage);
    ASSERT_EQ(Init(), MCAST_OK);
    Populate(1);
    garbage[0] = 1;
    late.handler(garbage);
    late.handler(late.parameters);
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 1u);
}

TEST_F(Refresh, EveryFailingAllocationLeavesTheKindClosed)
{
    fault::ForEveryAllocation([&](unsigned long) {
        Receive(RefreshBegin(1, 3));
        const bool fired = fault::Fired();

        EXPECT_EQ(mcast::usrauth::IsRefreshOpen(1, 3), !fired);
        Receive(RefreshEnd(1, 3));
    });
    platform::Fail(platform::Operation::kHashInsert, 1);
    Receive(RefreshBegin(1, 3));
    EXPECT_FALSE(mcast::usrauth::IsRefreshOpen(1, 3));
}

} // namespace
} // namespace usrauth_test
