/*
 * What mribd has to know of the machine, from the host platform's link table, route look-ups and route
 * watch.
 *
 * An instance is a set of interfaces, which the configuration or a VRF device names. With a device the
 * kernel has routing tables of the instance, and is asked as the device would ask. Without one all
 * instances share the kernel's tables: the best route of all counts when it leaves by an interface of the
 * instance, and otherwise the best of those that do, each of its interfaces being asked about. So two
 * instances may have the same subnets.
 *
 * The route watch does not say what a source's route is now, but under which prefix something changed. The
 * forwarding entries ask again for the sources under it.
 *
 * Links that exist at the start are not reported: whoever opens the environment looks at all of them
 * first.
 */
#include "daemons/mribd/host_environment.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

#include "daemons/common/descriptor.h"
#include "daemons/common/line_format.h"
#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "daemons/common/pim_records.h"
#include "daemons/common/route_question.h"
#include "daemons/mribd/address.h"
#include "mcast/service.h"

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

// The first character of the kernel's setting, '\0' when there is none to read.
char read_setting(const std::string &path)
{
    char value = '\0';
    const mcastd::Descriptor file(::open(("/proc/sys/" + path).c_str(), O_RDONLY | O_CLOEXEC));
    return file.valid() && read(file.get(), &value, 1) == 1 ? value : '\0';
}

// Of the register interface, which begins with the values of default: what Registers carry is dropped without a word.
std::string register_obstacle(uint8_t family)
{
    for (const char *of : {"all", "default"}) {
        const std::string setting = std::string("net/ipv4/conf/") + of + "/rp_filter";
        const char value = read_setting(setting);
        if (family == MCAST_FAMILY_IPV4 && value != '0' && value != '\0') {
            return setting + " is " + value + ", so that packets out of Registers are dropped";
        }
    }
    return "";
}

constexpr Environment::Route UNKNOWN{0, false, true};

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
    auto *self = static_cast<HostEnvironment *>(context);
    self->missed_links_ |=
        !mcastd::memory_unit("a change of an interface", [=] { self->take_link_event(*event); });
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
            events_.link_renamed(event.link->if_index);
        }
        return;
    case HOST_LINK_EVENT_REMOVED:
        mcastd::log_info("interface %s is gone", event.link->name);
        events_.link_removed(event.link->if_index);
        return;
    case HOST_LINK_EVENT_CHANGED:
        if (event.link->flags == event.old_link->flags &&
            event.link->master_index == event.old_link->master_index &&
            event.link->vrf_table == event.old_link->vrf_table) {
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
        mcastd::memory_unit("a change of a route", [=] {
            self->events_.routes_changed(change->family, change->prefix, change->prefix_length);
        });
    }
}

void HostEnvironment::settle()
{
    if (missed_links_ && !mcastd::memory_is_short()) {
        events_.links_changed();
        missed_links_ = false;
    }
}

std::vector<uint32_t> HostEnvironment::multicast_interfaces(uint16_t vrf_index) const
{
    constexpr uint32_t NEEDED = HOST_LINK_UP | HOST_LINK_MULTICAST;
    std::vector<uint32_t> result;
    HOST_LINK_S link{};
    while (HOST_LinkGetNext(links_, link.if_index, &link) == 0) {
        if ((link.flags & (NEEDED | HOST_LINK_LOOPBACK)) == NEEDED &&
            instance_of(link.if_index) == vrf_index) {
            result.push_back(link.if_index);
        }
    }
    return result;
}

std::optional<uint16_t> HostEnvironment::instance_of(uint32_t if_index) const
{
    uint16_t vrf_index;
    return MCAST_GetVrfIndexByIfIndex(if_index, &vrf_index) == MCAST_OK ? std::optional(vrf_index)
                                                                        : std::nullopt;
}

HostEnvironment::Device HostEnvironment::device_of(uint16_t vrf_index) const
{
    HOST_LINK_S link{};
    while (HOST_LinkGetNext(links_, link.if_index, &link) == 0) {
        if (link.vrf_table != 0 && instance_of(link.if_index) == vrf_index) {
            return {link.if_index, link.vrf_table};
        }
    }
    return {};
}

