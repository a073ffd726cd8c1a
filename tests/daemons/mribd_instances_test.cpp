/*
 * Instances of one family beside each other: what clients say of one does not touch another, whatever groups,
 * sources and addresses they share.
 */
#include <gtest/gtest.h>
#include <net/if.h>

#include "daemons/common/reactor.h"
#include "daemons/mribd/host_environment.h"
#include "daemons/mribd/plane.h"
#include "daemons/mribd/status.h"
#include "daemons/mribd_messages.h"
#include "daemons/whole_text.h"
#include "host/namespace.h"
#include "mcasthost/config.h"
#include "mcasthost/loop.h"

using namespace mribd;
using namespace mribd_test;

namespace
{

class InstancesTest : public testing::TestWithParam<uint8_t>
{
protected:
    InstancesTest()
    {
        clients.routers.add(red.router);
        clients.routers.add(blue.router);
        take(Message().add_register(family));
    }

    ~InstancesTest() override
    {
        clients.routers.remove(RED);
        clients.routers.remove(BLUE);
    }

    void take(const Message &message)
    {
        const auto bytes = message.bytes();
        session->take_message(bytes.data(), bytes.size(), false);
    }

    void join(uint16_t vrf_index, uint32_t if_index, uint8_t flag = 1)
    {
        MRIB_JOIN_PRUNE_S record{};
        record.family = family;
        record.vrf_index = vrf_index;
        record.if_index = if_index;
        record.flag1 = flag;
        std::memcpy(record.group, address(group).address, sizeof(record.group));
        take(Message().add(MRIB_TLV_GMP_JOIN_PRUNE, record));
        for (Bench *each : {&common, &red, &blue}) {
            each->settle();
        }
    }

    void alert(uint16_t type, uint16_t vrf_index, uint32_t if_index, uint8_t value)
    {
        MRIB_IF_ALERT_S record{};
        record.family = family;
        record.value = value;
        record.vrf_index = vrf_index;
        record.if_index = if_index;
        take(Message().add(type, record));
    }

