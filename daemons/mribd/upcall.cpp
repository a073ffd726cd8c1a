#include "daemons/mribd/upcall.h"

#include <cstring>
#include <netinet/in.h>
#include <linux/mroute.h>
#include <linux/mroute6.h>

#include "daemons/mribd/address.h"

namespace mribd
{
namespace
{

// Both families number these two kinds alike.
static_assert(IGMPMSG_NOCACHE == MRT6MSG_NOCACHE && IGMPMSG_WRONGVIF == MRT6MSG_WRONGMIF);

std::optional<UpcallKind> kind_of(unsigned type)
{
    switch (type) {
    case IGMPMSG_NOCACHE:
        return UpcallKind::NoEntry;
    case IGMPMSG_WRONGVIF:
        return UpcallKind::WrongInterface;
    default:
        return std::nullopt;
    }
}

} // namespace

std::optional<Upcall> parse_upcall(uint8_t family, const void *bytes, size_t size)
{
    if (family == MCAST_FAMILY_IPV4) {
        igmpmsg message;
        if (size < sizeof(message)) {
            return std::nullopt;
        }
        std::memcpy(&message, bytes, sizeof(message));
        const auto kind = kind_of(message.im_msgtype);
        if (message.im_mbz != 0 || !kind) {
            return std::nullopt;
        }
        const unsigned vif = message.im_vif | static_cast<unsigned>(message.im_vif_hi) << 8;
        return Upcall{*kind, vif, make_address(family, &message.im_src),
                      make_address(family, &message.im_dst)};
    }
    mrt6msg message;
    if (size < sizeof(message)) {
        return std::nullopt;
    }
    std::memcpy(&message, bytes, sizeof(message));
    const auto kind = kind_of(message.im6_msgtype);
    if (message.im6_mbz != 0 || !kind) {
        return std::nullopt;
    }
    return Upcall{*kind, message.im6_mif, make_address(family, &message.im6_src),
                  make_address(family, &message.im6_dst)};
}

} // namespace mribd
