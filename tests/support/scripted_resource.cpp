#include "support/scripted_resource.h"

#include "platform/vpn.h"

namespace scripted
{

std::function<uint32_t(uint32_t, const RC_TEXT_TABLE_S *, uint32_t)> rc_register;
std::function<uint32_t(uint32_t)> rc_withdraw;
std::function<const char *(uint32_t)> rc_load;
std::function<uint32_t(uint16_t, uint32_t, char *)> vpn_name;
std::function<uint32_t(uint32_t, uint16_t *)> vpn_of_interface;
std::vector<HelpEntry> help_entries;

void ResetResource()
{
    rc_register = nullptr;
    rc_withdraw = nullptr;
    rc_load = nullptr;
    vpn_name = nullptr;
    vpn_of_interface = nullptr;
    help_entries.clear();
}

} // namespace scripted

uint32_t RC_RegInfo(uint32_t module_id, const RC_TEXT_TABLE_S *table, uint32_t count)
{
    return scripted::rc_register ? scripted::rc_register(module_id, table, count) : 0;
}

uint32_t RC_DeregInfo(uint32_t module_id)
{
    return scripted::rc_withdraw ? scripted::rc_withdraw(module_id) : 0;
}

const char *RC_LoadString(uint32_t id)
{
    return scripted::rc_load ? scripted::rc_load(id) : "";
}

void CLI_NewHelpInfo(const char *syntax, const char *description, CLI_HELP_LIST_S *list)
{
    scripted::help_entries.push_back({syntax, description, list});
}

uint32_t L3VPN_GetNameByVrfIndex(uint16_t vrf_index, uint32_t capacity, char *name)
{
    return scripted::vpn_name ? scripted::vpn_name(vrf_index, capacity, name) : 1;
}

uint32_t L3VPN_GetVrfIndexByIfIndex(uint32_t if_index, uint16_t *vrf_index)
{
    return scripted::vpn_of_interface ? scripted::vpn_of_interface(if_index, vrf_index) : 1;
}
