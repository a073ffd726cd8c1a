#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>

#include "tests/simulation/parity/both_kernels.h"

using namespace parity;

namespace
{

int open_socket(const Calls &calls)
{
    return calls.socket(AF_PACKET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
}

int bind_to(const Calls &calls, int fd, int if_index)
{
    sockaddr_ll name{};
    name.sll_family = AF_PACKET;
    name.sll_protocol = htons(ETH_P_IP);
    name.sll_ifindex = if_index;
    return calls.bind(fd, reinterpret_cast<const sockaddr *>(&name), sizeof(name));
}

ssize_t receive(const Calls &calls, int fd)
{
    char buffer[64];
    sockaddr_ll from{};
    socklen_t length = sizeof(from);
    return calls.recvfrom(fd, buffer, sizeof(buffer), MSG_TRUNC, reinterpret_cast<sockaddr *>(&from),
                          &length);
}

int join(const Calls &calls, int fd, int if_index)
{
    packet_mreq request{};
    request.mr_ifindex = if_index;
    request.mr_type = PACKET_MR_ALLMULTI;
    return calls.setsockopt(fd, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &request, sizeof(request));
}

TEST(PacketSocketParity, BindsToInterfacesThatAreThere)
{
    compare([](const Calls &calls, Diary &diary) {
        const int fd = diary.descriptor("socket", open_socket(calls));
        sockaddr_ll name{};
        name.sll_family = AF_PACKET;
        diary.note("short address", calls.bind(fd, reinterpret_cast<const sockaddr *>(&name), 4));
        diary.note("no such interface", bind_to(calls, fd, 77));
        diary.note("bind", bind_to(calls, fd, 2));
        diary.note("bind again", bind_to(calls, fd, 3));
        diary.note("groups of none", join(calls, fd, 77));
        diary.note("groups", join(calls, fd, 3));
        diary.note("nothing to read", receive(calls, fd));
        tpacket_stats statistics{};
        socklen_t size = sizeof(statistics);
        diary.note("statistics", calls.getsockopt(fd, SOL_PACKET, PACKET_STATISTICS, &statistics, &size));
        diary.note("dropped", statistics.tp_drops);
    });
}

TEST(PacketSocketParity, TellsOnceThatItsInterfaceWentDown)
{
    compare([](const Calls &calls, Diary &diary) {
        const int fd = open_socket(calls);
        const int other = open_socket(calls);
        diary.note("bind", bind_to(calls, fd, 2));
        diary.note("bind", bind_to(calls, other, 3));
        calls.change("lan1", "down");
        diary.note("events", ready(calls, fd));
        diary.note("receive", receive(calls, fd));
        diary.note("receive again", receive(calls, fd));
        diary.note("events then", ready(calls, fd));
        diary.note("events of the other", ready(calls, other));
        diary.note("bind to one that is down", bind_to(calls, other, 2));
        diary.note("events", ready(calls, other));
        diary.note("receive", receive(calls, other));
        calls.change("lan1", "up");
        diary.note("receive", receive(calls, fd));
    });
}

TEST(PacketSocketParity, TellsOnceThatItsInterfaceIsGone)
{
    compare([](const Calls &calls, Diary &diary) {
        const int fd = open_socket(calls);
        diary.note("bind", bind_to(calls, fd, 2));
        calls.change("lan1", "delete");
        diary.note("events", ready(calls, fd));
        diary.note("receive", receive(calls, fd));
        diary.note("receive again", receive(calls, fd));
        diary.note("bind", bind_to(calls, fd, 2));
        diary.note("close", calls.close(fd));
    });
}

} // namespace
