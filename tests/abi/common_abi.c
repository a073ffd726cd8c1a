/* The records that all families share. */
#include "abi.h"

int main(void)
{
    ABI_SIZE(MCAST_ADDR_S, 20);
    ABI_AT(MCAST_ADDR_S, family, 0);
    ABI_AT(MCAST_ADDR_S, reserved, 2);
    ABI_AT(MCAST_ADDR_S, address, 4);
    ABI_SIZE(MRIB_GMP_VRF_KEY_S, 4);
    ABI_AT(MRIB_GMP_VRF_KEY_S, family, 0);
    ABI_AT(MRIB_GMP_VRF_KEY_S, vrf_index, 2);
    ABI_SIZE(MCAST_STQ_S, 16);
    ABI_AT(MCAST_STQ_S, tail, 8);
    ABI_SIZE(MCAST_STATUS, 4);
    ABI_SIZE(MCAST_BOOL, 4);
    ABI_SIZE(MCAST_MUTEX_S, sizeof(pthread_mutex_t));
    ABI_SIZE(MCAST_RWLOCK_S, sizeof(pthread_rwlock_t));
    ABI_SIZE(MCAST_USRAUTH_INFO_S, 60);
    ABI_AT(MCAST_USRAUTH_INFO_S, access_if_index, 0);
    ABI_AT(MCAST_USRAUTH_INFO_S, user_id, 4);
    ABI_AT(MCAST_USRAUTH_INFO_S, attribute_32, 8);
    ABI_AT(MCAST_USRAUTH_INFO_S, attribute_34, 10);
    ABI_AT(MCAST_USRAUTH_INFO_S, attribute_36, 12);
    ABI_AT(MCAST_USRAUTH_INFO_S, attribute_40, 16);
    ABI_AT(MCAST_USRAUTH_INFO_S, attribute_24, 20);
    ABI_AT(MCAST_USRAUTH_INFO_S, address, 24);
    ABI_AT(MCAST_USRAUTH_INFO_S, hardware_address_first, 44);
    ABI_AT(MCAST_USRAUTH_INFO_S, hardware_address_last, 48);
    ABI_AT(MCAST_USRAUTH_INFO_S, attribute_70, 50);
    ABI_AT(MCAST_USRAUTH_INFO_S, attribute_80, 52);
    ABI_AT(MCAST_USRAUTH_INFO_S, attribute_84, 56);
    return ABI_RESULT();
}
