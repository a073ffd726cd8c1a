#include "platform/vpn.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <net/if.h>

#include "config_store.h"

extern "C" {

HOST_API uint32_t L3VPN_GetNameByVrfIndex(uint16_t vrf_index, uint32_t capacity, char *name)
{
    if (name == nullptr || capacity == 0) {
        return HOST_FAILED;
    }
    const host::Config *config = host::current_config();
    const char *found = vrf_index == 0 ? "" : nullptr;
    if (config != nullptr && vrf_index != 0) {
        const auto place = config->vpns.names.find(vrf_index);
        found = place == config->vpns.names.end() ? nullptr : place->second.c_str();
    }
    if (found == nullptr) {
        return HOST_FAILED;
    }
    const size_t length = strlen(found);
    const size_t copied = std::min<size_t>(length, capacity - 1);
    memcpy(name, found, copied);
    name[copied] = '\0';
    return copied == length ? 0 : HOST_FAILED;
}

// The name is asked of the kernel each time, so an interface that is renamed or comes later is found.
HOST_API uint32_t L3VPN_GetVrfIndexByIfIndex(uint32_t if_index, uint16_t *vrf_index)
{
    char name[IF_NAMESIZE];
    const int saved = errno;
    if (vrf_index == nullptr || if_indextoname(if_index, name) == nullptr) {
        errno = saved;
        return HOST_FAILED;
    }
    uint16_t found = 0;
    if (const host::Config *config = host::current_config(); config != nullptr) {
        const auto place = config->vpns.interfaces.find(std::string_view(name));
        found = place == config->vpns.interfaces.end() ? uint16_t{0} : place->second;
    }
    *vrf_index = found;
    return 0;
}

} // extern "C"
