/*
 * Deletion of marked users in batches, which keeps the event loop's turns short.
 */
#ifndef SRC_USRAUTH_DELETION_H
#define SRC_USRAUTH_DELETION_H

#include "usrauth/store.h"

namespace mcast::usrauth
{

/*
 * Sees to it that the node's marked users of the kind are deleted: by a timer, or at once when there is none
 * to be had. Then the node may be gone afterwards.
 */
void StartDeletion(Node *node, uint32_t kind) MCAST_EXCLUDES(g_stUsrAuthRWLock);

} // namespace mcast::usrauth

#endif
