/*
 * Finds users by interface at the cost of about one cache miss, where the tree costs one a level. The index
 * is either complete or absent: when memory is short it is freed, and made again later.
 */
#ifndef SRC_USRAUTH_INTERFACE_INDEX_H
#define SRC_USRAUTH_INTERFACE_INDEX_H

#include "usrauth/store.h"

namespace mcast::usrauth
{

/* Frees the index. */
void EndIndex() MCAST_REQUIRES(g_stUsrAuthRWLock);

/*
 * Follow the interface tree: user has been put into it, or taken out. The first is linear when the index
 * grows.
 */
void IndexUser(User *user) MCAST_REQUIRES(g_stUsrAuthRWLock);
void UnindexUser(const User *user) MCAST_REQUIRES(g_stUsrAuthRWLock);

/* Whether there is an index; without one the tree has to be searched. */
bool HasIndex() MCAST_REQUIRES_SHARED(g_stUsrAuthRWLock);

/* The user of the interface, or nullptr; there is an index. */
User *FindInIndex(uint32_t if_index) MCAST_REQUIRES_SHARED(g_stUsrAuthRWLock);

} // namespace mcast::usrauth

#endif
