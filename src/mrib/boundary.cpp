/*
 * The boundary ranges of one interface, in a prefix tree of the platform. The tree holds no range twice, and
 * adding one removes those within it, so the set stays as small as what it blocks allows.
 */
#include <stdlib.h>
#include <string.h>

#include "mrib/view.h"

using namespace mcast;

namespace
{

const RDX_AFI_CB_S &TreeOf(const MRIB_GMP_IF_S *interface)
{
    return g_astRdxAFICBArray[interface->tree_index];
}

MRIB_GMP_BOUNDARY_S *BoundaryOf(RDX_NODE_S *node)
{
    return reinterpret_cast<MRIB_GMP_BOUNDARY_S *>(node);
}

void FreeRange(RDX_NODE_S *node)
{
    free(BoundaryOf(node));
}

/* Deletes the ranges within the given one except kept, which may be nullptr. */
void DeleteWithinExcept(MRIB_GMP_IF_S *interface, const RDX_PREFIX_S &range, const RDX_NODE_S *kept)
{
    RDX_NODE_S *next = nullptr;
    for (RDX_NODE_S *node = TreeOf(interface).collect(&interface->boundaries, &range); node != nullptr;
         node = next) {
        next = node->collected;
        if (node != kept) {
            TreeOf(interface).remove(&interface->boundaries, node);
            FreeRange(node);
        }
    }
}

} // namespace

bool mcast::AddRange(MRIB_GMP_IF_S *interface, const RDX_PREFIX_S &range)
{
    MRIB_GMP_BOUNDARY_S *boundary = static_cast<MRIB_GMP_BOUNDARY_S *>(calloc(1, sizeof(*boundary)));

    if (boundary == nullptr) {
        return false;
    }
    boundary->node.prefix = range;
    uint32_t result = TreeOf(interface).insert(&interface->boundaries, &boundary->node);

    if (result == RDX_ERR_PRESENT) {
        free(boundary);
        RDX_NODE_S *stored = TreeOf(interface).search(&interface->boundaries, &range);

        if (stored != nullptr) {
            BoundaryOf(stored)->stale = 0;
        }
        DeleteWithinExcept(interface, range, stored);
        return true;
    }
    if (result != 0) {
        free(boundary);
        return false;
    }
    DeleteWithinExcept(interface, range, &boundary->node);
    return true;
}

void mcast::DeleteRangesWithin(MRIB_GMP_IF_S *interface, const RDX_PREFIX_S &range)
{
    DeleteWithinExcept(interface, range, nullptr);
}

void mcast::DeleteAllRanges(MRIB_GMP_IF_S *interface)
{
    TreeOf(interface).destroy(&interface->boundaries, FreeRange);
}

void mcast::MarkRangesStale(MRIB_GMP_IF_S *interface)
{
    const RDX_AFI_CB_S &tree = TreeOf(interface);
    for (RDX_NODE_S *node = tree.first(&interface->boundaries); node != nullptr;
         node = tree.next(&interface->boundaries, node)) {
        BoundaryOf(node)->stale = 1;
    }
}

bool mcast::DeleteStaleRanges(MRIB_GMP_IF_S *interface)
{
    const RDX_AFI_CB_S &tree = TreeOf(interface);
    RDX_NODE_S *next = nullptr;
    bool any = false;
    for (RDX_NODE_S *node = tree.first(&interface->boundaries); node != nullptr; node = next) {
        next = tree.next(&interface->boundaries, node);
        if (BoundaryOf(node)->stale == 1) {
            tree.remove(&interface->boundaries, node);
            FreeRange(node);
            any = true;
        }
    }
    return any;
}

bool mcast::HasRanges(const MRIB_GMP_IF_S *interface)
{
    return TreeOf(interface).count(&interface->boundaries) != 0;
}

bool mcast::IsInRange(const MRIB_GMP_IF_S *interface, const MCAST_ADDR_S &address)
{
    RDX_PREFIX_S host = {};
    memcpy(host.address, address.address, sizeof(host.address));
    host.length = interface->tree_index == RDX_AFI_IPV4 ? 32 : 128;
    return TreeOf(interface).search(&interface->boundaries, &host) != nullptr;
}
