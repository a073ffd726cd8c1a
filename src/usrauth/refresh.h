/*
 * Batch refreshes: an agent announces all users of a kind on a node anew, between a begin and an end. Users
 * announced meanwhile carry MCAST_USRAUTH_REFRESHED; the end marks the others for deletion.
 */
#ifndef SRC_USRAUTH_REFRESH_H
#define SRC_USRAUTH_REFRESH_H

#include "usrauth/store.h"

namespace mcast::usrauth
{

/* Whether a refresh of the kind is open on the node. */
bool IsRefreshOpen(uint16_t node, uint32_t kind);

/* Opens and closes a refresh; kind is a user's kind. Opening does nothing when memory is short. */
void OpenRefresh(uint16_t node, uint32_t kind);
void CloseRefresh(uint16_t node, uint32_t kind);

/* Which users a sweep spares. */
enum class Sweep { kKeepRefreshed, kAll };

/* Marks the node's users of the kind for deletion, and starts to delete them when there are any. */
void SweepKind(uint16_t node, uint32_t kind, Sweep sweep) MCAST_EXCLUDES(g_stUsrAuthRWLock);

} // namespace mcast::usrauth

#endif
