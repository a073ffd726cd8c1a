// Members at mribd's port: clients that register for classes of events and change their mind.
#include <array>
#include <gtest/gtest.h>

#include "daemons/mribd/session.h"
#include "daemons/mribd_messages.h"

using namespace mribd;
using namespace mribd_test;

namespace
{

using Types = std::vector<uint16_t>;

constexpr uint8_t MODULE = 9;
constexpr uint64_t ALL = MRIB_CAP_VRF | MRIB_CAP_BOUNDARY | MRIB_CAP_DR | MRIB_CAP_SSM_POLICY;

const std::string NOTHING = "";
const std::string EVERYTHING = "[mribd]\n"
                               "flow_control = { ipv4 = 1, ipv6 = 1 }\n"
                               "[[mribd.instance]]\n"
                               "vrf = 3\n"
                               "ssm_acl = { ipv4 = 2001, ipv6 = 2001 }\n"
                               "[[mribd.interface]]\n"
                               "name = 'if2'\n"
                               "dr = true\n"
                               "boundaries = ['239.255.0.0/16', 'ff15::/16']\n";

class MemberTest : public testing::TestWithParam<uint8_t>
{
protected:
    void take(const Message &message)
    {
        const auto bytes = message.bytes();
        session.take_message(bytes.data(), bytes.size(), false);
    }

    void change(uint64_t events)
    {
        take(Message().add(MRIB_TLV_CHANGE_EVENTS, MRIB_REGISTER_S{family, MODULE, events}));
    }

    // The types of what the member is told when the configuration becomes this one.
    Types told(const std::string &configuration)
    {
        clients.configure(configuration);
        const auto before = clients.current_view.refresh();
        EXPECT_TRUE(before);
        session.tell_changes(*before);
        return types_of(take_all(session.queue()));
    }

    uint64_t fault(Fault kind) const
    {
        return counters.faults[static_cast<size_t>(kind)];
    }

