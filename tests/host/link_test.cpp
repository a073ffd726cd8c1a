// The link table against the kernel, in network namespaces of its own.
//
//     left0 ===== right0     a veth pair, both ends in the namespace, beside its loopback
#include "mcasthost/link.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <functional>
#include <map>
#include <net/if.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "namespace.h"

namespace
{

using host_test::notification_socket;
using host_test::shell;

struct Seen {
    uint32_t kind;
    std::string name;
    std::string old_name;
    std::string address;

    bool operator==(const Seen &other) const
    {
        return kind == other.kind && name == other.name && old_name == other.old_name &&
               address == other.address;
    }
};

std::ostream &operator<<(std::ostream &out, const Seen &seen)
{
    return out << seen.kind << " " << seen.name << " " << seen.old_name << " " << seen.address;
}

std::string text(const HOST_ADDRESS_S &address)
{
    char buffer[INET6_ADDRSTRLEN];
    inet_ntop(address.family, address.address, buffer, sizeof(buffer));
    return std::string(buffer) + "/" + std::to_string(address.prefix_length);
}

// A loop with a link table that notes every event.
struct Watched {
    Watched()
    {
        loop = HOST_LoopCreate();
        table = HOST_LinkOpen(loop, note, this);
        EXPECT_NE(table, nullptr);
    }
    ~Watched()
    {
        HOST_LinkClose(table);
        EXPECT_EQ(HOST_LoopDestroy(loop), 0u);
    }
    static void note(HOST_LINK_TABLE table, const HOST_LINK_EVENT_S *event, void *context)
    {
        Watched *self = static_cast<Watched *>(context);
        self->events.push_back({event->kind, event->link->name,
                                event->old_link != nullptr ? event->old_link->name : "",
                                event->address != nullptr ? text(*event->address) : ""});
        HOST_LINK_S link;
        EXPECT_EQ(HOST_LinkGetByIndex(table, event->link->if_index, &link) == 0,
                  event->kind != HOST_LINK_EVENT_REMOVED);
        if (self->action) {
            self->action();
        }
    }
    void drain()
    {
        while (HOST_LoopRunOnce(loop, 0) == 1) {
        }
    }
    // Serves until the condition holds; the time only bounds a failing run.
    bool serve_until(const std::function<bool()> &condition)
    {
        while (!condition()) {
            if (HOST_LoopRunOnce(loop, 20000) != 1) {
                return false;
            }
        }
        return true;
    }
    bool saw(const Seen &wanted) const
    {
        return std::count(events.begin(), events.end(), wanted) == 1;
    }
    size_t count(uint32_t kind) const
    {
        return static_cast<size_t>(
            std::count_if(events.begin(), events.end(), [&](const Seen &seen) { return seen.kind == kind; }));
    }
    HOST_LINK_S link(const char *name)
    {
        HOST_LINK_S found{};
        HOST_LinkGetByName(table, name, &found);
        return found;
    }
    int loop;
    HOST_LINK_TABLE table;
    std::vector<Seen> events;
    std::function<void()> action;
};

void make_pair()
{
    shell("ip link add left0 type veth peer name right0");
}

TEST(LinkTable, ReportsWhatExistsBeforeOpenReturns)
{
    IN_FRESH_NAMESPACE([] {
        make_pair();
        shell("ip addr add 10.9.0.1/24 dev left0");
        Watched watched;
        EXPECT_TRUE(watched.saw({HOST_LINK_EVENT_ADDED, "lo", "", ""}));
        EXPECT_TRUE(watched.saw({HOST_LINK_EVENT_ADDED, "left0", "", ""}));
        EXPECT_TRUE(watched.saw({HOST_LINK_EVENT_ADDED, "right0", "", ""}));
        EXPECT_TRUE(watched.saw({HOST_LINK_EVENT_ADDRESS_ADDED, "left0", "", "10.9.0.1/24"}));
        HOST_LINK_S link = watched.link("lo");
        EXPECT_NE(link.flags & HOST_LINK_LOOPBACK, 0u);
        EXPECT_EQ(link.flags & HOST_LINK_UP, 0u);
        link = watched.link("left0");
        EXPECT_EQ(link.if_index, if_nametoindex("left0"));
        EXPECT_EQ(link.mtu, 1500u);
        EXPECT_STREQ(link.kind, "veth");
        EXPECT_EQ(link.flags, HOST_LINK_MULTICAST | HOST_LINK_BROADCAST);
        size_t known = watched.events.size();
        watched.drain();
        EXPECT_EQ(watched.events.size(), known);
    });
}

TEST(LinkTable, FollowsLinksThatAppearChangeRenameAndVanish)
{
    IN_FRESH_NAMESPACE([] {
        Watched watched;
        make_pair();
        watched.drain();
        EXPECT_TRUE(watched.saw({HOST_LINK_EVENT_ADDED, "left0", "", ""}));
        uint32_t index = watched.link("left0").if_index;

        shell("ip link set left0 mtu 1400");
        watched.drain();
        EXPECT_TRUE(watched.saw({HOST_LINK_EVENT_CHANGED, "left0", "left0", ""}));
        EXPECT_EQ(watched.link("left0").mtu, 1400u);

        size_t changes = watched.count(HOST_LINK_EVENT_CHANGED);
        shell("ip link set left0 name renamed0");
        watched.drain();
        EXPECT_TRUE(watched.saw({HOST_LINK_EVENT_RENAMED, "renamed0", "left0", ""}));
        EXPECT_EQ(watched.count(HOST_LINK_EVENT_CHANGED), changes);
        EXPECT_EQ(watched.link("renamed0").if_index, index);
        HOST_LINK_S none;
        EXPECT_EQ(HOST_LinkGetByName(watched.table, "left0", &none), HOST_FAILED);

        shell("ip link set renamed0 up && ip link set right0 up");
        EXPECT_TRUE(
            watched.serve_until([&] { return (watched.link("renamed0").flags & HOST_LINK_RUNNING) != 0; }));
        EXPECT_NE(watched.link("renamed0").flags & HOST_LINK_UP, 0u);
        shell("ip link set right0 down");
        EXPECT_TRUE(watched.serve_until([&] { // the carrier is gone
            return (watched.link("renamed0").flags & HOST_LINK_RUNNING) == 0;
        }));
        EXPECT_NE(watched.link("renamed0").flags & HOST_LINK_UP, 0u);

        shell("ip link del renamed0");
        watched.drain();
        EXPECT_TRUE(watched.saw({HOST_LINK_EVENT_REMOVED, "renamed0", "", ""}));
        EXPECT_TRUE(watched.saw({HOST_LINK_EVENT_REMOVED, "right0", "", ""}));
        EXPECT_EQ(watched.link("renamed0").if_index, 0u);
    });
}

TEST(LinkTable, FollowsAddressesAndForgetsThemBeforeTheirLink)
{
    IN_FRESH_NAMESPACE([] {
        Watched watched;
        make_pair();
        shell("ip addr add 10.9.0.1/24 dev left0 && ip addr add 10.9.0.2/24 dev left0");
        shell("ip addr add 10.8.0.1 peer 10.8.0.9/32 dev left0");
        shell("ip addr add 2001:db8::1/64 dev left0 nodad");
        EXPECT_TRUE(watched.serve_until([&] { // the kernel tells IPv6 addresses some time after the command
            return watched.saw({HOST_LINK_EVENT_ADDRESS_ADDED, "left0", "", "2001:db8::1/64"});
        }));
        EXPECT_TRUE(watched.saw({HOST_LINK_EVENT_ADDRESS_ADDED, "left0", "", "10.9.0.1/24"}));
        EXPECT_TRUE(watched.saw({HOST_LINK_EVENT_ADDRESS_ADDED, "left0", "", "10.9.0.2/24"}));
        uint32_t index = watched.link("left0").if_index;
        HOST_ADDRESS_S address{};
        EXPECT_EQ(HOST_LinkGetAddress(watched.table, index, 1, &address), 0u);
        EXPECT_EQ(text(address), "10.9.0.2/24");
        EXPECT_EQ(address.flags, HOST_ADDRESS_SECONDARY);
        EXPECT_EQ(HOST_LinkGetAddress(watched.table, index, 2, &address), 0u);
        EXPECT_EQ(text(address), "10.8.0.1/32");
        EXPECT_EQ(address.peer[3], 9);
        EXPECT_EQ(HOST_LinkGetAddress(watched.table, index, 4, &address), HOST_FAILED);

        // Without the first address of the subnet the kernel drops the second too, or promotes it.
        shell("ip addr del 10.9.0.1/24 dev left0");
        watched.drain();
        EXPECT_TRUE(watched.saw({HOST_LINK_EVENT_ADDRESS_REMOVED, "left0", "", "10.9.0.1/24"}));
        shell("ip addr add 10.9.0.1/24 dev left0");
        watched.drain();
        EXPECT_EQ(watched.count(HOST_LINK_EVENT_ADDRESS_ADDED), 5u);

        watched.events.clear();
        shell("ip link del left0");
        watched.drain();
        EXPECT_TRUE(watched.saw({HOST_LINK_EVENT_ADDRESS_REMOVED, "left0", "", "10.9.0.1/24"}));
        EXPECT_TRUE(watched.saw({HOST_LINK_EVENT_ADDRESS_REMOVED, "left0", "", "10.8.0.1/32"}));
        EXPECT_TRUE(watched.saw({HOST_LINK_EVENT_ADDRESS_REMOVED, "left0", "", "2001:db8::1/64"}));
        bool removed = false;
        for (const Seen &seen : watched.events) {
            if (seen.name == "left0") {
                EXPECT_FALSE(removed) << seen;
                removed = removed || seen.kind == HOST_LINK_EVENT_REMOVED;
            }
        }
        EXPECT_TRUE(removed);
    });
}

TEST(LinkTable, SourceAddressIsThePrimaryIpv4AndTheUsableLinkLocalIpv6Address)
{
    IN_FRESH_NAMESPACE([] {
        Watched watched;
        make_pair();
        watched.drain();
        uint32_t index = watched.link("left0").if_index;
        HOST_ADDRESS_S address{};
        EXPECT_EQ(HOST_LinkGetSourceAddress(watched.table, index, AF_INET, &address), HOST_FAILED);
        EXPECT_EQ(HOST_LinkGetSourceAddress(watched.table, index, AF_INET6, &address), HOST_FAILED);
        shell("ip addr add 10.9.0.1/24 dev left0 && ip addr add 10.9.0.2/24 dev left0");
        shell("ip addr add 2001:db8::1/64 dev left0 nodad");
        watched.drain();
        ASSERT_EQ(HOST_LinkGetSourceAddress(watched.table, index, AF_INET, &address), 0u);
        EXPECT_EQ(text(address), "10.9.0.1/24");
        EXPECT_EQ(HOST_LinkGetSourceAddress(watched.table, index, AF_INET6, &address), HOST_FAILED);
        shell("ip link set left0 up && ip link set right0 up");
        // Only after the kernel's check for duplicates.
        EXPECT_TRUE(watched.serve_until(
            [&] { return HOST_LinkGetSourceAddress(watched.table, index, AF_INET6, &address) == 0; }));
        EXPECT_EQ(address.flags, HOST_ADDRESS_LINK_LOCAL);
        EXPECT_EQ(address.address[0], 0xfe);
    });
}

TEST(LinkTable, LostNotificationsAreMadeUpForByReadingEverythingAgain)
{
    IN_FRESH_NAMESPACE([] {
        make_pair();
        shell("ip addr add 10.9.0.1/24 dev left0");
        shell("ip addr add 10.7.0.1/24 dev right0");
        Watched watched;
        watched.events.clear();
        int smallest = 1;
        int fd = notification_socket();
        ASSERT_GE(fd, 0);
        ASSERT_EQ(setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &smallest, sizeof(smallest)), 0);
        shell("ip addr del 10.9.0.1/24 dev left0");
        shell("for i in $(seq 20); do ip link set right0 mtu $((1300 + i)); done");
        shell("ip link add new0 type veth peer name new1 && ip addr add 10.6.0.1/24 dev new0");
        shell("ip link set left0 name renamed0");
        watched.drain();
        EXPECT_GE(HOST_LinkResyncCount(watched.table), 1u);
        EXPECT_TRUE(watched.saw({HOST_LINK_EVENT_ADDRESS_REMOVED, "left0", "", "10.9.0.1/24"}));
        EXPECT_TRUE(watched.saw({HOST_LINK_EVENT_RENAMED, "renamed0", "left0", ""}));
        EXPECT_TRUE(watched.saw({HOST_LINK_EVENT_ADDED, "new0", "", ""}));
        EXPECT_TRUE(watched.saw({HOST_LINK_EVENT_ADDRESS_ADDED, "new0", "", "10.6.0.1/24"}));
        EXPECT_EQ(watched.link("right0").mtu, 1320u);
        for (const Seen &seen : watched.events) {
            EXPECT_NE(seen.address, "10.7.0.1/24"); // what did not change is not told
        }
        watched.events.clear();
        shell("ip link del new0"); // and notifications work on
        watched.drain();
        EXPECT_EQ(watched.count(HOST_LINK_EVENT_REMOVED), 2u);
    });
}

