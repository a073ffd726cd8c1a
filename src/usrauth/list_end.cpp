/*
 * The end of a group list. Entries that the list no longer has are removed; a new user comes online and
 * becomes one that can be found by its interface; what has changed since the last end is told, and its flags
 * are used up.
 */
#include "event/guards.h"
#include "probe/probe.h"
#include "usrauth/entries.h"
#include "usrauth/handlers.h"
#include "usrauth/interface_tree.h"
#include "usrauth/user.h"

namespace mcast::usrauth
{
namespace
{

bool IsNew(const User &user)
{
    return (user.flags & MCAST_USRAUTH_NEW) != 0;
}

void EndList(User *user) MCAST_EXCLUDES(g_stUsrAuthRWLock)
{
    WriteGuard guard(g_stUsrAuthRWLock);
    if (EndEntries(&user->groups) && !IsNew(*user)) {
        user->flags |= MCAST_USRAUTH_LIST_LOST;
    }
}

uint32_t ChangeMask(uint32_t flags)
{
    return ((flags & MCAST_USRAUTH_40_CHANGED) != 0 ? MCAST_USRAUTH_CHANGED_ATTRIBUTE_40 : 0) |
           ((flags & MCAST_USRAUTH_LIST_LOST) != 0 ? MCAST_USRAUTH_CHANGED_LIST : 0) |
           ((flags & MCAST_USRAUTH_24_CHANGED) != 0 ? MCAST_USRAUTH_CHANGED_ATTRIBUTE_24 : 0);
}

/* The interface that the daemon gives a new user. */
uint32_t AskInterface(User *user)
{
    uint32_t if_index = 0;
    if (g_store.callbacks.user_online != nullptr) {
        g_store.callbacks.user_online(user, &if_index);
    }
    return if_index;
}

void TellChanged(User *user)
{
    const uint32_t mask = ChangeMask(user->flags);
    if (mask != 0 && g_store.callbacks.user_changed != nullptr) {
        g_store.callbacks.user_changed(user, mask);
    }
}

/* if_index is the daemon's answer for a new user. */
void Settle(User *user, uint32_t if_index) MCAST_EXCLUDES(g_stUsrAuthRWLock)
{
    WriteGuard guard(g_stUsrAuthRWLock);
    if (IsNew(*user)) {
        if (user->kind != USRAUTH_KIND_INTERFACE) {
            user->if_index = if_index;
        }
        if (user->if_index != 0) {
            InsertInterface(user);
            probe::UserOnline(user, user->node->number);
        }
    }
    user->flags &= ~MCAST_USRAUTH_EVENT_FLAGS;
}

} // namespace

void EndGroupList(User *user)
{
    const HeldUser held(user);

    EndList(user);
    if ((user->flags & MCAST_USRAUTH_EVENT_FLAGS) == 0) {
        return;
    }
    const uint32_t if_index = IsNew(*user) ? AskInterface(user) : 0;

    user = held.Again();
    if (user != nullptr) {
        TellChanged(user);
        user = held.Again();
    }
    if (user != nullptr) {
        Settle(user, if_index);
    }
}

} // namespace mcast::usrauth
