#include <gtest/gtest.h>
#include <optional>
#include <sys/socket.h>
#include <unistd.h>

#include "daemons/control_table.h"
#include "daemons/mribd/control.h"
#include "daemons/mribd_messages.h"

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

const ControlField PUBLIC = ControlField::number(0);

// A router of both families, with a channel server each.
class MribdControl : public testing::Test
{
protected:
    MribdControl()
    {
        ipv4.kernel.lost = 5;
        ipv6.kernel.lost = 6;
        offer_control(control, {&ipv4_server, &ipv6_server});
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
    EXPECT_EQ(rows[0][1], field("239.1.1.1"));
    EXPECT_EQ(rows[0][2], field("10.0.0.1"));
    EXPECT_EQ(rows[0][3], ControlField::interface(1));
    EXPECT_EQ(rows[0][4], ControlField::interfaces({2, 3}));
    EXPECT_EQ(rows[0][5], ControlField::counter(77));
    EXPECT_EQ(rows[1][1], field("ff0e::1"));
    EXPECT_EQ(rows[1][4], ControlField::interfaces({4}));
}

TEST_F(MribdControl, ARouteWithoutUpstreamOrKernelEntrySaysSo)
{
    ipv4.join(1, 2, "239.1.1.1", "192.0.2.1"); // no route to it
    const auto rows = table(registry(), mcastd::ROUTE_TABLE);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_TRUE(rows[0][3].is(FieldType::None));
    EXPECT_TRUE(rows[0][4].as_interfaces().empty());
    EXPECT_TRUE(rows[0][5].is(FieldType::None));
}

TEST_F(MribdControl, PagesOfAnySizeShowEveryRouteOnce)
{
    ipv4.router.watch_sources(true);
    for (unsigned number = 1; number <= 600; ++number) {
        ipv4.show_local_source(number);
    }
    ipv6.join(1, 2, "ff3e::1", "fd00::1");
    const auto whole = table(registry(), mcastd::ROUTE_TABLE);
    ASSERT_EQ(whole.size(), 601u);
    EXPECT_EQ(table(registry(), mcastd::ROUTE_TABLE, 7), whole);
    EXPECT_EQ(table(registry(), mcastd::ROUTE_TABLE, 1), whole);
    for (size_t i = 1; i < whole.size(); ++i) {
        EXPECT_LT(mcastd::compare_keys(whole[i - 1], whole[i], 3), 0) << i;
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
    EXPECT_EQ(after({PUBLIC, field("239.1.1.1"), field("192.0.2.1")}), 2u);
    EXPECT_EQ(after({PUBLIC, field("239.1.1.1"), field("192.0.2.0")}), 3u);
    EXPECT_EQ(after({PUBLIC, field("239.1.1.2"), field("203.0.113.1")}), 2u);
    EXPECT_EQ(after({PUBLIC, field("239.1.1.2")}), 2u);
    EXPECT_EQ(after({PUBLIC, field("239.1.1.4")}), 1u);
    EXPECT_EQ(after({PUBLIC, field("::")}), 1u);
    EXPECT_EQ(after({PUBLIC, field("239.1.1.1"), field("::")}), 2u) << "a source of the other family";
    EXPECT_EQ(after({PUBLIC, field("ff3e::1"), field("1.1.1.1")}), 1u);
    EXPECT_EQ(after({PUBLIC, field("ff3e::1"), field("fd00::1")}), 0u);
}

TEST_F(MribdControl, EveryInstancesRoutesAndMembersAreShownInOrderAndInPages)
{
    Bench red4{MCAST_FAMILY_IPV4, 50000, 5};
    Bench blue4{MCAST_FAMILY_IPV4, 50000, 6};
    Bench red6{MCAST_FAMILY_IPV6, 50000, 5};
    ipv4_clients.routers.add(blue4.router);
    ipv4_clients.routers.add(red4.router);
    ipv6_clients.routers.add(red6.router);
    for (Bench *bench : {&ipv4, &red4, &blue4}) {
        bench->join(1, 2, "239.1.1.2", "192.0.2.1");
        bench->join(1, 2, "239.1.1.1", "192.0.2.1");
    }
    red6.join(1, 2, "ff3e::1", "fd00::1");
    ipv6.join(1, 2, "ff3e::1", "fd00::1");
    for (const auto *schema : {&mcastd::ROUTE_TABLE, &mcastd::MEMBER_TABLE}) {
        const auto rows = table(registry(), *schema);
        std::string order;
        for (const auto &row : rows) {
            order +=
                std::to_string(row[0].as_number()) + " " + mribd::text_or_star(row[1].as_address()) + ", ";
        }
        EXPECT_EQ(order, "0 239.1.1.1, 0 239.1.1.2, 0 ff3e::1, 5 239.1.1.1, 5 239.1.1.2, 5 ff3e::1, "
                         "6 239.1.1.1, 6 239.1.1.2, ");
        EXPECT_EQ(table(registry(), *schema, 1), rows);
        EXPECT_EQ(table(registry(), *schema, 3), rows);
    }
    const auto vifs = table(registry(), mcastd::VIF_TABLE, 1);
    EXPECT_TRUE(std::any_of(vifs.begin(), vifs.end(), [](const auto &row) {
        return row[0].as_number() == MCAST_FAMILY_IPV6 && row[1].as_number() == 5;
    }));
    ipv4_clients.routers.remove(5);
    ipv4_clients.routers.remove(6);
    ipv6_clients.routers.remove(5);
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
    EXPECT_EQ(rows[0][2], field("0.0.0.0"));
    EXPECT_EQ(rows[0][3], ControlField::interface(2));
    EXPECT_EQ(rows[1][4], ControlField::number(1));
    EXPECT_EQ(rows[2][4], ControlField::number(2));
    EXPECT_EQ(rows[3][2], field("192.0.2.1"));
    EXPECT_EQ(rows[3][5], ControlField::truth(false));
    EXPECT_EQ(rows[3][6], ControlField::truth(true));
    for (const uint16_t limit : {uint16_t{1}, uint16_t{2}, uint16_t{3}}) {
        EXPECT_EQ(table(registry(), mcastd::MEMBER_TABLE, limit), rows);
    }
    EXPECT_EQ(row(registry(), mcastd::MEMBER_TABLE,
                  {PUBLIC, field("239.1.1.1"), field("0.0.0.0"), ControlField::interface(3),
                   ControlField::number(2)}),
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
    EXPECT_EQ(rows[0][3], ControlField::interface(2));
    EXPECT_EQ(rows[0][4], ControlField::truth(true));
    EXPECT_EQ(rows[0][5], ControlField::truth(false)) << "another querier forwards";
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

TEST_F(MribdControl, CounterNamesAreOneWord)
{
    for (const ControlFields &each : table(registry(), mcastd::COUNTER_TABLE)) {
        EXPECT_EQ(each[2].as_text().find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_"),
                  std::string::npos)
            << each[2].as_text();
    }
}

} // namespace
