/*
 * The platform's resources, command-line help and VPN names under a test's control.
 */
#ifndef TESTS_SUPPORT_SCRIPTED_RESOURCE_H
#define TESTS_SUPPORT_SCRIPTED_RESOURCE_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/resource.h"

namespace scripted
{

/* RC_RegInfo and RC_DeregInfo; while unset both succeed. */
extern std::function<uint32_t(uint32_t module_id, const RC_TEXT_TABLE_S *table, uint32_t count)> rc_register;
extern std::function<uint32_t(uint32_t module_id)> rc_withdraw;

/* RC_LoadString; while unset every text is empty. */
extern std::function<const char *(uint32_t id)> rc_load;

/* L3VPN_GetNameByVrfIndex; while unset no instance is known and the name is untouched. */
extern std::function<uint32_t(uint16_t vrf_index, uint32_t capacity, char *name)> vpn_name;

/* L3VPN_GetVrfIndexByIfIndex; while unset no interface is known and the index is untouched. */
extern std::function<uint32_t(uint32_t if_index, uint16_t *vrf_index)> vpn_of_interface;

/* An entry added with CLI_NewHelpInfo. */
struct HelpEntry {
    std::string syntax;
    std::string description;
    const void *list;
};

/* The entries added since ResetResource. */
extern std::vector<HelpEntry> help_entries;

/* Unsets everything and forgets the entries. */
void ResetResource();

} // namespace scripted

#endif