    static constexpr uint16_t RED = 5;
    static constexpr uint16_t BLUE = 6;
    const uint8_t family = GetParam();
    const std::string group = family == MCAST_FAMILY_IPV4 ? "239.1.1.1" : "ff1e::1";
    const std::string source = family == MCAST_FAMILY_IPV4 ? "10.0.0.5" : "2001:db8::5";
    Bench common{family};
    Bench red{family, 100, RED};
    Bench blue{family, 100, BLUE};
    ClientBench clients{common.router};
    ChannelCounters counters;
    std::unique_ptr<Session> session = std::make_unique<Session>(1, clients.backend, counters);
};

TEST_P(InstancesTest, TheSameSourceAndGroupIsForwardedInEachAsItsOwnMembersWant)
{
    for (Bench *each : {&common, &red, &blue}) {
        each->environment.on_link.insert({1, source});
    }
    join(0, 2);
    join(RED, 3);
    for (Bench *each : {&common, &red, &blue}) {
        each->router.watch_sources(true);
        each->settle();
        each->packet(1, source, group);
    }
    EXPECT_EQ(common.forwards(source, group), Interfaces{2});
    EXPECT_EQ(red.forwards(source, group), Interfaces{3});
    EXPECT_EQ(blue.forwards(source, group), Interfaces{});
    join(BLUE, 4);
    join(RED, 3, 0);
    EXPECT_EQ(common.forwards(source, group), Interfaces{2});
    EXPECT_EQ(red.forwards(source, group), Interfaces{});
    EXPECT_EQ(blue.forwards(source, group), Interfaces{4});
}

TEST_P(InstancesTest, AnInstanceThatIsNotServedIsRefusedAndCounted)
{
    clients.routers.remove(BLUE);
    join(BLUE, 4);
    alert(MRIB_TLV_GMP_ENABLE, 7, 4, 1);
    EXPECT_EQ(counters.faults[static_cast<size_t>(Fault::Instance)], 2u);
    EXPECT_EQ(blue.router.members().wish_count(), 0u);
}

TEST_P(InstancesTest, CountersOutliveTheInstanceThatCountedThem)
{
    red.router.take_upcall(
        {UpcallKind::NoEntry, 31, address(source), address(group)}); // of no virtual interface
    ASSERT_EQ(clients.routers.counters().forwarding.stray_upcalls, 1u);
    clients.routers.remove(RED);
    EXPECT_EQ(clients.routers.counters().forwarding.stray_upcalls, 1u);
    EXPECT_EQ(clients.routers.counters().forwarding.upcalls, 1u);
}

TEST_P(InstancesTest, TheEndOfAClientEndsItsMembershipsInEach)
{
    for (const uint16_t vrf_index : {uint16_t{0}, RED, BLUE}) {
        join(vrf_index, 2);
    }
    EXPECT_EQ(red.router.members().wish_count(), 1u);
    session.reset();
    for (Bench *each : {&common, &red, &blue}) {
        EXPECT_EQ(each->router.members().wish_count(), 0u);
    }
}

TEST_P(InstancesTest, RouteOfTheInstanceDecidesWherePacketsAreToArrive)
{
    red.environment.routes["5:" + source] = {2, false};
    red.environment.routes[source] = {1, false}; // the public instance's
    join(RED, 3);
    red.packet(2, source, group);
    EXPECT_EQ(red.takes_from(source, group), 2u);
}

TEST_P(InstancesTest, OnlyInterfacesOfTheInstanceHaveVirtualOnes)
{
    red.environment.instances[4] = BLUE;
    join(RED, 3);
    EXPECT_EQ(red.router.vifs().find(4), -1);
    EXPECT_GE(red.router.vifs().find(1), 0);
    red.environment.instances[3] = BLUE; // it moves
    red.environment.instances[4] = RED;
    red.router.links_changed();
    red.settle();
    EXPECT_EQ(red.router.vifs().find(3), -1);
    EXPECT_GE(red.router.vifs().find(4), 0);
    EXPECT_EQ(red.kernel.dangling, 0);
}

TEST_P(InstancesTest, PacketsOfASourceWhoseLinkMovedAwayComeByTheRoute)
{
    red.environment.on_link.insert({1, source});
    join(RED, 3);
    red.packet(1, source, group);
    EXPECT_EQ(red.takes_from(source, group), 1u);
    red.environment.instances[1] = BLUE;
    red.environment.routes["5:" + source] = {2, false};
    red.router.links_changed();
    red.settle();
    EXPECT_EQ(red.takes_from(source, group), 2u);
    EXPECT_EQ(red.forwards(source, group), Interfaces{3});
}

TEST_P(InstancesTest, ARenamedInterfaceIsEnteredAnewButNotInThePublicInstance)
{
    for (Bench *each : {&common, &red}) {
        each->environment.on_link.insert({1, source});
    }
    join(0, 2);
    join(RED, 2);
    for (Bench *each : {&common, &red}) {
        each->packet(1, source, group);
        each->kernel.sets = 0;
        each->router.link_renamed(2);
        each->settle();
        EXPECT_EQ(each->forwards(source, group), Interfaces{2});
        EXPECT_EQ(each->kernel.dangling, 0);
    }
    EXPECT_EQ(common.kernel.sets, 0);
    EXPECT_EQ(red.kernel.sets, 2);
}

TEST_P(InstancesTest, LeavingTheKernelWithdrawsEverythingUntilItSettlesAgain)
{
    red.environment.on_link.insert({1, source});
    join(RED, 2);
    red.packet(1, source, group);
    red.router.leave_kernel();
    EXPECT_TRUE(red.kernel.entries.empty());
    EXPECT_TRUE(red.kernel.vifs.empty());
    EXPECT_EQ(red.kernel.dangling, 0);
    red.settle();
    EXPECT_EQ(red.forwards(source, group), Interfaces{2});
}

TEST_P(InstancesTest, DesignatedRoutersAreToldByInstance)
{
    clients.configure("[[mribd.instance]]\nvrf = 5\n[[mribd.instance]]\nvrf = 6\nenabled = false\n");
    clients.current_view.refresh();
    unsigned told = 0;
    clients.routers.on_designated_router([&] { ++told; });
    alert(MRIB_TLV_GMP_ENABLE, 0, 2, 1);
    alert(MRIB_TLV_GMP_ENABLE, RED, 3, 1);
    alert(MRIB_TLV_GMP_ENABLE, BLUE, 4, 1);
    EXPECT_EQ(told, 3u);
    clients.current_view.touch();
    clients.current_view.refresh();
    EXPECT_EQ(clients.current_view.view().designated, (std::set<InterfaceKey>{{0, 2}, {RED, 3}}));
    alert(MRIB_TLV_GMP_ENABLE, RED, 3, 0);
    EXPECT_EQ(clients.routers.designated_interfaces(), (std::set<InterfaceKey>{{0, 2}, {BLUE, 4}}));
    clients.routers.on_designated_router(nullptr);
}

TEST_P(InstancesTest, BoundariesAreOfTheInstanceThatTheInterfaceIsIn)
{
    common.environment.instances[3] = RED;
    clients.configure(
        "[[mribd.instance]]\nvrf = 5\n"
        "[[mribd.interface]]\nname = 'if2'\nboundaries = ['239.0.0.0/8', 'ff15::/16']\n"
        "[[mribd.interface]]\nname = 'if3'\nboundaries = ['239.0.0.0/8', 'ff15::/16']\n"
        "[[mribd.interface]]\nname = 'if4'\nvrf = 5\nboundaries = ['239.0.0.0/8', 'ff15::/16']\n");
    clients.current_view.refresh();
    std::set<InterfaceKey> keys;
    for (const auto &[key, boundary] : clients.current_view.view().boundaries) {
        keys.insert(key);
    }
    EXPECT_EQ(keys, (std::set<InterfaceKey>{{0, 2}, {RED, 3}, {RED, 4}}));
}

INSTANTIATE_TEST_SUITE_P(Families, InstancesTest, testing::Values(MCAST_FAMILY_IPV4, MCAST_FAMILY_IPV6),
                         [](const auto &instance) { return std::string(family_name(instance.param)); });

// With the running kernel and a configuration in force.
class InstancesHost : public testing::Test
{
protected:
    static void configure(const std::string &text)
    {
        char error[HOST_CONFIG_ERROR_SIZE];
        ASSERT_EQ(HOST_ConfigLoadText("file", text.data(), text.size(), nullptr, error, sizeof(error)), 0u)
            << error;
    }

