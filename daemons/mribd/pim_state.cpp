#include "daemons/mribd/pim_state.h"

#include <algorithm>
#include <iterator>

namespace mribd
{

bool PimState::set(ClientId client, uint32_t if_index, mcastd::PimInterfaceState state)
{
    const auto known = interfaces_.find(if_index);
    if (state == mcastd::PIM_GONE) {
        if (known == interfaces_.end() || known->second.erase(client) == 0) {
            return false;
        }
        if (known->second.empty()) {
            interfaces_.erase(known);
        }
        return true;
    }
    clients_.insert(client);
    const bool designated = state == mcastd::PIM_DESIGNATED;
    if (known != interfaces_.end()) {
        const auto [own, is_new] = known->second.try_emplace(client, designated);
        const bool changed = is_new || own->second != designated;
        own->second = designated;
        return changed;
    }
    std::map<ClientId, bool> reports;
    reports.try_emplace(client, designated);
    interfaces_.try_emplace(if_index, std::move(reports));
    return true;
}

bool PimState::drop_client(ClientId client)
{
    bool changed = false;
    clients_.erase(client);
    for (auto interface = interfaces_.begin(); interface != interfaces_.end();) {
        changed |= interface->second.erase(client) != 0;
        interface = interface->second.empty() ? interfaces_.erase(interface) : std::next(interface);
    }
    return changed;
}

bool PimState::drop_interface(uint32_t if_index)
{
    return interfaces_.erase(if_index) != 0;
}

bool PimState::knows_client(ClientId client) const
{
    return std::any_of(interfaces_.begin(), interfaces_.end(),
                       [client](const auto &entry) { return entry.second.contains(client); });
}

bool PimState::is_designated(uint32_t if_index) const
{
    const auto found = interfaces_.find(if_index);
    return found != interfaces_.end() && std::any_of(found->second.begin(), found->second.end(),
                                                     [](const auto &report) { return report.second; });
}

std::vector<uint32_t> PimState::interfaces() const
{
    std::vector<uint32_t> result;
    for (const auto &[if_index, reports] : interfaces_) {
        result.push_back(if_index);
    }
    return result;
}

} // namespace mribd
