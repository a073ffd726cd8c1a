// Route look-up and the watch on routes, in network namespaces of their own.
//
//     left0 (10.9.0.1/24, 2001:db8:9::1/64) ===== right0
//     routes: 10.1.0.0/16 via 10.9.0.2, 2001:db8:1::/48 via 2001:db8:9::2
#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <functional>
#include <net/if.h>
#include <string>
#include <sys/socket.h>
#include <vector>

#include "mcasthost/route.h"
#include "namespace.h"

namespace
{

using host_test::shell;

void build()
{
    shell("ip link set lo up && ip link add left0 type veth peer name right0");
    shell("ip link set left0 up && ip link set right0 up");
    shell("ip addr add 10.9.0.1/24 dev left0 && ip addr add 2001:db8:9::1/64 dev left0 nodad");
    shell("ip route add 10.1.0.0/16 via 10.9.0.2");
    shell("ip -6 route add 2001:db8:1::/48 via 2001:db8:9::2");
    // The kernel installs the address's own route some time after the command.
    shell("until ip -6 route show table local | grep -q 'local 2001:db8:9::1'; do :; done");
}

uint32_t look_up(const char *address, HOST_ROUTE_S *route)
{
    uint8_t bytes[16] = {};
    uint8_t family = std::string(address).find(':') == std::string::npos ? AF_INET : AF_INET6;
    EXPECT_EQ(inet_pton(family, address, bytes), 1);
    return HOST_RouteLookup(family, bytes, 0, route);
}

std::string text(uint8_t family, const uint8_t *address)
{
    char buffer[INET6_ADDRSTRLEN] = "";
    inet_ntop(family, address, buffer, sizeof(buffer));
    return buffer;
}

TEST(RouteLookup, TellsInterfaceGatewayAndSource)
{
    IN_FRESH_NAMESPACE([] {
        build();
        uint32_t left = if_nametoindex("left0");
        HOST_ROUTE_S route{};
        ASSERT_EQ(look_up("10.9.0.77", &route), 0u); // on the link
        EXPECT_EQ(route.if_index, left);
        EXPECT_EQ(route.family, AF_INET);
        EXPECT_EQ(route.gateway_family, 0);
        EXPECT_EQ(route.is_local, 0);
        EXPECT_EQ(text(AF_INET, route.source_address), "10.9.0.1");

        ASSERT_EQ(look_up("10.1.2.3", &route), 0u);
        EXPECT_EQ(route.if_index, left);
        EXPECT_EQ(route.gateway_family, AF_INET);
        EXPECT_EQ(text(AF_INET, route.gateway), "10.9.0.2");

        ASSERT_EQ(look_up("2001:db8:1::5", &route), 0u);
        EXPECT_EQ(route.if_index, left);
        EXPECT_EQ(route.family, AF_INET6);
        EXPECT_EQ(text(AF_INET6, route.gateway), "2001:db8:9::2");

        ASSERT_EQ(look_up("10.9.0.1", &route), 0u); // our own
        EXPECT_EQ(route.is_local, 1);
        EXPECT_EQ(route.if_index, if_nametoindex("lo"));
        ASSERT_EQ(look_up("2001:db8:9::1", &route), 0u);
        EXPECT_EQ(route.is_local, 1);
    });
}

TEST(RouteLookup, TellsAGatewayOfTheOtherFamily)
{
    IN_FRESH_NAMESPACE([] {
        build();
        shell("ip route add 10.2.0.0/16 via inet6 2001:db8:9::9");
        HOST_ROUTE_S route{};
        ASSERT_EQ(look_up("10.2.0.1", &route), 0u);
        EXPECT_EQ(route.gateway_family, AF_INET6);
        EXPECT_EQ(text(AF_INET6, route.gateway), "2001:db8:9::9");
    });
}

TEST(RouteLookup, NoUsableRouteIsAFailureThatLeavesTheOutputAlone)
{
    IN_FRESH_NAMESPACE([] {
        build();
        shell("ip route add unreachable 10.3.0.0/16 && ip route add blackhole 10.4.0.0/16");
        shell("ip route add prohibit 10.5.0.0/16 && ip -6 route add unreachable 2001:db8:3::/48");
        HOST_ROUTE_S route{};
        route.if_index = 4711;
        const struct {
            const char *address;
            int error;
        } rows[] = {
            {"192.0.2.1", ENETUNREACH}, {"10.3.0.1", EHOSTUNREACH},     {"10.4.0.1", ENETUNREACH},
            {"10.5.0.1", EACCES},       {"2001:db8:f::1", ENETUNREACH}, {"2001:db8:3::1", EHOSTUNREACH},
            {"10.9.0.255", EINVAL},     {"224.1.1.1", ENETUNREACH},
        };
        for (const auto &row : rows) {
            EXPECT_EQ(look_up(row.address, &route), HOST_FAILED) << row.address;
            EXPECT_EQ(errno, row.error) << row.address;
            EXPECT_EQ(route.if_index, 4711u);
        }
        uint8_t bytes[16] = {10, 9, 0, 2};
        EXPECT_EQ(HOST_RouteLookup(AF_UNIX, bytes, 0, &route), HOST_FAILED);
        EXPECT_EQ(HOST_RouteLookup(AF_INET, nullptr, 0, &route), HOST_FAILED);
        EXPECT_EQ(HOST_RouteLookup(AF_INET, bytes, 0, nullptr), HOST_FAILED);
    });
}

TEST(RouteLookup, AsksTheTableOfAVrfDevice)
{
    IN_FRESH_NAMESPACE([] {
        build();
        if (system("ip link add red type vrf table 77 2>/dev/null") != 0) {
            GTEST_SKIP() << "the kernel has no VRF devices";
        }
        shell("ip link set red up && ip link set right0 master red && ip addr add 10.1.0.1/24 dev right0");
        uint8_t address[4] = {10, 1, 0, 9};
        HOST_ROUTE_S route{};
        ASSERT_EQ(HOST_RouteLookup(AF_INET, address, if_nametoindex("red"), &route), 0u);
        EXPECT_EQ(route.if_index, if_nametoindex("right0"));
        ASSERT_EQ(HOST_RouteLookup(AF_INET, address, 0, &route), 0u);
        EXPECT_EQ(route.if_index, if_nametoindex("left0"));
    });
}

struct Watched {
    Watched()
    {
        loop = HOST_LoopCreate();
        watch = HOST_RouteWatchOpen(loop, note, this);
        EXPECT_NE(watch, nullptr);
    }
    ~Watched()
    {
        HOST_RouteWatchClose(watch);
        EXPECT_EQ(HOST_LoopDestroy(loop), 0u);
    }
    static void note(const HOST_ROUTE_CHANGE_S *change, void *context)
    {
        Watched *self = static_cast<Watched *>(context);
        self->changes.push_back(change->family == 0 ? "anything"
                                                    : text(change->family, change->prefix) + "/" +
                                                          std::to_string(change->prefix_length) + " " +
                                                          std::to_string(change->table));
        if (self->close_now) {
            HOST_RouteWatchClose(self->watch);
            self->watch = nullptr;
        }
    }
    void drain()
    {
        changes.clear();
        while (HOST_LoopRunOnce(loop, 0) == 1) {
        }
    }
    int loop;
    HOST_ROUTE_WATCH watch;
    bool close_now = false;
    std::vector<std::string> changes;
};

// The kernel tells the carrier's change some time after the command that caused it.
std::string until(const std::string &link, const std::string &state)
{
    return "until ip link show " + link + " | grep -q '" + state + "'; do :; done";
}

// A link without addresses of its own accord, so that nothing moves but what the test moves.
void build_quiet()
{
    shell("echo 1 > /proc/sys/net/ipv6/conf/all/disable_ipv6");
    shell("ip link set lo up && ip link add left0 type veth peer name right0");
    shell("ip link set left0 up && ip link set right0 up && ip addr add 10.9.0.1/24 dev left0");
    shell(until("left0", "state UP") + "; " + until("right0", "state UP"));
}

TEST(RouteWatch, TellsEachRouteThatComesAndGoes)
{
    IN_FRESH_NAMESPACE([] {
        build_quiet();
        Watched watched;
        shell("ip route add 10.1.0.0/16 via 10.9.0.2");
        watched.drain();
        EXPECT_EQ(watched.changes, std::vector<std::string>{"10.1.0.0/16 254"});
        shell("ip route add default via 10.9.0.2 table 1000");
        watched.drain();
        EXPECT_EQ(watched.changes, std::vector<std::string>{"0.0.0.0/0 1000"});
        shell("ip route del 10.1.0.0/16");
        watched.drain();
        EXPECT_EQ(watched.changes, std::vector<std::string>{"10.1.0.0/16 254"});
    });
}

TEST(RouteWatch, LinkAddressAndRuleChangesMayChangeAnythingAndAreToldOnce)
{
    IN_FRESH_NAMESPACE([] {
        build_quiet();
        Watched watched;
        shell("ip route add 10.1.0.0/16 via 10.9.0.2 && ip link set left0 down");
        shell(until("right0", "state LOWERLAYERDOWN"));
        watched.drain();
        EXPECT_EQ(watched.changes, std::vector<std::string>{"anything"});
        shell("ip addr add 10.8.0.1/24 dev left0");
        watched.drain();
        EXPECT_EQ(watched.changes, std::vector<std::string>{"anything"});
        if (system("ip rule add from 10.0.0.0/8 table 1000 2>/dev/null") == 0) {
            watched.drain();
            EXPECT_EQ(watched.changes, std::vector<std::string>{"anything"});
        }
    });
}

TEST(RouteWatch, ManyChangesAtOnceAreToldInBoundedNumber)
{
    IN_FRESH_NAMESPACE([] {
        build_quiet();
        Watched watched;
        shell("for i in $(seq 1000); do echo route add 10.$((i / 250)).$((i % 250)).0/30 via 10.9.0.2; done"
              " | ip -batch -");
        watched.drain();
        EXPECT_LT(watched.changes.size(), 500u);
        EXPECT_NE(std::count(watched.changes.begin(), watched.changes.end(), "anything"), 0);
    });
}

TEST(RouteWatch, LostNotificationsMeanThatAnythingMayHaveChanged)
{
    IN_FRESH_NAMESPACE([] {
        build_quiet();
        Watched watched;
        int smallest = 1;
        ASSERT_EQ(
            setsockopt(host_test::notification_socket(), SOL_SOCKET, SO_RCVBUF, &smallest, sizeof(smallest)),
            0);
        shell("for i in $(seq 50); do echo route add 10.1.$i.0/24 via 10.9.0.2; done | ip -batch -");
        watched.drain();
        EXPECT_EQ(watched.changes, std::vector<std::string>{"anything"});
    });
}

TEST(RouteWatch, MayBeClosedFromItsCallback)
{
    IN_FRESH_NAMESPACE([] {
        build_quiet();
        Watched watched;
        watched.close_now = true;
        shell("ip route add 10.1.0.0/16 via 10.9.0.2 && ip route add 10.2.0.0/16 via 10.9.0.2");
        watched.drain();
        EXPECT_EQ(watched.changes.size(), 1u);
        shell("ip route add 10.3.0.0/16 via 10.9.0.2");
        watched.drain();
        EXPECT_TRUE(watched.changes.empty());
    });
}

TEST(RouteWatch, BadArgumentsAreRefused)
{
    EXPECT_EQ(HOST_RouteWatchOpen(-1, Watched::note, nullptr), nullptr);
    int loop = HOST_LoopCreate();
    EXPECT_EQ(HOST_RouteWatchOpen(loop, nullptr, nullptr), nullptr);
    EXPECT_EQ(HOST_LoopDestroy(loop), 0u);
    HOST_RouteWatchClose(nullptr);
}

} // namespace
