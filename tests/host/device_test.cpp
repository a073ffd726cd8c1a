// The nodes of the router, one by default, and the start of multicast forwarding.
#include "mcasthost/device.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <grp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <vector>
#include <linux/filter.h>
#include <linux/seccomp.h>

#include "config_support.h"
#include "platform/device.h"
#include "support.h"

namespace
{

using host_test::in_child;
using host_test::load;
using host_test::load_error;

using Nodes = std::vector<uint16_t>;

Nodes list(uint16_t *(*call)(uint32_t *))
{
    uint32_t count = 0;
    uint16_t *nodes = call(&count);
    Nodes copy(nodes, nodes + (nodes != nullptr ? count : 0));
    free(nodes);
    return copy;
}

class Device : public host_test::ConfigTest
{
};

void expect_one_node()
{
    const uint16_t self = DEV_GetSelf();
    EXPECT_EQ(DEV_GetSystemMaster(), self);
    EXPECT_EQ(LIP_GetLocalLip() & 0xffff, self);
    EXPECT_EQ(IF_IsNodeUp(self), 1u);
    EXPECT_EQ(IF_IsNodeUp(static_cast<uint16_t>(self + 1)), 0u);
    EXPECT_EQ(list(DEV_GetAllNodes), Nodes{self});
    uint32_t count = 7;
    EXPECT_EQ(DEV_GetAllNodes(nullptr), nullptr);
    EXPECT_EQ(DEV_GetAllStandbyNodes(&count), nullptr);
    EXPECT_EQ(DEV_GetAllStandbyNodes(nullptr), nullptr);
    EXPECT_EQ(count, 7u);
}

TEST_F(Device, IsOneNodeThatIsUpAndItsOwnMaster)
{
    expect_one_node();
    EXPECT_EQ(DEV_GetSelf(), 0u);
    load("[[node]]\nid = 5\nrole = 'master'\nself = true\n");
    expect_one_node();
    EXPECT_EQ(DEV_GetSelf(), 5u);
}

TEST_F(Device, IsTheChassisThatTheFileDescribesInItsOrder)
{
    load("[[node]]\nid = 9\nrole = 'standby'\n"
         "[[node]]\nid = 65535\nrole = 'master'\n"
         "[[node]]\nid = 3\nrole = 'member'\nup = false\nself = false\n"
         "[[node]]\nid = 4\nrole = 'standby'\nself = true\nup = true\n"
         "[[node]]\nid = 2\nrole = 'standby'\nup = false\n");
    EXPECT_EQ(DEV_GetSelf(), 4u);
    EXPECT_EQ(DEV_GetSystemMaster(), 65535u);
    EXPECT_EQ(LIP_GetLocalLip(), 4u);
    EXPECT_EQ(list(DEV_GetAllNodes), (Nodes{9, 65535, 3, 4, 2}));
    EXPECT_EQ(list(DEV_GetAllStandbyNodes), (Nodes{9, 4, 2}));
    EXPECT_EQ(IF_IsNodeUp(9), 1u);
    EXPECT_EQ(IF_IsNodeUp(3), 0u);
    EXPECT_EQ(IF_IsNodeUp(4), 1u);
    EXPECT_EQ(IF_IsNodeUp(2), 0u);
    EXPECT_EQ(IF_IsNodeUp(0), 0u);
}

TEST_F(Device, ErrorsInNodesNameTheirPlaceAndWhatIsAllowed)
{
    const std::string good = "[[node]]\nid = 1\nrole = 'master'\nself = true\n";
    const struct {
        std::string text;
        const char *error;
    } rows[] = {
        {"[node]\nid = 1\n", "f:1:1: node is a table; allowed: tables, each under [[node]]"},
        {"[[node]]\nrole = 'master'\n", "f:1:1: [[node]] lacks the key id"},
        {"[[node]]\nid = 65536\n", "f:2:6: id is 65536; allowed: 0 to 65535"},
        {"[[node]]\nid = 1\n", "f:1:1: [[node]] lacks the key role"},
        {"[[node]]\nid = 1\nrole = 'slave'\n", "f:3:8: role is \"slave\"; allowed: master, standby, member"},
        {"[[node]]\nid = 1\nrole = 'master'\nup = 1\n", "f:4:6: up is an integer; allowed: true, false"},
        {"[[node]]\nid = 1\nrole = 'master'\nself = 'x'\n", "f:4:8: self is a string; allowed: true, false"},
        {good + "colour = 1\n", "f:5:1: unknown key \"colour\" in [[node]]; allowed: id, role, up, self"},
        {good + "up = false\n",
         "f:5:6: this machine is down; allowed: true for the node that is this machine"},
        {good + "[[node]]\nid = 1\nrole = 'member'\n",
         "f:6:6: there is another node 1; allowed: an id of its own"},
        {good + "[[node]]\nid = 2\nrole = 'master'\n",
         "f:7:8: node 1 is the master already; allowed: one node"},
        {good + "[[node]]\nid = 2\nrole = 'member'\nself = true\n",
         "f:8:8: node 1 is this machine already; allowed: one node"},
        {"\n[[node]]\nid = 1\nrole = 'member'\nself = true\n",
         "f:2:1: no node is the master; allowed: one [[node]] with role = \"master\""},
        {"\n[[node]]\nid = 1\nrole = 'master'\n",
         "f:2:1: no node is this machine; allowed: one [[node]] with self = true"},
    };
    load("[[node]]\nid = 77\nrole = 'master'\nself = true\n");
    for (const auto &row : rows) {
        EXPECT_EQ(load_error(row.text), row.error) << row.text;
        EXPECT_EQ(DEV_GetSelf(), 77u) << "still in force";
    }
}

/* ---- Forwarding ---- */

// The result of the call that starts multicast forwarding on a node; status is checked to go with it.
uint32_t start_forwarding(uint16_t node)
{
    const uint64_t input = 0;
    uint32_t status = 77;
    const uint32_t result = CIOCTL(node, CIOCTL_START_MULTICAST_THREADS, 8, &input, nullptr, 0, &status);
    EXPECT_EQ(result, status == 0 ? 0 : HOST_FAILED | (status == 77 ? 0 : status));
    return result;
}

std::string text_of(uint32_t result)
{
    char text[HOST_FORWARDING_TEXT_SIZE];
    const size_t length = HOST_ForwardingText(result, text, sizeof(text));
    EXPECT_EQ(length, strlen(text));
    return text;
}

TEST_F(Device, ForwardingIsStartedByTheAgreedCallAlone)
{
    const uint64_t input = 0;
    uint32_t status = 7;
    const uint16_t self = DEV_GetSelf();
    EXPECT_EQ(CIOCTL(self, CIOCTL_START_MULTICAST_THREADS + 1, 8, &input, nullptr, 0, &status), HOST_FAILED);
    EXPECT_EQ(CIOCTL(self, CIOCTL_START_MULTICAST_THREADS, 4, &input, nullptr, 0, &status), HOST_FAILED);
    EXPECT_EQ(CIOCTL(self, CIOCTL_START_MULTICAST_THREADS, 8, nullptr, nullptr, 0, &status), HOST_FAILED);
    EXPECT_EQ(CIOCTL(self, CIOCTL_START_MULTICAST_THREADS, 8, &input, nullptr, 4, &status), HOST_FAILED);
    EXPECT_EQ(CIOCTL(self, CIOCTL_START_MULTICAST_THREADS, 8, &input, nullptr, 0, nullptr), HOST_FAILED);
    EXPECT_EQ(CIOCTL(self + 1, CIOCTL_START_MULTICAST_THREADS, 8, &input, nullptr, 0, &status), HOST_FAILED);
    EXPECT_EQ(status, 7u);
}

TEST_F(Device, AnotherNodeThatIsUpIsOutOfReach)
{
    load("[[node]]\nid = 0\nrole = 'master'\nself = true\n[[node]]\nid = 1\nrole = 'member'\n"
         "[[node]]\nid = 2\nrole = 'member'\nup = false\n");
    EXPECT_EQ(start_forwarding(1), HOST_FAILED | HOST_FORWARDING_ELSEWHERE);
    EXPECT_EQ(start_forwarding(2), HOST_FAILED);
    EXPECT_EQ(text_of(HOST_FAILED | HOST_FORWARDING_ELSEWHERE),
              "a node that is up is another machine and cannot be reached");
}

// Makes a system call fail with the error in this process, when its first argument is as given, if it is.
void make_fail(unsigned call, unsigned error, int first = -1)
{
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args)),
        BPF_JUMP(BPF_JMP | (first < 0 ? BPF_JGE : BPF_JEQ) | BPF_K,
                 first < 0 ? 0 : static_cast<unsigned>(first), 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program = {static_cast<unsigned short>(std::size(code)), code};
    ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
    ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), 0);
}

