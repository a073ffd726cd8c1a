/*
 * Hash tables of the platform: intrusive chains in a fixed number of buckets. A record begins with a
 * HASH_NODE_S through which the table links it; the table never allocates or frees records. The caller
 * computes the hash and compares the keys. No operation locks.
 */
#ifndef PLATFORM_HASH_H
#define PLATFORM_HASH_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * A table handle; 0 means none, and every operation on it finds, removes and refuses as an empty table would.
 */
typedef uint64_t HASH_HANDLE;

/*
 * The node header at the start of every record, owned by the table while the record is in it. Its contents
 * before HASH_Insert do not matter.
 */
typedef struct HASH_NODE_S {
    uint64_t link[2];
} HASH_NODE_S;

/* Compares a record with a bare key: 0 when the record has the key. */
typedef int32_t (*HASH_KEY_COMPARE)(const void *record, const void *key);

/*
 * Receives a record that HASH_FreeAll or HASH_Fini has taken out of the table; it may free the record and use
 * other tables and trees. Whether the records still to come are in the table is left to the platform: the
 * function does not use this table.
 */
typedef void (*HASH_FREE)(void *record);

/*
 * Creates an empty table with a number of buckets above 0; free_record may be NULL. The handle, or 0 when the
 * number is 0 or memory is short.
 */
HASH_HANDLE HASH_Init(uint32_t bucket_count, HASH_FREE free_record);

/* Ends the table: every record left goes to the free function, then the handle is invalid. 0 is ignored. */
void HASH_Fini(HASH_HANDLE table);

/*
 * Takes every record out, passing each to the free function; the table stays usable. 0 on success; what the
 * handle 0 gives is left to the platform.
 */
uint32_t HASH_FreeAll(HASH_HANDLE table);

/*
 * Links the record into bucket hash modulo the number of buckets. 0 on success, non-zero for NULL. An equal
 * record is not looked for: the caller inserts none.
 */
uint32_t HASH_Insert(HASH_HANDLE table, uint32_t hash, void *record);

/*
 * Unlinks the record inserted with this hash. Non-zero when it was in the table and is now out, 0 otherwise.
 * Linear in the records of the bucket.
 */
uint32_t HASH_Remove(HASH_HANDLE table, uint32_t hash, void *record);

/* The record of the hash's bucket for which compare(record, key) is 0, or NULL. */
void *HASH_Get(HASH_HANDLE table, uint32_t hash, const void *key, HASH_KEY_COMPARE compare);

/* The first record of a walk over all, in whatever order, or NULL. Linear in the empty buckets. */
void *HASH_GetFirst(HASH_HANDLE table);

/*
 * The record behind one that is in the table under this hash, or NULL at the end. To remove records while
 * walking, fetch the next one first.
 */
void *HASH_GetNext(HASH_HANDLE table, uint32_t hash, const void *record);

#ifdef __cplusplus
}
#endif

#endif
