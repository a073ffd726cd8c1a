#include "daemons/mribd/control.h"

#include "daemons/control_table.h"
#include "daemons/mribd_messages.h"

#include <gtest/gtest.h>

#include <optional>
#include <sys/socket.h>
#include <unistd.h>

using namespace mribd;
using namespace mribd_test;
using namespace control_test;
using mcastd::ControlField;
using mcastd::ControlFields;
using mcastd::FieldType;

namespace
{

ControlField field(const std::string &text)
{
    return ControlField::address(address(text));
}

// A router of both families, with a channel server each.
class MribdControl : public testing::Test
{
protected:
    MribdControl()
    {
        offer_control(control, {{ipv4_server, [] { return 5; }}, {ipv6_server, [] { return 6; }}});
    }

    mcastd::ControlRegistry &registry()
    {
        return control.registry();
    }

    Bench ipv4{MCAST_FAMILY_IPV4, 50000};
    Bench ipv6{MCAST_FAMILY_IPV6, 50000};
    mcastd::Reactor reactor;
    ClientBench ipv4_clients{ipv4.router};
    ClientBench ipv6_clients{ipv6.router};
    ChannelServer ipv4_server{reactor, ipv4_clients.backend};
    ChannelServer ipv6_server{reactor, ipv6_clients.backend};
    mcastd::ControlServer control{reactor};
};

TEST_F(MribdControl, RoutesShowBothFamiliesWithTheKernelsCounters)
{
    ipv4.environment.on_link.insert({1, "10.0.0.1"});
    ipv6.environment.on_link.insert({2, "fd00::1"});
    ipv6.join(1, 4, "ff0e::1");
    ipv6.settle();
    ipv6.packet(2, "fd00::1", "ff0e::1");
    ipv4.join(1, 3, "239.1.1.1");
    ipv4.join(1, 2, "239.1.1.1");
    ipv4.settle();
    ipv4.packet(1, "10.0.0.1", "239.1.1.1");
    ipv4.kernel.packets[{"10.0.0.1", "239.1.1.1"}] = 77;
    const auto rows = table(registry(), mcastd::ROUTE_TABLE);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0][0], field("239.1.1.1"));
    EXPECT_EQ(rows[0][1], field("10.0.0.1"));
    EXPECT_EQ(rows[0][2], ControlField::interface(1));
    EXPECT_EQ(rows[0][3], ControlField::interfaces({2, 3}));
    EXPECT_EQ(rows[0][4], ControlField::counter(77));
    EXPECT_EQ(rows[1][0], field("ff0e::1"));
    EXPECT_EQ(rows[1][3], ControlField::interfaces({4}));
}

TEST_F(MribdControl, ARouteWithoutUpstreamOrKernelEntrySaysSo)
{
    ipv4.join(1, 2, "239.1.1.1", "192.0.2.1"); // no route to it
    const auto rows = table(registry(), mcastd::ROUTE_TABLE);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_TRUE(rows[0][2].is(FieldType::None));
    EXPECT_TRUE(rows[0][3].as_interfaces().empty());
    EXPECT_TRUE(rows[0][4].is(FieldType::None));
}

TEST_F(MribdControl, PagesOfAnySizeShowEveryRouteOnce)
{
    ipv4.router.watch_sources(true);
    for (unsigned number = 1; number <= 600; number++) {
        ipv4.show_local_source(number);
    }
    ipv6.join(1, 2, "ff3e::1", "fd00::1");
    const auto whole = table(registry(), mcastd::ROUTE_TABLE);
    ASSERT_EQ(whole.size(), 601u);
    EXPECT_EQ(table(registry(), mcastd::ROUTE_TABLE, 7), whole);
    EXPECT_EQ(table(registry(), mcastd::ROUTE_TABLE, 1), whole);
    for (size_t i = 1; i < whole.size(); i++) {
        EXPECT_LT(mcastd::compare_keys(whole[i - 1], whole[i], 2), 0) << i;
    }
}

