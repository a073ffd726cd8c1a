#include "usrauth/refresh.h"

#include <stdlib.h>

#include "event/guards.h"
#include "usrauth/deletion.h"
#include "usrauth/node.h"

namespace mcast::usrauth
{
namespace
{

/* A node with open refreshes, which need not have users. */
struct Refresh {
    HASH_NODE_S link;
    uint16_t node;
    uint32_t kinds; /* bit k: kind k is being refreshed */
};

int32_t CompareNode(const void *record, const void *key)
{
    return static_cast<const Refresh *>(record)->node != *static_cast<const uint16_t *>(key);
}

Refresh *FindRefresh(uint16_t node)
{
    return static_cast<Refresh *>(HASH_Get(g_store.refreshes, HashOf(node), &node, CompareNode));
}

Refresh *CreateRefresh(uint16_t node)
{
    Refresh *refresh = static_cast<Refresh *>(calloc(1, sizeof(*refresh)));
    if (refresh == nullptr) {
        return nullptr;
    }
    refresh->node = node;
    if (HASH_Insert(g_store.refreshes, HashOf(node), refresh) != 0) {
        free(refresh);
        return nullptr;
    }
    return refresh;
}

/* Whether the user is spared; the flag that spared it is cleared. */
bool Spare(User *user, Sweep sweep) MCAST_REQUIRES(g_stUsrAuthRWLock)
{
    if (sweep == Sweep::kAll || (user->flags & MCAST_USRAUTH_REFRESHED) == 0) {
        return false;
    }
    user->flags &= ~MCAST_USRAUTH_REFRESHED;
    return true;
}

/* Whether any user was marked. */
bool MarkKind(const Node *node, uint32_t kind, Sweep sweep) MCAST_EXCLUDES(g_stUsrAuthRWLock)
{
    WriteGuard guard(g_stUsrAuthRWLock);
    bool any = false;
    for (User *user = node->kinds[kind].head; user != nullptr; user = user->next_of_kind) {
        if (!Spare(user, sweep)) {
            user->flags |= MCAST_USRAUTH_MARKED;
            any = true;
        }
    }
    return any;
}

} // namespace

bool IsRefreshOpen(uint16_t node, uint32_t kind)
{
    const Refresh *refresh = FindRefresh(node);
    return refresh != nullptr && (refresh->kinds & 1u << kind) != 0;
}

void OpenRefresh(uint16_t node, uint32_t kind)
{
    Refresh *refresh = FindRefresh(node);
    if (refresh == nullptr) {
        refresh = CreateRefresh(node);
    }
    if (refresh != nullptr) {
        refresh->kinds |= 1u << kind;
    }
}

void CloseRefresh(uint16_t node, uint32_t kind)
{
    Refresh *refresh = FindRefresh(node);
    if (refresh == nullptr) {
        return;
    }
    refresh->kinds &= ~(1u << kind);
    if (refresh->kinds == 0) {
        HASH_Remove(g_store.refreshes, HashOf(node), refresh);
        free(refresh);
    }
}

void SweepKind(uint16_t number, uint32_t kind, Sweep sweep)
{
    Node *node = FindNode(number);
    if (node != nullptr && MarkKind(node, kind, sweep)) {
        StartDeletion(node, kind);
    }
}

} // namespace mcast::usrauth

using namespace mcast::usrauth;

MCAST_STATUS MCAST_USRAUTH_RefreshAllUserByNodeRemove(uint16_t node)
{
    constexpr uint32_t kKindsOfNode[] = {3, 4, 2};
    if (g_store.open) {
        for (uint32_t kind : kKindsOfNode) {
            SweepKind(node, kind, Sweep::kAll);
        }
    }
    return MCAST_OK;
}
