/*
 * Agents connect to the service, in a runtime directory of its own, and the table of users follows.
 */
#include <algorithm>
#include <cstdlib>
#include <optional>

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <sys/socket.h>

#include "daemons/common/reactor.h"
#include "daemons/gmpd/control.h"
#include "daemons/gmpd/status.h"
#include "daemons/gmpd/user_service.h"
#include "daemons/uagent/message.h"
#include "mcast/interface_registry.h"
#include "platform/local_socket.h"
#include "tests/daemons/control_table.h"
#include "tests/daemons/gmpd_lab.h"

using namespace gmpd;
using namespace gmpd_test;

namespace
{

constexpr uint32_t LINK = 7;

class GmpdUserService : public testing::TestWithParam<uint8_t>
{
protected:
    GmpdUserService()
    {
        char name[] = "/tmp/gmpd-test-XXXXXX";

        directory = mkdtemp(name);
        setenv("MCAST_HOST_RUNTIME_DIR", name, 1);
        lab.emplace(GetParam());
        interface_authenticate(*lab->interface, true);
        EXPECT_TRUE(indexes.open(GetParam()));
        service.emplace(lab->router, indexes, [this](const User &user, bool present) {
            told += (present ? "+" : "-") + std::to_string(user.info.user_id);
        });
        EXPECT_TRUE(service->open(reactor.descriptor()));
        EXPECT_TRUE(service->upgrade());
        server.emplace(reactor);
        offer_control(*server, lab->router, [] { return ProcessStatus{}; });
        offer_user_control(*server, lab->router, &*service);
        lab->start();
        agent = connect_agent();
    }
    ~GmpdUserService() override
    {
        close(agent);
        server.reset();
        lab->router.interfaces.clear();
        service.reset();
        lab.reset();
        unsetenv("MCAST_HOST_RUNTIME_DIR");
        EXPECT_EQ(system(("rm -rf " + directory).c_str()), 0);
    }

    int connect_agent()
    {
        LOCAL_SOCKET_ADDR_S address{};
        const int fd = socket(LOCAL_SOCKET_FAMILY, SOCK_DGRAM, LOCAL_SOCKET_PROTOCOL);

        address.family = LOCAL_SOCKET_FAMILY;
        address.port_be = htons(GetParam() == MCAST_FAMILY_IPV4 ? 2195 : 2192);
        address.node = LOCAL_SOCKET_NODE;
        EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
        serve();
        return fd;
    }
    // Everything that is ready, then what the daemon does after a wake-up.
    void serve()
    {
        for (int round = 0; round < 20; ++round) {
            reactor.run_once(0);
            service->settle();
        }
    }
    // The store's timer, beside the one that the daemon's own timers share.
    void fire_one_shot()
    {
        auto &timers = scripted_timer::platform.timers;
        const auto found = std::find_if(timers.begin(), timers.end(), [](const auto &entry) {
            return entry.second.attributes.kind == TIMER_KIND_ONE_SHOT;
        });

        ASSERT_NE(found, timers.end());
        scripted_timer::Timer fired = found->second;

        timers.erase(found);
        fired.handler(fired.parameters);
        serve();
    }
    // One command of an agent, in one packet.
    void say(const std::string &line)
    {
        uagent::Command command;
        std::string error;
        std::vector<uint8_t> packet;

        ASSERT_TRUE(uagent::parse_command(uagent::split_words(line), GetParam(), &command, &error)) << error;
        for (const uagent::Message &message : uagent::build_messages(command)) {
            packet.insert(packet.end(), message.bytes.begin(), message.bytes.end());
        }
        ASSERT_EQ(send(agent, packet.data(), packet.size(), 0), static_cast<ssize_t>(packet.size()));
        serve();
    }
    std::string record(unsigned user, const std::string &more = "") const
    {
        return "id=" + std::to_string(user) + " node=3 kind=1 interface=0x7 address=" + neighbour(user) +
               " " + more;
    }
    std::string neighbour(unsigned number) const
    {
        return to_text(lab->neighbour(number));
    }
    // group=... for any source of the lab's group, or one.
    std::string right(unsigned group, unsigned source = 0) const
    {
        return " group=" + (source != 0 ? to_text(lab->source(source)) + "," : "") +
               to_text(lab->group(group));
    }
    void report(unsigned number, RecordType type, const std::vector<unsigned> &sources, unsigned group = 1)
    {
        Interface *member = lab->router.users->member(*lab->interface, lab->neighbour(number));
        std::vector<Address> addresses;

        ASSERT_NE(member, nullptr);
        for (const unsigned source : sources) {
            addresses.push_back(lab->source(source));
        }
        apply_record(*member, type, lab->group(group), addresses);
    }
    uint64_t count(Count counter) const
    {
        return lab->interface->counters[counter];
    }
    std::vector<mcastd::ControlFields> table(const mcastd::ControlSchema &schema, uint16_t limit = 0)
    {
        return control_test::table(server->registry(), schema, limit);
    }
    mcastd::ControlReply clear_users(const mcastd::ControlFields &arguments)
    {
        return control_test::command(server->registry(), mcastd::COMMAND_CLEAR_USERS, arguments);
    }
    std::string status() const
    {
        ProcessStatus process;

        process.users = &*service;
        return status_text(lab->router, process);
    }

