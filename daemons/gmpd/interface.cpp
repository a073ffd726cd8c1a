#include "daemons/gmpd/interface.h"

#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "daemons/gmpd/group_state.h"
#include "daemons/gmpd/querier.h"

namespace gmpd
{

Interface::Interface(Router &owner, uint32_t if_index, const std::string &if_name)
    : router(&owner), index(if_index), name(if_name),
      groups(mcastd::must_have(
          MRT_CreateTable(owner.config.family, if_name.c_str(), release_group, release_source)))
{
    address = any_address(owner.config.family);
}

Interface::~Interface()
{
    interface_stop(*this);
    timer_stop(router->timers, querier.warned);
    MRT_DestroyTable(groups);
}

void interface_move(Interface &interface, uint16_t vrf_index)
{
    if (vrf_index != interface.vrf_index) {
        interface_stop(interface);
        interface.vrf_index = vrf_index;
    }
}

void interface_authenticate(Interface &interface, bool required)
{
    if (required == (interface.members != nullptr)) {
        return;
    }
    interface_stop(interface);
    interface.members = required ? std::make_unique<LinkMembers>(interface) : nullptr;
}

void interface_start(Interface &interface, const Address &address)
{
    if (interface.running) {
        if (!same_address(interface.address, address)) {
            mcastd::log_info("%s: address is now %s", interface.name.c_str(), to_text(address).c_str());
            interface.address = address;
        }
        return;
    }
    interface.address = address;
    interface.running = true;
    mcastd::log_info("%s: started, address %s", interface.name.c_str(), to_text(address).c_str());
    interface.router->outputs->tell_running(interface, true);
    querier_start(interface);
}

void interface_stop(Interface &interface)
{
    if (!interface.running) {
        return;
    }
    mcastd::log_info("%s: stopped", interface.name.c_str());
    querier_stop(interface);
    if (interface.members != nullptr) {
        if (interface.router->users != nullptr) {
            interface.router->users->link_stopped(interface);
        }
        interface.members->clear();
    }
    forget_groups(interface);
    interface.running = false;
    interface.near_group_limit = false;
    interface.address = any_address(interface.router->config.family);
    interface.router->outputs->tell_running(interface, false);
}

bool interface_is_neighbour(const Interface &interface, const Address &sender)
{
    // Link-local addresses, and those of hosts that have none yet, are on every link.
    if (sender.family == MCAST_FAMILY_IPV6 || is_unspecified(sender) || interface.prefixes.empty()) {
        return true;
    }
    for (const Prefix &prefix : interface.prefixes) {
        // A full-length prefix is how links without a subnet of their own are numbered.
        if (prefix.length == address_bits(sender.family) || prefix.covers(sender)) {
            return true;
        }
    }
    return false;
}

uint32_t configured_query_interval_s(const Interface &interface)
{
    return interface.query_interval_s != 0 ? interface.query_interval_s
                                           : interface.router->config.query_interval_s;
}

uint32_t membership_interval_ms(const Interface &interface)
{
    const Querier &querier = link_of(interface).querier;
    return querier.robustness * querier.query_interval_s * 1000 + querier.response_ms;
}

uint32_t older_host_interval_ms(const Interface &interface)
{
    return membership_interval_ms(interface);
}

uint32_t last_member_interval_ms(const Interface &interface)
{
    return interface.router->config.last_member_s * 1000;
}

uint32_t last_member_time_ms(const Interface &interface)
{
    return last_member_interval_ms(interface) * link_of(interface).querier.robustness;
}

} // namespace gmpd
