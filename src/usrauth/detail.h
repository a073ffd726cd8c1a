/*
 * What was received: the statistics, and for each user named in a message a record of its messages.
 */
#ifndef SRC_USRAUTH_DETAIL_H
#define SRC_USRAUTH_DETAIL_H

#include "usrauth/store.h"

namespace mcast::usrauth
{

/* For the tree: orders records by node, then user ID. */
int32_t CompareDetails(const void *first, const void *second);

/* Counts a read that delivered data. */
void CountRead();

/* Counts a message by kind and type, which is below USRAUTH_MSG_TYPES; kinds without a counter are not counted. */
void CountMessage(uint32_t kind, uint16_t type);

/* Counts a message of type 0 to 4 that names the user, in a record made for it when the limit allows. */
void CountDetail(uint16_t node, uint32_t user_id, uint16_t type);

} // namespace mcast::usrauth

#endif
