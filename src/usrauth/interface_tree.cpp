#include "usrauth/interface_tree.h"

#include "usrauth/interface_index.h"

namespace mcast::usrauth
{
namespace
{

constexpr size_t kLinkOffset = offsetof(User, interface_link);
constexpr size_t kKeyFromLink = offsetof(User, if_index) - kLinkOffset;

uint32_t InterfaceAt(const void *link)
{
    return *reinterpret_cast<const uint32_t *>(static_cast<const char *>(link) + kKeyFromLink);
}

User *UserAt(void *link)
{
    return link == nullptr ? nullptr : reinterpret_cast<User *>(static_cast<char *>(link) - kLinkOffset);
}

int32_t CompareInterface(const void *link, const void *key)
{
    return Order(InterfaceAt(link), *static_cast<const uint32_t *>(key));
}

} // namespace

int32_t CompareInterfaceLinks(const void *first, const void *second)
{
    return Order(InterfaceAt(first), InterfaceAt(second));
}

User *FindByInterface(uint32_t if_index)
{
    if (HasIndex()) {
        return FindInIndex(if_index);
    }
    return g_store.open ? UserAt(AVL_Get(g_store.interfaces, &if_index, CompareInterface)) : nullptr;
}

User *FirstAfterInterface(uint32_t if_index)
{
    User probe = {};
    probe.if_index = if_index;
    return g_store.open ? UserAt(AVL_GetNext(g_store.interfaces, &probe.interface_link)) : nullptr;
}

void InsertInterface(User *user)
{
    user->in_interface_tree = AVL_Insert(g_store.interfaces, &user->interface_link) == 0;
    if (user->in_interface_tree != 0) {
        IndexUser(user);
    }
}

void RemoveInterface(User *user)
{
    if (user->in_interface_tree != 0) {
        UnindexUser(user);
        AVL_Remove(g_store.interfaces, &user->interface_link);
        user->in_interface_tree = 0;
    }
}

} // namespace mcast::usrauth
