#include "unit/usrauth/usrauth_fixture.h"
#include "usrauth/user.h"

namespace usrauth_test
{
namespace
{

class Update : public UsrAuthTest
{
protected:
    Update()
    {
        Start();
    }

    UserSpec spec;
};

/* A field of the message: how to change it, and which flags that sets. */
struct Change {
    const char *name;
    void (*apply)(UserSpec *spec);
    uint32_t flags;
};

const Change kRecreating[] = {
    {"access interface", [](UserSpec *s) { s->access_if_index = 51; }, 0x60000000},
    {"attribute 32", [](UserSpec *s) { s->attribute_32 = 1; }, 0x60000000},
    {"attribute 34", [](UserSpec *s) { s->attribute_34 = 1; }, 0x60000000},
    {"attribute 80", [](UserSpec *s) { s->attribute_80 = 1; }, 0x60000000},
    {"attribute 84", [](UserSpec *s) { s->attribute_84 = 1; }, 0x60000000},
    {"vrf", [](UserSpec *s) { s->vrf_index = 6; }, 0x20000000},
    {"kind", [](UserSpec *s) { s->kind = 4; }, 0x20000000},
};

const Change kOther[] = {
    {"attribute 40", [](UserSpec *s) { s->attribute_40 = 1; }, 0x80000000},
    {"attribute 24", [](UserSpec *s) { s->attribute_24 = 1; }, 0x02000000},
    {"attribute 36", [](UserSpec *s) { s->attribute_36 = 1; }, 0},
    {"attribute 70", [](UserSpec *s) { s->attribute_70 = 1; }, 0},
    {"address", [](UserSpec *s) { s->address = 1; }, 0},
    {"second address", [](UserSpec *s) { s->second_address = 1; }, 0},
    {"name", [](UserSpec *s) { s->name = "bob"; }, 0},
};

TEST_F(Update, OfAnUnknownUserIsCountedAndIgnored)
{
    MCAST_USRAUTH_STATISTICS_S statistics;
    Receive(spec.Update());
    MCAST_USRAUTH_GetStatistics(&statistics);
    EXPECT_EQ(statistics.messages[3][2], 1u);
    EXPECT_EQ(mcast::usrauth::FindUser(1, 7), nullptr);
    EXPECT_EQ(Told(), Calls{});
}

TEST_F(Update, WhatMovesAUserTakesItOfflineUntilTheEndOfItsList)
{
    for (const Change &change : kRecreating) {
        SCOPED_TRACE(change.name);
        spec = UserSpec();
        PutOnline(spec);
        change.apply(&spec);
        uint32_t flags_in_offline = 0;
        on_callback = [&](const std::string &) { flags_in_offline = Flags(1, 7); };
        Receive(spec.Update());
        on_callback = nullptr;
        EXPECT_EQ(Told(), Calls{"offline 1/7"});
        EXPECT_EQ(flags_in_offline, change.flags);
        EXPECT_EQ(Flags(1, 7), MCAST_USRAUTH_NEW);
        EXPECT_EQ(mcast::usrauth::FindUser(1, 7)->if_index, 0u);
        EXPECT_EQ(Online(), "");
        Receive(spec.ListEnd());
        EXPECT_EQ(Told(), Calls{"online 1/7"});
        EXPECT_EQ(Online(), "1007:1/7");
        Receive(spec.Withdraw());
        Told();
    }
}

TEST_F(Update, WhatDoesNotMoveAUserWaitsForTheEndOfItsList)
{
    for (const Change &change : kOther) {
        SCOPED_TRACE(change.name);
        spec = UserSpec();
        PutOnline(spec);
        change.apply(&spec);
        Receive(spec.Update());
        EXPECT_EQ(Told(), Calls{});
        EXPECT_EQ(Flags(1, 7), change.flags);
        EXPECT_EQ(Online(), "1007:1/7");
        Receive(spec.Withdraw());
        Told();
    }
}

TEST_F(Update, AnnouncementIsComparedLikeAnUpdate)
{
    PutOnline(spec);
    spec.vrf_index = 6;
    Receive(spec.Announce());
    EXPECT_EQ(Told(), Calls{"offline 1/7"});
    EXPECT_EQ(mcast::usrauth::FindUser(1, 7)->vrf_index, 6u);
}

TEST_F(Update, OfAUserWithoutAnInterfaceIsNotCompared)
{
    Receive(spec.Announce());
    Told();
    spec.access_if_index = 51;
    spec.attribute_24 = 1;
    Receive(spec.Update());
    EXPECT_EQ(Told(), Calls{});
    EXPECT_EQ(Flags(1, 7), MCAST_USRAUTH_NEW);
    EXPECT_EQ(mcast::usrauth::FindUser(1, 7)->access_if_index, 51u);
}

TEST_F(Update, AddsToTheList)
{
    PutOnline(spec);
    spec.pairs = {{1, 1}};
    Receive(spec.Update());
    EXPECT_EQ(Entries(1, 7), "239.0.0.1/10.0.0.1!");
}

TEST_F(Update, OfKindIsMovedToTheOtherListWithoutWordOfEither)
{
    PutOnline(spec);
    spec.kind = 4;
    Receive(spec.Update());
    EXPECT_EQ(Told(), Calls{"offline 1/7"});
    const MCAST_USRAUTH_NODE_S *node = mcast::usrauth::FindUser(1, 7)->node;

    EXPECT_EQ(node->kinds[3].head, nullptr);
    EXPECT_EQ(node->kinds[3].tail, nullptr);
    EXPECT_EQ(node->kinds[4].head, mcast::usrauth::FindUser(1, 7));
}

TEST_F(Update, ToAKindThatIsNoneIsIgnored)
{
    PutOnline(spec);
    for (uint32_t kind : {0u, 5u, 6u, 7u, 0xffffffffu}) {
        spec.kind = kind;
        spec.attribute_36 = 1;
        Receive(spec.Update());
        EXPECT_EQ(Told(), Calls{});
        EXPECT_EQ(mcast::usrauth::FindUser(1, 7)->kind, 3u);
        EXPECT_EQ(mcast::usrauth::FindUser(1, 7)->attribute_36, 36u);
    }
}

TEST_F(Update, UserOfKindTwoMovesWithItsAccessInterface)
{
    spec.kind = 2;
    PutOnline(spec);
    spec.access_if_index = 51;
    Receive(spec.Update());
    EXPECT_EQ(Told(), Calls{"offline 1/7"});
    EXPECT_EQ(Online(), "");
    EXPECT_EQ(mcast::usrauth::FindUser(1, 7)->if_index, 51u);
    Receive(spec.ListEnd());
    EXPECT_EQ(Online(), "51:1/7");
}

TEST_F(Update, UserThatWasOfKindTwoKeepsItsInterfaceUntilTheDaemonGivesOne)
{
    spec.kind = 2;
    PutOnline(spec);
    spec.kind = 3;
    Receive(spec.Update());
    EXPECT_EQ(mcast::usrauth::FindUser(1, 7)->if_index, 50u);
    EXPECT_EQ(Online(), "");
    Receive(spec.ListEnd());
    EXPECT_EQ(Online(), "1007:1/7");
    EXPECT_EQ(Told(), (Calls{"offline 1/7", "online 1/7"}));
}

TEST_F(Update, MarkedUserComesBackWithAnAnnouncementAlone)
{
    PutOnline(spec);
    MCAST_USRAUTH_RefreshAllUserByNodeRemove(1);
    Receive(spec.Update());
    EXPECT_EQ(Flags(1, 7), MCAST_USRAUTH_MARKED);
    EXPECT_EQ(Told(), Calls{});
    Receive(spec.Announce());
    EXPECT_EQ(Flags(1, 7), MCAST_USRAUTH_NEW);
    EXPECT_EQ(Told(), Calls{"offline 1/7"});
    EXPECT_EQ(FireTimers(), 1u);
    EXPECT_NE(mcast::usrauth::FindUser(1, 7), nullptr);
    Receive(spec.ListEnd());
    EXPECT_EQ(Told(), Calls{"online 1/7"});
}

TEST_F(Update, MarkedUserThatNeverWasOnlineComesBackInSilence)
{
    Receive(spec.Announce());
    MCAST_USRAUTH_RefreshAllUserByNodeRemove(1);
    Told();
    Receive(spec.Announce());
    EXPECT_EQ(Flags(1, 7), MCAST_USRAUTH_NEW);
    EXPECT_EQ(Told(), Calls{});
}

TEST_F(Update, FlagsBelowTheEventsSurviveARecreation)
{
    PutOnline(spec);
    Receive(RefreshBegin(1, 3));
    spec.vrf_index = 6;
    Receive(spec.Announce());
    EXPECT_EQ(Flags(1, 7), MCAST_USRAUTH_NEW | MCAST_USRAUTH_REFRESHED);
    Receive(spec.ListEnd());
    EXPECT_EQ(Flags(1, 7), MCAST_USRAUTH_REFRESHED);
}

} // namespace
} // namespace usrauth_test
