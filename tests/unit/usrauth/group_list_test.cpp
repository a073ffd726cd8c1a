#include "unit/usrauth/usrauth_fixture.h"
#include "usrauth/user.h"

namespace usrauth_test
{
namespace
{

class GroupList : public UsrAuthTest
{
protected:
    GroupList()
    {
        Start();
    }

    UserSpec spec;
};

TEST_F(GroupList, AddsToTheListOfAKnownUser)
{
    Receive(spec.Announce());
    Receive(spec.List({{1, 1}, {1, 2}}));
    Receive(spec.List({{2, 2}}));
    EXPECT_EQ(Entries(1, 7), "239.0.0.1/10.0.0.1! 239.0.0.2/10.0.0.1! 239.0.0.2/10.0.0.2!");
}

TEST_F(GroupList, OfAnUnknownUserIsCountedAndForgotten)
{
    MCAST_USRAUTH_STATISTICS_S statistics;
    Receive(spec.List({{1, 1}}));
    Receive(spec.ListEnd());
    MCAST_USRAUTH_GetStatistics(&statistics);
    EXPECT_EQ(statistics.messages[3][3], 1u);
    EXPECT_EQ(statistics.messages[3][4], 1u);
    EXPECT_EQ(MCAST_USRAUTH_UserMsgDetailCount(), 1u);
    EXPECT_EQ(Told(), Calls{});
}

TEST_F(GroupList, ShorterThanItsHeadIsDropped)
{
    MCAST_USRAUTH_STATISTICS_S statistics;
    Bytes value = spec.ListValue({});
    Receive(spec.Announce());
    Receive(spec.List({{1, 1}}));
    value.resize(19);
    MCAST_USRAUTH_ClearStatistics();
    Receive(Message(3, value));
    Receive(Message(4, value));
    MCAST_USRAUTH_GetStatistics(&statistics);
    EXPECT_EQ(statistics.messages[3][3] + statistics.messages[3][4], 0u);
    EXPECT_EQ(Entries(1, 7), "239.0.0.1/10.0.0.1!");
}

TEST_F(GroupList, EndsWithTheValueWhateverItsCountSays)
{
    Receive(spec.Announce());
    spec.entry_count = 0xffffffff;
    Receive(spec.List({{1, 1}, {1, 2}}));
    EXPECT_EQ(Entries(1, 7), "239.0.0.1/10.0.0.1! 239.0.0.2/10.0.0.1!");
}

TEST_F(GroupList, HasNoMoreEntriesThanItsCount)
{
    Receive(spec.Announce());
    spec.entry_count = 1;
    Receive(spec.List({{1, 1}, {1, 2}}));
    EXPECT_EQ(Entries(1, 7), "239.0.0.1/10.0.0.1!");
    spec.entry_count = 0;
    Receive(spec.List({{1, 3}}));
    EXPECT_EQ(Entries(1, 7), "239.0.0.1/10.0.0.1!");
}

TEST_F(GroupList, EntriesAreAStrideApart)
{
    Bytes value = spec.ListValue({});
    const Bytes gap(8, 0xee);
    Receive(spec.Announce());
    Put(&value, 12, 4, 3);
    Put(&value, 18, 2, 40);
    value = value + EntryBytes(2, {1, 1}) + gap + EntryBytes(2, {1, 2}) + gap + EntryBytes(2, {1, 3});
    Receive(Message(3, value));
    EXPECT_EQ(Entries(1, 7), "239.0.0.1/10.0.0.1! 239.0.0.2/10.0.0.1! 239.0.0.3/10.0.0.1!");
}

TEST_F(GroupList, WithoutAStrideIsItsFirstEntry)
{
    Receive(spec.Announce());
    spec.entry_size = 0;
    spec.entry_count = 0xffffffff;
    Receive(spec.List({{1, 1}, {1, 2}}));
    EXPECT_EQ(Entries(1, 7), "239.0.0.1/10.0.0.1!");
}

TEST_F(GroupList, StrideBeyondTheValueIsTheLast)
{
    Receive(spec.Announce());
    spec.entry_size = 0xffff;
    Receive(spec.List({{1, 1}, {1, 2}}));
    EXPECT_EQ(Entries(1, 7), "239.0.0.1/10.0.0.1!");
}

TEST_F(GroupList, LastEntryThatIsNotWholeIsNone)
{
    Bytes value = spec.ListValue({{1, 1}, {1, 2}});
    Receive(spec.Announce());
    value.pop_back();
    Receive(Message(3, value));
    EXPECT_EQ(Entries(1, 7), "239.0.0.1/10.0.0.1!");
    value.resize(20 + 31);
    Receive(spec.ListEnd());
    Receive(spec.ListEnd());
    Receive(Message(3, value));
    EXPECT_EQ(Entries(1, 7), "") << "fewer than 32 bytes behind the offset";
}

TEST_F(GroupList, OffsetBeyondTheValueIsNoList)
{
    Bytes value = spec.ListValue({{1, 1}});
    Receive(spec.Announce());
    for (uint64_t offset : {21u, 52u, 53u, 0xffffu}) {
        Put(&value, 16, 2, offset);
        Receive(Message(3, value));
        EXPECT_EQ(Entries(1, 7), "");
    }
}

TEST_F(GroupList, OfAnAnnouncementLiesBehindItsName)
{
    spec.pairs = {{1, 1}};
    spec.name_length = 0xffff;
    Receive(spec.Announce());
    EXPECT_EQ(Entries(1, 7), "") << "offset and length add up to more than 16 bits";
}

TEST_F(GroupList, EndOfANewUsersListTellsOnlineOnce)
{
    spec.pairs = {{1, 1}};
    Receive(spec.Announce());
    Told();
    Receive(spec.ListEnd());
    EXPECT_EQ(Told(), Calls{"online 1/7"});
    EXPECT_EQ(Flags(1, 7), 0u);
    EXPECT_EQ(Entries(1, 7), "239.0.0.1/10.0.0.1");
    EXPECT_EQ(Online(), "1007:1/7");
    Receive(spec.ListEnd());
    Receive(spec.ListEnd());
    EXPECT_EQ(Told(), Calls{"changed 1/7 2"}) << "the list was not sent again";
    EXPECT_EQ(Entries(1, 7), "");
}

TEST_F(GroupList, UserCannotBeFoundBeforeOnlineHasReturned)
{
    Receive(spec.Announce());
    on_callback = [](const std::string &) { EXPECT_EQ(MCAST_USRAUTH_UserCount(), 0u); };
    Receive(spec.ListEnd());
    on_callback = nullptr;
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 1u);
}

TEST_F(GroupList, NewUserWhoLostEntriesIsNotToldOfThem)
{
    spec.pairs = {{1, 1}};
    PutOnline(spec);
    spec.access_if_index = 51;
    spec.pairs = {};
    Receive(spec.Update());
    EXPECT_EQ(Told(), Calls{"offline 1/7"});
    Receive(spec.ListEnd());
    EXPECT_EQ(Told(), Calls{"online 1/7"});
    EXPECT_EQ(Entries(1, 7), "");
}

TEST_F(GroupList, EndTellsWhatChangedInOneMask)
{
    spec.pairs = {{1, 1}, {1, 2}};
    PutOnline(spec);
    spec.pairs = {{1, 2}};
    spec.attribute_40 = 41;
    spec.attribute_24 = 25;
    Receive(spec.Update());
    EXPECT_EQ(Told(), Calls{});
    EXPECT_EQ(Flags(1, 7), MCAST_USRAUTH_40_CHANGED | MCAST_USRAUTH_24_CHANGED);
    on_callback = [&](const std::string &) {
        EXPECT_EQ(Entries(1, 7), "239.0.0.2/10.0.0.1") << "swept before the call";
        EXPECT_EQ(Flags(1, 7), 0x83000000u) << "flags end after the call";
    };
    Receive(spec.ListEnd());
    on_callback = nullptr;
    EXPECT_EQ(Told(), Calls{"changed 1/7 7"});
    EXPECT_EQ(Flags(1, 7), 0u);
}

TEST_F(GroupList, EachChangeHasItsBit)
{
    PutOnline(spec);
    spec.attribute_40 = 41;
    Receive(spec.Update() + spec.ListEnd());
    EXPECT_EQ(Told(), Calls{"changed 1/7 1"});
    spec.attribute_24 = 25;
    Receive(spec.Update() + spec.ListEnd());
    EXPECT_EQ(Told(), Calls{"changed 1/7 4"});
}

TEST_F(GroupList, GroupsOfSeveralSourcesLoseThemOneByOne)
{
    spec.pairs = {{1, 1}, {2, 1}, {3, 1}};
    PutOnline(spec);
    Receive(spec.List({{2, 1}, {4, 1}}) + spec.ListEnd());
    EXPECT_EQ(Entries(1, 7), "239.0.0.1/10.0.0.2 239.0.0.1/10.0.0.4");
    Receive(spec.List({{1, 1}, {4, 1}}) + spec.ListEnd());
    EXPECT_EQ(Entries(1, 7), "239.0.0.1/10.0.0.1 239.0.0.1/10.0.0.4");
    Receive(spec.ListEnd());
    EXPECT_EQ(Entries(1, 7), "");
    EXPECT_EQ(Told(), (Calls{"changed 1/7 2", "changed 1/7 2", "changed 1/7 2"}));
}

TEST_F(GroupList, OnlineWithoutAnInterfaceLeavesTheUserUnfindable)
{
    interface_of = [](MCAST_USRAUTH_USER_S *) { return 0; };
    Receive(spec.Announce() + spec.ListEnd());
    EXPECT_EQ(Online(), "");
    EXPECT_EQ(Flags(1, 7), 0u) << "it is not new any more";
    Told();
    Receive(spec.Withdraw());
    EXPECT_EQ(Told(), Calls{"kind 1 3 down"}) << "never online, never offline";
}

TEST_F(GroupList, UserOfKindTwoKeepsItsAccessInterface)
{
    spec.kind = 2;
    PutOnline(spec);
    EXPECT_EQ(Online(), "50:1/7");
}

TEST_F(GroupList, SecondUserOfAnInterfaceIsNotFoundByIt)
{
    interface_of = [](MCAST_USRAUTH_USER_S *) { return 33; };
    PutOnline(spec);
    spec.user_id = 8;
    PutOnline(spec);
    EXPECT_EQ(Online(), "33:1/7");
    Receive(spec.Withdraw());
    EXPECT_EQ(Told(), Calls{"offline 1/8"});
    EXPECT_EQ(Online(), "33:1/7");
}

TEST_F(GroupList, SourceForWhichMemoryIsShortTakesItsNewGroupAlong)
{
    Receive(spec.Announce());
    platform::Fail(platform::Operation::kTreeInsert, 2);
    Receive(spec.List({{1, 1}}));
    EXPECT_EQ(Entries(1, 7), "");
    platform::Reset();
    Receive(spec.List({{1, 1}}));
    platform::Fail(platform::Operation::kTreeInsert, 1);
    Receive(spec.List({{2, 1}}));
    EXPECT_EQ(Entries(1, 7), "239.0.0.1/10.0.0.1!") << "a group that was there stays";
}

TEST_F(GroupList, EveryFailingAllocationLeavesTheEntriesThatWentBefore)
{
    Receive(spec.Announce());
    fault::ForEveryAllocation([&](unsigned long) {
        Receive(spec.List({{1, 1}, {2, 1}, {1, 2}}));
        fault::FailAllocation(0);
        Receive(spec.ListEnd() + spec.ListEnd());
        EXPECT_EQ(Entries(1, 7), "");
    });
    Told();
}

} // namespace
} // namespace usrauth_test
