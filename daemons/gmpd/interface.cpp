#include "daemons/gmpd/interface.h"

#include "daemons/common/log.h"
#include "daemons/gmpd/group_state.h"
#include "daemons/gmpd/process.h"
#include "daemons/gmpd/querier.h"

namespace gmpd
{

Interface::Interface(Process &owner, uint32_t if_index, const std::string &if_name)
    : process(&owner), index(if_index), name(if_name), memberships(*this)
{
    owner.use.stale = true;
    address = any_address(owner.config.family);
}

Interface::~Interface()
{
    process->use.stale = true;
    interface_stop(*this);
    timer_stop(process->timers, querier.warned);
}

uint32_t version_shown(const Interface &interface, uint32_t version)
{
    return interface.process->config.family == MCAST_FAMILY_IPV4 ? version : version - 1;
}

MRIB_GMP_VRF_KEY_S key_of(const Interface &interface)
{
    return MRIB_GMP_VRF_KEY_S{interface.process->config.family, interface.vrf_index};
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
    if (required == (interface.users_union != nullptr)) {
        return;
    }
    interface_stop(interface);
    interface.users_union = required ? std::make_unique<UsersUnion>(interface) : nullptr;
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
    interface.process->mrib->tell_running(interface, true);
    querier_start(interface);
}

void interface_stop(Interface &interface)
{
    if (!interface.running) {
        return;
    }
    mcastd::log_info("%s: stopped", interface.name.c_str());
    querier_stop(interface);
    if (interface.users_union != nullptr) {
        if (interface.process->users != nullptr) {
            interface.process->users->link_stopped(interface);
        }
        interface.users_union->clear();
    }
    forget_groups(interface.memberships);
    interface.running = false;
    interface.memberships.group_limit_watch.reset();
    interface.address = any_address(interface.process->config.family);
    interface.process->mrib->tell_running(interface, false);
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
                                           : interface.process->config.query_interval_s;
}

uint32_t membership_interval_ms(const Interface &interface)
{
    const Querier &querier = interface.querier;
    return querier.robustness * querier.query_interval_s * 1000 + querier.response_ms;
}

uint32_t older_host_interval_ms(const Interface &interface)
{
    return membership_interval_ms(interface);
}

uint32_t last_member_interval_ms(const Interface &interface)
{
    return interface.process->config.last_member_s * 1000;
}

uint32_t last_member_time_ms(const Interface &interface)
{
    return last_member_interval_ms(interface) * interface.querier.robustness;
}

} // namespace gmpd
