/*
 * Updates of users that exist. A user that the daemon knows by an interface is compared with the message:
 * what would put it elsewhere takes it offline until its next end of list, other changes are kept in its
 * flags and told then.
 */
#include "event/guards.h"
#include "usrauth/handlers.h"
#include "usrauth/interface_tree.h"
#include "usrauth/refresh.h"
#include "usrauth/user.h"

namespace mcast::usrauth
{
namespace
{

bool IsPlaceChanged(const User &user, const UserMessage &message)
{
    return user.access_if_index != message.access_if_index || user.attribute_32 != message.attribute_32 ||
           user.attribute_34 != message.attribute_34 || user.attribute_80 != message.attribute_80 ||
           user.attribute_84 != message.attribute_84;
}

/* The flags that say what the message changes. */
uint32_t ChangesOf(const User &user, const UserMessage &message)
{
    uint32_t flags = 0;
    if (user.if_index == 0) {
        return 0;
    }
    if (IsPlaceChanged(user, message)) {
        flags |= MCAST_USRAUTH_RECREATE | MCAST_USRAUTH_PLACE_CHANGED;
    }
    if (user.vrf_index != message.vrf_index || user.kind != message.kind) {
        flags |= MCAST_USRAUTH_RECREATE;
    }
    if (user.attribute_40 != message.attribute_40) {
        flags |= MCAST_USRAUTH_40_CHANGED;
    }
    if (user.attribute_24 != message.attribute_24) {
        flags |= MCAST_USRAUTH_24_CHANGED;
    }
    return flags;
}

bool MustRecreate(const User &user, Update update)
{
    return (user.flags & MCAST_USRAUTH_RECREATE) != 0 ||
           (update == Update::kAnnounced && (user.flags & MCAST_USRAUTH_MARKED) != 0);
}

/* Makes the user one that is not online. For kind 2 the interface is the message's again at once. */
void TakeOffline(User *user) MCAST_REQUIRES(g_stUsrAuthRWLock)
{
    user->flags &= ~MCAST_USRAUTH_MARKED;
    MarkNew(user);
    RemoveInterface(user);
    if (user->kind != USRAUTH_KIND_INTERFACE) {
        user->if_index = 0;
    }
}

void Recreate(User *user, const UserMessage &message) MCAST_EXCLUDES(g_stUsrAuthRWLock)
{
    const HeldUser held(user);

    TellOffline(user);
    user = held.Again();
    if (user != nullptr) {
        WriteGuard guard(g_stUsrAuthRWLock);

        TakeOffline(user);
        ApplyMessage(user, message);
    }
}

} // namespace

void UpdateUser(User *user, const UserMessage &message, Update update)
{
    uint32_t flags = ChangesOf(*user, message);
    if (update == Update::kAnnounced && IsRefreshOpen(message.node, message.kind)) {
        flags |= MCAST_USRAUTH_REFRESHED;
    }
    {
        WriteGuard guard(g_stUsrAuthRWLock);
        user->flags |= flags;
        if (!MustRecreate(*user, update)) {
            ApplyMessage(user, message);
            return;
        }
    }
    Recreate(user, message);
}

} // namespace mcast::usrauth
