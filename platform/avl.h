/*
 * Ordered containers of the platform: intrusive balanced trees. A record begins with an AVL_NODE_S through
 * which the tree links it; the tree never allocates or frees records. No operation locks.
 */
#ifndef PLATFORM_AVL_H
#define PLATFORM_AVL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A tree handle; 0 means none, and every operation on it answers as for an empty tree and refuses records. */
typedef uint64_t AVL_HANDLE;

/*
 * The node header at the start of every record, owned by the tree while the record is in it. Its contents
 * before AVL_Insert do not matter.
 */
typedef struct AVL_NODE_S {
    uint64_t link[4];
} AVL_NODE_S;

/*
 * Orders two records: negative, 0 or positive, of any size, as first sorts before, equal to or after second.
 * Either may be a probe: a record that was never in a tree and has only its key filled in.
 */
typedef int32_t (*AVL_NODE_COMPARE)(const void *first, const void *second);

/* Compares a record with a bare key: negative, 0 or positive as record sorts before, at or after key. */
typedef int32_t (*AVL_KEY_COMPARE)(const void *record, const void *key);

/*
 * Receives a record that AVL_FreeAll or AVL_Fini has taken out of the tree; it may free the record and use
 * other trees. In what order records come, and whether those still to come are in the tree, is left to the
 * platform: the function does not use this tree.
 */
typedef void (*AVL_FREE)(void *record);

/*
 * Creates an empty tree; compare is not NULL, option is 0, free_record may be NULL. The handle, or 0 when
 * memory is short.
 */
AVL_HANDLE AVL_Init(AVL_NODE_COMPARE compare, uint32_t option, AVL_FREE free_record);

/* Ends the tree: every record left goes to the free function, then the handle is invalid. 0 is ignored. */
void AVL_Fini(AVL_HANDLE tree);

/*
 * Takes every record out, passing each to the free function; the tree stays usable. 0 on success; what the
 * handle 0 gives is left to the platform.
 */
uint32_t AVL_FreeAll(AVL_HANDLE tree);

/*
 * Links the record. 0 on success; non-zero, and nothing changed, when an equal record is present or for NULL.
 */
uint32_t AVL_Insert(AVL_HANDLE tree, void *record);

/*
 * Unlinks the record, whose key has not changed since it was inserted. Non-zero when this very record was in
 * the tree and is now out; 0 otherwise, also for a record that never was in a tree. Logarithmic.
 */
uint32_t AVL_Remove(AVL_HANDLE tree, void *record);

/* The record for which compare(record, key) is 0, or NULL. */
void *AVL_Get(AVL_HANDLE tree, const void *key, AVL_KEY_COMPARE compare);

/* The first record or NULL. */
void *AVL_GetLeftMost(AVL_HANDLE tree);

/* The first record ordered after the given record or probe, which need not be in the tree; or NULL. */
void *AVL_GetNext(AVL_HANDLE tree, const void *record_or_probe);

/* The last record ordered before the given record or probe, which need not be in the tree; or NULL. */
void *AVL_GetPrev(AVL_HANDLE tree, const void *record_or_probe);

/* The number of records in the tree. */
uint32_t AVL_Count(AVL_HANDLE tree);

#ifdef __cplusplus
}
#endif

#endif
