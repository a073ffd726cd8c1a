/*
 * mribd against the running kernel, in a network namespace of the test's own: a veth pair whose one end
 * routes and whose other end is the wire into which packets are put.
 */
#include <cstdlib>
#include <gtest/gtest.h>
#include <optional>
#include <sys/wait.h>
#include <unistd.h>

#include "daemons/common/memory.h"
#include "daemons/common/reactor.h"
#include "daemons/descriptor_shortage.h"
#include "daemons/mribd/address.h"
#include "daemons/mribd/host_environment.h"
#include "daemons/mribd/kernel_mroute.h"
#include "daemons/mribd_kernel_support.h"
#include "host/namespace.h"

using namespace mribd;
using namespace mribd_test;

namespace
{

class KernelTest : public testing::TestWithParam<Family>
{
protected:
    const Family family = GetParam();
    TableRules rules_{GetParam().family};
};

TEST_P(KernelTest, OneRouterANamespaceAndTheSecondIsToldWhy)
{
    IN_FRESH_NAMESPACE([this] {
        KernelMroute first(rules_);
        KernelMroute second(rules_);
        std::string reason;
        ASSERT_EQ(first.open(&reason), KernelMroute::OpenResult::Ready) << reason;
        EXPECT_EQ(second.open(&reason), KernelMroute::OpenResult::Failed);
        EXPECT_NE(reason.find("another process"), std::string::npos) << reason;
        EXPECT_EQ(second.descriptor(), -1);
        first.shut();
        EXPECT_EQ(second.open(&reason), KernelMroute::OpenResult::Ready) << reason;
    });
}

TEST_P(KernelTest, PacketOfANewSourceIsReportedAndForwardedOnceItHasAnEntry)
{
    IN_FRESH_NAMESPACE([this] {
        make_link("in");
        make_link("out");
        KernelMroute kernel(rules_);
        std::string reason;
        ASSERT_EQ(kernel.open(&reason), KernelMroute::OpenResult::Ready) << reason;
        ASSERT_EQ(kernel.add_vif(3, if_nametoindex("in")), 0);
        ASSERT_EQ(kernel.add_vif(31, if_nametoindex("out")), 0);
        EXPECT_EQ(kernel.add_vif(31, if_nametoindex("in")), EADDRINUSE);
        const MCAST_ADDR_S source = address(family.source);
        const MCAST_ADDR_S group = address(family.group);
        EXPECT_FALSE(kernel.counters(source, group));
        ASSERT_TRUE(put_until_told(kernel, "in_wire", family));
        const auto upcalls = served(kernel);
        ASSERT_EQ(upcalls.size(), 1u);
        EXPECT_EQ(upcalls[0].kind, UpcallKind::NoEntry);
        EXPECT_EQ(upcalls[0].vif, 3u);
        EXPECT_EQ(text_or_star(upcalls[0].source), family.source);
        EXPECT_EQ(text_or_star(upcalls[0].group), family.group);
        ASSERT_EQ(kernel.set_entry(source, group, 3, 1u << 31), 0);
        put_on_wire("in_wire", family);
        ASSERT_TRUE(put_until_told(kernel, "out_wire", family));
        const auto wrong = served(kernel);
        ASSERT_EQ(wrong.size(), 1u);
        EXPECT_EQ(wrong[0].kind, UpcallKind::WrongInterface);
        EXPECT_EQ(wrong[0].vif, 31u);
        const auto counters = kernel.counters(source, group);
        ASSERT_TRUE(counters);
        EXPECT_GE(counters->packets, 2u);
        EXPECT_GE(counters->wrong_interface, 1u); // the wire's ends are in this namespace too and may count
        EXPECT_EQ(kernel.delete_entry(source, group), 0);
        EXPECT_EQ(kernel.delete_entry(source, group), ENOENT);
        EXPECT_EQ(kernel.delete_vif(31), 0);
        EXPECT_EQ(kernel.delete_vif(31), EADDRNOTAVAIL);
    });
}

TEST_P(KernelTest, BurstIsServedNewestFirstAndABoundedNumberAtATime)
{
    IN_FRESH_NAMESPACE([this] {
        make_link("in");
        KernelMroute kernel(rules_);
        std::string reason;
        ASSERT_EQ(kernel.open(&reason), KernelMroute::OpenResult::Ready) << reason;
        ASSERT_EQ(kernel.add_vif(0, if_nametoindex("in")), 0);
        for (const char digit : {'1', '2', '3'}) {
            Family sender = family;
            sender.source.back() = digit;
            ASSERT_TRUE(put_until_told(kernel, "in_wire", sender));
        }
        std::string order;
        const auto take = [&order](const Upcall &upcall) { order += text_or_star(upcall.source).back(); };
        EXPECT_TRUE(kernel.serve(2, take));
        EXPECT_FALSE(kernel.serve(2, take));
        EXPECT_EQ(order, "321");
        EXPECT_EQ(kernel.lost_upcalls(), 0u);
    });
}

// A process of its own, for memory stays short there.
TEST_P(KernelTest, WithoutMemoryTheNewest256UpcallsWait)
{
    const auto sender = [this](unsigned number) {
        Family result = family;
        result.source = (family.family == MCAST_FAMILY_IPV4 ? "10.9.1." : "2001:db8:9::1:") +
                        std::to_string(number % 250);
        result.group.back() = static_cast<char>('1' + number / 250);
        return result;
    };
    const auto burst = [this, &sender] {
        constexpr unsigned SENDERS = 300;
        make_link("in");
        KernelMroute kernel(rules_);
        std::string reason;
        ASSERT_EQ(kernel.open(&reason), KernelMroute::OpenResult::Ready) << reason;
        ASSERT_EQ(kernel.add_vif(0, if_nametoindex("in")), 0);
        for (unsigned number = 0; number < SENDERS; ++number) {
            ASSERT_TRUE(put_until_told(kernel, "in_wire", sender(number))) << number;
        }
        const auto upcalls = served(kernel);
        ASSERT_EQ(upcalls.size(), 256u);
        EXPECT_EQ(text_or_star(upcalls.back().source), sender(SENDERS - 256).source);
        EXPECT_EQ(kernel.lost_upcalls(), SENDERS - 256);
    };
    constexpr int NOT_PERMITTED = 2;
    const auto in_the_process = [&burst] {
        const bool is_open = mcastd::memory_open();
        mcastd::memory_refuse("a test");
        const bool is_permitted = host_test::in_fresh_namespace(burst);
        std::_Exit(!is_open || HasFailure() ? 1 : is_permitted ? 0 : NOT_PERMITTED);
    };
    EXPECT_EXIT(
        in_the_process(),
        [](int status) {
            return WIFEXITED(status) && (WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == NOT_PERMITTED);
        },
        "");
}

TEST_P(KernelTest, InterfaceThatDoesNotExistGetsNoVirtualInterface)
{
    IN_FRESH_NAMESPACE([this] {
        KernelMroute kernel(rules_);
        std::string reason;
        ASSERT_EQ(kernel.open(&reason), KernelMroute::OpenResult::Ready) << reason;
        EXPECT_NE(kernel.add_vif(0, 4711), 0);
        EXPECT_NE(kernel.add_vif(MAX_VIFS, 1), 0);
        if (family.family == MCAST_FAMILY_IPV6) {
            EXPECT_EQ(kernel.add_vif(0, 65536), ERANGE);
        }
    });
}

TEST_P(KernelTest, TablesForwardTheSameSourceAndGroupEachItsOwnWay)
{
    IN_FRESH_NAMESPACE([this] {
        std::string reason;
        const MCAST_ADDR_S source = address(family.source);
        const MCAST_ADDR_S group = address(family.group);
        KernelMroute common(rules_);
        KernelMroute red(rules_, 5);
        KernelMroute blue(rules_, 65789);
        for (KernelMroute *kernel : {&common, &red, &blue}) {
            ASSERT_EQ(kernel->open(&reason), KernelMroute::OpenResult::Ready) << reason;
        }
        for (const std::string name : {"in", "red", "blue"}) {
            make_link(name);
        }
        ASSERT_EQ(common.add_vif(0, if_nametoindex("in")), 0);
        ASSERT_EQ(red.add_vif(0, if_nametoindex("red")), 0);
        ASSERT_EQ(blue.add_vif(0, if_nametoindex("blue")), 0);
        EXPECT_EQ(red.add_vif(0, if_nametoindex("blue")), EADDRINUSE);
        for (auto &[kernel, wire] : std::map<KernelMroute *, std::string>{
                 {&common, "in_wire"}, {&red, "red_wire"}, {&blue, "blue_wire"}}) {
            ASSERT_TRUE(put_until_told(*kernel, wire, family));
            ASSERT_EQ(kernel->set_entry(source, group, 0, 0), 0);
            put_on_wire(wire, family);
        }
        EXPECT_EQ(red.delete_entry(source, group), 0);
        EXPECT_FALSE(red.counters(source, group));
        for (KernelMroute *kernel : {&common, &blue}) {
            const auto counters = kernel->counters(source, group);
            ASSERT_TRUE(counters);
            EXPECT_GE(counters->packets, 1u);
            EXPECT_EQ(counters->wrong_interface, 0u);
        }
    });
}

TEST_P(KernelTest, RulesOfATableLiveAsLongAsItsVirtualInterfaces)
{
    IN_FRESH_NAMESPACE([this] {
        const std::string list = family.family == MCAST_FAMILY_IPV4 ? "ip mrule list" : "ip -6 mrule list";
        const auto is_led = [&list](const std::string &name, const std::string &table) {
            return system((list + " | grep -q 'iif " + name + " lookup " + table + "'").c_str()) == 0;
        };
        make_link("one");
        make_link("two");
        std::string reason;
        KernelMroute red(rules_, 5);
        KernelMroute blue(rules_, 6);
        ASSERT_EQ(red.open(&reason), KernelMroute::OpenResult::Ready) << reason;
        ASSERT_EQ(blue.open(&reason), KernelMroute::OpenResult::Ready) << reason;
        ASSERT_EQ(red.add_vif(0, if_nametoindex("one")), 0);
        ASSERT_EQ(red.add_vif(1, if_nametoindex("two")), 0);
        EXPECT_TRUE(is_led("one", "5") && is_led("two", "5"));
        // It moves: whether it comes before it goes is all the same.
        ASSERT_EQ(blue.add_vif(0, if_nametoindex("one")), 0);
        EXPECT_EQ(red.delete_vif(0), 0);
        EXPECT_TRUE(is_led("one", "6"));
        red.shut();
        EXPECT_FALSE(is_led("two", "5"));
        blue.shut();
        EXPECT_FALSE(is_led("one", "6"));
        ASSERT_EQ(blue.open(&reason), KernelMroute::OpenResult::Ready) << reason;
        EXPECT_EQ(blue.add_vif(0, if_nametoindex("one")), 0);
    });
}

TEST_P(KernelTest, RuleThatCannotBeRemovedGoesWhenItCanBe)
{
    IN_FRESH_NAMESPACE([this] {
        const std::string list = family.family == MCAST_FAMILY_IPV4 ? "ip mrule list" : "ip -6 mrule list";
        const auto is_led = [&list](const std::string &name) {
            return system((list + " | grep -q 'iif " + name + " '").c_str()) == 0;
        };
        make_link("one");
        make_link("two");
        std::string reason;
        std::optional<KernelMroute> red(std::in_place, rules_, 5);
        ASSERT_EQ(red->open(&reason), KernelMroute::OpenResult::Ready) << reason;
        ASSERT_EQ(red->add_vif(0, if_nametoindex("one")), 0);
        ASSERT_EQ(red->add_vif(1, if_nametoindex("two")), 0);
        {
            const Shortage shortage;
            EXPECT_EQ(red->delete_vif(0), 0);
            EXPECT_EQ(red->delete_vif(1), 0);
            rules_.remove_left();
        }
        red.reset(); // the instance is gone, its rules are not
        EXPECT_TRUE(is_led("one") && is_led("two") && rules_.has_left());
        KernelMroute blue(rules_, 6);
        ASSERT_EQ(blue.open(&reason), KernelMroute::OpenResult::Ready) << reason;
        ASSERT_EQ(blue.add_vif(0, if_nametoindex("one")), 0);
        rules_.remove_left();
        EXPECT_FALSE(rules_.has_left());
        EXPECT_TRUE(is_led("one"));
        EXPECT_FALSE(is_led("two"));
    });
}

TEST_P(KernelTest, WhatAnEarlierProcessLeftGoesBeforeTheFirstRule)
{
    IN_FRESH_NAMESPACE([this] {
        const std::string ip = family.family == MCAST_FAMILY_IPV4 ? "ip mrule " : "ip -6 mrule ";
        const auto is_led = [&ip](const std::string &name) {
            return system((ip + "list | grep -q 'iif " + name + " '").c_str()) == 0;
        };
        make_link("one");
        host_test::shell(ip + "add iif two table 9 pref 2000 protocol 17");
        std::string reason;
        KernelMroute red(rules_, 5);
        ASSERT_EQ(red.open(&reason), KernelMroute::OpenResult::Ready) << reason;
        {
            const Shortage shortage;
            rules_.begin();
            EXPECT_EQ(rules_.lead("one", 5), EMFILE);
        }
        EXPECT_TRUE(is_led("two") && rules_.has_left());
        rules_.remove_left();
        EXPECT_FALSE(is_led("two") || rules_.has_left());
        EXPECT_EQ(red.add_vif(0, if_nametoindex("one")), 0);
    });
}

TEST_P(KernelTest, TableThatIsTakenIsNamed)
{
    IN_FRESH_NAMESPACE([this] {
        std::string reason;
        KernelMroute first(rules_, 5);
        KernelMroute second(rules_, 5);
        ASSERT_EQ(first.open(&reason), KernelMroute::OpenResult::Ready) << reason;
        EXPECT_EQ(second.open(&reason), KernelMroute::OpenResult::Failed);
        EXPECT_NE(reason.find("multicast table 5"), std::string::npos) << reason;
    });
}

INSTANTIATE_TEST_SUITE_P(Families, KernelTest,
                         testing::Values(Family{MCAST_FAMILY_IPV4, "10.9.0.5", "239.1.1.1"},
                                         Family{MCAST_FAMILY_IPV6, "2001:db8:9::5", "ff1e::1"}),
                         [](const auto &instance) {
                             return std::string(family_name(instance.param.family));
                         });

TEST(HostEnvironment, KnowsLinksSubnetsRoutesAndOwnAddresses)
{
    IN_FRESH_NAMESPACE([] {
        host_test::shell("ip link set lo up");
        make_link("one");
        host_test::shell(
            "ip address add 10.9.1.1/24 dev one && ip address add 2001:db8:9::1/64 dev one nodad");
        host_test::shell(
            "ip route add 10.8.0.0/16 via 10.9.1.2 && ip route add 2001:db8:8::/48 via 2001:db8:9::2");
        host_test::shell("ip link set one_wire down");
        mcastd::Reactor reactor;
        HostEnvironment environment;
        ASSERT_TRUE(environment.open(reactor.descriptor(), {}));
        const uint32_t one = if_nametoindex("one");
        // The kernel tells IPv6 addresses, and makes routes usable, a moment after the command.
        const auto eventually = [&reactor](const std::function<bool()> &condition) {
            for (int round = 0; round < 500 && !condition(); ++round) {
                EXPECT_TRUE(reactor.run_once(10));
            }
            return condition();
        };
        EXPECT_TRUE(eventually([&] { return environment.route_to(0, address("2001:db8:9::1")).is_own; }));
        EXPECT_TRUE(eventually([&] { return environment.is_on_link(one, address("2001:db8:9::77")); }));
        EXPECT_EQ(environment.multicast_interfaces(0), std::vector<uint32_t>{one});
        EXPECT_EQ(environment.interface_name(one), "one");
        EXPECT_EQ(environment.interface_name(4711), "0x1267");
        EXPECT_TRUE(environment.is_on_link(one, address("10.9.1.77")));
        EXPECT_FALSE(environment.is_on_link(one, address("10.9.2.77")));
        EXPECT_FALSE(environment.is_on_link(one, address("2001:db8:9:1::77")));
        EXPECT_TRUE(environment.route_to(0, address("10.9.1.1")).is_own);
        EXPECT_EQ(environment.route_to(0, address("10.9.1.1")).if_index, one);
        EXPECT_EQ(environment.route_to(0, address("192.0.2.1")).if_index, 0u);
        EXPECT_EQ(environment.obstacle(MCAST_FAMILY_IPV6, one).find("disable_ipv6"), std::string::npos);
        host_test::shell("ip link set one_wire up");
        EXPECT_TRUE(eventually([&] { return environment.route_to(0, address("10.8.3.4")).if_index == one; }));
        EXPECT_FALSE(environment.route_to(0, address("10.8.3.4")).is_own);
        EXPECT_TRUE(
            eventually([&] { return environment.route_to(0, address("2001:db8:8::4")).if_index == one; }));
    });
}

TEST(HostEnvironment, TellsWhatChangesAround)
{
    IN_FRESH_NAMESPACE([] {
        make_link("one");
        mcastd::Reactor reactor;
        HostEnvironment environment;
        unsigned links = 0;
        unsigned routes = 0;
        std::vector<uint32_t> removed;
        HostEnvironment::Events events;
        events.links_changed = [&links] { ++links; };
        events.link_removed = [&removed](uint32_t if_index) { removed.push_back(if_index); };
        events.routes_changed = [&routes](uint8_t, const uint8_t *, unsigned) { ++routes; };
        ASSERT_TRUE(environment.open(reactor.descriptor(), events));
        const auto serve_until = [&reactor](const std::function<bool()> &done) {
            for (int round = 0; round < 100 && !done(); ++round) {
                ASSERT_TRUE(reactor.run_once(1000));
            }
            EXPECT_TRUE(done());
        };
        const uint32_t one = if_nametoindex("one");
        host_test::shell("ip address add 10.9.1.1/24 dev one");
        serve_until([&] { return links != 0 && routes != 0; });
        links = 0;
        host_test::shell("ip link set one down");
        serve_until([&] { return links != 0; });
        const auto usable = environment.multicast_interfaces(0);
        EXPECT_EQ(std::count(usable.begin(), usable.end(), one), 0);
        host_test::shell("ip link set one name other");
        serve_until([&] { return environment.interface_name(one) == "other"; });
        host_test::shell("ip link delete other");
        serve_until([&] { return std::count(removed.begin(), removed.end(), one) == 1; });
    });
}

TEST(HostEnvironment, TellsOfALinkWhatMulticastDependsOn)
{
    IN_FRESH_NAMESPACE([] {
        host_test::shell("ip link add one type veth peer name one_wire && ip link add red type bridge");
        mcastd::Reactor reactor;
        HostEnvironment environment;
        unsigned links = 0;
        unsigned renamed = 0;
        HostEnvironment::Events events;
        events.links_changed = [&links] { ++links; };
        events.link_renamed = [&renamed](uint32_t) { ++renamed; };
        events.link_removed = [](uint32_t) {};
        events.routes_changed = [](uint8_t, const uint8_t *, unsigned) {};
        ASSERT_TRUE(environment.open(reactor.descriptor(), events));
        // A new name is told of after everything that came before it.
        std::string name = "one";
        const auto told_of = [&](const std::string &change) {
            links = renamed = 0;
            const std::string other = name == "one" ? "other" : "one";
            host_test::shell("ip link set " + name + " " + change + " && ip link set " + name + " name " +
                             other);
            name = other;
            for (int round = 0; round < 10 && renamed == 0; ++round) {
                EXPECT_TRUE(reactor.run_once(1000));
            }
            EXPECT_EQ(renamed, 1u);
            return links;
        };
        EXPECT_EQ(told_of("mtu 1400"), 0u);
        EXPECT_GT(told_of("multicast off"), 0u);
        EXPECT_GT(told_of("master red"), 0u);
        EXPECT_EQ(told_of("mtu 1300"), 0u);
    });
}

TEST(HostEnvironment, NamesTheSysctlThatKeepsIpv6Away)
{
    IN_FRESH_NAMESPACE([] {
        make_link("one");
        // Written by this thread, because /proc/sys/net shows the writer's namespace.
        FILE *file = fopen("/proc/sys/net/ipv6/conf/one/disable_ipv6", "w");
        ASSERT_NE(file, nullptr);
        fputs("1", file);
        fclose(file);
        mcastd::Reactor reactor;
        HostEnvironment environment;
        ASSERT_TRUE(environment.open(reactor.descriptor(), {}));
        EXPECT_EQ(environment.obstacle(MCAST_FAMILY_IPV6, if_nametoindex("one")),
                  "net/ipv6/conf/one/disable_ipv6 is 1");
    });
}

} // namespace
