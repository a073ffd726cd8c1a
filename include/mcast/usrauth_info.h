/*
 * What the user authentication knows about one user, in the form in which it is handed out.
 */
#ifndef MCAST_USRAUTH_INFO_H
#define MCAST_USRAUTH_INFO_H

#include "mcast/common.h"

MCAST_EXTERN_C_BEGIN

/*
 * One user. A field named attribute_N holds, unchanged, the value at offset N of the authentication agent's
 * message; its meaning is the agent's. Plain data: the caller provides and keeps it.
 */
typedef struct MCAST_USRAUTH_INFO_S {
    uint32_t access_if_index;
    uint32_t user_id;
    uint16_t attribute_32;
    uint16_t attribute_34;
    uint32_t attribute_36;
    uint32_t attribute_40;
    uint32_t attribute_24;
    MCAST_ADDR_S address;
    uint32_t hardware_address_first; /* the first four bytes of six, as they stood in the message */
    uint16_t hardware_address_last;  /* the last two */
    uint16_t attribute_70;
    uint32_t attribute_80;
    uint32_t attribute_84;
} MCAST_USRAUTH_INFO_S;

MCAST_STATIC_ASSERT(sizeof(MCAST_USRAUTH_INFO_S) == 60, "user information is 60 bytes");
MCAST_STATIC_ASSERT(offsetof(MCAST_USRAUTH_INFO_S, attribute_36) == 12, "third word after the 16-bit pair");
MCAST_STATIC_ASSERT(offsetof(MCAST_USRAUTH_INFO_S, address) == 24, "address follows the words");
MCAST_STATIC_ASSERT(offsetof(MCAST_USRAUTH_INFO_S, hardware_address_first) == 44, "follows the address");
MCAST_STATIC_ASSERT(offsetof(MCAST_USRAUTH_INFO_S, attribute_80) == 52, "last words are aligned");

MCAST_EXTERN_C_END

#endif
