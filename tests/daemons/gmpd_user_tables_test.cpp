/*
 * What status and control tables say of users, and the commands that clear them.
 */
#include "mcast/interface_registry.h"
#include "mcast/usrauth_wire.h"
#include "tests/daemons/gmpd_user_service_lab.h"

using namespace gmpd;
using namespace gmpd_test;

namespace
{

using GmpdUserTables = UserServiceLab;

INSTANTIATE_TEST_SUITE_P(Families, GmpdUserTables, testing::Values(MCAST_FAMILY_IPV4, MCAST_FAMILY_IPV6));

} // namespace

TEST_P(GmpdUserTables, TheStatusShowsUsersAndWhatTheyJoined)
{
    say("announce " + record(1, "name=alice") + right(1));
    report(1, RecordType::IsExclude, {});
    report(1, RecordType::IsExclude, {}, 2);
    const std::string text = status();

    for (const char *part :
         {"\"users_only\": true", "\"group_count\": 1", "\"user\": 1", "\"node\": 3", "\"name\": \"alice\"",
          "\"user_interface\": \"Multicast-UA", "\"refused_user_group\": 1", "\"users_found\": 1",
          "{\"message\": \"announce\", \"kind\": 1, \"count\": 1}"}) {
        EXPECT_NE(text.find(part), std::string::npos) << part << "\n" << text;
    }
}

TEST_P(GmpdUserTables, TheStatusShowsTheSourcesOfAUserAndOfTheLink)
{
    say("announce " + record(1) + right(2, 5));
    report(1, RecordType::Allow, {5}, 2);
    const std::string text = status();
    const std::string source = "\"source\": \"" + to_text(lab->source(5)) + "\"";
    const size_t first = text.find(source);

    ASSERT_NE(first, std::string::npos) << text;
    EXPECT_NE(text.find(source, first + 1), std::string::npos) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '['), std::count(text.begin(), text.end(), ']')) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '{'), std::count(text.begin(), text.end(), '}')) << text;
}

TEST_P(GmpdUserTables, TheStatusCountsUsersAndAgents)
{
    say("announce " + record(1) + right(1));
    say("announce " + record(2) + right(1));
    say("withdraw id=2 node=3 kind=1");
    const std::string counters = "    \"users_found\": 1,\n"
                                 "    \"users_online\": 2,\n"
                                 "    \"users_offline\": 1,\n"
                                 "    \"users_changed\": 0,\n"
                                 "    \"users_of_other_instance\": 0,\n"
                                 "    \"users_without_index\": 0,\n"
                                 "    \"users_over_limit\": 0,\n";
    EXPECT_NE(status().find(counters), std::string::npos) << status();
}

TEST_P(GmpdUserTables, TheTableOfUsersShowsWhoIsWhereAndJoinedWhat)
{
    say("announce " + record(1, "name=alice") + right(1) + right(2, 5));
    say("announce id=4 node=9 kind=2 interface=0x7 address=" + neighbour(4));
    report(1, RecordType::IsExclude, {});
    const auto rows = table(mcastd::USER_TABLE);

    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0][0].as_interface(), LINK) << "the link's owner comes first";
    EXPECT_EQ(rows[0][2].as_number(), 4u);
    EXPECT_EQ(rows[0][3].as_number(), 9u);
    EXPECT_TRUE(rows[0][7].is(mcastd::FieldType::None));
    EXPECT_EQ(MCAST_IsMUAIntf(rows[1][0].as_interface()), MCAST_TRUE);
    EXPECT_EQ(rows[1][2].as_number(), 1u);
    EXPECT_EQ(rows[1][5].as_interface(), LINK);
    EXPECT_EQ(rows[1][6], mcastd::ControlField::address(lab->neighbour(1)));
    EXPECT_EQ(rows[1][7].as_text(), "alice");
    EXPECT_EQ(rows[1][8].as_number(), 2u);
    EXPECT_EQ(rows[1][9].as_number(), 1u);
    const auto groups = table(mcastd::GROUP_TABLE);

    ASSERT_EQ(groups.size(), 1u) << "what the users come to";
    EXPECT_EQ(groups[0][2].as_text(), "exclude");
}

TEST_P(GmpdUserTables, TheTableOfRightsShowsWhatIsJoined)
{
    say("announce " + record(1) + right(1) + right(2, 5) + right(2, 6) + right(3));
    report(1, RecordType::IsExclude, {});
    report(1, RecordType::Allow, {6}, 2);
    const auto rows = table(mcastd::USER_RIGHT_TABLE);

    ASSERT_EQ(rows.size(), 4u);
    EXPECT_EQ(rows[0][2], mcastd::ControlField::address(any_address(GetParam())));
    EXPECT_EQ(rows[0][3], mcastd::ControlField::truth(true));
    EXPECT_EQ(rows[1][2], mcastd::ControlField::address(lab->source(5)));
    EXPECT_EQ(rows[1][3], mcastd::ControlField::truth(false));
    EXPECT_EQ(rows[2][3], mcastd::ControlField::truth(true));
    EXPECT_EQ(rows[3][3], mcastd::ControlField::truth(false));
    const auto sources = table(mcastd::SOURCE_TABLE);

    ASSERT_EQ(sources.size(), 1u);
    EXPECT_EQ(sources[0][2], mcastd::ControlField::address(lab->source(6)));
}

TEST_P(GmpdUserTables, PagesOfAnySizeShowEveryUserAndRightOnce)
{
    for (unsigned user = 1; user <= 20; ++user) {
        say("announce " + record(user) + right(1) + right(2, 5) + right(3));
    }
    for (const uint16_t limit : {uint16_t{0}, uint16_t{1}, uint16_t{2}, uint16_t{7}}) {
        EXPECT_EQ(table(mcastd::USER_TABLE, limit).size(), 20u);
        EXPECT_EQ(table(mcastd::USER_RIGHT_TABLE, limit).size(), 60u);
        EXPECT_EQ(table(mcastd::USER_MESSAGE_TABLE, limit).size(), 20u);
        EXPECT_EQ(table(mcastd::USER_STATISTICS_TABLE, limit).size(), 3u);
    }
}

