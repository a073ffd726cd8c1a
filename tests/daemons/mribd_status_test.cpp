/*
 * mribd's status text: what each family and instance knows, line by line.
 */
#include <algorithm>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

#include "daemons/mribd/channel_server.h"
#include "daemons/mribd/status.h"
#include "daemons/mribd_messages.h"
#include "daemons/whole_text.h"

using namespace mribd;
using namespace mribd_test;

namespace
{

// The lines that begin so.
std::string lines(const std::string &text, const std::string &begin)
{
    std::istringstream all(text);
    std::string found;
    for (std::string line; std::getline(all, line);) {
        found += line.starts_with(begin) ? line + "\n" : "";
    }
    return found;
}

class MribdStatus : public testing::Test
{
protected:
    std::string status() const
    {
        return whole_text(status_parts({FamilyStatus(server)}));
    }

    Bench bench{MCAST_FAMILY_IPV4, 2 * STATUS_LINES};
    mcastd::Reactor reactor;
    ClientBench clients{bench.router};
    ChannelServer server{reactor, clients.backend};
};

TEST_F(MribdStatus, ShowsInterfacesAndWhatRunsOnThem)
{
    bench.router.set_enabled(1, 2, true);
    bench.router.set_querier(1, 2, false);
    bench.settle();
    bench.join(1, 3, "239.1.1.1");
    EXPECT_EQ(lines(status(), "  interface if2"),
              "  interface if2: index 2, vif 0, protocol runs, another querier\n");
    EXPECT_EQ(lines(status(), "  virtual interfaces"),
              "  virtual interfaces: 4 of 32, without one 0, refused 0, failed 0\n");
}

TEST_F(MribdStatus, ShowsMembersAndEntries)
{
    bench.environment.on_link.insert({1, "10.0.0.1"});
    bench.settle();
    for (const uint32_t if_index : {1u, 2u, 3u}) {
        bench.join(1, if_index, "239.1.1.1");
    }
    bench.join(2, 2, "239.1.1.2", "192.0.2.1"); // no route to it
    bench.set(1, 3, "239.1.1.1", "10.0.0.9", MemberTable::Kind::Block, true);
    bench.packet(1, "10.0.0.1", "239.1.1.1");
    bench.kernel.packets[{"10.0.0.1", "239.1.1.1"}] = 77;
    bench.kernel.wrong_interface[{"10.0.0.1", "239.1.1.1"}] = 2;
    const std::string text = status();
    EXPECT_EQ(lines(text, "  member ("),
              "  member (*, 239.1.1.1): if1[client 1] if2[client 1] if3[client 1]\n"
              "  member (10.0.0.9, 239.1.1.1): !if3[client 1]\n"
              "  member (192.0.2.1, 239.1.1.2): if2[client 2]\n");
    EXPECT_EQ(
        lines(text, "  entry"),
        "  entry (10.0.0.1, 239.1.1.1): from if1 to if2 if3, 77 packets, 0 bytes, 2 wrong interface\n"
        "  entry (192.0.2.1, 239.1.1.2): no usable route to the source, to nowhere, not in the kernel\n");
    EXPECT_EQ(lines(text, "  memberships"), "  memberships: 0 of at most 262144, refused 0\n");
    EXPECT_EQ(lines(text, "  upcalls"), "  upcalls: 1, lost 0, stray 0, wrong interface 0\n");
    EXPECT_EQ(lines(text, "  entries"),
              "  entries: 2, expired 0, without route 1, refused by limit 0, by memory 0, by the kernel 0, "
              "ended with members 0, displaced 0\n");
}

TEST_F(MribdStatus, ShowsWhatClientsAreToldAndMsdpTells)
{
    clients.configure("[mribd]\nflow_control = { ipv4 = 7, ipv6 = 8 }\n"
                      "[[mribd.instance]]\nrp = \"10.0.0.100\"\n"
                      "[[mribd.interface]]\nname = \"if2\"\nboundaries = [\"239.2.0.0/16\"]\n"
                      "[[mribd.interface]]\nname = \"absent\"\n");
    bench.settle();
    clients.current_view.refresh();
    int fds[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, fds), 0);
    server.adopt(fds[1]);
    const std::string text = status();
    EXPECT_EQ(text.substr(0, text.find("  channel:")),
              "ipv4\n"
              "  client 1: component 0, not registered, 0 messages sent, 0 waiting\n"
              "  interface if1: index 1, vif 0\n"
              "  interface if2: index 2, vif 1\n"
              "  interface if3: index 3, vif 2\n"
              "  interface if4: index 4, vif 3\n"
              "  instance 0: enabled, ssm acl none\n"
              "  flow control: 7\n"
              "  boundary if2, instance 0: 239.2.0.0/16\n"
              "  configured interface absent: there is none of this name\n"
              "  msdp: local sources 0, remote sources 0, left out of re-sends 0, refused 0\n");
    EXPECT_EQ(
        lines(text, "  channel"),
        "  channel: clients 1, messages 0, records 0, malformed messages 0, restarts of slow clients 0\n");
    EXPECT_EQ(lines(text, "  ignored records"), "  ignored records: unknown_type 0 not_served 0 short 0 "
                                                "not_registered 0 family 0 instance 0 interface 0 "
                                                "group 0 source 0 flags 0 limit 0 memory 0\n");
    close(fds[0]);
}

