#include "daemons/mribd/host_environment.h"

#include "daemons/common/line_format.h"
#include "daemons/common/log.h"
#include "daemons/mribd/address.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <utility>

namespace mribd
{
namespace
{

// Whether the first length bits of both are the same.
bool share_prefix(const uint8_t *one, const uint8_t *other, unsigned length)
{
    const unsigned whole = length / 8;
    const unsigned rest = length % 8;
    return std::memcmp(one, other, whole) == 0 &&
           (rest == 0 || ((one[whole] ^ other[whole]) >> (8 - rest)) == 0);
}

} // namespace

HostEnvironment::~HostEnvironment()
{
    HOST_RouteWatchClose(watch_);
    HOST_RouteLookupClose(lookup_);
    HOST_LinkClose(links_);
}

bool HostEnvironment::open(int loop, Events events)
{
    links_ = HOST_LinkOpen(loop, link_event, this);
    if (links_ == nullptr) {
        mcastd::log_error("cannot follow the network interfaces: %s", std::strerror(errno));
        return false;
    }
    lookup_ = HOST_RouteLookupOpen();
    if (lookup_ == nullptr) {
        mcastd::log_error("cannot look up unicast routes: %s", std::strerror(errno));
        return false;
    }
    watch_ = HOST_RouteWatchOpen(loop, route_event, this);
    if (watch_ == nullptr) {
        mcastd::log_error("cannot follow the unicast routes: %s", std::strerror(errno));
        return false;
    }
    events_ = std::move(events);
    return true;
}

void HostEnvironment::link_event(HOST_LINK_TABLE, const HOST_LINK_EVENT_S *event, void *context)
{
    static_cast<const HostEnvironment *>(context)->take_link_event(*event);
}

void HostEnvironment::take_link_event(const HOST_LINK_EVENT_S &event) const
{
    if (!events_.links_changed) {
        return; // still opening
    }
    switch (event.kind) {
    case HOST_LINK_EVENT_RENAMED:
        mcastd::log_info("interface %s is now called %s", event.old_link->name, event.link->name);
        if (events_.link_renamed) {
            events_.link_renamed();
        }
        return;
    case HOST_LINK_EVENT_REMOVED:
        mcastd::log_info("interface %s is gone", event.link->name);
        events_.link_removed(event.link->if_index);
        return;
    case HOST_LINK_EVENT_CHANGED:
        if (event.link->flags == event.old_link->flags) {
            return;
        }
        break;
    default:
        break;
    }
    events_.links_changed();
}

void HostEnvironment::route_event(const HOST_ROUTE_CHANGE_S *change, void *context)
{
    const auto *self = static_cast<const HostEnvironment *>(context);
    if (self->events_.routes_changed) {
        self->events_.routes_changed(change->family, change->prefix, change->prefix_length);
    }
}

std::vector<uint32_t> HostEnvironment::multicast_interfaces() const
{
    constexpr uint32_t NEEDED = HOST_LINK_UP | HOST_LINK_MULTICAST;
    std::vector<uint32_t> result;
    HOST_LINK_S link{};
    while (HOST_LinkGetNext(links_, link.if_index, &link) == 0) {
        if ((link.flags & (NEEDED | HOST_LINK_LOOPBACK)) == NEEDED) {
            result.push_back(link.if_index);
        }
    }
    return result;
}

std::string HostEnvironment::interface_name(uint32_t if_index) const
{
    return mcastd::formatted("%I", if_index);
}

uint32_t HostEnvironment::interface_index(const std::string &name) const
{
    HOST_LINK_S link;
    return HOST_LinkGetByName(links_, name.c_str(), &link) == 0 ? link.if_index : 0;
}

bool HostEnvironment::is_on_link(uint32_t if_index, const MCAST_ADDR_S &source) const
{
    HOST_ADDRESS_S address;
    for (uint32_t i = 0; HOST_LinkGetAddress(links_, if_index, i, &address) == 0; i++) {
        if (address.family == source.family &&
            share_prefix(address.peer, source.address, address.prefix_length)) {
            return true;
        }
    }
    return false;
}

// The kernel needs no forwarding sysctl: it sets mc_forwarding itself, and multicast passes with ip_forward
// and its IPv6 twin off. What it does need is the family on the interface.
std::string HostEnvironment::obstacle(uint8_t family, uint32_t if_index) const
{
    const std::string conf =
        std::string("net/") + family_name(family) + "/conf/" + interface_name(if_index) + "/";
    const auto value_of = [&conf](const char *name) {
        std::ifstream file("/proc/sys/" + conf + name);
        std::string value;
        file >> value;
        return value;
    };
    if (family == MCAST_FAMILY_IPV6 && value_of("disable_ipv6") == "1") {
        return conf + "disable_ipv6 is 1";
    }
    return value_of("mc_forwarding") == "0" ? conf + "mc_forwarding is 0" : "";
}

uint32_t HostEnvironment::owner_of(const MCAST_ADDR_S &source) const
{
    HOST_LINK_S link{};
    while (HOST_LinkGetNext(links_, link.if_index, &link) == 0) {
        HOST_ADDRESS_S address;
        for (uint32_t i = 0; HOST_LinkGetAddress(links_, link.if_index, i, &address) == 0; i++) {
            if (address.family == source.family &&
                std::memcmp(address.address, source.address, sizeof(address.address)) == 0) {
                return link.if_index;
            }
        }
    }
    return 0;
}

Environment::Route HostEnvironment::route_to(const MCAST_ADDR_S &source) const
{
    HOST_ROUTE_S route;
    if (HOST_RouteLookupAsk(lookup_, static_cast<uint8_t>(source.family), source.address, 0, &route) != 0) {
        return {};
    }
    if (route.is_local != 0) {
        return {owner_of(source), true};
    }
    return {route.if_index, false};
}

} // namespace mribd
