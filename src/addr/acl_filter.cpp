/*
 * ACL filters: the policy between an operator's list number and the platform's match.
 *
 *        list matches         first slot           second slot
 *        one address          first (the group)    -
 *        two addresses        first (the source)   second (the group)
 *
 * A match knows only the slots whose bit is set. A filter without anything to ask about passes rather than
 * asking with no slot, because a rule without addresses would then decide about every line and every join;
 * the group filter alone asks all the same and lets the list's first such rule speak.
 */
#include "mcast/acl_filter.h"

#include <arpa/inet.h>
#include <string.h>

#include "addr/bytes.h"
#include "platform/acl.h"

namespace
{

using mcast::Ipv4HostOrder;
using mcast::Truth;

/* The first octet of 232.0.0.0/8. */
constexpr uint8_t kSsmOctet = 232;
/* The flags of ff3x::/32: prefix-based and transient. */
constexpr uint8_t kSsmFlags = 3;

/* What one match is asked; the family index says which of the two records counts. */
struct Packet {
    uint32_t family_index;
    uint32_t slots;
    union {
        ACL_PACKET_INFO4_S ipv4;
        ACL_PACKET_INFO6_S ipv6;
    } info;
};

struct Outcome {
    uint32_t code;
    uint32_t action;
};

Packet EmptyPacket(const MRIB_GMP_VRF_KEY_S *ctx)
{
    Packet packet;
    memset(&packet, 0, sizeof(packet));
    if (ctx->family == MCAST_FAMILY_IPV4) {
        packet.family_index = ACL_FAMILY_IPV4;
        packet.info.ipv4.vrf_index = ctx->vrf_index;
    } else {
        packet.family_index = ACL_FAMILY_IPV6;
        packet.info.ipv6.vrf_index = ctx->vrf_index;
    }
    return packet;
}

/* Puts the address, unless it is NULL, into the slot. */
void Fill(Packet &packet, uint32_t slot, const MCAST_ADDR_S *addr)
{
    if (addr == nullptr) {
        return;
    }
    packet.slots |= slot;
    if (packet.family_index == ACL_FAMILY_IPV4) {
        ACL_PACKET_INFO4_S &info = packet.info.ipv4;

        (slot == ACL_SLOT_FIRST ? info.first : info.second) = Ipv4HostOrder(addr);
        info.slots = packet.slots;
    } else {
        ACL_PACKET_INFO6_S &info = packet.info.ipv6;

        memcpy(slot == ACL_SLOT_FIRST ? info.first : info.second, addr->address, sizeof(info.first));
        info.slots = packet.slots;
    }
}

bool MatchesOneAddress(const Packet &packet, uint32_t acl_number)
{
    uint32_t single = packet.family_index == ACL_FAMILY_IPV4 ? ACL_GROUP_SINGLE_IPV4 : ACL_GROUP_SINGLE_IPV6;
    return ACL_GetGroupTypeByIndex(packet.family_index, acl_number) == single;
}

Outcome Match(const Packet &packet, uint32_t acl_number)
{
    uint32_t result = 0;
    Outcome outcome = {0, ACL_ACTION_DENY};
    outcome.code =
        ACL_MatchWithPacketInfo(packet.family_index, acl_number, &packet.info, 1, &result, &outcome.action);
    return outcome;
}

bool Permits(const Outcome &outcome)
{
    return outcome.code == 0 && outcome.action == ACL_ACTION_PERMIT;
}

MCAST_ADDR_S Ipv4Record(uint32_t address)
{
    MCAST_ADDR_S record = {MCAST_FAMILY_IPV4, 0, {}};
    uint32_t bytes = htonl(address);
    memcpy(record.address, &bytes, sizeof(bytes));
    return record;
}

} // namespace

MCAST_BOOL MCAST_IsAclValid(const uint8_t *family, uint32_t acl_number, ...)
{
    if (acl_number == MCAST_NONE) {
        return MCAST_FALSE;
    }

    uint32_t index = *family == MCAST_FAMILY_IPV6 ? ACL_FAMILY_IPV6 : ACL_FAMILY_IPV4;
    uint32_t type = ACL_GetGroupTypeByIndex(index, acl_number);

    if (type != ACL_GROUP_SINGLE_IPV4 && type != ACL_GROUP_SINGLE_IPV6) {
        return MCAST_FALSE;
    }
    return Truth(ACL_GetRuleTotalNumber(index, acl_number) != 0);
}

MCAST_BOOL MCAST_IsAclPermit(const MRIB_GMP_VRF_KEY_S *ctx, uint32_t acl_number, const MCAST_ADDR_S *first,
                             const MCAST_ADDR_S *second)
{
    if (acl_number == MCAST_NONE || (first == nullptr && second == nullptr)) {
        return MCAST_TRUE;
    }

    Packet packet = EmptyPacket(ctx);

    Fill(packet, ACL_SLOT_FIRST, first);
    if (!MatchesOneAddress(packet, acl_number)) {
        Fill(packet, ACL_SLOT_SECOND, second);
    }
    if (packet.slots == 0) {
        return MCAST_TRUE;
    }
    return Truth(Permits(Match(packet, acl_number)));
}

MCAST_BOOL MCAST4_IsAclPermit(uint32_t vrf_index, uint32_t acl_number, uint32_t source, uint32_t group)
{
    MRIB_GMP_VRF_KEY_S ctx = {MCAST_FAMILY_IPV4, static_cast<uint16_t>(vrf_index)};
    bool basic = acl_number >= ACL_BASIC_FIRST && acl_number <= ACL_BASIC_LAST;
    MCAST_ADDR_S first = Ipv4Record(basic ? group : source);
    MCAST_ADDR_S second = Ipv4Record(basic ? 0 : group);
    return MCAST_IsAclPermit(&ctx, acl_number, &first, &second);
}

MCAST_BOOL MCAST_IsSSMGrp(const MRIB_GMP_VRF_KEY_S *ctx, uint32_t acl_number, const MCAST_ADDR_S *group)
{
    if (acl_number != MCAST_NONE) {
        return MCAST_IsAclPermit(ctx, acl_number, group, nullptr);
    }

    const uint8_t *bytes = group->address;

    if (group->family == MCAST_FAMILY_IPV4) {
        return Truth(bytes[0] == kSsmOctet);
    }
    return Truth(bytes[0] == 0xff && bytes[1] >> 4 == kSsmFlags && bytes[2] == 0 && bytes[3] == 0);
}

MCAST_BOOL MCAST_GrpFilterByAcl(const MRIB_GMP_VRF_KEY_S *ctx, uint32_t acl_number, const MCAST_ADDR_S *group,
                                ...)
{
    if (acl_number == MCAST_NONE) {
        return MCAST_TRUE;
    }

    Packet packet = EmptyPacket(ctx);

    if (MatchesOneAddress(packet, acl_number)) {
        Fill(packet, ACL_SLOT_FIRST, group);
    }

    Outcome outcome = Match(packet, acl_number);

    return Truth(Permits(outcome) || outcome.code == ACL_ERR_NO_ACL || outcome.code == ACL_ERR_NO_RULE);
}
