/*
 * The store's life.
 *
 *   MCAST_USRAUTH_Init:  lock -> hash tables -> trees. A failure on the way ends what was made, as Fini does.
 *   MCAST_USRAUTH_Fini:  interface tree -> nodes with their users and timers -> refreshes -> details -> lock.
 *
 * The interface tree goes before the users that it links. Everything is constant-initialised as after Fini:
 * the lock usable, the handles none.
 */
#include "usrauth/store.h"

#include <stdlib.h>

#include "event/guards.h"
#include "usrauth/detail.h"
#include "usrauth/interface_index.h"
#include "usrauth/interface_tree.h"
#include "usrauth/node.h"
#include "usrauth/refresh.h"
#include "usrauth/user.h"

MCAST_RWLOCK_S g_stUsrAuthRWLock = {PTHREAD_RWLOCK_INITIALIZER};

namespace mcast::usrauth
{

static constexpr Store kNoStore = {.open = false,
                                   .family = 0,
                                   .epoll_id = -1,
                                   .timer_service = nullptr,
                                   .callbacks = {},
                                   .nodes = 0,
                                   .refreshes = 0,
                                   .interfaces = 0,
                                   .index = kNoIndex,
                                   .details = 0,
                                   .detail_limit = MCAST_USRAUTH_MSG_DETAIL_LIMIT,
                                   .statistics = {},
                                   .freed_users = 0,
                                   .last_serial = 0};

Store g_store = kNoStore;

} // namespace mcast::usrauth

using namespace mcast;
using namespace mcast::usrauth;

namespace
{

bool CreateContainers()
{
    g_store.nodes = HASH_Init(kBuckets, FreeNodeRecord);
    g_store.refreshes = HASH_Init(kBuckets, MCAST_FreeFunc);
    g_store.interfaces = AVL_Init(CompareInterfaceLinks, 0, nullptr);
    g_store.details = AVL_Init(CompareDetails, 0, MCAST_FreeFunc);
    return g_store.nodes != 0 && g_store.refreshes != 0 && g_store.interfaces != 0 && g_store.details != 0;
}

/* A container that was never created has handle 0, which the platform ignores. */
void EndContainers() MCAST_REQUIRES(g_stUsrAuthRWLock)
{
    EndIndex();
    AVL_Fini(g_store.interfaces);
    HASH_Fini(g_store.nodes);
    HASH_Fini(g_store.refreshes);
    AVL_Fini(g_store.details);
}

/* Deletes the node's users of every kind. The last one takes the node along. */
void ClearNode(Node *node) MCAST_REQUIRES(g_stUsrAuthRWLock)
{
    uint32_t left = AVL_Count(node->users);

    for (uint32_t kind = 0; left > 0 && kind < kKinds; ++kind) {
        User *next = nullptr;

        for (User *user = node->kinds[kind].head; user != nullptr; user = next) {
            next = user->next_of_kind;
            TellOffline(user);
            DeleteUser(user);
            --left;
        }
    }
}

} // namespace

MCAST_STATUS MCAST_USRAUTH_Init(uint8_t family, int32_t epoll_id, TIMER_SERVICE timer_service,
                                const MCAST_USRAUTH_CALLBACKS_S *callbacks)
{
    if (timer_service == nullptr || callbacks == nullptr || epoll_id == -1 || g_store.open ||
        pthread_rwlock_init(&g_stUsrAuthRWLock.posix, nullptr) != 0) {
        return MCAST_ERR_GENERAL;
    }
    g_store.open = true;
    g_store.family = family;
    g_store.epoll_id = epoll_id;
    g_store.timer_service = timer_service;
    g_store.callbacks = *callbacks;
    g_store.detail_limit = MCAST_USRAUTH_MSG_DETAIL_LIMIT;
    if (!CreateContainers()) {
        MCAST_USRAUTH_Fini();
        return MCAST_ERR_GENERAL;
    }
    return MCAST_OK;
}

MCAST_STATUS MCAST_USRAUTH_Fini(void)
{
    {
        WriteGuard guard(g_stUsrAuthRWLock);

        EndContainers();
    }
    pthread_rwlock_destroy(&g_stUsrAuthRWLock.posix);
    g_stUsrAuthRWLock = {PTHREAD_RWLOCK_INITIALIZER};
    const uint64_t freed_users = g_store.freed_users;
    const uint64_t last_serial = g_store.last_serial;

    g_store = kNoStore;
    g_store.freed_users = freed_users;
    g_store.last_serial = last_serial;
    return MCAST_OK;
}

MCAST_STATUS MCAST_USRAUTH_Degrade(void)
{
    if (!g_store.open) {
        return MCAST_OK;
    }
    {
        WriteGuard guard(g_stUsrAuthRWLock);
        EndIndex();
        AVL_FreeAll(g_store.interfaces);
        HASH_FreeAll(g_store.nodes);
    }
    HASH_FreeAll(g_store.refreshes);
    AVL_FreeAll(g_store.details);
    g_store.detail_limit = MCAST_USRAUTH_MSG_DETAIL_LIMIT;
    g_store.statistics = {};
    return MCAST_OK;
}

MCAST_STATUS MCAST_USRAUTH_ClearAllUsers(void)
{
    WriteGuard guard(g_stUsrAuthRWLock);
    Node *next = nullptr;
    for (Node *node = FirstNode(); node != nullptr; node = next) {
        next = NextNode(node);
        ClearNode(node);
    }
    return MCAST_OK;
}
