#include "tests/simulation/kernel/packet_socket.h"

#include <arpa/inet.h>
#include <cstring>
#include <net/if_arp.h>
#include <utility>
#include <linux/if_ether.h>
#include <linux/if_packet.h>

namespace sim
{
namespace
{

constexpr size_t MOST_PACKETS = 5000;
constexpr uint32_t GONE = UINT32_MAX;

} // namespace

uint32_t PacketSocket::ready() const
{
    return events_if(!queue_.empty(), EPOLLIN) | events_if(error_ != 0, EPOLLERR) | EPOLLOUT;
}

int PacketSocket::bind(const sockaddr *address, socklen_t length)
{
    sockaddr_ll name{};
    memcpy(&name, address, std::min<size_t>(length, sizeof(name)));
    if (length < sizeof(name) || name.sll_family != AF_PACKET) {
        return -EINVAL;
    }
    const auto if_index = static_cast<uint32_t>(name.sll_ifindex);
    const Interface *interface = process_.machine().find(if_index);
    if (if_index != 0 && interface == nullptr) {
        return -ENODEV;
    }
    family_ = name.sll_protocol == htons(ETH_P_IP)     ? AF_INET
              : name.sll_protocol == htons(ETH_P_IPV6) ? AF_INET6
                                                       : AF_UNSPEC;
    bound_to_ = if_index;
    error_ = interface != nullptr && !interface->is_up ? ENETDOWN : error_;
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
    if (error_ != 0) {
        return -std::exchange(error_, 0);
    }
    if (queue_.empty()) {
        return -EAGAIN;
    }
    const Waiting packet = std::move(queue_.front());
    queue_.pop_front();
    ++process_.traffic[packet.if_index].heard;
    sockaddr_ll name{};
    name.sll_family = AF_PACKET;
    name.sll_ifindex = static_cast<int>(packet.if_index);
    name.sll_hatype = ARPHRD_ETHER;
    name.sll_pkttype = PACKET_MULTICAST;
    memcpy(from, &name, sizeof(name));
    return hand_over(packet.bytes, buffer, size, flags);
}

bool PacketSocket::hears(uint32_t if_index) const
{
    return bound_to_ == 0 || bound_to_ == if_index;
}

void PacketSocket::interface_down(uint32_t if_index, bool removed)
{
    if (bound_to_ != if_index) {
        return;
    }
    error_ = ENETDOWN;
    bound_to_ = removed ? GONE : bound_to_;
}

void PacketSocket::arrive(uint32_t if_index, const Packet &packet)
{
    if (packet.family != family_ || !hears(if_index)) {
        return;
    }
    if (queue_.size() >= MOST_PACKETS) {
        ++dropped_;
        return;
    }
    queue_.push_back({if_index, packet.bytes});
}

} // namespace sim