TEST(LinkTable, WalksLinksInTheOrderOfTheirIndexes)
{
    IN_FRESH_NAMESPACE([] {
        make_pair();
        Watched watched;
        std::vector<std::string> names;
        HOST_LINK_S link{};
        uint32_t last = 0;
        while (HOST_LinkGetNext(watched.table, last, &link) == 0) {
            EXPECT_GT(link.if_index, last);
            last = link.if_index;
            names.push_back(link.name);
        }
        EXPECT_EQ(names.size(), 3u);
        EXPECT_EQ(names.front(), "lo");
    });
}

TEST(LinkTable, MayBeClosedFromItsCallback)
{
    IN_FRESH_NAMESPACE([] {
        int loop = HOST_LoopCreate();
        static HOST_LINK_TABLE table;
        static int calls;
        calls = 0;
        table = HOST_LinkOpen(
            loop,
            [](HOST_LINK_TABLE self, const HOST_LINK_EVENT_S *event, void *) {
                ++calls;
                if (strcmp(event->link->name, "lo") != 0) {
                    HOST_LinkClose(self);
                }
            },
            nullptr);
        ASSERT_NE(table, nullptr);
        calls = 0;
        make_pair(); // two notifications, of which only the first arrives
        while (HOST_LoopRunOnce(loop, 0) == 1) {
        }
        EXPECT_EQ(calls, 1);
        EXPECT_EQ(notification_socket(), -1);
        EXPECT_EQ(HOST_LoopDestroy(loop), 0u);
    });
}