    const uint8_t family = GetParam();
    const uint8_t other_family = family == MCAST_FAMILY_IPV4 ? MCAST_FAMILY_IPV6 : MCAST_FAMILY_IPV4;
    Bench bench{family};
    ChannelCounters counters;
    ClientBench clients{bench.router};
    Session session{1, clients.backend, counters};
};

TEST_P(MemberTest, IsToldWhatItRegisteredForAndNothingElse)
{
    const struct {
        uint64_t events;
        Types types;
    } rows[] = {
        {MRIB_CAP_VRF, {MRIB_TLV_VRF_STATE}},
        {MRIB_CAP_SSM_POLICY, {MRIB_TLV_SSM_POLICY}},
        {MRIB_CAP_BOUNDARY, {MRIB_TLV_BOUNDARY}},
        {MRIB_CAP_DR, {MRIB_TLV_PIM_DR}},
        {MRIB_CAP_BASE, {MRIB_TLV_FLOW_CONTROL}},
        {ALL, {MRIB_TLV_VRF_STATE, MRIB_TLV_SSM_POLICY, MRIB_TLV_BOUNDARY, MRIB_TLV_PIM_DR}},
        {UINT64_MAX & ~uint64_t{ALL | MRIB_CAP_BASE}, {}},
        {0, {}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.events);
        take(Message().add_register(family, row.events));
        EXPECT_TRUE(session.queue().empty());
        EXPECT_EQ(told(EVERYTHING), row.types);
        EXPECT_EQ(told(NOTHING), row.types);
    }
}

TEST_P(MemberTest, ChangesItsEventsWithTheWholeMask)
{
    take(Message().add_register(family, MRIB_CAP_DR));
    change(MRIB_CAP_DR | MRIB_CAP_VRF);
    EXPECT_EQ(session.events(), MRIB_CAP_DR | MRIB_CAP_VRF);
    EXPECT_TRUE(session.queue().empty()) << "what holds already it asks for";
    EXPECT_EQ(told(EVERYTHING), (Types{MRIB_TLV_VRF_STATE, MRIB_TLV_PIM_DR}));
    change(MRIB_CAP_VRF);
    EXPECT_EQ(told(NOTHING), Types{MRIB_TLV_VRF_STATE});
    change(0);
    EXPECT_TRUE(session.is_registered());
    EXPECT_EQ(told(EVERYTHING), Types{});
    take(Message().add_register(family, MRIB_CAP_SSM_POLICY));
    EXPECT_EQ(told(NOTHING), Types{MRIB_TLV_SSM_POLICY});
    EXPECT_EQ(counters.faults, decltype(counters.faults){});
}

TEST_P(MemberTest, IsAnsweredWhateverItRegisteredFor)
{
    clients.configure(EVERYTHING);
    clients.current_view.refresh();
    take(Message().add_register(family, 0).add_request(MRIB_TLV_REQ_PIM_DR, family));
    EXPECT_EQ(types_of(take_all(session.queue())), (Types{MRIB_TLV_PIM_DR, MRIB_TLV_PIM_DR_END}));
}

TEST_P(MemberTest, FlowControlGoesAtOnceToWhoKeepsTheView)
{
    clients.configure(EVERYTHING);
    clients.current_view.refresh();
    take(Message().add_register(family, ALL));
    EXPECT_TRUE(session.queue().empty());
    take(Message().add_register(family, MRIB_CAP_BASE));
    EXPECT_EQ(types_of(take_all(session.queue())), Types{MRIB_TLV_FLOW_CONTROL});
}

TEST_P(MemberTest, AFreshStartAsksAMemberToAskAgainAndOneWithoutEventsNothing)
{
    take(Message().add_register(family, MRIB_CAP_DR));
    session.start_afresh();
    EXPECT_EQ(types_of(take_all(session.queue())), Types{MRIB_TLV_SMOOTH_START});
    change(0);
    session.start_afresh();
    EXPECT_TRUE(session.queue().empty());
}

TEST_P(MemberTest, WrongChangesAreCountedAndChangeNothing)
{
    change(ALL);
    EXPECT_EQ(fault(Fault::NotRegistered), 1u);
    EXPECT_FALSE(session.is_registered());
    take(Message().add_register(family, MRIB_CAP_DR));
    take(Message().add(MRIB_TLV_CHANGE_EVENTS, std::array<uint8_t, 9>{family, MODULE, 0xff}));
    take(Message().add(MRIB_TLV_CHANGE_EVENTS, uint32_t{family}));
    EXPECT_EQ(fault(Fault::Short), 2u);
    take(Message().add(MRIB_TLV_CHANGE_EVENTS, MRIB_REGISTER_S{other_family, MODULE, ALL}));
    EXPECT_EQ(fault(Fault::Family), 1u);
    take(Message().add(MRIB_TLV_CHANGE_EVENTS, MRIB_REGISTER_S{family, MODULE + 1, ALL}));
    EXPECT_EQ(fault(Fault::Flags), 1u);
    EXPECT_EQ(session.events(), MRIB_CAP_DR);
    EXPECT_EQ(session.component(), MODULE);
    EXPECT_EQ(fault(Fault::UnknownType), 0u);
}

TEST_P(MemberTest, TheRecordAfterAWrongChangeStillCounts)
{
    take(Message()
             .add_register(family, MRIB_CAP_DR)
             .add(MRIB_TLV_CHANGE_EVENTS, uint32_t{0})
             .add(MRIB_TLV_CHANGE_EVENTS, MRIB_REGISTER_S{family, MODULE, MRIB_CAP_VRF}));
    EXPECT_EQ(fault(Fault::Short), 1u);
    EXPECT_EQ(session.events(), MRIB_CAP_VRF);
}

INSTANTIATE_TEST_SUITE_P(Families, MemberTest,
                         testing::Values(uint8_t{MCAST_FAMILY_IPV4}, uint8_t{MCAST_FAMILY_IPV6}),
                         [](const auto &instance) { return std::string(family_name(instance.param)); });

} // namespace
