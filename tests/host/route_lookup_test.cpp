// Route look-up, in network namespaces of their own.
//
//     left0 (10.9.0.1/24, 2001:db8:9::1/64) ===== right0
//     routes: 10.1.0.0/16 via 10.9.0.2, 2001:db8:1::/48 via 2001:db8:9::2
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <net/if.h>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>
#include <linux/filter.h>
#include <linux/rtnetlink.h>

#include "mcasthost/route.h"
#include "namespace.h"
#include "support.h"
#include "support/descriptors.h"

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

// An open way to look up routes, and its socket: the next descriptor to be given out.
class Lookup
{
public:
    Lookup() : descriptor_(dup(STDERR_FILENO))
    {
        close(descriptor_);
        handle_ = HOST_RouteLookupOpen();
        EXPECT_NE(handle_, nullptr);
    }
    ~Lookup()
    {
        HOST_RouteLookupClose(handle_);
    }
    Lookup(const Lookup &) = delete;
    Lookup &operator=(const Lookup &) = delete;

    HOST_ROUTE_LOOKUP handle() const
    {
        return handle_;
    }
    int descriptor() const
    {
        return descriptor_;
    }

    // The interface towards an IPv4 address, 0 when there is none.
    uint32_t interface_to(const char *address) const
    {
        uint8_t bytes[4];
        HOST_ROUTE_S route{};
        EXPECT_EQ(inet_pton(AF_INET, address, bytes), 1);
        return HOST_RouteLookupAsk(handle_, AF_INET, bytes, 0, &route) == 0 ? route.if_index : 0;
    }

private:
    int descriptor_;
    HOST_ROUTE_LOOKUP handle_;
};

// Asks in both ways, which have one answer.
uint32_t look_up(const char *address, HOST_ROUTE_S *route)
{
    uint8_t bytes[16] = {};
    uint8_t family = std::string(address).find(':') == std::string::npos ? AF_INET : AF_INET6;
    EXPECT_EQ(inet_pton(family, address, bytes), 1);
    HOST_ROUTE_S kept = *route;
    const Lookup lookup;
    const uint32_t kept_result = HOST_RouteLookupAsk(lookup.handle(), family, bytes, 0, &kept);
    const int kept_error = errno;
    const uint32_t result = HOST_RouteLookup(family, bytes, 0, route);
    EXPECT_EQ(kept_result, result) << address;
    EXPECT_TRUE(result == 0 || kept_error == errno) << address;
    EXPECT_EQ(memcmp(&kept, route, sizeof(kept)), 0) << address;
    return result;
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

// Lets the socket lose messages whose sequence number has one of the bits; 0: every message.
void lose_answers(int descriptor, uint32_t sequence_bits)
{
    const uint32_t lowest_byte = offsetof(nlmsghdr, nlmsg_seq); // which filters read in network order
    sock_filter some[] = {
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, lowest_byte),
        BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, sequence_bits, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, 0),
        BPF_STMT(BPF_RET | BPF_K, 0xffff),
    };
    sock_filter all[] = {BPF_STMT(BPF_RET | BPF_K, 0)};
    const sock_fprog program = sequence_bits == 0 ? sock_fprog{1, all} : sock_fprog{4, some};
    EXPECT_EQ(setsockopt(descriptor, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof(program)), 0);
}

TEST(OpenRouteLookup, GoesOnAfterAnswersOfEveryKind)
{
    IN_FRESH_NAMESPACE([] {
        build();
        const uint32_t left = if_nametoindex("left0");
        const Lookup lookup;
        for (int i = 0; i < 300; ++i) {
            EXPECT_EQ(lookup.interface_to("10.1.2.3"), left);
            EXPECT_EQ(lookup.interface_to("192.0.2.1"), 0u);
            EXPECT_EQ(errno, ENETUNREACH);
            EXPECT_EQ(lookup.interface_to("10.9.0.1"), if_nametoindex("lo"));
        }
    });
}

TEST(OpenRouteLookup, SkipsAnAnswerThatNobodyRead)
{
    IN_FRESH_NAMESPACE([] {
        build();
        const Lookup lookup;
        struct {
            nlmsghdr header;
            rtmsg route;
            rtattr attribute;
            uint8_t destination[4];
        } question{};
        question.header = {sizeof(question), RTM_GETROUTE, NLM_F_REQUEST, 4711, 0};
        question.route.rtm_family = AF_INET;
        question.route.rtm_dst_len = 32;
        question.attribute = {sizeof(rtattr) + 4, RTA_DST};
        const uint8_t own[4] = {10, 9, 0, 1};
        memcpy(question.destination, own, sizeof(own));
        ASSERT_EQ(send(lookup.descriptor(), &question, sizeof(question), 0), ssize_t{sizeof(question)});
        EXPECT_EQ(lookup.interface_to("10.1.2.3"), if_nametoindex("left0"));
    });
}