// Whether this machine lets the test route multicast, so that something can be taken away.
bool forwards()
{
    return start_forwarding(0) == 0;
}

TEST_F(Device, WhatIsMissingForForwardingIsToldFamilyByFamily)
{
    if (!forwards()) {
        GTEST_SKIP() << "multicast routing is not permitted here: " << text_of(start_forwarding(0));
    }
    const struct {
        unsigned call;
        unsigned error;
        int first;
        uint32_t missing;
    } rows[] = {
        {SYS_socket, EPERM, AF_INET, HOST_FORWARDING_DENIED_IPV4},
        {SYS_socket, EACCES, AF_INET6, HOST_FORWARDING_DENIED_IPV6},
        {SYS_socket, EAFNOSUPPORT, AF_INET6, HOST_FORWARDING_NO_IPV6},
        {SYS_socket, EPROTONOSUPPORT, AF_INET, HOST_FORWARDING_NO_IPV4},
        {SYS_socket, EMFILE, -1, HOST_FORWARDING_UNKNOWN_IPV4 | HOST_FORWARDING_UNKNOWN_IPV6},
        {SYS_getsockopt, ENOPROTOOPT, -1, HOST_FORWARDING_NO_IPV4 | HOST_FORWARDING_NO_IPV6},
        {SYS_getsockopt, ENOMEM, -1, HOST_FORWARDING_UNKNOWN_IPV4 | HOST_FORWARDING_UNKNOWN_IPV6},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(in_child([&] {
                      make_fail(row.call, row.error, row.first);
                      return start_forwarding(0) == (HOST_FAILED | row.missing) &&
                                     !testing::Test::HasFailure()
                                 ? 0
                                 : 1;
                  }),
                  0)
            << &row - rows;
    }
}

