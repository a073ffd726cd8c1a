/*
 * A user's life: made from the message that announced it, overwritten by each later one, and removed from
 * all places at once.
 *
 * A user stands in up to three places, besides the entries that it owns: its node's tree by user ID, its
 * node's list of the kind, and the tree of interfaces when it has one. CreateUser and DeleteUser keep them
 * together, and the node exists while it has a user.
 *
 * The record is one block with the room for the name behind it. Its size is that of the first name; a longer
 * one in a later message is cut, so that the record never moves and pointers that other threads hold under
 * the lock stay good.
 *
 * Removing tells the daemon first, while the user is still whole, and without the lock. The callback may
 * remove users itself, this one included; HeldUser says afterwards whether it is still there.
 */
#include "usrauth/user.h"

#include <stdlib.h>
#include <string.h>

#include "event/guards.h"
#include "probe/probe.h"
#include "usrauth/entries.h"
#include "usrauth/interface_tree.h"
#include "usrauth/node.h"

namespace mcast::usrauth
{
namespace
{

int32_t CompareId(const void *record, const void *key)
{
    return Order(static_cast<const User *>(record)->user_id, *static_cast<const uint32_t *>(key));
}

/* A record that is in no tree or list yet: one block that ends with the room for the name. */
User *AllocateUser(const UserMessage &message)
{
    const size_t name_size = message.name_length > 0 ? message.name_length : 1;
    User *user = static_cast<User *>(calloc(1, sizeof(*user) + name_size));
    if (user == nullptr) {
        return nullptr;
    }
    user->user_id = message.user_id;
    user->kind = message.kind;
    user->name = reinterpret_cast<char *>(user + 1);
    user->name_size = static_cast<uint16_t>(name_size);
    if (!InitEntries(&user->groups)) {
        free(user);
        return nullptr;
    }
    return user;
}

/* A name longer than the room that the first message asked for is cut. */
void CopyName(User *user, const UserMessage &message)
{
    if (message.name_length > 0) {
        const size_t room = user->name_size - 1u;
        const size_t length = message.name_length < room ? message.name_length : room;

        memcpy(user->name, message.name, length);
        user->name[length] = '\0';
    }
}

void CopyFields(User *user, const UserMessage &message)
{
    user->access_if_index = message.access_if_index;
    if (message.kind == USRAUTH_KIND_INTERFACE) {
        user->if_index = message.access_if_index;
    }
    user->address = message.address;
    user->vrf_index = message.vrf_index;
    user->attribute_40 = message.attribute_40;
    user->attribute_32 = message.attribute_32;
    user->attribute_34 = message.attribute_34;
    user->attribute_24 = message.attribute_24;
    user->attribute_36 = message.attribute_36;
    user->attribute_80 = message.attribute_80;
    user->attribute_84 = message.attribute_84;
    memcpy(&user->hardware_address_first, message.hardware_address, sizeof(user->hardware_address_first));
    memcpy(&user->hardware_address_last, message.hardware_address + 4, sizeof(user->hardware_address_last));
    user->attribute_70 = message.attribute_70;
    user->second_address = message.second_address;
    CopyName(user, message);
}

} // namespace

int32_t CompareUsers(const void *first, const void *second)
{
    return Order(static_cast<const User *>(first)->user_id, static_cast<const User *>(second)->user_id);
}

void FreeUserRecord(void *record)
{
    User *user = static_cast<User *>(record);
    FiniEntries(&user->groups);
    free(user);
    ++g_store.freed_users;
}

User *FindUser(uint16_t number, uint32_t user_id)
{
    const Node *node = FindNode(number);
    return node == nullptr ? nullptr : static_cast<User *>(AVL_Get(node->users, &user_id, CompareId));
}

User *CreateUser(const UserMessage &message)
{
    Node *node = FindNode(message.node);
    User *user = AllocateUser(message);
    if (node == nullptr && user != nullptr) {
        node = CreateNode(message.node);
    }
    if (user == nullptr || node == nullptr || AVL_Insert(node->users, user) != 0) {
        if (user != nullptr) {
            FreeUserRecord(user);
        }
        if (node != nullptr) {
            DeleteNodeIfEmpty(node);
        }
        return nullptr;
    }
    user->node = node;
    LinkKind(user);
    MarkNew(user);
    ApplyMessage(user, message);
    return user;
}

void ApplyMessage(User *user, const UserMessage &message)
{
    if (user->kind != message.kind) {
        UnlinkKind(user);
        user->kind = message.kind;
        LinkKind(user);
    }
    CopyFields(user, message);
    AddEntries(&user->groups, message.entries);
}

void DeleteUser(User *user)
{
    Node *node = user->node;
    RemoveInterface(user);
    AVL_Remove(node->users, user);
    UnlinkKind(user);
    FreeUserRecord(user);
    DeleteNodeIfEmpty(node);
}

void TellOffline(User *user)
{
    if (user->if_index == 0) {
        return;
    }
    probe::UserOffline(user, user->node->number);
    if (g_store.callbacks.user_offline != nullptr) {
        g_store.callbacks.user_offline(user);
    }
}

void RemoveUser(User *user)
{
    const HeldUser held(user);

    TellOffline(user);
    user = held.Again();
    if (user != nullptr) {
        WriteGuard guard(g_stUsrAuthRWLock);

        DeleteUser(user);
    }
}

} // namespace mcast::usrauth
