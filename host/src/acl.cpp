/*
 * Access control lists, matched rule by rule in the order of their ids; the first rule that matches decides.
 *
 *     rule  5 permit source 10.0.0.0/8          compares the first slot
 *     rule 10 deny   source any                 compares nothing, so it matches every packet
 *
 * A rule matches when the packet is of its instance (a rule without one is for all) and every address that it
 * compares is in a filled slot and equal in the bits that count. An address that is not in the packet is
 * unknown: no statement about it holds, not even a denying one. A packet that no rule matches is denied, with
 * 0 for a match that ran, because a list says what it lets through.
 *
 * Rules are compared one after the other: lists of multicast policy are short, and one comparison is four
 * instructions on adjacent memory.
 */
#include "platform/acl.h"

#include "config_store.h"

namespace
{

using host::Acl;
using host::AclAddress;
using host::AclRule;

// The detail of a match that no rule decided; otherwise it is the id of the rule.
constexpr uint32_t NO_RULE = UINT32_MAX;

struct Packet {
    AclAddress first;
    AclAddress second;
    uint32_t slots;
    uint32_t vrf;
};

Packet read_packet(uint32_t family_index, const void *info)
{
    if (family_index == ACL_FAMILY_IPV4) {
        const auto *ipv4 = static_cast<const ACL_PACKET_INFO4_S *>(info);
        return {host::acl_address(ipv4->first), host::acl_address(ipv4->second), ipv4->slots,
                ipv4->vrf_index};
    }
    const auto *ipv6 = static_cast<const ACL_PACKET_INFO6_S *>(info);
    return {host::acl_address(ipv6->first), host::acl_address(ipv6->second), ipv6->slots, ipv6->vrf_index};
}

bool matches(const AclRule &rule, const Packet &packet)
{
    return (rule.slots & ~packet.slots) == 0 && (rule.vrf == AclRule::EVERY_VRF || rule.vrf == packet.vrf) &&
           rule.first.matches(packet.first) && rule.second.matches(packet.second);
}

const Acl *find(uint32_t family_index, uint32_t number)
{
    const host::Config *config = host::current_config();
    return config == nullptr ? nullptr : config->acls.find(family_index, number);
}

} // namespace

extern "C" {

HOST_API uint32_t ACL_GetGroupTypeByIndex(uint32_t family_index, uint32_t acl_number)
{
    const Acl *list = find(family_index, acl_number);
    return list == nullptr ? 0 : list->group_type;
}

HOST_API uint32_t ACL_GetRuleTotalNumber(uint32_t family_index, uint32_t acl_number)
{
    const Acl *list = find(family_index, acl_number);
    return list == nullptr ? 0 : static_cast<uint32_t>(list->rules.size());
}

HOST_API uint32_t ACL_MatchWithPacketInfo(uint32_t family_index, uint32_t acl_number, const void *packet_info,
                                          uint32_t count, uint32_t *result, uint32_t *action)
{
    if (packet_info == nullptr || count != 1 || result == nullptr || action == nullptr) {
        return HOST_FAILED;
    }
    const Acl *list = find(family_index, acl_number);
    if (list == nullptr) {
        return ACL_ERR_NO_ACL;
    }
    if (list->rules.empty()) {
        return ACL_ERR_NO_RULE;
    }
    const Packet packet = read_packet(family_index, packet_info);
    *result = NO_RULE;
    *action = ACL_ACTION_DENY;
    for (const AclRule &rule : list->rules) {
        if (matches(rule, packet)) {
            *result = rule.id;
            *action = rule.action;
            break;
        }
    }
    return 0;
}

} // extern "C"