TEST_F(Device, AUserWithoutPrivilegesMayNotForward)
{
    EXPECT_EQ(in_child([] {
                  if (geteuid() == 0 &&
                      (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0)) {
                      return 2;
                  }
                  return start_forwarding(0) ==
                                 (HOST_FAILED | HOST_FORWARDING_DENIED_IPV4 | HOST_FORWARDING_DENIED_IPV6)
                             ? 0
                             : 1;
              }),
              0);
}

TEST_F(Device, TheTextOfAResultNamesWhatIsMissingAndIsCutToItsBuffer)
{
    EXPECT_EQ(text_of(0), "");
    EXPECT_EQ(text_of(HOST_FAILED), "the forwarding plane refused the call, or its nodes could not be had");
    const uint32_t both = HOST_FAILED | HOST_FORWARDING_NO_IPV4 | HOST_FORWARDING_DENIED_IPV6;
    const std::string whole = "the kernel has no IPv4 multicast routing (CONFIG_IP_MROUTE); "
                              "no permission for IPv6 multicast routing (CAP_NET_RAW)";
    EXPECT_EQ(text_of(both), whole);
    EXPECT_LT(HOST_ForwardingText(0xffffffff, nullptr, 0), size_t{HOST_FORWARDING_TEXT_SIZE});
    for (size_t size = 1; size < whole.size() + 3; ++size) {
        std::vector<char> text(size, 'x');
        EXPECT_EQ(HOST_ForwardingText(both, text.data(), size), whole.size());
        EXPECT_EQ(std::string(text.data()), whole.substr(0, size - 1));
    }
}

} // namespace
