#include "daemons/msdpd/address_counts.h"

#include <cstdlib>
#include <memory>

#include "daemons/common/expect.h"
#include "daemons/common/memory.h"

namespace msdpd
{
namespace
{

struct Item {
    Ipv4 address;
    uint32_t count;
};

const Item *item_of(const void *data)
{
    return static_cast<const Item *>(data);
}

int32_t order(Ipv4 first, Ipv4 second)
{
    return first < second ? -1 : first != second;
}

int32_t compare_items(const void *fresh, const void *known)
{
    return order(item_of(fresh)->address, item_of(known)->address);
}

int32_t compare_with_key(const void *known, const void *address)
{
    return order(item_of(known)->address, *static_cast<const Ipv4 *>(address));
}

void set_walk_key(MCAST_AVL_WALK_S *walk, MCAST_AVL_NODE_S *node)
{
    walk->key = &item_of(node->data)->address;
}

void release_item(void *data)
{
    delete static_cast<Item *>(data);
}

// Nodes are apart from their items, since the tree moves items between nodes; MCAST_AvlInsert wants them
// from malloc.
void release_node(MCAST_AVL_NODE_S *node)
{
    free(node);
}

Item *find(const MCAST_AVL_S &tree, Ipv4 address)
{
    const MCAST_AVL_NODE_S *node = MCAST_AVL_Search(&tree, &address);
    return node != nullptr ? static_cast<Item *>(node->data) : nullptr;
}

} // namespace

AddressCounts::AddressCounts()
{
    MCAST_AVL_SetFunction(&tree_, compare_items, compare_with_key, release_node, release_item, set_walk_key);
}

AddressCounts::~AddressCounts()
{
    MCAST_AVL_FreeAll(&tree_);
}

void AddressCounts::add(Ipv4 address)
{
    if (Item *known = find(tree_, address)) {
        ++known->count;
        return;
    }
    auto item = std::make_unique<Item>(Item{address, 1});
    auto *node = mcastd::must_have(
        [] { return static_cast<MCAST_AVL_NODE_S *>(calloc(1, sizeof(MCAST_AVL_NODE_S))); });

    node->data = item.release();
    mcastd::expect(MCAST_AvlInsert(&tree_, node) == MCAST_OK);
}

void AddressCounts::remove(Ipv4 address)
{
    Item *known = find(tree_, address);

    mcastd::expect(known != nullptr);
    if (known != nullptr && --known->count == 0) {
        MCAST_AVL_NODE_S *node = MCAST_AVL_Remove(&tree_, &address);

        release_item(node->data);
        release_node(node);
    }
}

uint32_t AddressCounts::of(Ipv4 address) const
{
    const Item *known = find(tree_, address);
    return known != nullptr ? known->count : 0;
}

void AddressCounts::visit(Ipv4 first, const std::function<bool(Ipv4, uint32_t)> &visitor) const
{
    MCAST_AVL_WALK_S walk;
    void *data = nullptr;
    if (MCAST_AVL_InitWalkFromKey(&walk, &tree_, &first, &data) != MCAST_OK) {
        return; // nothing from there on
    }
    while (data != nullptr && visitor(item_of(data)->address, item_of(data)->count)) {
        data = MCAST_AVL_WalkNextData(&walk);
    }
}

} // namespace msdpd
