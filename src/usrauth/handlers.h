/*
 * What each message does to the store and what the daemon is told of it.
 */
#ifndef SRC_USRAUTH_HANDLERS_H
#define SRC_USRAUTH_HANDLERS_H

#include "usrauth/message.h"
#include "usrauth/store.h"

namespace mcast::usrauth
{

/* Handles one message, of whatever type. There must be a store. */
void HandleMessage(const Message &message) MCAST_EXCLUDES(g_stUsrAuthRWLock);

/* Whether the user is only being updated, or announced anew. */
enum class Update { kPlain, kAnnounced };

/* update.cpp: applies an update to a user that exists. The message's kind is a user's. */
void UpdateUser(User *user, const UserMessage &message, Update update) MCAST_EXCLUDES(g_stUsrAuthRWLock);

/* list_end.cpp: the group list of the user has ended. */
void EndGroupList(User *user) MCAST_EXCLUDES(g_stUsrAuthRWLock);

} // namespace mcast::usrauth

#endif
