/*
 * Agents connect to the service, and the table of users follows.
 */
#include "mcast/interface_registry.h"
#include "tests/daemons/gmpd_user_service_lab.h"

using namespace gmpd;
using namespace gmpd_test;

namespace
{

using GmpdUserService = UserServiceLab;

INSTANTIATE_TEST_SUITE_P(Families, GmpdUserService, testing::Values(MCAST_FAMILY_IPV4, MCAST_FAMILY_IPV6));

} // namespace

TEST_P(GmpdUserService, AnAnnouncedUserHasAnInterfaceOfTheLibrary)
{
    say("announce " + record(1, "name=alice") + right(1));
    EXPECT_EQ(told, "+1");
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 1u);
    Memberships *member = lab->process.users->member(*lab->interface, lab->neighbour(1));

    ASSERT_NE(member, nullptr);
    EXPECT_EQ(MCAST_IsMUAIntf(member->user_index), MCAST_TRUE);
    EXPECT_EQ(lab->process.users->member(*lab->interface, lab->neighbour(2)), nullptr);
    say("withdraw id=1 node=3 kind=1");
    EXPECT_EQ(told, "+1-1");
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 0u);
    EXPECT_EQ(lab->process.users->member(*lab->interface, lab->neighbour(1)), nullptr);
}

TEST_P(GmpdUserService, TheIndexOfAWithdrawnUserIsGivenOutAgain)
{
    say("announce " + record(1) + right(1));
    const uint32_t first = lab->process.users->member(*lab->interface, lab->neighbour(1))->user_index;

    say("withdraw id=1 node=3 kind=1");
    say("announce " + record(2) + right(1));
    EXPECT_EQ(lab->process.users->member(*lab->interface, lab->neighbour(2))->user_index, first);
}

TEST_P(GmpdUserService, ThePermittedPairsDecide)
{
    say("announce " + record(1) + right(1) + right(2, 5) + right(3, 6));
    report(1, RecordType::IsExclude, {}, 1);
    report(1, RecordType::Allow, {4, 5, 6}, 2);
    report(1, RecordType::Allow, {4}, 1);
    report(1, RecordType::IsExclude, {}, 2);
    report(1, RecordType::IsExclude, {}, 4);
    report(1, RecordType::Allow, {4}, 4);
    EXPECT_EQ(lab->recorder.told(), "join G1; join G2 5");
    EXPECT_EQ(count(Count::UserGroup), 2u);
    EXPECT_EQ(count(Count::UserSource), 3u);
}

TEST_P(GmpdUserService, AUserOfTheWholeInterfaceIsFoundByIt)
{
    say("announce id=4 node=3 kind=2 interface=0x7 address=" + neighbour(4) + right(1));
    Memberships *member = lab->process.users->member(*lab->interface, lab->neighbour(99));

    ASSERT_NE(member, nullptr);
    EXPECT_EQ(member->user_index, LINK);
    report(99, RecordType::IsExclude, {});
    report(98, RecordType::IsExclude, {}, 2);
    EXPECT_EQ(lab->recorder.told(), "join G1");
    EXPECT_EQ(count(Count::UserGroup), 1u);
    say("withdraw id=4 node=3 kind=2");
    EXPECT_EQ(lab->recorder.told(), "prune G1");
    EXPECT_EQ(MCAST_CreateIf() & ~MCAST_IF_NUMBER_MASK,
              GetParam() == MCAST_FAMILY_IPV4 ? 0xD0000000u : 0xD2000000u)
        << "the access interface was not given back as one of the library's";
}

TEST_P(GmpdUserService, AListThatLostEntriesEndsMembershipsAtItsEnd)
{
    say("announce " + record(1) + right(1) + right(2));
    report(1, RecordType::IsExclude, {}, 1);
    report(1, RecordType::IsExclude, {}, 2);
    lab->recorder.told();
    say("groups id=1 node=3 kind=1 open=yes" + right(2));
    EXPECT_EQ(lab->recorder.told(), "") << "the list has not ended";
    say("groups id=1 node=3 kind=1" + right(3));
    EXPECT_EQ(lab->recorder.told(), "prune G1");
    EXPECT_EQ(service->counters().changed, 1u);
}

