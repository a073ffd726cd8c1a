#include "daemons/common/send_header.h"

#include <cstring>

namespace mcastd
{

template <typename Info> void SendHeader::put_info(int level, int type, const Info &info)
{
    header_.msg_control = control_.data();
    header_.msg_controllen = CMSG_SPACE(sizeof(info));
    cmsghdr *message = CMSG_FIRSTHDR(&header_);

    message->cmsg_level = level;
    message->cmsg_type = type;
    message->cmsg_len = CMSG_LEN(sizeof(info));
    std::memcpy(CMSG_DATA(message), &info, sizeof(info));
}

SendHeader::SendHeader(uint32_t if_index, const MCAST_ADDR_S &source, const MCAST_ADDR_S &destination,
                       std::span<const uint8_t> message)
    : message_{const_cast<uint8_t *>(message.data()), message.size()}
{
    header_.msg_name = &to_;
    header_.msg_iov = &message_;
    header_.msg_iovlen = 1;
    if (destination.family == MCAST_FAMILY_IPV4) {
        auto &address = reinterpret_cast<sockaddr_in &>(to_);
        in_pktinfo info{};

        address.sin_family = AF_INET;
        std::memcpy(&address.sin_addr, destination.address, sizeof(address.sin_addr));
        header_.msg_namelen = sizeof(address);
        info.ipi_ifindex = static_cast<int>(if_index);
        std::memcpy(&info.ipi_spec_dst, source.address, sizeof(info.ipi_spec_dst));
        put_info(IPPROTO_IP, IP_PKTINFO, info);
    } else {
        auto &address = reinterpret_cast<sockaddr_in6 &>(to_);
        in6_pktinfo info{};

        address.sin6_family = AF_INET6;
        address.sin6_scope_id = if_index;
        std::memcpy(&address.sin6_addr, destination.address, sizeof(address.sin6_addr));
        header_.msg_namelen = sizeof(address);
        info.ipi6_ifindex = if_index;
        std::memcpy(&info.ipi6_addr, source.address, sizeof(info.ipi6_addr));
        put_info(IPPROTO_IPV6, IPV6_PKTINFO, info);
    }
}

} // namespace mcastd