TEST_P(GmpdUserTables, MessagesAreShownByUserAndByKind)
{
    say("announce " + record(1) + right(1));
    say("groups id=1 node=3 kind=1" + right(1));
    say("withdraw id=5 node=2 kind=4");
    const auto rows = table(mcastd::USER_MESSAGE_TABLE);

    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0][1].as_number(), 2u) << "by node";
    EXPECT_EQ(rows[0][4].as_number(), 1u) << "also of a user who is not there";
    EXPECT_EQ(rows[1][3].as_number(), 1u);
    EXPECT_EQ(rows[1][6].as_number(), 2u);
    const auto kinds = table(mcastd::USER_STATISTICS_TABLE);

    ASSERT_EQ(kinds.size(), 4u);
    EXPECT_EQ(kinds[1][3].as_text(), "group list");
    EXPECT_EQ(kinds[1][4].as_number(), 2u);
    EXPECT_EQ(kinds[3][1].as_number(), 4u);
}

TEST_P(GmpdUserTables, MessagesOfNoKindAreCountedUnderZero)
{
    uagent::Command command;
    std::string error;
    ASSERT_TRUE(uagent::parse_command({"withdraw", "id=5", "node=2", "kind=4"}, GetParam(), &command, &error))
        << error;
    std::vector<uint8_t> message = uagent::build_messages(command).at(0).bytes;
    const auto kind = std::find(message.begin() + sizeof(USRAUTH_MSG_HEADER_S), message.end(), 4);
    ASSERT_NE(kind, message.end());
    *kind = 0;
    ASSERT_EQ(send(agent, message.data(), message.size(), 0), static_cast<ssize_t>(message.size()));
    serve();
    const auto kinds = table(mcastd::USER_STATISTICS_TABLE);
    ASSERT_EQ(kinds.size(), 1u);
    EXPECT_EQ(kinds[0][1].as_number(), 0u);
}

TEST_P(GmpdUserTables, MessagesAboutUserZeroOfNodeZeroAreShownToo)
{
    say("withdraw id=0 node=0 kind=4");
    const auto rows = table(mcastd::USER_MESSAGE_TABLE);

    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0][2].as_number(), 0u);
}

TEST_P(GmpdUserTables, ClearingForgetsUsersAndTheirMemberships)
{
    say("announce " + record(1) + right(1));
    say("announce " + record(2) + right(1));
    report(1, RecordType::IsExclude, {});
    EXPECT_EQ(clear_users({}).status, mcastd::ControlStatus::Done);
    EXPECT_EQ(lab->recorder.told(), "join G1; prune G1");
    EXPECT_EQ(told, "+1+2-1-2");
    EXPECT_EQ(service->table().count(), 0u);
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 0u);
}

TEST_P(GmpdUserTables, ANodeThatIsGoneTakesItsUsersOfKinds2To4)
{
    say("announce " + record(1) + right(1));
    say("announce id=2 node=3 kind=3 interface=0x7 address=" + neighbour(2) + right(1));
    say("announce id=2 node=4 kind=3 interface=0x7 address=" + neighbour(5) + right(1));
    report(2, RecordType::IsExclude, {});
    EXPECT_EQ(clear_users({mcastd::ControlField::number(3)}).status, mcastd::ControlStatus::Done);
    fire_one_shot();
    EXPECT_EQ(lab->recorder.told(), "join G1; prune G1");
    EXPECT_EQ(service->table().count(), 2u);
    EXPECT_EQ(clear_users({mcastd::ControlField::number(65536)}).status, mcastd::ControlStatus::BadValue);
    EXPECT_EQ(clear_users({mcastd::ControlField::text("3")}).status, mcastd::ControlStatus::BadValue);
    EXPECT_EQ(service->table().count(), 2u);
}

TEST_P(GmpdUserTables, WhatAgentsSentIsCountedAnewOnCommand)
{
    say("announce " + record(1) + right(1));
    EXPECT_NE(status().find("\"users_named\": 1"), std::string::npos) << status();
    EXPECT_EQ(control_test::command(server->registry(), mcastd::COMMAND_CLEAR_USER_COUNTERS, {}).status,
              mcastd::ControlStatus::Done);
    EXPECT_TRUE(table(mcastd::USER_MESSAGE_TABLE).empty());
    EXPECT_TRUE(table(mcastd::USER_STATISTICS_TABLE).empty());
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 1u) << "the users stay";
    say("withdraw id=1 node=3 kind=1");
    EXPECT_EQ(table(mcastd::USER_MESSAGE_TABLE).size(), 1u);
}

TEST(GmpdWithoutUsers, TheTablesAreEmptyAndClearingIsRefused)
{
    Lab lab(MCAST_FAMILY_IPV4);
    mcastd::Reactor reactor;
    mcastd::ControlServer server(reactor);
    offer_user_control(server, lab.process, nullptr);
    EXPECT_TRUE(control_test::table(server.registry(), mcastd::USER_TABLE).empty());
    EXPECT_TRUE(control_test::table(server.registry(), mcastd::USER_STATISTICS_TABLE).empty());
    for (const uint16_t command : {mcastd::COMMAND_CLEAR_USERS, mcastd::COMMAND_CLEAR_USER_COUNTERS}) {
        EXPECT_EQ(control_test::command(server.registry(), command, {}).status,
                  mcastd::ControlStatus::Failed);
    }
}
