/*
 * Walks over users in the order of their interfaces, under the read lock from begin to end.
 */
#include "event/guards.h"
#include "usrauth/interface_tree.h"

using namespace mcast;
using namespace mcast::usrauth;

namespace
{

struct Walk {
    MTABLE_WALK_S position; /* in the entries of a user */
    MCAST_USRAUTH_USER_CALLBACK user_callback;
    MCAST_USRAUTH_USER_CALLBACK entry_callback;
    void *argument;
    User *user; /* whose entries are being visited */
};

bool VisitsEntries(uint32_t mode)
{
    return mode == MCAST_USRAUTH_WALK_ONE_ENTRIES || mode == MCAST_USRAUTH_WALK_FROM_ENTRIES;
}

bool GoesOn(uint32_t mode)
{
    return mode == MCAST_USRAUTH_WALK_FROM || mode == MCAST_USRAUTH_WALK_FROM_ENTRIES;
}

/* Whatever stops the daemon's walk stops the one over the table. */
uint32_t VisitEntry(MTABLE_GROUP_S *group, MTABLE_SOURCE_S *source, void *argument)
{
    Walk *walk = static_cast<Walk *>(argument);
    MCAST_USRAUTH_ENTRY_S *entry = reinterpret_cast<MCAST_USRAUTH_ENTRY_S *>(source);
    return walk->entry_callback != nullptr &&
                   walk->entry_callback(walk->user, entry, group, walk->argument) != MCAST_OK
               ? MCAST_WALK_AGAIN
               : MCAST_OK;
}

/* False when a callback stopped the walk. */
bool VisitUser(Walk *walk, User *user, bool entries)
{
    if (walk->user_callback != nullptr &&
        walk->user_callback(user, nullptr, nullptr, walk->argument) != MCAST_OK) {
        return false;
    }
    walk->user = user;
    return !entries || MTable_Walk(&user->groups, &walk->position, nullptr, nullptr, VisitEntry, walk) !=
                           MCAST_WALK_AGAIN;
}

} // namespace

MCAST_STATUS MCAST_USRAUTH_WalkAllUserByIfIndex(const MCAST_USRAUTH_USER_FILTER_S *filter,
                                                MCAST_USRAUTH_USER_CALLBACK user_callback,
                                                MCAST_USRAUTH_USER_CALLBACK entry_callback, void *argument)
{
    if (filter == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    MCAST_ADDR_S group_cursor = {g_store.family, 0, {}};
    MCAST_ADDR_S source_cursor = group_cursor;
    Walk walk = {{filter->group_cursor != nullptr ? filter->group_cursor : &group_cursor,
                  filter->source_cursor != nullptr ? filter->source_cursor : &source_cursor, MTABLE_WALK_ALL},
                 user_callback,
                 entry_callback,
                 argument,
                 nullptr};
    ReadGuard guard(g_stUsrAuthRWLock);
    User *user = FindByInterface(filter->if_index);

    if (user == nullptr && GoesOn(filter->mode)) {
        user = FirstAfterInterface(filter->if_index);
    }
    while (user != nullptr) {
        if (!VisitUser(&walk, user, VisitsEntries(filter->mode))) {
            return MCAST_ERR_STOPPED;
        }
        user = GoesOn(filter->mode) ? FirstAfterInterface(user->if_index) : nullptr;
    }
    return MCAST_OK;
}
