/*
 * Same-join groups: a parent interface and the sub-interfaces that join what it joins.
 *
 *     g_registry.join_parents ──► tree of parents ──► each with a tree of sub-interfaces
 *
 * A parent exists while it has a sub-interface: the first one makes it, the last one takes it along. So a
 * failure to add the first sub-interface removes the parent that was just made for it, and nothing empty
 * stays. Both trees are the platform's, ordered by interface index; the registry's mutex guards them and the
 * records in them.
 */
#include <stdlib.h>

#include "event/guards.h"
#include "intf/registry.h"
#include "mcast/interface_registry.h"

namespace
{

using mcast::g_registry;

int32_t Order(uint32_t first, uint32_t second)
{
    return first < second ? -1 : first > second;
}

int32_t CompareParents(const void *first, const void *second)
{
    return Order(static_cast<const MCAST_IF_JOIN_PARENT_S *>(first)->parent_if_index,
                 static_cast<const MCAST_IF_JOIN_PARENT_S *>(second)->parent_if_index);
}

int32_t CompareParentWithIndex(const void *record, const void *key)
{
    return Order(static_cast<const MCAST_IF_JOIN_PARENT_S *>(record)->parent_if_index,
                 *static_cast<const uint32_t *>(key));
}

int32_t CompareSubs(const void *first, const void *second)
{
    return Order(static_cast<const MCAST_IF_JOIN_SUB_S *>(first)->sub_if_index,
                 static_cast<const MCAST_IF_JOIN_SUB_S *>(second)->sub_if_index);
}

int32_t CompareSubWithIndex(const void *record, const void *key)
{
    return Order(static_cast<const MCAST_IF_JOIN_SUB_S *>(record)->sub_if_index,
                 *static_cast<const uint32_t *>(key));
}

/* Frees a parent that is in no tree, with its sub-interfaces. */
void FreeParent(void *record)
{
    MCAST_IF_JOIN_PARENT_S *parent = static_cast<MCAST_IF_JOIN_PARENT_S *>(record);
    AVL_Fini(parent->sub_interfaces);
    free(parent);
}

MCAST_IF_JOIN_PARENT_S *FindParent(uint32_t index) MCAST_REQUIRES(g_registry.lock)
{
    return static_cast<MCAST_IF_JOIN_PARENT_S *>(
        AVL_Get(g_registry.join_parents, &index, CompareParentWithIndex));
}

void RemoveParent(MCAST_IF_JOIN_PARENT_S *parent) MCAST_REQUIRES(g_registry.lock)
{
    if (AVL_Remove(g_registry.join_parents, parent) != 0) {
        FreeParent(parent);
    }
}

/* A parent without sub-interfaces, in the tree, or NULL. */
MCAST_IF_JOIN_PARENT_S *CreateParent(uint32_t index) MCAST_REQUIRES(g_registry.lock)
{
    MCAST_IF_JOIN_PARENT_S *parent =
        static_cast<MCAST_IF_JOIN_PARENT_S *>(calloc(1, sizeof(MCAST_IF_JOIN_PARENT_S)));
    if (parent == nullptr) {
        return nullptr;
    }
    parent->parent_if_index = index;
    parent->sub_interfaces = AVL_Init(CompareSubs, 0, MCAST_FreeFunc);
    if (parent->sub_interfaces == 0) {
        free(parent);
        return nullptr;
    }
    if (AVL_Insert(g_registry.join_parents, parent) != 0) {
        FreeParent(parent);
        return nullptr;
    }
    return parent;
}

} // namespace

/* Both run while no other call does, when the mutex need not exist. */
bool mcast::OpenJoinGroups() MCAST_NO_LOCK_ANALYSIS
{
    g_registry.join_parents = AVL_Init(CompareParents, 0, FreeParent);
    return g_registry.join_parents != 0;
}

void mcast::CloseJoinGroups() MCAST_NO_LOCK_ANALYSIS
{
    if (g_registry.join_parents != 0) {
        AVL_Fini(g_registry.join_parents);
        g_registry.join_parents = 0;
    }
}

uint64_t mcastIf_CreateSubIf(MCAST_IF_JOIN_PARENT_S *parent, uint32_t sub_if_index)
{
    MCAST_IF_JOIN_SUB_S *sub = static_cast<MCAST_IF_JOIN_SUB_S *>(calloc(1, sizeof(MCAST_IF_JOIN_SUB_S)));
    if (sub == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    sub->sub_if_index = sub_if_index;
    if (AVL_Insert(parent->sub_interfaces, sub) != 0) {
        free(sub);
        return MCAST_ERR_GENERAL;
    }
    return MCAST_OK;
}

uint64_t MCAST_AddToSameJoinGroupIf(uint32_t parent_if_index, uint32_t sub_if_index, uint32_t *count)
{
    if (!g_registry.open) {
        return MCAST_ERR_GENERAL;
    }

    mcast::MutexGuard guard(g_registry.lock);
    MCAST_IF_JOIN_PARENT_S *known = FindParent(parent_if_index);
    MCAST_IF_JOIN_PARENT_S *parent = known != nullptr ? known : CreateParent(parent_if_index);

    if (parent == nullptr || AVL_Get(parent->sub_interfaces, &sub_if_index, CompareSubWithIndex) != nullptr) {
        return MCAST_ERR_GENERAL;
    }
    if (mcastIf_CreateSubIf(parent, sub_if_index) != MCAST_OK) {
        if (known == nullptr) {
            RemoveParent(parent);
        }
        return MCAST_ERR_GENERAL;
    }
    *count = AVL_Count(parent->sub_interfaces);
    return MCAST_OK;
}

uint64_t MCAST_DeleteFromSameJoinGroupIf(uint32_t parent_if_index, uint32_t sub_if_index, uint32_t *count)
{
    if (!g_registry.open) {
        return MCAST_ERR_GENERAL;
    }

    mcast::MutexGuard guard(g_registry.lock);
    MCAST_IF_JOIN_PARENT_S *parent = FindParent(parent_if_index);

    if (parent == nullptr) {
        return MCAST_ERR_GENERAL;
    }

    void *sub = AVL_Get(parent->sub_interfaces, &sub_if_index, CompareSubWithIndex);

    if (sub == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    (void)AVL_Remove(parent->sub_interfaces, sub);
    free(sub);
    *count = AVL_Count(parent->sub_interfaces);
    if (*count == 0) {
        RemoveParent(parent);
    }
    return MCAST_OK;
}
