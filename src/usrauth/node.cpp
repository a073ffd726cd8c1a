#include "usrauth/node.h"

#include <stdlib.h>

#include "usrauth/user.h"

namespace mcast::usrauth
{
namespace
{

int32_t CompareNumber(const void *record, const void *key)
{
    return static_cast<const Node *>(record)->number != *static_cast<const uint16_t *>(key);
}

} // namespace

Node *FindNode(uint16_t number)
{
    return static_cast<Node *>(HASH_Get(g_store.nodes, HashOf(number), &number, CompareNumber));
}

Node *FirstNode()
{
    return static_cast<Node *>(HASH_GetFirst(g_store.nodes));
}

Node *NextNode(const Node *node)
{
    return static_cast<Node *>(HASH_GetNext(g_store.nodes, HashOf(node->number), node));
}

Node *CreateNode(uint16_t number)
{
    Node *node = static_cast<Node *>(calloc(1, sizeof(*node)));
    if (node == nullptr) {
        return nullptr;
    }
    node->number = number;
    for (Batch &batch : node->batches) {
        batch.timer = TIMER_NONE;
    }
    node->users = AVL_Init(CompareUsers, 0, FreeUserRecord);
    if (node->users == 0 || HASH_Insert(g_store.nodes, HashOf(number), node) != 0) {
        FreeNodeRecord(node);
        return nullptr;
    }
    return node;
}

void DeleteNodeIfEmpty(Node *node)
{
    if (AVL_Count(node->users) == 0) {
        HASH_Remove(g_store.nodes, HashOf(node->number), node);
        FreeNodeRecord(node);
    }
}

void FreeNodeRecord(void *record)
{
    Node *node = static_cast<Node *>(record);
    for (const Batch &batch : node->batches) {
        if (batch.timer != TIMER_NONE) {
            Timer_Delete(g_store.timer_service, batch.timer);
        }
    }
    AVL_Fini(node->users);
    free(node);
}

bool HasUserOfKind(uint16_t number, uint32_t kind)
{
    const Node *node = FindNode(number);
    return node != nullptr && node->kinds[kind].head != nullptr;
}

void LinkKind(User *user)
{
    KindList &list = user->node->kinds[user->kind];
    user->next_of_kind = nullptr;
    user->previous_of_kind = list.tail;
    (list.tail != nullptr ? list.tail->next_of_kind : list.head) = user;
    list.tail = user;
}

void UnlinkKind(User *user)
{
    KindList &list = user->node->kinds[user->kind];
    User *next = user->next_of_kind;
    User *previous = user->previous_of_kind;
    (previous != nullptr ? previous->next_of_kind : list.head) = next;
    (next != nullptr ? next->previous_of_kind : list.tail) = previous;
}

void TellNodeKind(uint16_t number, uint32_t kind, uint32_t up)
{
    if (g_store.callbacks.node_kind_changed != nullptr) {
        g_store.callbacks.node_kind_changed(number, kind, up);
    }
}

void TellIfKindIsGone(uint16_t number, uint32_t kind)
{
    if (kind < kKinds && !HasUserOfKind(number, kind)) {
        TellNodeKind(number, kind, 0);
    }
}

} // namespace mcast::usrauth
