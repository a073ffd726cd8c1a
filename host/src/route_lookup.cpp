#include <cerrno>
#include <cstring>
#include <linux/rtnetlink.h>
#include <memory>
#include <new>
#include <sys/socket.h>

#include "mcasthost/route.h"
#include "netlink.h"

namespace
{

using host::Netlink;

struct Answer {
    HOST_ROUTE_S route;
    uint8_t type = RTN_UNSPEC;
};

void copy_address(const nlattr *attribute, size_t offset, size_t size, uint8_t (&address)[16])
{
    if (mnl_attr_get_payload_len(attribute) == offset + size) {
        memcpy(address, static_cast<const uint8_t *>(mnl_attr_get_payload(attribute)) + offset, size);
    }
}

size_t address_size(uint8_t family)
{
    return family == AF_INET ? 4 : 16;
}

int read_attribute(const nlattr *attribute, void *data)
{
    HOST_ROUTE_S &route = static_cast<Answer *>(data)->route;
    switch (mnl_attr_get_type(attribute)) {
    case RTA_OIF:
        if (mnl_attr_get_payload_len(attribute) == sizeof(uint32_t)) {
            route.if_index = mnl_attr_get_u32(attribute);
        }
        break;
    case RTA_GATEWAY:
        route.gateway_family = route.family;
        copy_address(attribute, 0, address_size(route.family), route.gateway);
        break;
    case RTA_VIA: // a next hop of the other family
        if (mnl_attr_get_payload_len(attribute) > sizeof(rtvia)) {
            const rtvia *via = static_cast<const rtvia *>(mnl_attr_get_payload(attribute));
            route.gateway_family = static_cast<uint8_t>(via->rtvia_family);
            copy_address(attribute, sizeof(rtvia), address_size(route.gateway_family), route.gateway);
        }
        break;
    case RTA_PREFSRC:
        copy_address(attribute, 0, address_size(route.family), route.source_address);
        break;
    default:
        break;
    }
    return MNL_CB_OK;
}

void read_route(const nlmsghdr *message, void *context)
{
    Answer *answer = static_cast<Answer *>(context);
    if (message->nlmsg_type != RTM_NEWROUTE || mnl_nlmsg_get_payload_len(message) < sizeof(rtmsg)) {
        return;
    }
    const rtmsg *head = static_cast<const rtmsg *>(mnl_nlmsg_get_payload(message));
    answer->type = head->rtm_type;
    answer->route = HOST_ROUTE_S{};
    answer->route.family = head->rtm_family;
    mnl_attr_parse(message, sizeof(*head), read_attribute, answer);
    answer->route.is_local = head->rtm_type == RTN_LOCAL ? 1 : 0;
}

bool ask_kernel(uint8_t family, const uint8_t *address, uint32_t vrf_if_index, Answer *answer)
{
    alignas(nlmsghdr) char buffer[128] = {};
    nlmsghdr *header = mnl_nlmsg_put_header(buffer);
    header->nlmsg_type = RTM_GETROUTE;
    rtmsg *head = static_cast<rtmsg *>(mnl_nlmsg_put_extra_header(header, sizeof(rtmsg)));
    head->rtm_family = family;
    head->rtm_dst_len = static_cast<uint8_t>(address_size(family) * 8);
    mnl_attr_put(header, RTA_DST, address_size(family), address);
    if (vrf_if_index != 0) {
        mnl_attr_put_u32(header, RTA_OIF, vrf_if_index);
    }
    // A socket a call: the caller's namespace may differ from one call to the next.
    Netlink netlink;
    return netlink.open(Netlink::Kind::requests) && netlink.request(header, read_route, answer);
}

uint32_t fail(int error)
{
    errno = error;
    return HOST_FAILED;
}

} // namespace

extern "C" uint32_t HOST_RouteLookup(uint8_t family, const uint8_t *address, uint32_t vrf_if_index,
                                     HOST_ROUTE_S *route)
{
    if ((family != AF_INET && family != AF_INET6) || address == nullptr || route == nullptr) {
        return fail(EINVAL);
    }
    Answer answer{};
    try {
        if (!ask_kernel(family, address, vrf_if_index, &answer)) {
            return fail(errno == EINVAL ? ENETUNREACH : errno); // EINVAL is what a blackhole route says
        }
    } catch (const std::bad_alloc &) {
        return fail(ENOMEM);
    }
    if (answer.type != RTN_UNICAST && answer.type != RTN_LOCAL) {
        return fail(EINVAL);
    }
    *route = answer.route;
    return 0;
}
