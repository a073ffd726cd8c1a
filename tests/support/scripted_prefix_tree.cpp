/* Prefix trees for tests: a sorted list, linked through link[0]. Linear, and plainly right. */
#include <algorithm>
#include <cstring>

#include "platform/prefix_tree.h"
#include "support/scripted_platform.h"

namespace platform
{
bool Fails(Operation operation);
}

namespace
{

RDX_NODE_S *Next(const RDX_NODE_S *node)
{
    return reinterpret_cast<RDX_NODE_S *>(node->link[0]);
}

void SetNext(RDX_NODE_S *node, RDX_NODE_S *next)
{
    node->link[0] = reinterpret_cast<uint64_t>(next);
}

RDX_NODE_S *First(const RDX_TREE_S *tree)
{
    return static_cast<RDX_NODE_S *>(tree->root);
}

template <uint32_t longest> uint32_t Length(const RDX_PREFIX_S &prefix)
{
    return std::min(prefix.length, longest);
}

bool Bit(const RDX_PREFIX_S &prefix, uint32_t bit)
{
    return (prefix.address[bit / 8] >> (7 - bit % 8) & 1) != 0;
}

/* Negative, 0 or positive by address bits, then by length. */
template <uint32_t longest> int Compare(const RDX_PREFIX_S &a, const RDX_PREFIX_S &b)
{
    for (uint32_t bit = 0; bit < std::min(Length<longest>(a), Length<longest>(b)); ++bit) {
        if (Bit(a, bit) != Bit(b, bit)) {
            return Bit(a, bit) ? 1 : -1;
        }
    }
    return static_cast<int>(Length<longest>(a)) - static_cast<int>(Length<longest>(b));
}

template <uint32_t longest> bool Contains(const RDX_PREFIX_S &outer, const RDX_PREFIX_S &inner)
{
    for (uint32_t bit = 0; bit < Length<longest>(outer); ++bit) {
        if (bit >= Length<longest>(inner) || Bit(outer, bit) != Bit(inner, bit)) {
            return false;
        }
    }
    return true;
}

template <uint32_t longest> RDX_NODE_S *Search(const RDX_TREE_S *tree, const RDX_PREFIX_S *prefix)
{
    RDX_NODE_S *best = nullptr;
    for (RDX_NODE_S *node = First(tree); node != nullptr; node = Next(node)) {
        if (Contains<longest>(node->prefix, *prefix) &&
            (best == nullptr || Length<longest>(node->prefix) > Length<longest>(best->prefix))) {
            best = node;
        }
    }
    return best;
}

template <uint32_t longest> RDX_NODE_S *Collect(RDX_TREE_S *tree, const RDX_PREFIX_S *prefix)
{
    RDX_NODE_S *chain = nullptr;
    RDX_NODE_S **tail = &chain;
    for (RDX_NODE_S *node = First(tree); node != nullptr; node = Next(node)) {
        if (Contains<longest>(*prefix, node->prefix)) {
            node->collected = nullptr;
            *tail = node;
            tail = &node->collected;
        }
    }
    return chain;
}

template <uint32_t longest> uint32_t Insert(RDX_TREE_S *tree, RDX_NODE_S *node)
{
    RDX_NODE_S *before = nullptr;
    RDX_NODE_S *after = First(tree);
    if (platform::Fails(platform::Operation::kPrefixInsert)) {
        return 1;
    }
    while (after != nullptr && Compare<longest>(after->prefix, node->prefix) < 0) {
        before = after;
        after = Next(after);
    }
    if (after != nullptr && Compare<longest>(after->prefix, node->prefix) == 0) {
        return RDX_ERR_PRESENT;
    }
    SetNext(node, after);
    if (before == nullptr) {
        tree->root = node;
    } else {
        SetNext(before, node);
    }
    ++tree->count;
    return 0;
}

void Remove(RDX_TREE_S *tree, RDX_NODE_S *node)
{
    RDX_NODE_S *before = First(tree);
    if (before == node) {
        tree->root = Next(node);
    } else {
        while (Next(before) != node) {
            before = Next(before);
        }
        SetNext(before, Next(node));
    }
    --tree->count;
}

RDX_NODE_S *NextOf(const RDX_TREE_S *, const RDX_NODE_S *node)
{
    return Next(node);
}

uint32_t Count(const RDX_TREE_S *tree)
{
    return tree->count;
}

void Destroy(RDX_TREE_S *tree, RDX_RELEASE release)
{
    while (RDX_NODE_S *node = First(tree)) {
        Remove(tree, node);
        if (release != nullptr) {
            release(node);
        }
    }
}

} // namespace

const RDX_AFI_CB_S g_astRdxAFICBArray[RDX_AFI_COUNT] = {
    {Search<32>, Collect<32>, Insert<32>, Remove, First, NextOf, Count, Destroy},
    {Search<128>, Collect<128>, Insert<128>, Remove, First, NextOf, Count, Destroy},
};