TEST_P(GmpdUserService, HostsOfAUserWhoMayJoinMoreAreAskedAgain)
{
    say("announce " + record(1) + right(1));
    lab->pass(60); // what a new user leads to has been asked
    lab->recorder.queries();
    report(1, RecordType::IsExclude, {}, 2);
    say("groups id=1 node=3 kind=1" + right(2));
    lab->pass(2);
    EXPECT_EQ(lab->recorder.queries(), "? all");
}

TEST_P(GmpdUserService, AnUpdateThatMovesTheUserEndsHisMemberships)
{
    say("announce " + record(1) + right(1));
    report(1, RecordType::IsExclude, {});
    lab->recorder.told();
    say("update id=1 node=3 kind=1 interface=0x7 address=" + neighbour(5) + right(1));
    EXPECT_EQ(lab->recorder.told(), "prune G1") << "an address changes without a callback";
    EXPECT_NE(lab->process.users->member(*lab->interface, lab->neighbour(5)), nullptr);
    EXPECT_EQ(lab->process.users->member(*lab->interface, lab->neighbour(1)), nullptr);
    say("update id=1 node=3 kind=1 interface=0x8 address=" + neighbour(5) + right(1));
    EXPECT_EQ(lab->process.users->member(*lab->interface, lab->neighbour(5)), nullptr);
    EXPECT_EQ(service->counters().offline, 1u) << "set up again";
    EXPECT_EQ(told, "+1+1-1+1");
}

TEST_P(GmpdUserService, AnnouncingAgainKeepsMemberships)
{
    say("announce " + record(1) + right(1));
    report(1, RecordType::IsExclude, {});
    say("announce " + record(1) + right(1));
    say("groups id=1 node=3 kind=1" + right(1));
    EXPECT_EQ(lab->recorder.told(), "join G1");
    EXPECT_EQ(told, "+1");
}

TEST_P(GmpdUserService, UsersOfNodesThatShareAnIdAreTwo)
{
    say("announce " + record(1) + right(1));
    say("announce id=1 node=4 kind=1 interface=0x7 address=" + neighbour(2) + right(2));
    report(1, RecordType::IsExclude, {});
    report(2, RecordType::IsExclude, {}, 2);
    EXPECT_EQ(lab->recorder.told(), "join G1; join G2");
    say("withdraw id=1 node=4 kind=1");
    EXPECT_EQ(lab->recorder.told(), "prune G2");
}

TEST_P(GmpdUserService, AUserWhoseIdSaysSoReportsFromTheSecondAddress)
{
    say("announce id=0x20000001 node=3 kind=1 interface=0x7 address=" + neighbour(1) +
        " second-address=" + neighbour(2) + right(1));
    EXPECT_EQ(lab->process.users->member(*lab->interface, lab->neighbour(1)), nullptr);
    EXPECT_NE(lab->process.users->member(*lab->interface, lab->neighbour(2)), nullptr);
}

TEST_P(GmpdUserService, AUserOfAnotherInstanceIsCountedAndNotServed)
{
    say("announce " + record(1, "vrf=5") + right(1));
    EXPECT_EQ(service->counters().other_instance, 1u);
    EXPECT_EQ(service->table().count(), 0u);
    EXPECT_EQ(told, "");
    say("withdraw id=1 node=3 kind=1");
    EXPECT_EQ(told, "");
}

TEST_P(GmpdUserService, ARefreshDropsWhoIsNotAnnouncedAgainEightAtATime)
{
    for (unsigned user = 1; user <= 12; ++user) {
        say("announce " + record(user) + right(1));
    }
    report(1, RecordType::IsExclude, {});
    report(2, RecordType::IsExclude, {});
    say("refresh-begin node=3 kind=1");
    say("announce " + record(1) + right(1));
    say("refresh-end node=3 kind=1");
    fire_one_shot();
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 4u);
    fire_one_shot();
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 1u);
    EXPECT_EQ(service->table().count(), 1u);
    EXPECT_EQ(lab->recorder.told(), "join G1") << "the user who stays wants it";
    EXPECT_EQ(service->counters().refreshes, 1u);
}

