/* Prefix trees of the minimal platform: sorted lists, linked through link[0]. Every operation is linear. */
#include "mcast/platform/prefix_tree.h"

#include <stddef.h>

static RDX_NODE_S *Next(const RDX_NODE_S *node)
{
    return (RDX_NODE_S *)(uintptr_t)node->link[0];
}

static uint32_t Length(const RDX_PREFIX_S *prefix, uint32_t bits)
{
    return prefix->length < bits ? prefix->length : bits;
}

static int Bit(const RDX_PREFIX_S *prefix, uint32_t bit)
{
    return prefix->address[bit / 8] >> (7 - bit % 8) & 1;
}

/* The number of leading bits that both have. */
static uint32_t Common(const RDX_PREFIX_S *first, const RDX_PREFIX_S *second, uint32_t bits)
{
    uint32_t bit = 0;
    while (bit < Length(first, bits) && bit < Length(second, bits) && Bit(first, bit) == Bit(second, bit)) {
        ++bit;
    }
    return bit;
}

static int Contains(const RDX_PREFIX_S *outer, const RDX_PREFIX_S *inner, uint32_t bits)
{
    return Common(outer, inner, bits) == Length(outer, bits);
}

/* Whether first comes before second: by address with the bits past the length cleared, then by length. */
static int Before(const RDX_PREFIX_S *first, const RDX_PREFIX_S *second, uint32_t bits)
{
    for (uint32_t bit = 0; bit < bits; ++bit) {
        const int a = bit < Length(first, bits) && Bit(first, bit);
        const int b = bit < Length(second, bits) && Bit(second, bit);
        if (a != b) {
            return b;
        }
    }
    return Length(first, bits) < Length(second, bits);
}

static RDX_NODE_S *SearchIn(const RDX_TREE_S *tree, const RDX_PREFIX_S *prefix, uint32_t bits)
{
    RDX_NODE_S *best = NULL;
    for (RDX_NODE_S *node = tree->root; node != NULL; node = Next(node)) {
        if (Contains(&node->prefix, prefix, bits) &&
            (best == NULL || Length(&node->prefix, bits) > Length(&best->prefix, bits))) {
            best = node;
        }
    }
    return best;
}

static RDX_NODE_S *CollectIn(RDX_TREE_S *tree, const RDX_PREFIX_S *prefix, uint32_t bits)
{
    RDX_NODE_S *chain = NULL;
    for (RDX_NODE_S *node = tree->root; node != NULL; node = Next(node)) {
        if (Contains(prefix, &node->prefix, bits)) {
            node->collected = chain;
            chain = node;
        }
    }
    return chain;
}

static uint32_t InsertInto(RDX_TREE_S *tree, RDX_NODE_S *node, uint32_t bits)
{
    RDX_NODE_S *before = NULL;
    RDX_NODE_S *after = tree->root;
    while (after != NULL && Before(&after->prefix, &node->prefix, bits)) {
        before = after;
        after = Next(after);
    }
    if (after != NULL && !Before(&node->prefix, &after->prefix, bits)) {
        return RDX_ERR_PRESENT;
    }
    node->link[0] = (uint64_t)(uintptr_t)after;
    if (before != NULL) {
        before->link[0] = (uint64_t)(uintptr_t)node;
    } else {
        tree->root = node;
    }
    ++tree->count;
    return 0;
}

static RDX_NODE_S *Search4(const RDX_TREE_S *tree, const RDX_PREFIX_S *prefix)
{
    return SearchIn(tree, prefix, 32);
}

static RDX_NODE_S *Search6(const RDX_TREE_S *tree, const RDX_PREFIX_S *prefix)
{
    return SearchIn(tree, prefix, 128);
}

static RDX_NODE_S *Collect4(RDX_TREE_S *tree, const RDX_PREFIX_S *prefix)
{
    return CollectIn(tree, prefix, 32);
}

static RDX_NODE_S *Collect6(RDX_TREE_S *tree, const RDX_PREFIX_S *prefix)
{
    return CollectIn(tree, prefix, 128);
}

static uint32_t Insert4(RDX_TREE_S *tree, RDX_NODE_S *node)
{
    return InsertInto(tree, node, 32);
}

static uint32_t Insert6(RDX_TREE_S *tree, RDX_NODE_S *node)
{
    return InsertInto(tree, node, 128);
}

static void Remove(RDX_TREE_S *tree, RDX_NODE_S *node)
{
    RDX_NODE_S *before = tree->root;
    if (before == node) {
        tree->root = Next(node);
    } else {
        while (Next(before) != node) {
            before = Next(before);
        }
        before->link[0] = node->link[0];
    }
    --tree->count;
}

static RDX_NODE_S *First(const RDX_TREE_S *tree)
{
    return tree->root;
}

static RDX_NODE_S *NextOf(const RDX_TREE_S *tree, const RDX_NODE_S *node)
{
    (void)tree;
    return Next(node);
}

static uint32_t Count(const RDX_TREE_S *tree)
{
    return tree->count;
}

static void Destroy(RDX_TREE_S *tree, RDX_RELEASE release)
{
    while (tree->root != NULL) {
        RDX_NODE_S *node = tree->root;
        Remove(tree, node);
        if (release != NULL) {
            release(node);
        }
    }
}

const RDX_AFI_CB_S g_astRdxAFICBArray[RDX_AFI_COUNT] = {
    {Search4, Collect4, Insert4, Remove, First, NextOf, Count, Destroy},
    {Search6, Collect6, Insert6, Remove, First, NextOf, Count, Destroy},
};