// Memberships that take two parts; with the entries of sources that are joined by name three.
constexpr unsigned MANY = STATUS_LINES + STATUS_LINES / 4;

std::string many(unsigned number)
{
    return "239.2." + std::to_string(number / 250) + "." + std::to_string(number % 250 + 1);
}

TEST_F(MribdStatus, ALongOneIsMadeInPartsAndSaysSo)
{
    for (unsigned number = 0; number < MANY; ++number) {
        bench.join(1, 3, many(number), "192.0.2.1");
    }
    const auto parts = status_parts({FamilyStatus(server)});
    std::string text;
    unsigned made = 0;
    for (bool more = true; more;) {
        std::string part;
        more = parts(&part);
        ++made;
        const std::string found = lines(part, "  member (") + lines(part, "  entry (");
        EXPECT_LE(static_cast<size_t>(std::count(found.begin(), found.end(), '\n')), STATUS_LINES);
        text += part;
    }
    EXPECT_EQ(made, 3u);
    std::string members;
    std::string entries;
    for (unsigned number = 0; number < MANY; ++number) {
        const std::string pair = " (192.0.2.1, " + many(number) + "):";
        members += "  member" + pair + " if3[client 1]\n";
        entries += "  entry" + pair + " no usable route to the source, to nowhere, not in the kernel\n";
    }
    EXPECT_EQ(lines(text, "  member ("), members);
    EXPECT_EQ(lines(text, "  entry ("), entries);
    EXPECT_TRUE(text.ends_with("\nnot of one moment: made in 3 parts\n")) << text.substr(text.size() - 200);
    EXPECT_EQ(lines(text, "  upcalls"), "  upcalls: 0, lost 0, stray 0, wrong interface 0\n");
}

TEST_F(MribdStatus, GoesOnWhenWhatItCameToIsGone)
{
    for (unsigned number = 0; number < MANY; ++number) {
        bench.join(1, 3, many(number));
    }
    const auto parts = status_parts({FamilyStatus(server)});
    std::string text;
    ASSERT_TRUE(parts(&text));
    bench.router.drop_client(1);
    ASSERT_FALSE(parts(&text));
    const std::string members = lines(text, "  member (");
    EXPECT_EQ(static_cast<size_t>(std::count(members.begin(), members.end(), '\n')), STATUS_LINES);
    EXPECT_NE(lines(text, "  virtual interfaces"), "");
}

TEST_F(MribdStatus, AShortOneIsOfOneMoment)
{
    bench.join(1, 3, "239.1.1.1");
    std::string text;
    EXPECT_FALSE(status_parts({FamilyStatus(server)})(&text));
    EXPECT_EQ(lines(text, "not of one moment"), "");
}

} // namespace