    void TearDown() override
    {
        configure("");
    }

    static void build()
    {
        host_test::shell("ip link set lo up");
        for (const std::string name : {"red", "blue", "green"}) {
            host_test::shell("ip link add " + name + " type veth peer name " + name + "_far");
            host_test::shell("ip link set " + name + " up && ip link set " + name + "_far up");
            host_test::shell("ip addr add 10.9.0.1/24 dev " + name);
        }
        host_test::shell("ip route add 10.1.0.0/16 via 10.9.0.2 dev red");
        host_test::shell("ip route add 10.1.2.0/24 via 10.9.0.3 dev blue");
        host_test::shell("ip route add 10.1.0.0/16 via 10.9.0.4 dev green metric 3");
    }
};

constexpr const char *RED_AND_BLUE = "[[vpn]]\nname = 'red'\nindex = 5\ninterfaces = ['red']\n"
                                     "[[vpn]]\nname = 'blue'\nindex = 253\ninterfaces = ['blue']\n";

TEST_F(InstancesHost, InterfacesAndRoutesAreTheInstancesOwn)
{
    IN_FRESH_NAMESPACE([] {
        build();
        configure(RED_AND_BLUE);
        mcastd::Reactor reactor;
        HostEnvironment environment;
        ASSERT_TRUE(environment.open(reactor.descriptor(), {}));
        const uint32_t red = if_nametoindex("red");
        const uint32_t blue = if_nametoindex("blue");
        EXPECT_EQ(environment.multicast_interfaces(5), std::vector<uint32_t>{red});
        EXPECT_EQ(environment.instance_of(blue), uint16_t{253});
        const auto usable = environment.multicast_interfaces(0);
        EXPECT_EQ(std::count(usable.begin(), usable.end(), red), 0);
        const auto towards = [&](uint16_t vrf_index, const char *source) {
            const auto route = environment.route_to(vrf_index, address(source));
            return route.if_index == 0 ? "none" : environment.interface_name(route.if_index);
        };
        for (const char *source : {"10.9.0.77", "10.1.2.3"}) {
            EXPECT_EQ(towards(5, source), "red");
            EXPECT_EQ(towards(253, source), "blue");
            EXPECT_EQ(towards(0, source), "green");
        }
        EXPECT_EQ(towards(253, "10.1.3.3"), "none");
        EXPECT_EQ(towards(6, "10.1.2.3"), "none");
        EXPECT_EQ(towards(5, "192.0.2.1"), "none");
        for (const uint16_t vrf_index : {uint16_t{0}, uint16_t{5}, uint16_t{253}}) {
            EXPECT_TRUE(environment.route_to(vrf_index, address("10.9.0.1")).is_own);
        }
        EXPECT_EQ(environment.route_to(5, address("10.9.0.1")).if_index, red);
        EXPECT_EQ(environment.device_of(5).table, 0u);
    });
}

TEST_F(InstancesHost, APlaneServesWhatTheConfigurationNamesAndNothingElse)
{
    IN_FRESH_NAMESPACE([] {
        build();
        configure(RED_AND_BLUE);
        mcastd::Reactor reactor;
        HostEnvironment environment;
        ASSERT_TRUE(environment.open(reactor.descriptor(), {}));
        // What an mribd that was killed left behind.
        host_test::shell("ip mrule add iif blue table 9 pref 2000 protocol 17");
        const auto rules = [](const std::string &pattern) {
            return system(("ip mrule list | grep -q '" + pattern + "'").c_str()) == 0;
        };
        const ScriptedTimers timers;
        Plane plane(MCAST_FAMILY_IPV4, {210, 100, 0}, reactor, timers.manager(), environment);
        ASSERT_EQ(plane.open(), KernelMroute::OpenResult::Ready);
        EXPECT_FALSE(rules("lookup 9"));
        Config config;
        config.instances[5] = {};
        config.instances[253] = {};
        plane.configure(config);
        const Routers &routers = plane.server().backend().routers;
        ASSERT_EQ(routers.all().size(), 3u);
        for (const auto &[vrf_index, router] : routers.all()) {
            router->watch_sources(true);
        }
        plane.settle();
        EXPECT_TRUE(rules("iif red lookup 5"));
        EXPECT_TRUE(rules("iif blue lookup 65789")); // 253 is a default table of the kernel's
        EXPECT_FALSE(rules("green"));
        const std::string status = whole_text(status_parts({plane.status()}));
        EXPECT_NE(status.find("\nipv4 (red)\n  interface red: "), std::string::npos) << status;
        // The interface moves with the file.
        configure("[[vpn]]\nname = 'blue'\nindex = 253\ninterfaces = ['red']\n");
        config.instances.erase(5);
        plane.configure(config);
        routers.find(253)->watch_sources(true);
        plane.settle();
        EXPECT_EQ(routers.find(5), nullptr);
        EXPECT_TRUE(rules("iif red lookup 65789"));
        EXPECT_FALSE(rules("iif blue"));
        EXPECT_GE(routers.common().vifs().count(), 1u);
    });
}

TEST_F(InstancesHost, AnInstanceWhoseTableIsTakenIsToldAsDisabled)
{
    IN_FRESH_NAMESPACE([] {
        build();
        configure(RED_AND_BLUE);
        mcastd::Reactor reactor;
        HostEnvironment environment;
        ASSERT_TRUE(environment.open(reactor.descriptor(), {}));
        TableRules others_rules(MCAST_FAMILY_IPV4);
        KernelMroute other(others_rules, 5);
        std::string reason;
        ASSERT_EQ(other.open(&reason), KernelMroute::OpenResult::Ready);
        const ScriptedTimers timers;
        Plane plane(MCAST_FAMILY_IPV4, {210, 100, 0}, reactor, timers.manager(), environment);
        ASSERT_EQ(plane.open(), KernelMroute::OpenResult::Ready);
        Config config;
        config.instances[5] = {};
        plane.configure(config);
        plane.settle();
        EXPECT_FALSE(plane.server().backend().current_view.view().instances.at(5).enabled);
        EXPECT_EQ(plane.server().backend().routers.find(5), nullptr);
        other.shut();
        plane.configure(config);
        plane.settle();
        EXPECT_TRUE(plane.server().backend().current_view.view().instances.at(5).enabled);
    });
}

} // namespace