TEST_F(MribdControl, AWalkGoesOnFromRoutesThatAreNotThere)
{
    ipv4.join(1, 2, "239.1.1.1", "192.0.2.1");
    ipv4.join(1, 2, "239.1.1.3", "192.0.2.1");
    ipv6.join(1, 2, "ff3e::1", "fd00::1");
    const auto after = [this](const ControlFields &key) {
        return table(registry(), mcastd::ROUTE_TABLE, 0, key).size();
    };
    EXPECT_EQ(after({field("239.1.1.1"), field("192.0.2.1")}), 2u);
    EXPECT_EQ(after({field("239.1.1.1"), field("192.0.2.0")}), 3u);
    EXPECT_EQ(after({field("239.1.1.2"), field("203.0.113.1")}), 2u);
    EXPECT_EQ(after({field("239.1.1.2")}), 2u);
    EXPECT_EQ(after({field("239.1.1.4")}), 1u);
    EXPECT_EQ(after({field("::")}), 1u);
    EXPECT_EQ(after({field("239.1.1.1"), field("::")}), 2u) << "a source of the other family";
    EXPECT_EQ(after({field("ff3e::1"), field("1.1.1.1")}), 1u);
    EXPECT_EQ(after({field("ff3e::1"), field("fd00::1")}), 0u);
}

TEST_F(MribdControl, MembersShowEachClientsWish)
{
    ipv4.join(2, 3, "239.1.1.1");
    ipv4.join(1, 3, "239.1.1.1");
    ipv4.join(1, 2, "239.1.1.1");
    ipv4.set(1, 3, "239.1.1.1", "192.0.2.1", MemberTable::Kind::Block, true);
    ipv6.join(1, 2, "ff0e::1");
    const auto rows = table(registry(), mcastd::MEMBER_TABLE);
    ASSERT_EQ(rows.size(), 5u);
    EXPECT_EQ(rows[0][1], field("0.0.0.0"));
    EXPECT_EQ(rows[0][2], ControlField::interface(2));
    EXPECT_EQ(rows[1][3], ControlField::number(1));
    EXPECT_EQ(rows[2][3], ControlField::number(2));
    EXPECT_EQ(rows[3][1], field("192.0.2.1"));
    EXPECT_EQ(rows[3][4], ControlField::truth(false));
    EXPECT_EQ(rows[3][5], ControlField::truth(true));
    for (const uint16_t limit : {uint16_t{1}, uint16_t{2}, uint16_t{3}}) {
        EXPECT_EQ(table(registry(), mcastd::MEMBER_TABLE, limit), rows);
    }
    EXPECT_EQ(
        row(registry(), mcastd::MEMBER_TABLE,
            {field("239.1.1.1"), field("0.0.0.0"), ControlField::interface(3), ControlField::number(2)}),
        rows[2]);
}

TEST_F(MribdControl, VirtualInterfacesShowWhatRunsOnThem)
{
    ipv4.router.set_enabled(1, 2, true);
    ipv4.router.set_querier(1, 2, false);
    ipv4.settle();
    const auto rows = table(registry(), mcastd::VIF_TABLE, 1);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0][0], ControlField::family(MCAST_FAMILY_IPV4));
    EXPECT_EQ(rows[0][2], ControlField::interface(2));
    EXPECT_EQ(rows[0][3], ControlField::truth(true));
    EXPECT_EQ(rows[0][4], ControlField::truth(false)) << "another querier forwards";
}

TEST_F(MribdControl, ClientsComeByFamilyAndNumber)
{
    std::vector<int> ends;
    for (ChannelServer *server : {&ipv6_server, &ipv4_server, &ipv4_server}) {
        int fds[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, fds), 0);
        server->adopt(fds[1]);
        ends.push_back(fds[0]);
    }
    const auto rows = table(registry(), mcastd::CLIENT_TABLE, 1);
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0][1].as_number(), 1u);
    EXPECT_EQ(rows[1][1].as_number(), 2u);
    EXPECT_EQ(rows[2][0], ControlField::family(MCAST_FAMILY_IPV6));
    EXPECT_EQ(rows[2][3], ControlField::truth(false));
    for (const int fd : ends) {
        close(fd);
    }
}

TEST_F(MribdControl, CountersShowBothFamiliesAndTheEndpointOnce)
{
    const auto whole = table(registry(), mcastd::COUNTER_TABLE);
    std::vector<uint16_t> endpoint_families;
    std::vector<uint64_t> lost;
    for (const ControlFields &each : whole) {
        if (each[2].as_text() == "control_connections") {
            endpoint_families.push_back(static_cast<uint16_t>(each[0].as_number()));
        }
        if (each[2].as_text() == "upcalls_lost") {
            lost.push_back(each[3].as_number());
        }
    }
    EXPECT_EQ(endpoint_families, std::vector<uint16_t>{MCAST_FAMILY_IPV4});
    EXPECT_EQ(lost, (std::vector<uint64_t>{5, 6}));
    EXPECT_EQ(table(registry(), mcastd::COUNTER_TABLE, 4).size(), whole.size());
}

} // namespace
