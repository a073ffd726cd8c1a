/*
 * The platform's questions about VPN instances, answered from the configuration in force and the links as the
 * interface service sees them: with a link table open, as far as its loop has read the kernel's
 * notifications.
 */
#include "platform/vpn.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "config_store.h"
#include "interface_view.h"
#include "vpn_instance.h"

namespace
{

// NULL before the first load.
const host::VpnTable *vpns_in_force()
{
    const host::Config *config = host::current_config();
    return config != nullptr ? &config->vpns : nullptr;
}

// The name of an entry of the file; NULL when there is none.
const char *name_of_entry(const host::VpnTable *vpns, uint16_t vrf_index)
{
    if (vpns == nullptr) {
        return nullptr;
    }
    const auto place = vpns->names.find(vrf_index);
    return place == vpns->names.end() ? nullptr : place->second.c_str();
}

// The VRF device with the lowest interface index that is the instance.
bool find_device(const host::VpnTable *vpns, uint16_t vrf_index, HOST_LINK_S *device)
{
    return host::find_interface_quietly(
        [&](const HOST_LINK_S &link) {
            return host::is_vrf_device(link) && host::instance_of_device(vpns, link) == vrf_index;
        },
        device);
}

// False when the text does not fit; then as much as fits is written.
bool copy_name(const char *found, uint32_t capacity, char *name)
{
    const size_t length = strlen(found);
    const size_t copied = std::min<size_t>(length, capacity - 1);
    memcpy(name, found, copied);
    name[copied] = '\0';
    return copied == length;
}

} // namespace

extern "C" {

HOST_API uint32_t L3VPN_GetNameByVrfIndex(uint16_t vrf_index, uint32_t capacity, char *name)
{
    if (name == nullptr || capacity == 0) {
        return HOST_FAILED;
    }
    const host::VpnTable *vpns = vpns_in_force();
    const char *found = vrf_index == 0 ? "" : name_of_entry(vpns, vrf_index);
    HOST_LINK_S device;
    if (found == nullptr) {
        if (!find_device(vpns, vrf_index, &device)) {
            return HOST_FAILED;
        }
        found = device.name;
    }
    return copy_name(found, capacity, name) ? 0 : HOST_FAILED;
}

HOST_API uint32_t L3VPN_GetVrfIndexByIfIndex(uint32_t if_index, uint16_t *vrf_index)
{
    HOST_LINK_S link;
    HOST_LINK_S master;
    if (vrf_index == nullptr || !host::find_interface_quietly(if_index, &link)) {
        return HOST_FAILED;
    }
    const bool is_port = link.master_index != 0;
    if (is_port && !host::find_interface_quietly(link.master_index, &master)) {
        return HOST_FAILED; // it may be a VRF device
    }
    const auto found = host::instance_of_link(vpns_in_force(), link, is_port ? &master : nullptr);
    if (!found) {
        return HOST_FAILED;
    }
    *vrf_index = *found;
    return 0;
}

} // extern "C"
