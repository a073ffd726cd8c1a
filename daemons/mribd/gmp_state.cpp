#include "daemons/mribd/gmp_state.h"

#include <algorithm>

namespace mribd
{

GmpState::Report &GmpState::report(ClientId client, uint32_t if_index)
{
    return interfaces_[if_index][client];
}

// Removes a report that says nothing, so that interfaces which are gone leave nothing behind.
void GmpState::tidy(ClientId client, uint32_t if_index)
{
    const auto interface = interfaces_.find(if_index);
    const auto found = interface->second.find(client);
    if (!found->second.enabled && !found->second.other_querier) {
        interface->second.erase(found);
    }
    if (interface->second.empty()) {
        interfaces_.erase(interface);
    }
}

bool GmpState::set_enabled(ClientId client, uint32_t if_index, bool enabled)
{
    Report &own = report(client, if_index);
    const bool changed = own.enabled != enabled;
    own.enabled = enabled;
    if (!enabled) {
        own.other_querier = false;
    }
    tidy(client, if_index);
    return changed;
}

bool GmpState::set_querier(ClientId client, uint32_t if_index, bool this_router)
{
    Report &own = report(client, if_index);
    const bool changed = own.other_querier == this_router;
    own.other_querier = !this_router;
    tidy(client, if_index);
    return changed;
}

bool GmpState::drop_client(ClientId client)
{
    bool changed = false;
    for (auto interface = interfaces_.begin(); interface != interfaces_.end();) {
        changed |= interface->second.erase(client) != 0;
        interface = interface->second.empty() ? interfaces_.erase(interface) : std::next(interface);
    }
    return changed;
}

bool GmpState::drop_interface(uint32_t if_index)
{
    return interfaces_.erase(if_index) != 0;
}

bool GmpState::knows_client(ClientId client) const
{
    return std::any_of(interfaces_.begin(), interfaces_.end(),
                       [client](const auto &entry) { return entry.second.contains(client); });
}

bool GmpState::is_enabled(uint32_t if_index) const
{
    const auto found = interfaces_.find(if_index);
    return found != interfaces_.end() && std::any_of(found->second.begin(), found->second.end(),
                                                     [](const auto &entry) { return entry.second.enabled; });
}

bool GmpState::is_forwarder(uint32_t if_index) const
{
    const auto found = interfaces_.find(if_index);
    return found == interfaces_.end() ||
           std::none_of(found->second.begin(), found->second.end(),
                        [](const auto &entry) { return entry.second.other_querier; });
}

std::vector<uint32_t> GmpState::enabled_interfaces() const
{
    std::vector<uint32_t> result;
    for (const auto &[if_index, reports] : interfaces_) {
        if (is_enabled(if_index)) {
            result.push_back(if_index);
        }
    }
    return result;
}

} // namespace mribd
