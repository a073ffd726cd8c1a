#include "support/scripted_acl.h"

#include "platform/acl.h"

namespace scripted
{

std::function<uint32_t(uint32_t, uint32_t)> acl_group_type;
std::function<uint32_t(uint32_t, uint32_t)> acl_rule_count;
std::function<uint32_t(uint32_t, uint32_t, const void *, uint32_t, uint32_t *, uint32_t *)> acl_match;

void ResetAcl()
{
    acl_group_type = nullptr;
    acl_rule_count = nullptr;
    acl_match = nullptr;
}

} // namespace scripted

uint32_t ACL_GetGroupTypeByIndex(uint32_t family_index, uint32_t acl_number)
{
    return scripted::acl_group_type ? scripted::acl_group_type(family_index, acl_number) : 0;
}

uint32_t ACL_GetRuleTotalNumber(uint32_t family_index, uint32_t acl_number)
{
    return scripted::acl_rule_count ? scripted::acl_rule_count(family_index, acl_number) : 0;
}

uint32_t ACL_MatchWithPacketInfo(uint32_t family_index, uint32_t acl_number, const void *packet_info,
                                 uint32_t count, uint32_t *result, uint32_t *action)
{
    return scripted::acl_match
               ? scripted::acl_match(family_index, acl_number, packet_info, count, result, action)
               : ACL_ERR_NO_ACL;
}
