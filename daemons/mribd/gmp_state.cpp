#include "daemons/mribd/gmp_state.h"

#include <algorithm>
#include <utility>

namespace mribd
{

// What change does with the client's report; one that says nothing is not kept, so that interfaces which are gone
// leave nothing behind.
template <typename Change>
bool GmpState::change(ClientId client, uint32_t if_index, bool adds, const Change &change)
{
    auto interface = interfaces_.find(if_index);
    if (!adds && (interface == interfaces_.end() || !interface->second.contains(client))) {
        return false;
    }
    if (interface == interfaces_.end()) {
        Reports reports;
        reports.try_emplace(client);
        interface = interfaces_.try_emplace(if_index, std::move(reports)).first;
    }
    const auto own = interface->second.try_emplace(client).first;
    const bool changed = change(own->second);
    if (!own->second.enabled && !own->second.other_querier) {
        interface->second.erase(own);
    }
    if (interface->second.empty()) {
        interfaces_.erase(interface);
    }
    return changed;
}

bool GmpState::set_enabled(ClientId client, uint32_t if_index, bool enabled)
{
    return change(client, if_index, enabled, [enabled](Report &own) {
        own.other_querier = own.other_querier && enabled;
        return std::exchange(own.enabled, enabled) != enabled;
    });
}

bool GmpState::set_querier(ClientId client, uint32_t if_index, bool this_router)
{
    return change(client, if_index, !this_router, [this_router](Report &own) {
        return std::exchange(own.other_querier, !this_router) == this_router;
    });
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
