/*
 * The watch on routes. Beside the routes themselves it listens to everything else that changes what a look-up
 * answers: the kernel drops the IPv4 routes of an interface that goes down, and those of an address that is
 * removed, without a word about each, and a rule or a shared next hop moves many routes at once. All these
 * are reported as "anything may have changed", and so is the loss of notifications.
 *
 * A wake-up reads a bounded number of notifications. A wake-up that reaches the bound reports them as one
 * change: a table that is being loaded would otherwise cost its listener a look-up of everything for every
 * route.
 */
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <sys/socket.h>
#include <vector>
#include <linux/rtnetlink.h>

#include "loop_objects.h"
#include "mcasthost/route.h"
#include "netlink.h"

struct HOST_ROUTE_WATCH_S {
    HOST_ROUTE_WATCH_S(int32_t loop_descriptor, HOST_ROUTE_CALLBACK user_callback, void *user_context)
        : loop(loop_descriptor), callback(user_callback), context(user_context)
    {
    }
    ~HOST_ROUTE_WATCH_S();

    int32_t loop;
    HOST_ROUTE_CALLBACK callback;
    void *context;
    host::Netlink notifications;
    std::vector<HOST_ROUTE_CHANGE_S> changes; // read and not told yet
    bool anything = false;                    // instead of all of them
    bool delivering = false;
    bool closed = false; // by the callback; freed when it has returned
};

namespace
{

using host::Netlink;

constexpr int DATAGRAMS_PER_WAKE_UP = 256;

host::LoopObjects<HOST_ROUTE_WATCH_S> g_watches;

struct Destination {
    HOST_ROUTE_CHANGE_S change;
    size_t size;
};

int read_attribute(const nlattr *attribute, void *data)
{
    Destination *destination = static_cast<Destination *>(data);
    uint16_t length = mnl_attr_get_payload_len(attribute);
    if (mnl_attr_get_type(attribute) == RTA_DST && length == destination->size) {
        memcpy(destination->change.prefix, mnl_attr_get_payload(attribute), length);
    } else if (mnl_attr_get_type(attribute) == RTA_TABLE && length == sizeof(uint32_t)) {
        destination->change.table = mnl_attr_get_u32(attribute);
    }
    return MNL_CB_OK;
}

// Whether a route of this type decides where unicast goes.
bool concerns_unicast(uint8_t type)
{
    return type != RTN_BROADCAST && type != RTN_ANYCAST && type != RTN_MULTICAST;
}

void note_route(HOST_ROUTE_WATCH watch, const nlmsghdr *message)
{
    if (mnl_nlmsg_get_payload_len(message) < sizeof(rtmsg)) {
        return;
    }
    const rtmsg *head = static_cast<const rtmsg *>(mnl_nlmsg_get_payload(message));
    if ((head->rtm_family != AF_INET && head->rtm_family != AF_INET6) ||
        (head->rtm_flags & RTM_F_CLONED) != 0 || !concerns_unicast(head->rtm_type)) {
        return;
    }
    Destination destination{{}, head->rtm_family == AF_INET ? 4u : 16u};
    destination.change.family = head->rtm_family;
    destination.change.prefix_length = head->rtm_dst_len;
    destination.change.table = head->rtm_table;
    mnl_attr_parse(message, sizeof(*head), read_attribute, &destination);
    watch->changes.push_back(destination.change);
}

void note(const nlmsghdr *message, void *context)
{
    HOST_ROUTE_WATCH watch = static_cast<HOST_ROUTE_WATCH>(context);
    if (message->nlmsg_type == RTM_NEWROUTE || message->nlmsg_type == RTM_DELROUTE) {
        note_route(watch, message);
    } else {
        watch->anything = true;
    }
}

void read_notifications(HOST_ROUTE_WATCH watch)
{
    for (int i = 0; i < DATAGRAMS_PER_WAKE_UP; ++i) {
        Netlink::Received received = watch->notifications.receive(note, watch);
        if (received == Netlink::Received::Overrun) {
            watch->anything = true;
        }
        if (received != Netlink::Received::Messages) {
            return;
        }
    }
    watch->anything = true;
}

void tell(HOST_ROUTE_WATCH watch)
{
    if (watch->anything) {
        watch->changes.assign(1, HOST_ROUTE_CHANGE_S{});
        watch->anything = false;
    }
    for (size_t i = 0; i < watch->changes.size() && !watch->closed; ++i) {
        watch->callback(&watch->changes[i], watch->context);
    }
    watch->changes.clear();
}

uint64_t on_notification(uint32_t, int32_t fd)
{
    HOST_ROUTE_WATCH watch = g_watches.find(fd);
    if (watch == nullptr) {
        return 0;
    }
    watch->delivering = true;
    try {
        read_notifications(watch);
        tell(watch);
    } catch (const std::bad_alloc &) {
        watch->anything = true; // told with the next notification
    }
    watch->delivering = false;
    if (watch->closed) {
        delete watch;
    }
    return 0;
}

} // namespace

HOST_ROUTE_WATCH_S::~HOST_ROUTE_WATCH_S()
{
    int saved = errno;
    if (notifications.valid()) {
        g_watches.remove(loop, notifications.descriptor());
    }
    errno = saved;
}

extern "C" {

HOST_ROUTE_WATCH HOST_RouteWatchOpen(int32_t loop, HOST_ROUTE_CALLBACK callback, void *context)
{
    if (callback == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    try {
        auto watch = std::make_unique<HOST_ROUTE_WATCH_S>(loop, callback, context);
        bool opened = watch->notifications.open(Netlink::Kind::Notifications,
                                                {RTNLGRP_IPV4_ROUTE, RTNLGRP_IPV6_ROUTE, RTNLGRP_LINK,
                                                 RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV6_IFADDR, RTNLGRP_IPV4_RULE,
                                                 RTNLGRP_IPV6_RULE, RTNLGRP_NEXTHOP}) &&
                      g_watches.add(loop, watch->notifications.descriptor(), on_notification, watch.get());
        return opened ? watch.release() : nullptr;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
}

void HOST_RouteWatchClose(HOST_ROUTE_WATCH watch)
{
    if (watch != nullptr && watch->delivering) {
        watch->closed = true;
    } else {
        delete watch;
    }
}

} // extern "C"
