#include <array>
#include <gtest/gtest.h>
#include <random>

#include "daemons/mribd/session.h"
#include "daemons/mribd/status.h"
#include "daemons/mribd_messages.h"

using namespace mribd;
using namespace mribd_test;

namespace
{

using Types = std::vector<uint16_t>;

class SessionTest : public testing::TestWithParam<uint8_t>
{
protected:
    static constexpr bool NOT_TRUNCATED = false;

    void take(const Message &message)
    {
        const auto bytes = message.bytes();
        session.take_message(bytes.data(), bytes.size(), NOT_TRUNCATED);
    }

    void introduce()
    {
        take(Message().add_register(family));
    }

    uint64_t fault(Fault kind) const
    {
        return counters.faults[static_cast<size_t>(kind)];
    }

    bool is_receiver(const std::string &asked_group, const std::string &asked_source) const
    {
        return !receivers(bench.router.members(), address(asked_group), address(asked_source)).empty();
    }

    const uint8_t family = GetParam();
    const uint8_t other_family = family == MCAST_FAMILY_IPV4 ? MCAST_FAMILY_IPV6 : MCAST_FAMILY_IPV4;
    const std::string group = family == MCAST_FAMILY_IPV4 ? "239.1.1.1" : "ff1e::1";
    const std::string source = family == MCAST_FAMILY_IPV4 ? "10.0.0.5" : "2001:db8::5";
    const std::string other_source = family == MCAST_FAMILY_IPV4 ? "10.0.0.6" : "2001:db8::6";
    Bench bench{family};
    ChannelCounters counters;
    ClientBench clients{bench.router};
    Session session{1, clients.backend, counters};
};

TEST_P(SessionTest, SetUpIsAnsweredInTheOrderThatClientsNeed)
{
    take(Message().add_register(family));
    take(Message().add_request(MRIB_TLV_REQ_VRF_STATE, family));
    take(Message().add_request(MRIB_TLV_REQ_SSM_POLICY, family));
    take(Message().add(MRIB_TLV_SMOOTH_ALERT, MRIB_SMOOTH_ALERT_S{family, {{0, 1, 1, 0, 0}}}));
    const auto records = take_all(session.queue());
    EXPECT_EQ(types_of(records), (Types{MRIB_TLV_VRF_STATE, MRIB_TLV_VRF_STATE_END, MRIB_TLV_SSM_POLICY,
                                        MRIB_TLV_SMOOTH_START}));
    EXPECT_EQ(records[0].value, (std::vector<uint8_t>{0, 0, 0, 0, 0, 1}));
    EXPECT_EQ(records[2].value, (std::vector<uint8_t>{0, 0, 0, 0, 0, 0xff, 0xff, 0xff, 0xff}));
}

TEST_P(SessionTest, LoneMarkerIsLongEnoughForAClientToTakeIt)
{
    introduce();
    take(Message().add_request(MRIB_TLV_REQ_BOUNDARY, family));
    ASSERT_EQ(session.queue().message_count(), 1u);
    EXPECT_GE(session.queue().front().size(), MRIB_MSG_MIN);
    EXPECT_EQ(types_of(take_all(session.queue())), Types{MRIB_TLV_BOUNDARY_END});
}

TEST_P(SessionTest, DesignatedRouterReplayNamesEachInterfaceAndEnds)
{
    introduce();
    take(Message().add_alert(MRIB_TLV_GMP_ENABLE, family, 2, 1).add_alert(MRIB_TLV_GMP_ENABLE, family, 3, 1));
    take(Message().add_alert(MRIB_TLV_GMP_ENABLE, family, 3, 0));
    take_all(session.queue());
    clients.current_view.touch();
    clients.current_view.refresh();
    take(Message().add_request(MRIB_TLV_REQ_PIM_DR, family).add_request(MRIB_TLV_REQ_LOCAL_SRC, family));
    // Nobody listens for changes in this test, so only the replay is there.
    const auto records = take_all(session.queue());
    EXPECT_EQ(types_of(records), (Types{MRIB_TLV_PIM_DR, MRIB_TLV_PIM_DR_END, MRIB_TLV_MSDP_LOCAL_SRC_END}));
    EXPECT_EQ(records[0].value, (std::vector<uint8_t>{0, 0, 1, 0, 0, 0, 2, 0, 0, 0}));
}

TEST_P(SessionTest, DesignatedRouterChangeGoesToClientsThatAskedForIt)
{
    clients.configure("[[mribd.interface]]\nname = 'if2'\ndr = true\n");
    const auto before = clients.current_view.refresh();
    ASSERT_TRUE(before);
    session.tell_changes(*before);
    EXPECT_TRUE(session.queue().empty()); // not registered
    introduce();
    session.tell_changes(*before);
    EXPECT_EQ(types_of(take_all(session.queue())), Types{MRIB_TLV_PIM_DR});
    Session plain(2, clients.backend, counters);
    const auto bytes = Message().add_register(family, MRIB_CAP_BASE).bytes();
    plain.take_message(bytes.data(), bytes.size(), false);
    plain.tell_changes(*before);
    EXPECT_TRUE(plain.queue().empty());
}

TEST_P(SessionTest, JoinPruneAndBlockReachTheTable)
{
    introduce();
    take(Message().add_join(family, 2, group).add_join(family, 2, group, source, 1, 1));
    EXPECT_FALSE(is_receiver(group, source));
    EXPECT_TRUE(is_receiver(group, other_source));
    take(Message().add_join(family, 2, group, source, 0, 1));
    EXPECT_TRUE(is_receiver(group, source));
    take(Message().add_join(family, 2, group, "", 0));
    EXPECT_FALSE(is_receiver(group, source));
    EXPECT_EQ(bench.router.members().wish_count(), 0u);
}

TEST_P(SessionTest, DeleteMemberForgetsTheInterface)
{
    introduce();
    take(Message().add_join(family, 2, group).add_join(family, 3, group, source));
    take(Message().add(MRIB_TLV_DELETE_IF_MEMBER, MRIB_DELETE_IF_MEMBER_S{family, 0, 2, {1, 0}}));
    EXPECT_EQ(bench.router.members().wish_count(), 2u);
    EXPECT_EQ(fault(Fault::Flags), 1u);
    take(Message().add(MRIB_TLV_DELETE_IF_MEMBER, MRIB_DELETE_IF_MEMBER_S{family, 0, 2, {0, 0}}));
    EXPECT_EQ(interfaces_of(bench.router.members()), std::vector<uint32_t>{3});
}

TEST_P(SessionTest, EndOfTheSessionTakesItsJoins)
{
    {
        Session gone(2, clients.backend, counters);
        const auto bytes = Message().add_register(family).add_join(family, 2, group).bytes();
        gone.take_message(bytes.data(), bytes.size(), false);
        EXPECT_TRUE(is_receiver(group, source));
    }
    EXPECT_FALSE(is_receiver(group, source));
}

TEST_P(SessionTest, NothingCountsBeforeTheRegistration)
{
    take(Message().add_join(family, 2, group).add_request(MRIB_TLV_REQ_VRF_STATE, family));
    EXPECT_EQ(fault(Fault::NotRegistered), 2u);
    EXPECT_EQ(bench.router.members().wish_count(), 0u);
    EXPECT_TRUE(session.queue().empty());
}

TEST_P(SessionTest, RecordThatFailsACheckIsCountedAndTheNextStillCounts)
{
    const std::string link_local = family == MCAST_FAMILY_IPV4 ? "224.0.0.5" : "ff02::5";
    introduce();
    take(Message()
             .add_join(other_family, 2, family == MCAST_FAMILY_IPV4 ? "ff1e::1" : "239.1.1.1")
             .add_join(family, 2, group, "", 1, 0, 1)
             .add_join(family, 0, group)
             .add_join(family, 2, link_local)
             .add_join(family, 2, source)
             .add_join(family, 2, group, group)
             .add_join(family, 2, group, "", 1, 1)
             .add_join(family, 2, group, "", 2)
             .add_join(family, 2, group, source, 1, 2)
             .add_alert(MRIB_TLV_GMP_ENABLE, family, 2, 7)
             .add(MRIB_TLV_REQ_VRF_STATE, uint32_t{0})
             .add(MRIB_TLV_HOST_ENABLE, uint64_t{0})
             .add(99, uint32_t{0})
             .add_join(family, 3, group));
    EXPECT_EQ(fault(Fault::Family), 1u);
    EXPECT_EQ(fault(Fault::Instance), 1u);
    EXPECT_EQ(fault(Fault::Interface), 1u);
    EXPECT_EQ(fault(Fault::Group), 2u);
    EXPECT_EQ(fault(Fault::Source), 2u);
    EXPECT_EQ(fault(Fault::Flags), 3u);
    EXPECT_EQ(fault(Fault::Short), 1u);
    EXPECT_EQ(fault(Fault::NotServed), 1u);
    EXPECT_EQ(fault(Fault::UnknownType), 1u);
    EXPECT_EQ(counters.malformed_messages, 0u);
    EXPECT_EQ(interfaces_of(bench.router.members()), std::vector<uint32_t>{3});
}

MRIB_MAUTH_USER_INFO_S user_record(uint8_t family, uint32_t if_index, uint8_t present, uint8_t kind,
                                   uint32_t user_id)
{
    MRIB_MAUTH_USER_INFO_S record{};
    record.byte2 = present;
    record.family = family;
    record.if_index = if_index;
    record.access_if_index = 3;
    record.user_id = user_id;
    std::memcpy(record.block, "\x0a\x02\x00\x02", 4);
    record.byte1 = kind;
    return record;
}

TEST_P(SessionTest, UsersAreKeptByTheirInterfaceUntilTheyOrTheirClientAreGone)
{
    introduce();
    take(Message()
             .add(MRIB_TLV_MAUTH_USER_INFO, user_record(family, 0xD0000000, 1, 1, 7))
             .add(MRIB_TLV_MAUTH_USER_INFO, user_record(family, 0xD0000001, 1, 3, 8))
             .add(MRIB_TLV_MAUTH_USER_INFO, user_record(family, 0xD0000000, 1, 4, 9)));
    EXPECT_EQ(clients.users.size(), 2u);
    std::string status;
    size_t budget = STATUS_LINES;
    EXPECT_TRUE(ViewStatus().append(&status, clients.backend, budget));
    EXPECT_NE(status.find("  user 9 of client 1 on if3: Multicast-UA0, kind 4, address "), std::string::npos)
        << status;
    EXPECT_EQ(status.find("user 7"), std::string::npos) << "replaced";
    take(Message().add(MRIB_TLV_MAUTH_USER_INFO, user_record(family, 0xD0000000, 0, 4, 9)));
    EXPECT_EQ(clients.users.size(), 1u);
    {
        Session other(2, clients.backend, counters);
        const auto bytes = Message()
                               .add_register(family)
                               .add(MRIB_TLV_MAUTH_USER_INFO, user_record(family, 0xD0000001, 1, 1, 7))
                               .bytes();
        other.take_message(bytes.data(), bytes.size(), NOT_TRUNCATED);
        EXPECT_EQ(clients.users.size(), 2u) << "each client has its own";
    }
    EXPECT_EQ(clients.users.size(), 1u);
}

TEST_P(SessionTest, WrongUserRecordsAreCountedByWhatIsWrong)
{
    introduce();
    auto foreign = user_record(family, 0xD0000000, 1, 1, 7);
    foreign.vrf_index = 5;
    take(Message()
             .add(MRIB_TLV_MAUTH_USER_INFO, std::array<uint8_t, sizeof(MRIB_MAUTH_USER_INFO_S) - 1>{})
             .add(MRIB_TLV_MAUTH_USER_INFO, user_record(other_family, 0xD0000000, 1, 1, 7))
             .add(MRIB_TLV_MAUTH_USER_INFO, user_record(family, 0, 1, 1, 7))
             .add(MRIB_TLV_MAUTH_USER_INFO, user_record(family, 0xD0000000, 2, 1, 7))
             .add(MRIB_TLV_MAUTH_USER_INFO, user_record(family, 0xD0000000, 1, 0, 7))
             .add(MRIB_TLV_MAUTH_USER_INFO, user_record(family, 0xD0000000, 1, 5, 7))
             .add(MRIB_TLV_MAUTH_USER_INFO, foreign));
    EXPECT_EQ(fault(Fault::Short), 1u);
    EXPECT_EQ(fault(Fault::Family), 1u);
    EXPECT_EQ(fault(Fault::Interface), 1u);
    EXPECT_EQ(fault(Fault::Flags), 3u);
    EXPECT_EQ(fault(Fault::Instance), 1u);
    EXPECT_EQ(clients.users.size(), 0u);
}

TEST_P(SessionTest, UsersBeyondTheLimitAreCountedAndKnownOnesStillChange)
{
    introduce();
    for (uint32_t i = 0; i < UserRegistry::LIMIT; ++i) {
        ASSERT_TRUE(clients.users.set(5, i + 1, {}));
    }
    take(Message().add(MRIB_TLV_MAUTH_USER_INFO, user_record(family, 0xD0000000, 1, 1, 7)));
    EXPECT_EQ(fault(Fault::Limit), 1u);
    EXPECT_TRUE(clients.users.set(5, 1, {}));
    EXPECT_EQ(clients.users.size(), UserRegistry::LIMIT);
}

TEST_P(SessionTest, MalformedMessageIsCountedAndCostsNoMore)
{
    introduce();
    const auto whole = Message().add_join(family, 2, group).add_join(family, 3, group).bytes();
    for (size_t size = 0; size < whole.size(); ++size) {
        const std::vector<uint8_t> part(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
        session.take_message(part.data(), part.size(), NOT_TRUNCATED);
    }
    EXPECT_EQ(counters.malformed_messages, whole.size());
    EXPECT_EQ(interfaces_of(bench.router.members()), std::vector<uint32_t>{2});
    take(Message().add_join(family, 4, group).claim(0xffffffff));
    EXPECT_EQ(counters.malformed_messages, whole.size() + 1);
    take(Message().add_join(family, 4, group).claim(0));
    EXPECT_EQ(counters.malformed_messages, whole.size() + 1);
    session.take_message(whole.data(), whole.size(), true);
    EXPECT_EQ(counters.malformed_messages, whole.size() + 2);
}

TEST_P(SessionTest, RandomBytesAreSurvived)
{
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    introduce();
    const auto valid = Message()
                           .add_join(family, 2, group, source)
                           .add_alert(MRIB_TLV_GMP_ENABLE, family, 2, 1)
                           .add_request(MRIB_TLV_REQ_PIM_DR, family)
                           .bytes();
    for (int i = 0; i < 20000; ++i) {
        auto bytes = valid;
        for (auto changes = 1 + random() % 6; changes > 0; --changes) {
            bytes[4 + random() % (bytes.size() - 4)] = static_cast<uint8_t>(random());
        }
        bytes.resize(random() % (bytes.size() + 1));
        session.take_message(bytes.data(), bytes.size(), NOT_TRUNCATED);
        take_all(session.queue());
    }
    EXPECT_EQ(counters.messages, 20001u);
}

TEST_P(SessionTest, FreshStartSendsTheStateAndAsksTheClientToAskAgain)
{
    introduce();
    const auto request = Message().add_request(MRIB_TLV_REQ_VRF_STATE, family);
    for (int i = 0; i < 100000 && !session.queue().has_overflowed(); ++i) {
        take(request);
    }
    ASSERT_TRUE(session.queue().has_overflowed());
    session.start_afresh();
    EXPECT_FALSE(session.queue().has_overflowed());
    EXPECT_EQ(types_of(take_all(session.queue())),
              (Types{MRIB_TLV_VRF_STATE, MRIB_TLV_VRF_STATE_END, MRIB_TLV_SSM_POLICY, MRIB_TLV_FLOW_CONTROL,
                     MRIB_TLV_SMOOTH_START}));
}

TEST(Session, IsAskedForRefusedMembershipsWhenThereIsRoom)
{
    constexpr uint8_t FAMILY = MCAST_FAMILY_IPV4;
    Bench bench(FAMILY, 100, 0, 16); // an interface may have half of them
    ClientBench clients(bench.router);
    ChannelCounters counters;
    Session session(1, clients.backend, counters);
    Message message;
    message.add_register(FAMILY);
    for (unsigned number = 1; number <= 9; ++number) {
        message.add_join(FAMILY, 2, "239.1.1." + std::to_string(number));
    }
    const auto bytes = message.bytes();
    session.take_message(bytes.data(), bytes.size(), false);
    EXPECT_EQ(counters.faults[static_cast<size_t>(Fault::Limit)], 1u);
    take_all(session.queue());
    session.ask_refused_again();
    EXPECT_TRUE(session.has_refused());
    EXPECT_TRUE(session.queue().empty()) << "there is no room yet";
    bench.router.drop_members(1, 2);
    session.ask_refused_again();
    EXPECT_FALSE(session.has_refused());
    EXPECT_EQ(types_of(take_all(session.queue())), Types{MRIB_TLV_SMOOTH_START});
}

TEST(Session, InterfacesThatAClientMakesUpEndAtALimit)
{
    constexpr uint8_t FAMILY = MCAST_FAMILY_IPV4;
    Bench bench(FAMILY);
    for (uint32_t if_index = 1; if_index <= GmpState::MOST_INTERFACES; ++if_index) {
        ASSERT_TRUE(bench.router.set_querier(1, if_index, false));
    }
    EXPECT_FALSE(bench.router.set_querier(1, GmpState::MOST_INTERFACES + 1, false));
    EXPECT_FALSE(bench.router.set_enabled(1, GmpState::MOST_INTERFACES + 1, true));
    EXPECT_TRUE(bench.router.set_querier(1, 1, true)) << "what is taken back makes room";
    EXPECT_TRUE(bench.router.set_enabled(1, GmpState::MOST_INTERFACES + 1, true));
}

INSTANTIATE_TEST_SUITE_P(Families, SessionTest,
                         testing::Values(uint8_t{MCAST_FAMILY_IPV4}, uint8_t{MCAST_FAMILY_IPV6}),
                         [](const auto &instance) { return std::string(family_name(instance.param)); });

} // namespace
