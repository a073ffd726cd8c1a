/*
 * User records: made from a message, filled from one, deleted.
 */
#ifndef SRC_USRAUTH_USER_H
#define SRC_USRAUTH_USER_H

#include "usrauth/message.h"
#include "usrauth/store.h"

namespace mcast::usrauth
{

/* For a node's tree: orders users by ID, and frees one with all it holds. */
int32_t CompareUsers(const void *first, const void *second);
void FreeUserRecord(void *record);

/* The user of that ID on the node of that number, or nullptr. */
User *FindUser(uint16_t node, uint32_t user_id);

/*
 * Makes a new user from the message, with its entries, and its node when there is none yet. nullptr, and
 * nothing changed, when memory is short.
 */
User *CreateUser(const UserMessage &message) MCAST_REQUIRES(g_stUsrAuthRWLock);

/* Overwrites the user with the message, kind and entries included. */
void ApplyMessage(User *user, const UserMessage &message) MCAST_REQUIRES(g_stUsrAuthRWLock);

/* Makes the user one that the daemon has not been told of. */
inline void MarkNew(User *user) MCAST_REQUIRES(g_stUsrAuthRWLock)
{
    user->flags = (user->flags & 0x1cffffffu) | MCAST_USRAUTH_NEW;
}

/*
 * Takes the user out of its node, list and tree and frees it, and its node when it was the last user there.
 */
void DeleteUser(User *user) MCAST_REQUIRES(g_stUsrAuthRWLock);

/* Calls user_offline when the user has an interface. */
void TellOffline(User *user);

/* Tells the daemon that the user goes offline, and deletes the user. */
void RemoveUser(User *user) MCAST_EXCLUDES(g_stUsrAuthRWLock);

/*
 * A user across a callback, which may delete any: Again gives the user, or nullptr when it was deleted.
 */
class HeldUser
{
public:
    explicit HeldUser(User *user)
        : user_(user), node_(user->node->number), user_id_(user->user_id), freed_users_(g_store.freed_users)
    {
    }

    User *Again() const
    {
        return g_store.freed_users == freed_users_ ? user_ : FindUser(node_, user_id_);
    }

private:
    User *user_;
    uint16_t node_;
    uint32_t user_id_;
    uint64_t freed_users_;
};

} // namespace mcast::usrauth

#endif
