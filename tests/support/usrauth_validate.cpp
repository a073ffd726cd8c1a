#include "support/usrauth_validate.h"

#include <cstring>

#include "usrauth/detail.h"
#include "usrauth/interface_index.h"
#include "usrauth/interface_tree.h"
#include "usrauth/node.h"
#include "usrauth/user.h"

namespace usrauth_test
{
namespace
{

using namespace mcast::usrauth;

const char *EntriesFault(const User &user)
{
    uint32_t groups = 0, sources = 0;
    const void *last_group = nullptr;

    for (void *group = AVL_GetLeftMost(user.groups.groups); group != nullptr;
         group = AVL_GetNext(user.groups.groups, group)) {
        const MTABLE_GROUP_S *head = static_cast<MTABLE_GROUP_S *>(group);

        if (last_group != nullptr && MTable_GrpAvlNodeCmp(last_group, group) >= 0) {
            return "groups out of order";
        }
        if (head->owner != &user.groups || head->address.family != g_store.family) {
            return "a group of another table or family";
        }
        if (AVL_Count(head->sources) == 0) {
            return "a group without sources";
        }
        for (void *source = AVL_GetLeftMost(head->sources); source != nullptr;
             source = AVL_GetNext(head->sources, source)) {
            const MCAST_USRAUTH_ENTRY_S *entry = static_cast<MCAST_USRAUTH_ENTRY_S *>(source);

            if (entry->head.group != head || (entry->flags & ~MCAST_USRAUTH_ENTRY_SEEN) != 0) {
                return "a source of another group or with unknown flags";
            }
            ++sources;
        }
        last_group = group;
        ++groups;
    }
    return groups == user.groups.group_count && sources == user.groups.source_count ? nullptr
                                                                                    : "counts of a table";
}

/* How many users were met in the interface tree is added to *online. */
const char *UserFault(const Node &node, User &user, uint32_t kind, uint32_t *online) MCAST_NO_LOCK_ANALYSIS
{
    if (user.kind != kind || !IsUserKind(kind) || user.node != &node) {
        return "a user in another kind's or node's list";
    }
    if (FindUser(node.number, user.user_id) != &user) {
        return "a user that its node does not find";
    }
    if (user.address.family != g_store.family || user.second_address.family != g_store.family) {
        return "a user of another family";
    }
    if (strlen(user.name) >= user.name_size) {
        return "a name that does not end";
    }
    if ((user.in_interface_tree != 0) != (user.if_index != 0 && FindByInterface(user.if_index) == &user)) {
        return "a user's place in the interface tree";
    }
    if (user.in_interface_tree != 0 && (user.flags & MCAST_USRAUTH_NEW) != 0) {
        return "a new user that can be found";
    }
    if ((user.flags & ~(MCAST_USRAUTH_EVENT_FLAGS | MCAST_USRAUTH_REFRESHED | MCAST_USRAUTH_MARKED)) != 0 ||
        (user.flags & 0x0c000000u) != 0) {
        return "unknown flags";
    }
    *online += user.in_interface_tree;
    return EntriesFault(user);
}

const char *NodeFault(const Node &node, uint32_t *online)
{
    uint32_t listed = 0;

    for (uint32_t kind = 0; kind < kKinds; ++kind) {
        User *previous = nullptr;

        for (User *user = node.kinds[kind].head; user != nullptr; user = user->next_of_kind) {
            if (const char *fault = UserFault(node, *user, kind, online); fault != nullptr) {
                return fault;
            }
            if (user->previous_of_kind != previous) {
                return "a link back in a list";
            }
            previous = user;
            ++listed;
        }
        if (node.kinds[kind].tail != previous) {
            return "the tail of a list";
        }
    }
    if (listed == 0) {
        return "a node without users";
    }
    return listed == AVL_Count(node.users) && FindNode(node.number) == &node ? nullptr : "a node's users";
}

/* The index has the users of the tree and no others. */
const char *IndexFault() MCAST_NO_LOCK_ANALYSIS
{
    uint32_t places = 0;

    if (g_store.index.users == nullptr) {
        return nullptr;
    }
    for (User *user = FirstAfterInterface(0); user != nullptr; user = FirstAfterInterface(user->if_index)) {
        if (FindInIndex(user->if_index) != user) {
            return "a user that the index lacks";
        }
    }
    for (uint32_t place = 0; place <= g_store.index.mask; ++place) {
        if ((g_store.index.keys[place] != 0) != (g_store.index.users[place] != nullptr)) {
            return "a place of the index";
        }
        places += g_store.index.keys[place] != 0;
    }
    return places == AVL_Count(g_store.interfaces) && places <= g_store.index.mask / 2 + 1
               ? nullptr
               : "strangers in the index";
}

const char *DetailsFault()
{
    const void *last = nullptr;
    for (void *at = AVL_GetLeftMost(g_store.details); at != nullptr; at = AVL_GetNext(g_store.details, at)) {
        if (last != nullptr && CompareDetails(last, at) >= 0) {
            return "details out of order";
        }
        last = at;
    }
    return nullptr;
}

} // namespace

const char *StoreFault()
{
    uint32_t online = 0;

    if (!g_store.open) {
        return g_store.nodes == 0 && g_store.interfaces == 0 && g_store.epoll_id == -1 ? nullptr
                                                                                       : "left behind";
    }
    for (const Node *node = FirstNode(); node != nullptr; node = NextNode(node)) {
        if (const char *fault = NodeFault(*node, &online); fault != nullptr) {
            return fault;
        }
    }
    if (online != MCAST_USRAUTH_UserCount()) {
        return "strangers in the interface tree";
    }
    const char *fault = IndexFault();

    return fault != nullptr ? fault : DetailsFault();
}

} // namespace usrauth_test