    std::string directory;
    mcastd::Reactor reactor;
    std::optional<Lab> lab;
    UserIndexes indexes;
    std::optional<UserService> service;
    std::optional<mcastd::ControlServer> server;
    std::string told;
    int agent = -1;
};

INSTANTIATE_TEST_SUITE_P(Families, GmpdUserService, testing::Values(MCAST_FAMILY_IPV4, MCAST_FAMILY_IPV6));

} // namespace

TEST_P(GmpdUserService, AnAnnouncedUserHasAnInterfaceOfTheLibrary)
{
    say("announce " + record(1, "name=alice") + right(1));
    EXPECT_EQ(told, "+1");
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 1u);
    Interface *member = lab->router.users->member(*lab->interface, lab->neighbour(1));

    ASSERT_NE(member, nullptr);
    EXPECT_EQ(MCAST_IsMUAIntf(member->index), MCAST_TRUE);
    EXPECT_EQ(lab->router.users->member(*lab->interface, lab->neighbour(2)), nullptr);
    say("withdraw id=1 node=3 kind=1");
    EXPECT_EQ(told, "+1-1");
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 0u);
    EXPECT_EQ(lab->router.users->member(*lab->interface, lab->neighbour(1)), nullptr);
}

TEST_P(GmpdUserService, TheIndexOfAWithdrawnUserIsGivenOutAgain)
{
    say("announce " + record(1) + right(1));
    const uint32_t first = lab->router.users->member(*lab->interface, lab->neighbour(1))->index;

    say("withdraw id=1 node=3 kind=1");
    say("announce " + record(2) + right(1));
    EXPECT_EQ(lab->router.users->member(*lab->interface, lab->neighbour(2))->index, first);
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
    Interface *member = lab->router.users->member(*lab->interface, lab->neighbour(99));

    ASSERT_NE(member, nullptr);
    EXPECT_EQ(member->index, LINK);
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

TEST_P(GmpdUserService, AnUpdateThatMovesTheUserEndsHisMemberships)
{
    say("announce " + record(1) + right(1));
    report(1, RecordType::IsExclude, {});
    lab->recorder.told();
    say("update id=1 node=3 kind=1 interface=0x7 address=" + neighbour(5) + right(1));
    EXPECT_EQ(lab->recorder.told(), "prune G1") << "an address changes without a callback";
    EXPECT_NE(lab->router.users->member(*lab->interface, lab->neighbour(5)), nullptr);
    EXPECT_EQ(lab->router.users->member(*lab->interface, lab->neighbour(1)), nullptr);
    say("update id=1 node=3 kind=1 interface=0x8 address=" + neighbour(5) + right(1));
    EXPECT_EQ(lab->router.users->member(*lab->interface, lab->neighbour(5)), nullptr);
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
    EXPECT_EQ(lab->router.users->member(*lab->interface, lab->neighbour(1)), nullptr);
    EXPECT_NE(lab->router.users->member(*lab->interface, lab->neighbour(2)), nullptr);
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

TEST_P(GmpdUserService, TheStatusShowsUsersAndWhatTheyJoined)
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

TEST_P(GmpdUserService, TheTableOfUsersShowsWhoIsWhereAndJoinedWhat)
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

TEST_P(GmpdUserService, TheTableOfRightsShowsWhatIsJoined)
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

TEST_P(GmpdUserService, PagesOfAnySizeShowEveryUserAndRightOnce)
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

TEST_P(GmpdUserService, MessagesAreShownByUserAndByKind)
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

TEST_P(GmpdUserService, ClearingForgetsUsersAndTheirMemberships)
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

TEST_P(GmpdUserService, ANodeThatIsGoneTakesItsUsersOfKinds2To4)
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

TEST_P(GmpdUserService, WhatAgentsSentIsCountedAnewOnCommand)
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

    offer_user_control(server, lab.router, nullptr);
    EXPECT_TRUE(control_test::table(server.registry(), mcastd::USER_TABLE).empty());
    EXPECT_TRUE(control_test::table(server.registry(), mcastd::USER_STATISTICS_TABLE).empty());
    for (const uint16_t command : {mcastd::COMMAND_CLEAR_USERS, mcastd::COMMAND_CLEAR_USER_COUNTERS}) {
        EXPECT_EQ(control_test::command(server.registry(), command, {}).status,
                  mcastd::ControlStatus::Failed);
    }
}

TEST_P(GmpdUserService, ASwitchOverForgetsTheUsersSilentlyAndKeepsTheirIndexes)
{
    say("announce " + record(1) + right(1));
    say("announce " + record(2) + right(1));
    report(1, RecordType::IsExclude, {});
    const UserIndexMap before = indexes.assigned();
    const auto index_of = [this](unsigned user) {
        return lab->router.users->member(*lab->interface, lab->neighbour(user))->index;
    };
    const uint32_t first = index_of(1);
    const uint32_t second = index_of(2);

    told.clear();
    service->switch_over(before);
    EXPECT_EQ(told, "");
    EXPECT_EQ(MCAST_USRAUTH_UserCount(), 0u);
    EXPECT_EQ(service->table().count(), 0u);
    EXPECT_EQ(lab->router.users->member(*lab->interface, lab->neighbour(1)), nullptr);
    EXPECT_EQ(lab->interface->members->group_count(), 0u);
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
