/* Hash tables for tests: a list for each bucket. */
#include <algorithm>
#include <atomic>
#include <list>
#include <map>

#include "platform/hash.h"
#include "support/scripted_platform.h"

namespace platform
{

bool Fails(Operation operation);

} // namespace platform

namespace
{

using platform::Operation;

using Bucket = std::list<void *>; /* newest first */

struct Table {
    uint32_t bucket_count;
    HASH_FREE free_record;
    std::map<uint32_t, Bucket> buckets; /* those that were used since the table was empty */

    Bucket &bucket(uint32_t hash)
    {
        return buckets[hash % bucket_count];
    }
};

std::atomic<long> g_live_tables{0};

Table *TableOf(HASH_HANDLE handle)
{
    return reinterpret_cast<Table *>(handle);
}

void *FirstFrom(Table &table, uint32_t position)
{
    for (auto at = table.buckets.lower_bound(position); at != table.buckets.end(); ++at) {
        if (!at->second.empty()) {
            return at->second.front();
        }
    }
    return nullptr;
}

} // namespace

long platform::LiveTables()
{
    return g_live_tables;
}

HASH_HANDLE HASH_Init(uint32_t bucket_count, HASH_FREE free_record)
{
    if (platform::Fails(Operation::kHashInit) || bucket_count == 0) {
        return 0;
    }
    ++g_live_tables;
    return reinterpret_cast<HASH_HANDLE>(new Table{bucket_count, free_record, {}});
}

void HASH_Fini(HASH_HANDLE handle)
{
    if (handle != 0) {
        HASH_FreeAll(handle);
        --g_live_tables;
        delete TableOf(handle);
    }
}

uint32_t HASH_FreeAll(HASH_HANDLE handle)
{
    Table *table = TableOf(handle);

    if (table == nullptr) {
        return 1;
    }
    for (auto &[hash, bucket] : table->buckets) {
        while (!bucket.empty()) {
            void *record = bucket.front();

            bucket.pop_front();
            if (table->free_record != nullptr) {
                table->free_record(record);
            }
        }
    }
    table->buckets.clear();
    return 0;
}

uint32_t HASH_Insert(HASH_HANDLE handle, uint32_t hash, void *record)
{
    if (platform::Fails(Operation::kHashInsert) || handle == 0 || record == nullptr) {
        return 1;
    }
    TableOf(handle)->bucket(hash).push_front(record);
    return 0;
}

uint32_t HASH_Remove(HASH_HANDLE handle, uint32_t hash, void *record)
{
    return handle != 0 && TableOf(handle)->bucket(hash).remove(record) != 0 ? 1 : 0;
}

void *HASH_Get(HASH_HANDLE handle, uint32_t hash, const void *key, HASH_KEY_COMPARE compare)
{
    if (handle == 0) {
        return nullptr;
    }
    for (void *record : TableOf(handle)->bucket(hash)) {
        if (compare(record, key) == 0) {
            return record;
        }
    }
    return nullptr;
}

void *HASH_GetFirst(HASH_HANDLE handle)
{
    return handle == 0 ? nullptr : FirstFrom(*TableOf(handle), 0);
}

void *HASH_GetNext(HASH_HANDLE handle, uint32_t hash, const void *record)
{
    Table *table = TableOf(handle);

    if (table == nullptr) {
        return nullptr;
    }
    const Bucket &bucket = table->bucket(hash);
    auto at = std::find(bucket.begin(), bucket.end(), record);

    if (at != bucket.end() && ++at != bucket.end()) {
        return *at;
    }
    return FirstFrom(*table, hash % table->bucket_count + 1);
}