TEST(OpenRouteLookup, AsksOnceMoreWhenAnAnswerIsLost)
{
    IN_FRESH_NAMESPACE([] {
        build();
        const Lookup lookup;
        lose_answers(lookup.descriptor(), 1); // of two numbers in a row one
        for (int i = 0; i < 10; ++i) {
            EXPECT_EQ(lookup.interface_to("10.1.2.3"), if_nametoindex("left0"));
        }
    });
}

TEST(OpenRouteLookup, FailsWhenEveryAnswerIsLostAndWorksAgainAfterwards)
{
    IN_FRESH_NAMESPACE([] {
        build();
        const Lookup lookup;
        lose_answers(lookup.descriptor(), 0);
        EXPECT_EQ(lookup.interface_to("10.1.2.3"), 0u);
        EXPECT_EQ(errno, EAGAIN);
        const int unused = 0;
        EXPECT_EQ(setsockopt(lookup.descriptor(), SOL_SOCKET, SO_DETACH_FILTER, &unused, sizeof(unused)), 0);
        EXPECT_EQ(lookup.interface_to("10.1.2.3"), if_nametoindex("left0"));
    });
}

TEST(OpenRouteLookup, FollowsRoutesThatChange)
{
    IN_FRESH_NAMESPACE([] {
        build();
        const Lookup lookup;
        EXPECT_EQ(lookup.interface_to("10.7.0.1"), 0u);
        shell("ip addr add 10.7.0.2/24 dev right0");
        EXPECT_EQ(lookup.interface_to("10.7.0.1"), if_nametoindex("right0"));
        shell("ip addr del 10.7.0.2/24 dev right0");
        EXPECT_EQ(lookup.interface_to("10.7.0.1"), 0u);
    });
}

TEST(OpenRouteLookup, StaysInItsNamespaceWhileTheThreadMovesOn)
{
    IN_FRESH_NAMESPACE([] {
        build();
        const uint32_t left = if_nametoindex("left0");
        const Lookup lookup;
        EXPECT_TRUE(host_test::in_fresh_namespace([&] {
            uint8_t address[4] = {10, 1, 2, 3};
            HOST_ROUTE_S route{};
            EXPECT_EQ(lookup.interface_to("10.1.2.3"), left);
            EXPECT_EQ(HOST_RouteLookup(AF_INET, address, 0, &route), HOST_FAILED);
        }));
    });
}

TEST(OpenRouteLookup, AChildOfAForkHasASocketOfItsOwn)
{
    IN_FRESH_NAMESPACE([] {
        build();
        const uint32_t left = if_nametoindex("left0");
        const Lookup lookup;
        const int status = host_test::in_child([&] {
            lose_answers(lookup.descriptor(), 0); // of the one that it shares with its parent
            return lookup.interface_to("10.1.2.3") == left ? 0 : 1;
        });
        EXPECT_EQ(status, 0);
        EXPECT_EQ(lookup.interface_to("10.1.2.3"), 0u);
    });
}

