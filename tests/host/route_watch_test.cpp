// The watch on routes, in network namespaces of their own.
#include <algorithm>
#include <arpa/inet.h>
#include <string>
#include <sys/socket.h>
#include <vector>

#include "mcasthost/route.h"
#include "namespace.h"

namespace
{

using host_test::shell;

std::string text(uint8_t family, const uint8_t *address)
{
    char buffer[INET6_ADDRSTRLEN] = "";
    inet_ntop(family, address, buffer, sizeof(buffer));
    return buffer;
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
