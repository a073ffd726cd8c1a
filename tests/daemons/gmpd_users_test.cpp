/*
 * Users of one link: whose report it is, what each may join, and what the MRIB is told of them together.
 */
#include <gtest/gtest.h>

#include "tests/daemons/gmpd_users_lab.h"

using namespace gmpd;
using namespace gmpd_test;

namespace
{

class GmpdUsers : public testing::TestWithParam<uint8_t>
{
protected:
    void permit_everything(unsigned number)
    {
        for (unsigned group = 1; group <= 4; ++group) {
            users.permit(number, group);
        }
    }
    void two_users()
    {
        users.announce(1);
        users.announce(2);
        permit_everything(1);
        permit_everything(2);
        users.lab.pass(5); // what new users lead to has been asked
        users.lab.recorder.queries();
    }
    std::string told()
    {
        return users.lab.recorder.told();
    }
    void report(unsigned neighbour, MessageKind kind)
    {
        Message message;
        message.kind = kind;
        message.version = 2;
        message.sender = users.lab.neighbour(neighbour);
        message.group = users.lab.group(1);
        handle_message(*users.lab.interface, message);
    }

    UsersLab users{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(Families, GmpdUsers, testing::Values(MCAST_FAMILY_IPV4, MCAST_FAMILY_IPV6));

} // namespace

TEST_P(GmpdUsers, AReportOfNobodyIsRefusedAndCounted)
{
    report(1, MessageKind::Report);
    EXPECT_EQ(users.count(Count::UnknownUser), 1u);
    EXPECT_EQ(users.count(Count::ReportsV2), 1u) << "it was a good message all the same";
    EXPECT_EQ(told(), "");
    EXPECT_EQ(users.lab.state(), "none");
}

TEST_P(GmpdUsers, AUserJoinsWhatHeMay)
{
    users.announce(1);
    users.permit(1, 1);
    users.permit(1, 2, 5);
    users.record(1, RecordType::IsExclude, {});
    users.record(1, RecordType::ToExclude, {}, 2);
    users.record(1, RecordType::Allow, {4, 5, 6}, 2);
    users.record(1, RecordType::IsExclude, {}, 3);
    EXPECT_EQ(told(), "join G1; join G2 5");
    EXPECT_EQ(users.count(Count::UserGroup), 2u);
    EXPECT_EQ(users.count(Count::UserSource), 2u);
    EXPECT_EQ(users.table.find(UsersLab::key_of(1))->memberships->counters()[Count::UserGroup], 2u);
}

TEST_P(GmpdUsers, TheRightToAGroupIsTheRightToEachSourceOfIt)
{
    users.announce(1);
    users.permit(1, 1);
    users.record(1, RecordType::IsInclude, {4, 5});
    EXPECT_EQ(told(), "join G1 4; join G1 5");
}

TEST_P(GmpdUsers, WhatEndsAMembershipNeedsNoRight)
{
    users.announce(1);
    users.permit(1, 1, 4);
    users.permit(1, 1, 5);
    users.record(1, RecordType::Allow, {4, 5});
    users.record(1, RecordType::Block, {4, 9});
    users.record(1, RecordType::ToInclude, {9});
    users.lab.pass(3);
    EXPECT_EQ(users.lab.interface->users_union->group_count(), 0u);
    EXPECT_EQ(users.count(Count::UserSource), 1u) << "the one of the record that asks for it";
}

TEST_P(GmpdUsers, AGroupEndsWithItsLastUser)
{
    two_users();
    users.record(1, RecordType::IsExclude, {});
    users.record(2, RecordType::IsExclude, {});
    users.record(1, RecordType::IsExclude, {}, 2);
    EXPECT_EQ(told(), "join G1; join G2");
    users.withdraw(1);
    EXPECT_EQ(told(), "prune G2");
    users.withdraw(2);
    EXPECT_EQ(told(), "prune G1");
    EXPECT_EQ(users.users_told, "+1+2-1-2");
}

TEST_P(GmpdUsers, ASourceIsBlockedWhenEveryUserBlocksIt)
{
    two_users();
    users.record(1, RecordType::IsExclude, {3, 4});
    EXPECT_EQ(told(), "block G1 3; block G1 4; join G1");
    users.record(2, RecordType::IsExclude, {4, 5});
    EXPECT_EQ(told(), "unblock G1 3");
    users.withdraw(1);
    EXPECT_EQ(told(), "block G1 5");
    users.record(2, RecordType::IsExclude, {});
    EXPECT_EQ(told(), "unblock G1 4; unblock G1 5");
}

TEST_P(GmpdUsers, ASourceThatOneUserJoinedIsNotBlockedForIt)
{
    two_users();
    users.record(1, RecordType::Allow, {3});
    users.record(2, RecordType::IsExclude, {3});
    EXPECT_EQ(told(), "join G1 3; join G1");
    users.withdraw(1);
    EXPECT_EQ(told(), "block G1 3; prune G1 3") << "blocked before the join that covered it goes";
}

TEST_P(GmpdUsers, EachUserHasTimersOfHisOwn)
{
    two_users();
    users.record(1, RecordType::IsExclude, {});
    users.lab.pass(100);
    users.record(2, RecordType::IsExclude, {});
    EXPECT_EQ(told(), "join G1");
    users.lab.pass(200);
    EXPECT_EQ(told(), "");
    EXPECT_FALSE(users.wants(1, 1, 9));
    users.lab.pass(61);
    EXPECT_EQ(told(), "prune G1");
}

TEST_P(GmpdUsers, ALeaveAsksTheLinkAndEndsTheLeaversMembershipAlone)
{
    two_users();
    users.record(1, RecordType::IsExclude, {});
    users.record(2, RecordType::IsExclude, {});
    users.record(1, RecordType::ToInclude, {});
    EXPECT_EQ(users.lab.recorder.queries(), "? G1");
    users.lab.pass(3);
    EXPECT_FALSE(users.wants(1, 1, 9));
    EXPECT_TRUE(users.wants(2, 1, 9));
    EXPECT_EQ(told(), "join G1");
}

TEST_P(GmpdUsers, OlderHostsBindTheirUserAlone)
{
    two_users();
    report(1, MessageKind::Report);
    users.record(1, RecordType::Block, {3});
    users.record(2, RecordType::IsExclude, {3});
    EXPECT_FALSE(users.wants(2, 1, 3));
    EXPECT_TRUE(users.wants(1, 1, 3));
    EXPECT_EQ(told(), "join G1");
    users.record(2, RecordType::ToInclude, {});
    users.lab.pass(3);
    EXPECT_EQ(told(), "");
    report(1, MessageKind::Leave);
    users.lab.pass(3);
    EXPECT_EQ(told(), "prune G1");
}

TEST_P(GmpdUsers, AnotherQueriersQuestionShortensEveryUsersMembership)
{
    two_users();
    users.record(1, RecordType::IsExclude, {});
    users.record(2, RecordType::IsExclude, {});
    users.lab.query(50, 3, 1);
    users.lab.pass(3);
    EXPECT_EQ(told(), "join G1; not querier; prune G1");
}

TEST_P(GmpdUsers, RevokedRightsEndMembershipsAtOnce)
{
    users.announce(1);
    for (const unsigned source : {4u, 5u}) {
        users.permit(1, 2, source);
    }
    users.permit(1, 1);
    users.record(1, RecordType::IsExclude, {6});
    users.record(1, RecordType::Allow, {4, 5}, 2);
    told();
    users.revoke(1, 2, 4);
    EXPECT_EQ(told(), "prune G2 4");
    users.permit(1, 1, 8);
    users.revoke(1, 1);
    EXPECT_EQ(told(), "prune G1; unblock G1 6");
    users.revoke(1, 2, 5);
    EXPECT_EQ(told(), "prune G2 5");
    EXPECT_EQ(users.lab.interface->users_union->group_count(), 0u);
}

TEST_P(GmpdUsers, ARevokedRightToAllSourcesLeavesTheOnesThatAreNamed)
{
    users.announce(1);
    users.permit(1, 1);
    users.permit(1, 1, 4);
    users.record(1, RecordType::IsInclude, {4, 5});
    users.record(1, RecordType::IsExclude, {5, 6});
    users.record(1, RecordType::Allow, {4, 5});
    told();
    users.revoke(1, 1);
    EXPECT_EQ(told(), "join G1 4; prune G1; unblock G1 6");
    EXPECT_TRUE(users.wants(1, 1, 4));
    EXPECT_FALSE(users.wants(1, 1, 5));
}

TEST_P(GmpdUsers, TheOwnerOfALinkTakesEveryReportThatIsNoOtherUsers)
{
    users.announce(1, true);
    users.announce(2);
    users.permit(1, 1);
    users.permit(2, 2);
    users.record(50, RecordType::IsExclude, {});
    users.record(51, RecordType::IsExclude, {}, 2);
    users.record(2, RecordType::IsExclude, {}, 2);
    users.record(2, RecordType::IsExclude, {});
    EXPECT_EQ(told(), "join G1; join G2");
    EXPECT_EQ(users.count(Count::UserGroup), 2u);
    users.withdraw(2);
    EXPECT_EQ(told(), "prune G2");
}

TEST_P(GmpdUsers, OfTwoUsersAtOnePlaceTheOlderCountsUntilHeIsGone)
{
    users.announce(1, false, 9);
    users.announce(2, false, 9);
    users.permit(1, 1);
    users.permit(2, 2);
    users.record(9, RecordType::IsExclude, {});
    users.record(9, RecordType::IsExclude, {}, 2);
    EXPECT_EQ(told(), "join G1");
    users.withdraw(1);
    users.record(9, RecordType::IsExclude, {}, 2);
    EXPECT_EQ(told(), "prune G1; join G2");
    users.withdraw(2);
    EXPECT_EQ(told(), "prune G2");
    EXPECT_FALSE(users.record(9, RecordType::IsExclude, {}));
}

TEST_P(GmpdUsers, ANewAddressTakesTheMembershipsAway)
{
    users.announce(1);
    users.permit(1, 1);
    users.record(1, RecordType::IsExclude, {});
    users.place(1, 1);
    EXPECT_EQ(told(), "join G1") << "the same place again is no move";
    users.place(1, 5);
    EXPECT_EQ(told(), "prune G1");
    EXPECT_FALSE(users.record(1, RecordType::IsExclude, {}));
    EXPECT_TRUE(users.record(5, RecordType::IsExclude, {}));
    users.place(1, 5, 8);
    EXPECT_EQ(told(), "join G1; prune G1");
    EXPECT_EQ(users.users_told, "+1+1+1");
}

TEST_P(GmpdUsers, AStoppedLinkForgetsItsUsersMembershipsAndKeepsTheUsers)
{
    two_users();
    users.record(1, RecordType::IsExclude, {3});
    told();
    interface_stop(*users.lab.interface);
    EXPECT_EQ(users.lab.recorder.told(), "stopped") << "nothing is told of what the MRIB forgets anyway";
    EXPECT_EQ(users.table.find(UsersLab::key_of(1))->memberships, nullptr);
    EXPECT_EQ(users.lab.interface->users_union->group_count(), 0u);
    users.lab.start();
    users.record(2, RecordType::IsExclude, {});
    EXPECT_EQ(told(), "join G1");
}

TEST_P(GmpdUsers, ALinkThatAsksForUsersFromNowOnStartsEmpty)
{
    interface_authenticate(*users.lab.interface, false);
    users.lab.start();
    report(1, MessageKind::Report);
    EXPECT_EQ(told(), "join G1");
    interface_authenticate(*users.lab.interface, true);
    EXPECT_FALSE(users.lab.interface->running);
    EXPECT_EQ(users.lab.state(), "none");
}

TEST_P(GmpdUsers, ANewMribIsToldTheLinkOnce)
{
    two_users();
    users.record(1, RecordType::IsExclude, {3});
    users.record(2, RecordType::IsExclude, {3});
    users.record(2, RecordType::Allow, {5}, 2);
    told();
    users.users_told.clear();
    tell_everything(*users.lab.interface);
    users.table.tell_everything();
    EXPECT_EQ(told(), "block G1 3; join G1; join G2 5");
    EXPECT_EQ(users.users_told, "+1+2");
}

TEST_P(GmpdUsers, HostsAreAskedOnceForAllNewUsers)
{
    users.announce(1);
    users.announce(2);
    EXPECT_EQ(users.lab.recorder.queries(), "");
    users.lab.pass(2);
    EXPECT_EQ(users.lab.recorder.queries(), "? all");
}

TEST_P(GmpdUsers, HostsWhoseJoinsWereRefusedAreAskedWhenRightsMayHaveGrown)
{
    two_users();
    users.lab.pass(60);
    users.lab.recorder.queries();
    users.table.rights_may_have_grown(*users.table.find(UsersLab::key_of(1)));
    users.lab.pass(2);
    EXPECT_EQ(users.lab.recorder.queries(), "") << "nobody was refused";
    users.record(1, RecordType::IsExclude, {}, 9);
    users.table.rights_may_have_grown(*users.table.find(UsersLab::key_of(1)));
    users.lab.pass(2);
    EXPECT_EQ(users.lab.recorder.queries(), "? all");
}

TEST(GmpdUsersLimit, TheGroupLimitHoldsForTheLinksUsersTogether)
{
    Config config;
    config.max_groups = 2;
    UsersLab users(MCAST_FAMILY_IPV4, config);
    for (unsigned number = 1; number <= 2; ++number) {
        users.announce(number);
        for (unsigned group = 1; group <= 4; ++group) {
            users.permit(number, group);
        }
    }
    users.record(1, RecordType::IsExclude, {}, 1);
    users.record(1, RecordType::IsExclude, {}, 2);
    users.record(1, RecordType::IsExclude, {}, 3);
    users.record(2, RecordType::IsExclude, {}, 3);
    users.record(2, RecordType::IsExclude, {}, 2);
    EXPECT_EQ(users.lab.recorder.told(), "join G1; join G2");
    EXPECT_TRUE(users.wants(2, 2, 1)) << "a group that the link has already is no new one";
}