TEST(OpenRouteLookup, TakesOneDescriptorAndGivesItBack)
{
    const int before = OpenDescriptors();
    for (int i = 0; i < 100; ++i) {
        const Lookup lookup;
        lookup.interface_to("127.0.0.1");
        EXPECT_EQ(OpenDescriptors(), before + 1);
    }
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST(OpenRouteLookup, FailsWithoutDescriptors)
{
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_EQ(HOST_RouteLookupOpen(), nullptr);
    EXPECT_EQ(errno, EMFILE);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

// Two interfaces of instances that have the same addresses, and routes of their own.
void build_overlapping()
{
    shell("ip link set lo up");
    for (const std::string name : {"red", "blue"}) {
        shell("ip link add " + name + " type veth peer name " + name + "_far");
        shell("ip link set " + name + " up && ip link set " + name + "_far up");
        shell("ip addr add 10.9.0.1/24 dev " + name + " && ip addr add 2001:db8:9::1/64 dev " + name +
              " nodad");
    }
    shell("ip route add 10.1.0.0/16 via 10.9.0.2 dev red");
    shell("ip route add 10.1.2.0/24 via 10.9.0.3 dev blue metric 7");
    shell("ip -6 route add 2001:db8:1::/48 via 2001:db8:9::2 dev red metric 7");
    shell("ip -6 route add 2001:db8:1:2::/64 via 2001:db8:9::3 dev blue");
}

TEST(RouteLookupOn, FindsTheBestRouteThatLeavesByTheInterface)
{
    IN_FRESH_NAMESPACE([] {
        build_overlapping();
        const struct {
            const char *address;
            const char *interface;
            int prefix_length; // -1: there is none
            const char *gateway;
        } rows[] = {
            {"10.1.2.3", "red", 16, "10.9.0.2"},
            {"10.1.2.3", "blue", 24, "10.9.0.3"},
            {"10.1.3.3", "red", 16, "10.9.0.2"},
            {"10.1.3.3", "blue", -1, ""},
            {"10.9.0.77", "red", 24, ""},
            {"10.9.0.77", "blue", 24, ""},
            {"2001:db8:1:2::5", "red", 48, "2001:db8:9::2"},
            {"2001:db8:1:2::5", "blue", 64, "2001:db8:9::3"},
            {"2001:db8:1:3::5", "blue", -1, ""},
            {"2001:db8:9::77", "red", 64, ""},
            {"2001:db8:9::77", "blue", 64, ""},
            {"192.0.2.1", "red", -1, ""},
        };
        const Lookup lookup;
        for (const auto &row : rows) {
            SCOPED_TRACE(std::string(row.address) + " on " + row.interface);
            uint8_t bytes[16] = {};
            const bool is_ipv6 = std::string(row.address).find(':') != std::string::npos;
            const auto family = static_cast<uint8_t>(is_ipv6 ? AF_INET6 : AF_INET);
            ASSERT_EQ(inet_pton(family, row.address, bytes), 1);
            const uint32_t if_index = if_nametoindex(row.interface);
            HOST_ROUTE_S route{};
            const uint32_t result = HOST_RouteLookupOn(lookup.handle(), family, bytes, if_index, &route);
            ASSERT_EQ(result, row.prefix_length < 0 ? HOST_FAILED : 0u);
            if (result == 0) {
                EXPECT_EQ(route.if_index, if_index);
                EXPECT_EQ(route.prefix_length, row.prefix_length);
                EXPECT_EQ(route.gateway_family == 0 ? "" : text(family, route.gateway), row.gateway);
            }
        }
    });
}

TEST(RouteLookupOn, TellsOwnAddressesOfTheInterfaceAndTheMetric)
{
    IN_FRESH_NAMESPACE([] {
        build_overlapping();
        shell("ip addr add 10.8.0.1/24 dev blue");
        const Lookup lookup;
        const uint8_t own[] = {10, 8, 0, 1};
        const uint8_t routed[] = {10, 1, 2, 3};
        HOST_ROUTE_S route{};
        ASSERT_EQ(HOST_RouteLookupOn(lookup.handle(), AF_INET, own, if_nametoindex("blue"), &route), 0u);
        EXPECT_EQ(route.is_local, 1);
        EXPECT_EQ(HOST_RouteLookupOn(lookup.handle(), AF_INET, own, if_nametoindex("red"), &route),
                  HOST_FAILED);
        ASSERT_EQ(HOST_RouteLookupOn(lookup.handle(), AF_INET, routed, if_nametoindex("blue"), &route), 0u);
        EXPECT_EQ(route.metric, 7u);
        EXPECT_EQ(HOST_RouteLookupOn(lookup.handle(), AF_INET, routed, 0, &route), HOST_FAILED);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(HOST_RouteLookupOn(nullptr, AF_INET, routed, 1, &route), HOST_FAILED);
    });
}

TEST(OpenRouteLookup, BadArgumentsAreRefused)
{
    const Lookup lookup;
    uint8_t bytes[16] = {127, 0, 0, 1};
    HOST_ROUTE_S route{};
    EXPECT_EQ(HOST_RouteLookupAsk(nullptr, AF_INET, bytes, 0, &route), HOST_FAILED);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(HOST_RouteLookupAsk(lookup.handle(), AF_UNIX, bytes, 0, &route), HOST_FAILED);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(HOST_RouteLookupAsk(lookup.handle(), AF_INET, nullptr, 0, &route), HOST_FAILED);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(HOST_RouteLookupAsk(lookup.handle(), AF_INET, bytes, 0, nullptr), HOST_FAILED);
    EXPECT_EQ(errno, EINVAL);
    HOST_RouteLookupClose(nullptr);
}

} // namespace
