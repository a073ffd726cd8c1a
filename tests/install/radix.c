/*
 * A program that uses the radix tree alone, which asks nothing of the platform: a linker then sees no use of
 * the platform's library, without which the program does not start.
 */
#include <mcast/radix.h>
#include <stdio.h>

struct Entry {
    MCAST_ADDR_S *key;
    uint8_t length;
};

int main(void)
{
    MCAST_ADDR_S address = {MCAST_FAMILY_IPV4, 0, {239, 1, 0, 0}};
    struct Entry range = {&address, 16};
    MRT_RDX_TREE_S *tree = MRT_RDX_CreateTree(offsetof(struct Entry, key), offsetof(struct Entry, length),
                                              offsetof(MCAST_ADDR_S, address), 32);
    if (tree == NULL || MRT_RDX_AddNode(tree, &range) == NULL ||
        MRT_RDX_LocateBest(tree, &address, 32, NULL, NULL) != &range) {
        return 1;
    }
    MRT_RDX_DestroyTree(tree);
    puts("239.1.0.0/16");
    return 0;
}
