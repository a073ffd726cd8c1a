/*
 * The messages that authentication agents send about users, as people read them.
 */
#ifndef DAEMONS_COMMON_USER_MESSAGES_H
#define DAEMONS_COMMON_USER_MESSAGES_H

#include <cstdint>

#include "mcast/usrauth_wire.h"

namespace mcastd
{

// By message type, for example "group list end".
inline constexpr const char *USER_MESSAGE_NAMES[USRAUTH_MSG_TYPES] = {
    "announce", "withdraw", "update", "group list", "group list end", "refresh begin", "refresh end"};

} // namespace mcastd

#endif
