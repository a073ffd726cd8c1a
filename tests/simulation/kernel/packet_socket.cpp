#include "tests/simulation/kernel/packet_socket.h"

#include <arpa/inet.h>
#include <cstring>
#include <linux/if_ether.h>
#include <linux/if_packet.h>

namespace sim
{
namespace
{

constexpr size_t MOST_PACKETS = 5000;

} // namespace

uint32_t PacketSocket::ready() const
{
    return events_if(!queue_.empty(), EPOLLIN) | EPOLLOUT;
}

int PacketSocket::bind(const sockaddr *address, socklen_t length)
{
    sockaddr_ll name{};
    memcpy(&name, address, std::min<size_t>(length, sizeof(name)));
    family_ = name.sll_protocol == htons(ETH_P_IP) ? AF_INET : AF_INET6;
    return 0;
}

int PacketSocket::set_option(int level, int option, const void *value, socklen_t size)
{
    if (level == SOL_SOCKET && option == SO_ATTACH_FILTER) {
        return -process_.refused(Call::AttachFilter);
    }
    if (level != SOL_PACKET) {
        return 0;
    }
    packet_mreq request{};
    memcpy(&request, value, std::min<size_t>(size, sizeof(request)));
    if (option == PACKET_ADD_MEMBERSHIP &&
        process_.machine().find(static_cast<uint32_t>(request.mr_ifindex)) == nullptr) {
        return -ENODEV;
    }
    return option == PACKET_ADD_MEMBERSHIP ? -process_.refused(Call::JoinPackets) : 0;
}

int PacketSocket::get_option(int level, int option, void *value, socklen_t *size)
{
    if (level != SOL_PACKET || option != PACKET_STATISTICS) {
        return -ENOPROTOOPT;
    }
    const tpacket_stats statistics{dropped_, dropped_};
    dropped_ = 0;
    memcpy(value, &statistics, std::min<size_t>(*size, sizeof(statistics)));
    return 0;
}

ssize_t PacketSocket::receive(void *buffer, size_t size, int flags, sockaddr *from)
{
    if (queue_.empty()) {
        return -EAGAIN;
    }
    const Waiting packet = std::move(queue_.front());
    queue_.pop_front();
    sockaddr_ll name{};
    name.sll_family = AF_PACKET;
    name.sll_ifindex = static_cast<int>(packet.if_index);
    name.sll_pkttype = PACKET_MULTICAST;
    memcpy(from, &name, sizeof(name));
    return hand_over(packet.bytes, buffer, size, flags);
}

void PacketSocket::arrive(uint32_t if_index, const Packet &packet)
{
    if (packet.family != family_) {
        return;
    }
    if (queue_.size() >= MOST_PACKETS) {
        ++dropped_;
        return;
    }
    queue_.push_back({if_index, packet.bytes});
}

} // namespace sim
