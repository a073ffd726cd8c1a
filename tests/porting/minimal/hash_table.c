/* Hash tables of the minimal platform: singly linked chains. */
#include <stdlib.h>

#include "mcast/platform/hash.h"

typedef struct NODE_S {
    struct NODE_S *next;
    uint64_t unused;
} NODE_S;

_Static_assert(sizeof(NODE_S) == sizeof(HASH_NODE_S), "the header of a record");

typedef struct TABLE_S {
    HASH_FREE free_record;
    uint32_t bucket_count;
    NODE_S *buckets[];
} TABLE_S;

static TABLE_S *TableOf(HASH_HANDLE handle)
{
    return (TABLE_S *)(uintptr_t)handle;
}

static void *FirstFrom(TABLE_S *table, uint32_t bucket)
{
    while (bucket < table->bucket_count && table->buckets[bucket] == NULL) {
        ++bucket;
    }
    return bucket < table->bucket_count ? table->buckets[bucket] : NULL;
}

HASH_HANDLE HASH_Init(uint32_t bucket_count, HASH_FREE free_record)
{
    TABLE_S *table = bucket_count == 0 ? NULL : calloc(1, sizeof(*table) + bucket_count * sizeof(NODE_S *));
    if (table != NULL) {
        table->free_record = free_record;
        table->bucket_count = bucket_count;
    }
    return (HASH_HANDLE)(uintptr_t)table;
}

uint32_t HASH_FreeAll(HASH_HANDLE handle)
{
    TABLE_S *table = TableOf(handle);
    for (uint32_t i = 0; table != NULL && i < table->bucket_count; ++i) {
        while (table->buckets[i] != NULL) {
            NODE_S *node = table->buckets[i];
            table->buckets[i] = node->next;
            if (table->free_record != NULL) {
                table->free_record(node);
            }
        }
    }
    return 0;
}

void HASH_Fini(HASH_HANDLE handle)
{
    HASH_FreeAll(handle);
    free(TableOf(handle));
}

uint32_t HASH_Insert(HASH_HANDLE handle, uint32_t hash, void *record)
{
    TABLE_S *table = TableOf(handle);
    NODE_S *node = record;
    if (table == NULL || node == NULL) {
        return 1;
    }
    node->next = table->buckets[hash % table->bucket_count];
    table->buckets[hash % table->bucket_count] = node;
    return 0;
}

uint32_t HASH_Remove(HASH_HANDLE handle, uint32_t hash, void *record)
{
    TABLE_S *table = TableOf(handle);
    if (table == NULL) {
        return 0;
    }
    for (NODE_S **at = &table->buckets[hash % table->bucket_count]; *at != NULL; at = &(*at)->next) {
        if ((void *)*at == record) {
            *at = (*at)->next;
            return 1;
        }
    }
    return 0;
}

void *HASH_Get(HASH_HANDLE handle, uint32_t hash, const void *key, HASH_KEY_COMPARE compare)
{
    TABLE_S *table = TableOf(handle);
    NODE_S *at = table == NULL ? NULL : table->buckets[hash % table->bucket_count];
    while (at != NULL && compare(at, key) != 0) {
        at = at->next;
    }
    return at;
}

void *HASH_GetFirst(HASH_HANDLE handle)
{
    return handle == 0 ? NULL : FirstFrom(TableOf(handle), 0);
}

void *HASH_GetNext(HASH_HANDLE handle, uint32_t hash, const void *record)
{
    TABLE_S *table = TableOf(handle);
    if (table == NULL) {
        return NULL;
    }
    NODE_S *next = ((const NODE_S *)record)->next;
    return next != NULL ? next : FirstFrom(table, hash % table->bucket_count + 1);
}
