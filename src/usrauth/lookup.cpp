/*
 * What the daemon asks about the user of an interface, from any thread.
 */
#include <string.h>

#include "event/guards.h"
#include "usrauth/interface_tree.h"
#include "usrauth/node.h"

using namespace mcast;
using namespace mcast::usrauth;

namespace
{

/* Users whose ID begins with these four bits are known by their second address. */
constexpr uint32_t kSecondAddressMark = 2;

void FillInfo(MCAST_USRAUTH_INFO_S *info, const User &user)
{
    info->access_if_index = user.access_if_index;
    info->user_id = user.user_id;
    info->attribute_32 = user.attribute_32;
    info->attribute_34 = user.attribute_34;
    info->attribute_36 = user.attribute_36;
    info->attribute_40 = user.attribute_40;
    info->attribute_24 = user.attribute_24;
    info->address = user.user_id >> 28 == kSecondAddressMark ? user.second_address : user.address;
    info->hardware_address_first = user.hardware_address_first;
    info->hardware_address_last = user.hardware_address_last;
    info->attribute_70 = user.attribute_70;
    info->attribute_80 = user.attribute_80;
    info->attribute_84 = user.attribute_84;
}

} // namespace

void MCAST_USRAUTH_SetDefaultUserInfo(MCAST_USRAUTH_INFO_S *info)
{
    if (info == nullptr) {
        return;
    }
    memset(info, 0, sizeof(*info));
    info->user_id = 0xffffffffu;
    info->attribute_32 = 0xffffu;
    info->attribute_34 = 0xffffu;
    info->attribute_40 = 0xffffffffu;
    info->address.family = g_store.family;
    info->attribute_80 = 0xffffffffu;
    info->attribute_84 = 0x0000ffffu;
}

MCAST_STATUS MCAST_USRAUTH_GetInfoByIfIndex(uint32_t if_index, MCAST_USRAUTH_INFO_S *info)
{
    if (info == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    MCAST_USRAUTH_SetDefaultUserInfo(info);
    ReadGuard guard(g_stUsrAuthRWLock);
    const User *user = FindByInterface(if_index);

    if (user == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    FillInfo(info, *user);
    return MCAST_OK;
}

uint32_t MCAST_USRAUTH_GetVrfIndexAndUserIDByIfIndex(uint32_t if_index, uint16_t *vrf_index,
                                                     uint32_t *user_id)
{
    uint32_t found_id = 0xffffffffu;
    {
        ReadGuard guard(g_stUsrAuthRWLock);
        const User *user = FindByInterface(if_index);

        if (user != nullptr) {
            found_id = user->user_id;
            if (vrf_index != nullptr) {
                *vrf_index = user->vrf_index;
            }
        }
    }
    if (user_id != nullptr) {
        *user_id = found_id;
    }
    return found_id;
}

MCAST_BOOL MCAST_USRAUTH_CanPassGroupList(uint32_t if_index, const MCAST_ADDR_S *group)
{
    if (group == nullptr) {
        return MCAST_FALSE;
    }
    ReadGuard guard(g_stUsrAuthRWLock);
    const User *user = FindByInterface(if_index);

    return user != nullptr && MTable_SearchGroup(&user->groups, group) != nullptr ? MCAST_TRUE : MCAST_FALSE;
}

uint32_t MCAST_USRAUTH_UserCount(void)
{
    ReadGuard guard(g_stUsrAuthRWLock);
    return g_store.open ? AVL_Count(g_store.interfaces) : 0;
}

uint16_t MCAST_USRAUTH_GetNode(const MCAST_USRAUTH_USER_S *user)
{
    return user->node->number;
}
