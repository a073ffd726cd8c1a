#include "vpn_instance.h"

#include <cstring>
#include <string_view>

namespace host
{

bool is_vrf_device(const HOST_LINK_S &link)
{
    return strcmp(link.kind, "vrf") == 0;
}

std::optional<uint16_t> instance_of_device(const VpnTable *vpns, const HOST_LINK_S &device)
{
    if (vpns != nullptr) {
        const auto named = vpns->indexes.find(std::string_view(device.name));
        if (named != vpns->indexes.end()) {
            return named->second;
        }
    }
    if (device.vrf_table == 0 || device.vrf_table > UINT16_MAX) {
        return std::nullopt;
    }
    const auto index = static_cast<uint16_t>(device.vrf_table);
    const bool taken = vpns != nullptr && vpns->names.contains(index);
    return taken ? std::nullopt : std::optional(index);
}

std::optional<uint16_t> instance_of_link(const VpnTable *vpns, const HOST_LINK_S &link,
                                         const HOST_LINK_S *master)
{
    if (is_vrf_device(link)) {
        return instance_of_device(vpns, link);
    }
    if (master != nullptr && is_vrf_device(*master)) {
        return instance_of_device(vpns, *master);
    }
    if (vpns == nullptr) {
        return uint16_t{0};
    }
    const auto listed = vpns->interfaces.find(std::string_view(link.name));
    return listed == vpns->interfaces.end() ? uint16_t{0} : listed->second;
}

} // namespace host