TEST_P(GmpdUserService, AUserWhoComesAndGoesInOnePacketLeavesNothing)
{
    uagent::Command command;
    std::string error;
    std::vector<uint8_t> packet;
    for (const std::string &line :
         {"announce " + record(1) + right(1), std::string("withdraw id=1 node=3 kind=1")}) {
        ASSERT_TRUE(uagent::parse_command(uagent::split_words(line), GetParam(), &command, &error)) << error;
        for (const uagent::Message &message : uagent::build_messages(command)) {
            packet.insert(packet.end(), message.bytes.begin(), message.bytes.end());
        }
    }
    ASSERT_GT(send(agent, packet.data(), packet.size(), 0), 0);
    serve();
    EXPECT_EQ(service->counters().online, 1u);
    EXPECT_EQ(service->counters().offline, 1u);
    EXPECT_EQ(service->table().count(), 0u);
    EXPECT_EQ(told, "");
}

TEST_P(GmpdUserService, BrokenMessagesChangeNothing)
{
    say("announce " + record(1) + right(1));
    for (const std::vector<uint8_t> &packet :
         {std::vector<uint8_t>{0}, {0, 0, 0, 0}, {0, 0, 0xff, 0xff, 1}, {0, 9, 0, 0}, {0, 3, 0, 2, 0, 0}}) {
        ASSERT_GT(send(agent, packet.data(), packet.size(), 0), 0);
        serve();
    }
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 1u);
    EXPECT_EQ(told, "+1");
}

TEST_P(GmpdUserService, ASwitchOverForgetsTheUsersSilentlyAndKeepsTheirIndexes)
{
    say("announce " + record(1) + right(1));
    say("announce " + record(2) + right(1));
    report(1, RecordType::IsExclude, {});
    const UserIndexMap before = indexes.assigned();
    const auto index_of = [this](unsigned user) {
        return lab->process.users->member(*lab->interface, lab->neighbour(user))->user_index;
    };
    const uint32_t first = index_of(1);
    const uint32_t second = index_of(2);

    told.clear();
    service->switch_over(before);
    EXPECT_EQ(told, "");
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 0u);
    EXPECT_EQ(service->table().count(), 0u);
    EXPECT_EQ(lab->process.users->member(*lab->interface, lab->neighbour(1)), nullptr);
    EXPECT_EQ(lab->interface->users_union->group_count(), 0u);
    EXPECT_EQ(indexes.assigned(), before);

    say("announce " + record(2) + right(1)); // the other way round
    say("announce " + record(1) + right(1));
    EXPECT_EQ(told, "+2+1");
    EXPECT_EQ(index_of(1), first);
    EXPECT_EQ(index_of(2), second);
}

TEST_P(GmpdUserService, WhoStepsBackHangsUpOnAgentsUntilItIsActiveAgain)
{
    char byte;
    service->switch_over({});
    service->stop_server();
    serve();
    EXPECT_EQ(recv(agent, &byte, 1, MSG_DONTWAIT), 0);
    close(agent);
    EXPECT_TRUE(service->upgrade());
    agent = connect_agent();
    say("announce " + record(1) + right(1));
    EXPECT_EQ(told, "+1");
}

TEST_P(GmpdUserService, NothingRefersToItOnceItHasEnded)
{
    server.reset();
    lab->process.interfaces.clear();
    EXPECT_NE(lab->process.users, nullptr);
    service.reset();
    EXPECT_EQ(lab->process.users, nullptr);
}

TEST_P(GmpdUserService, WhatTheRouterNoLongerServesIsNoLongerTheUsers)
{
    struct Nothing final : Policy {
        Joins joins_of(const Interface &, const Address &) const override
        {
            return Joins::None;
        }
    } const nothing;
    const Policy *const before = lab->process.policy;
    say("announce " + record(1) + right(1));
    report(1, RecordType::IsExclude, {});
    lab->recorder.told();
    lab->process.policy = &nothing;
    apply_policy(*lab->interface);
    EXPECT_EQ(lab->recorder.told(), "prune G1");
    lab->process.policy = before;
}