std::string HostEnvironment::interface_name(uint32_t if_index) const
{
    return if_index == mcastd::PIM_REGISTER_INTERFACE ? "register" : mcastd::formatted("%I", if_index);
}

uint32_t HostEnvironment::interface_index(const std::string &name) const
{
    HOST_LINK_S link;
    return HOST_LinkGetByName(links_, name.c_str(), &link) == 0 ? link.if_index : 0;
}

bool HostEnvironment::is_on_link(uint32_t if_index, const MCAST_ADDR_S &source) const
{
    HOST_ADDRESS_S address;
    for (uint32_t i = 0; HOST_LinkGetAddress(links_, if_index, i, &address) == 0; ++i) {
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
    if (if_index == mcastd::PIM_REGISTER_INTERFACE) {
        return register_obstacle(family);
    }
    const std::string conf =
        std::string("net/") + family_name(family) + "/conf/" + interface_name(if_index) + "/";
    if (family == MCAST_FAMILY_IPV6 && read_setting(conf + "disable_ipv6") == '1') {
        return conf + "disable_ipv6 is 1";
    }
    return read_setting(conf + "mc_forwarding") == '0' ? conf + "mc_forwarding is 0" : "";
}

uint32_t HostEnvironment::owner_of(uint16_t vrf_index, const MCAST_ADDR_S &source) const
{
    HOST_LINK_S link{};
    while (HOST_LinkGetNext(links_, link.if_index, &link) == 0) {
        HOST_ADDRESS_S address;
        for (uint32_t i = 0; HOST_LinkGetAddress(links_, link.if_index, i, &address) == 0; ++i) {
            if (address.family == source.family &&
                std::memcmp(address.address, source.address, sizeof(address.address)) == 0 &&
                instance_of(link.if_index) == vrf_index) {
                return link.if_index;
            }
        }
    }
    return 0;
}

// The best of the routes that leave by interfaces of the instance; of equal ones the one with the lowest
// interface index. The routes of a VRF device leave by its ports, never by itself.
Environment::Route HostEnvironment::best_route_on(uint16_t vrf_index, const MCAST_ADDR_S &source) const
{
    std::optional<HOST_ROUTE_S> best;
    const uint32_t device = vrf_index == 0 ? 0 : device_of(vrf_index).if_index;
    for (const uint32_t if_index : multicast_interfaces(vrf_index)) {
        HOST_ROUTE_S route;
        if (if_index == device) {
            continue;
        }
        if (HOST_RouteLookupOn(lookup_, static_cast<uint8_t>(source.family), source.address, if_index,
                               &route) != 0) {
            if (mcastd::could_not_ask(errno)) {
                return UNKNOWN; // it may have been the best
            }
        } else if (!best || route.prefix_length > best->prefix_length ||
                   (route.prefix_length == best->prefix_length && route.metric < best->metric)) {
            best = route;
        }
    }
    return best ? Route{best->if_index, best->is_local != 0} : Route{};
}

// Instances without a VRF device share the kernel's routing tables. Mostly the best route of all leaves by an
// interface of the instance; only otherwise each of its interfaces is asked about.
Environment::Route HostEnvironment::route_to(uint16_t vrf_index, const MCAST_ADDR_S &source) const
{
    const uint32_t device = vrf_index == 0 ? 0 : device_of(vrf_index).if_index;
    HOST_ROUTE_S route;
    if (HOST_RouteLookupAsk(lookup_, static_cast<uint8_t>(source.family), source.address, device, &route) !=
        0) {
        if (mcastd::could_not_ask(errno)) {
            return UNKNOWN;
        }
        return device == 0 ? Route{} : best_route_on(vrf_index, source);
    }
    if (route.is_local != 0) {
        if (const uint32_t owner = owner_of(vrf_index, source)) {
            return {owner, true};
        }
    } else if (instance_of(route.if_index) == vrf_index) {
        return {route.if_index, false};
    }
    return best_route_on(vrf_index, source);
}

} // namespace mribd
