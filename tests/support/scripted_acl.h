/*
 * The platform's ACL module under a test's control: every call goes to the function object of its name.
 */
#ifndef TESTS_SUPPORT_SCRIPTED_ACL_H
#define TESTS_SUPPORT_SCRIPTED_ACL_H

#include <cstdint>
#include <functional>

namespace scripted
{

/* ACL_GetGroupTypeByIndex and ACL_GetRuleTotalNumber; while unset there is no list and the result is 0. */
extern std::function<uint32_t(uint32_t family_index, uint32_t acl_number)> acl_group_type;
extern std::function<uint32_t(uint32_t family_index, uint32_t acl_number)> acl_rule_count;

/* ACL_MatchWithPacketInfo; while unset every match fails with ACL_ERR_NO_ACL. */
extern std::function<uint32_t(uint32_t family_index, uint32_t acl_number, const void *packet_info,
                              uint32_t count, uint32_t *result, uint32_t *action)>
    acl_match;

/* Unsets the three. */
void ResetAcl();

} // namespace scripted

#endif
