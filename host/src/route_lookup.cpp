/*
 * Questions to the kernel's unicast routes: which way a packet to an address would go. The kernel decides
 * (rules, tables, VRF devices, multipath included); nothing of its tables is kept here, so an answer is
 * never stale.
 *
 * Two kinds of question, by what the reverse path check needs:
 *
 *     Ask    where would a packet leave?        the chosen next hop: interface, gateway, source address
 *     On     is there a route that leaves by    the matched route itself (RTM_F_FIB_MATCH): its prefix length
 *            this interface?                    and metric, by which two ways are compared
 *
 * The second is put with the interface given, so the answer is about that interface even when the first next
 * hop that the kernel lists is elsewhere; that is why its index is written over the answer's.
 *
 * An answer that is no unicast or local route (unreachable, prohibited, broadcast) is a failure, like no
 * route at all. A question that was lost, because the kernel had no memory for the answer, is asked once
 * more.
 *
 * HOST_RouteLookup opens a socket for each call, since its callers move between network namespaces. A lookup
 * handle keeps its socket, which stays in the namespace where it was opened; after fork the child opens its
 * own, because two processes on one socket would read each other's answers.
 */
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <sys/socket.h>
#include <unistd.h>
#include <linux/rtnetlink.h>

#include "mcasthost/route.h"
#include "netlink.h"

namespace
{

using host::Netlink;

struct Answer {
    HOST_ROUTE_S route;
    uint8_t type = RTN_UNSPEC;
    uint8_t prefix_length = 0;
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
    case RTA_PRIORITY:
        if (mnl_attr_get_payload_len(attribute) == sizeof(uint32_t)) {
            route.metric = mnl_attr_get_u32(attribute);
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
    answer->prefix_length = head->rtm_dst_len;
}

// Where to ask and what.
struct Question {
    uint8_t family;
    const uint8_t *address;
    uint32_t out_if_index; // a VRF device, an interface, or 0
    bool wants_prefix = false;
};

bool ask_kernel(Netlink *netlink, const Question &question, Answer *answer)
{
    alignas(nlmsghdr) char buffer[128] = {};
    nlmsghdr *header = mnl_nlmsg_put_header(buffer);
    header->nlmsg_type = RTM_GETROUTE;
    rtmsg *head = static_cast<rtmsg *>(mnl_nlmsg_put_extra_header(header, sizeof(rtmsg)));
    head->rtm_family = question.family;
    head->rtm_dst_len = static_cast<uint8_t>(address_size(question.family) * 8);
    mnl_attr_put(header, RTA_DST, address_size(question.family), question.address);
    if (question.out_if_index != 0) {
        mnl_attr_put_u32(header, RTA_OIF, question.out_if_index);
    }
    if (question.wants_prefix) {
        head->rtm_flags = RTM_F_FIB_MATCH;
    }
    return netlink->ask(header, read_route, answer);
}

uint32_t fail(int error)
{
    errno = error;
    return HOST_FAILED;
}

bool is_valid(const Question &question, const HOST_ROUTE_S *route)
{
    return (question.family == AF_INET || question.family == AF_INET6) && question.address != nullptr &&
           route != nullptr;
}

uint32_t look_up(Netlink *netlink, const Question &question, HOST_ROUTE_S *route)
{
    Answer answer{};
    // An answer that was lost, for want of memory in the kernel, is worth asking for once more.
    if (!ask_kernel(netlink, question, &answer) &&
        (errno != EAGAIN || !ask_kernel(netlink, question, &answer))) {
        return fail(errno == EINVAL ? ENETUNREACH : errno); // EINVAL is what a blackhole route says
    }
    if (answer.type != RTN_UNICAST && answer.type != RTN_LOCAL) {
        return fail(EINVAL);
    }
    *route = answer.route;
    if (question.wants_prefix) {
        route->if_index = question.out_if_index; // next hops of the route may be elsewhere
        route->prefix_length = answer.prefix_length;
    } else {
        route->metric = 0; // IPv6 tells it either way
    }
    return 0;
}

} // namespace

struct HOST_ROUTE_LOOKUP_S {
    std::optional<Netlink> netlink;
    pid_t owner = 0; // the process that opened it

    // Two processes with one socket would read each other's answers.
    bool open()
    {
        const pid_t self = getpid();
        if (netlink && owner == self) {
            return true;
        }
        owner = self;
        netlink.emplace();
        if (!netlink->open(Netlink::Kind::Questions)) {
            netlink.reset();
            return false;
        }
        return true;
    }
};

namespace
{

uint32_t ask(HOST_ROUTE_LOOKUP lookup, const Question &question, HOST_ROUTE_S *route)
{
    if (lookup == nullptr || !is_valid(question, route)) {
        return fail(EINVAL);
    }
    try {
        return lookup->open() ? look_up(&*lookup->netlink, question, route) : HOST_FAILED;
    } catch (const std::bad_alloc &) {
        return fail(ENOMEM);
    }
}

} // namespace

extern "C" {

uint32_t HOST_RouteLookup(uint8_t family, const uint8_t *address, uint32_t vrf_if_index, HOST_ROUTE_S *route)
{
    const Question question{family, address, vrf_if_index};
    if (!is_valid(question, route)) {
        return fail(EINVAL);
    }
    try {
        // A socket a call: the caller's namespace may differ from one call to the next.
        Netlink netlink;
        return netlink.open(Netlink::Kind::Questions) ? look_up(&netlink, question, route) : HOST_FAILED;
    } catch (const std::bad_alloc &) {
        return fail(ENOMEM);
    }
}

HOST_ROUTE_LOOKUP HOST_RouteLookupOpen(void)
{
    try {
        auto lookup = std::make_unique<HOST_ROUTE_LOOKUP_S>();
        return lookup->open() ? lookup.release() : nullptr;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
}

uint32_t HOST_RouteLookupAsk(HOST_ROUTE_LOOKUP lookup, uint8_t family, const uint8_t *address,
                             uint32_t vrf_if_index, HOST_ROUTE_S *route)
{
    return ask(lookup, {family, address, vrf_if_index}, route);
}

uint32_t HOST_RouteLookupOn(HOST_ROUTE_LOOKUP lookup, uint8_t family, const uint8_t *address,
                            uint32_t if_index, HOST_ROUTE_S *route)
{
    return if_index == 0 ? fail(EINVAL) : ask(lookup, {family, address, if_index, true}, route);
}

void HOST_RouteLookupClose(HOST_ROUTE_LOOKUP lookup)
{
    delete lookup;
}

} // extern "C"