TEST(LinkTable, BridgePortsAreFollowedThroughTheirMasterOnly)
{
    IN_FRESH_NAMESPACE([] {
        if (system("ip link add br0 type bridge 2>/dev/null") != 0) {
            GTEST_SKIP() << "the kernel has no bridge";
        }
        make_pair();
        Watched watched;
        watched.events.clear();
        shell("ip link set left0 master br0");
        watched.drain();
        EXPECT_EQ(watched.link("left0").master_index, watched.link("br0").if_index);
        shell("ip link set left0 nomaster"); // the bridge takes leave of its port, which stays a link
        watched.drain();
        EXPECT_EQ(watched.link("left0").master_index, 0u);
        EXPECT_EQ(watched.count(HOST_LINK_EVENT_REMOVED), 0u);
    });
}

TEST(LinkTable, BadArgumentsAreRefused)
{
    EXPECT_EQ(HOST_LinkOpen(-1, nullptr, nullptr), nullptr);
    HOST_LINK_S link;
    HOST_ADDRESS_S address;
    EXPECT_EQ(HOST_LinkGetByIndex(nullptr, 1, &link), HOST_FAILED);
    EXPECT_EQ(HOST_LinkGetByName(nullptr, "lo", &link), HOST_FAILED);
    EXPECT_EQ(HOST_LinkGetNext(nullptr, 0, &link), HOST_FAILED);
    EXPECT_EQ(HOST_LinkGetAddress(nullptr, 1, 0, &address), HOST_FAILED);
    EXPECT_EQ(HOST_LinkGetSourceAddress(nullptr, 1, AF_INET, &address), HOST_FAILED);
    EXPECT_EQ(HOST_LinkResyncCount(nullptr), 0u);
    HOST_LinkClose(nullptr);
}

} // namespace
