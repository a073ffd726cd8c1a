/*
 * Prefix trees of the platform: ranges of addresses, kept by address and prefix length. One row of operations
 * per address family. Records are the caller's and begin with an RDX_NODE_S through which the tree links
 * them; the tree allocates nothing. No operation locks; readers may run in parallel.
 */
#ifndef PLATFORM_PREFIX_TREE_H
#define PLATFORM_PREFIX_TREE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The rows of g_astRdxAFICBArray. */
#define RDX_AFI_IPV4 0
#define RDX_AFI_IPV6 1
#define RDX_AFI_COUNT 2

/* From insert: a record with the same address bits and length is in the tree. */
#define RDX_ERR_PRESENT 0x4406000cu

/* A range of addresses. */
typedef struct RDX_PREFIX_S {
    uint8_t address[16]; /* network order, IPv4 in the first four; bits past length do not count */
    uint32_t length;     /* 0 to 32 for IPv4, 0 to 128 for IPv6; a greater one counts as the greatest */
} RDX_PREFIX_S;

/* The start of every record. The caller sets prefix before insert and leaves it alone while linked. */
typedef struct RDX_NODE_S {
    uint64_t link[4];             /* the tree's own */
    struct RDX_NODE_S *collected; /* the next record of a chain made by collect, NULL at its end */
    RDX_PREFIX_S prefix;
} RDX_NODE_S;

/* A tree, empty when all zero. Freeing its storage with records in it forgets them. */
typedef struct RDX_TREE_S {
    void *root;     /* the tree's own */
    uint32_t count; /* records in it */
} RDX_TREE_S;

/* Receives a record that destroy has taken out of the tree. */
typedef void (*RDX_RELEASE)(RDX_NODE_S *node);

/* The operations of one family. No pointer is NULL. */
typedef struct RDX_AFI_CB_S {
    /* The record with the longest range that contains the whole prefix, equal ranges included, or NULL. */
    RDX_NODE_S *(*search)(const RDX_TREE_S *tree, const RDX_PREFIX_S *prefix);
    /*
     * Chains, through collected, all records whose range lies within the prefix, equal ranges included; the
     * first or NULL. They stay in the tree; the chain holds while each is removed in turn.
     */
    RDX_NODE_S *(*collect)(RDX_TREE_S *tree, const RDX_PREFIX_S *prefix);
    /* Links the record. 0, RDX_ERR_PRESENT, or another code; on failure nothing is linked. */
    uint32_t (*insert)(RDX_TREE_S *tree, RDX_NODE_S *node);
    /* Unlinks a record that is in the tree. */
    void (*remove)(RDX_TREE_S *tree, RDX_NODE_S *node);
    /* The first record in order of address, shorter prefix first, or NULL. */
    RDX_NODE_S *(*first)(const RDX_TREE_S *tree);
    /* The record after one that is in the tree, or NULL. */
    RDX_NODE_S *(*next)(const RDX_TREE_S *tree, const RDX_NODE_S *node);
    /* The number of records. */
    uint32_t (*count)(const RDX_TREE_S *tree);
    /* Takes every record out, passing each to release unless it is NULL; the tree is empty afterwards. */
    void (*destroy)(RDX_TREE_S *tree, RDX_RELEASE release);
} RDX_AFI_CB_S;

/* The operations of each family, by RDX_AFI_IPV4 and RDX_AFI_IPV6. A data object: it is bound when the process starts. */
extern const RDX_AFI_CB_S g_astRdxAFICBArray[RDX_AFI_COUNT];

#ifdef __cplusplus
}
#endif

#endif
