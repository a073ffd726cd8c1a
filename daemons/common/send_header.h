/*
 * What sendmsg() takes to send a packet of either family through a named interface, from a named address.
 */
#ifndef DAEMONS_COMMON_SEND_HEADER_H
#define DAEMONS_COMMON_SEND_HEADER_H

#include <array>
#include <cstdint>
#include <netinet/in.h>
#include <span>
#include <sys/socket.h>

#include "mcast/common.h"

namespace mcastd
{

class SendHeader
{
public:
    // The addresses are of one family; the message is not copied.
    SendHeader(uint32_t if_index, const MCAST_ADDR_S &source, const MCAST_ADDR_S &destination,
               std::span<const uint8_t> message);
    SendHeader(const SendHeader &) = delete;
    SendHeader &operator=(const SendHeader &) = delete;

    const msghdr *get() const
    {
        return &header_;
    }

private:
    template <typename Info> void put_info(int level, int type, const Info &info);

    sockaddr_storage to_{};
    // Room for the control message of either family.
    alignas(cmsghdr) std::array<uint8_t, CMSG_SPACE(sizeof(in6_pktinfo))> control_{};
    iovec message_;
    msghdr header_{};
};

} // namespace mcastd

#endif
