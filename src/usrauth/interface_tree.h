/*
 * Users by their interface. The tree links a user through its second link, so what goes in and comes out of
 * it is the address of that link.
 */
#ifndef SRC_USRAUTH_INTERFACE_TREE_H
#define SRC_USRAUTH_INTERFACE_TREE_H

#include "usrauth/store.h"

namespace mcast::usrauth
{

/* For the tree: orders users by interface. */
int32_t CompareInterfaceLinks(const void *first, const void *second);

/* The user of the interface, the first one after it, or nullptr. */
User *FindByInterface(uint32_t if_index) MCAST_REQUIRES_SHARED(g_stUsrAuthRWLock);
User *FirstAfterInterface(uint32_t if_index) MCAST_REQUIRES_SHARED(g_stUsrAuthRWLock);

/* Puts the user, which has an interface, into the tree, unless another one has the same interface. */
void InsertInterface(User *user) MCAST_REQUIRES(g_stUsrAuthRWLock);

/* Takes the user out when it is in the tree; its interface must not have changed since it went in. */
void RemoveInterface(User *user) MCAST_REQUIRES(g_stUsrAuthRWLock);

} // namespace mcast::usrauth

#endif
