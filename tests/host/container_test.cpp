// Ordered containers, hash tables and private-data instances against naive models.
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "platform/avl.h"
#include "platform/hash.h"
#include "platform/interface.h"

namespace
{

uint64_t seed()
{
    const char *given = getenv("MCAST_TEST_SEED");
    return given != nullptr ? strtoull(given, nullptr, 0) : std::random_device{}();
}

struct Record {
    AVL_NODE_S node;
    uint32_t key;
};

uint32_t key_of(const void *record)
{
    return static_cast<const Record *>(record)->key;
}

// Differences are scaled so that nothing but the sign can be relied on.
int32_t order(uint32_t first, uint32_t second)
{
    return first < second ? -1000 : first > second ? 77 : 0;
}

int32_t compare_records(const void *first, const void *second)
{
    return order(key_of(first), key_of(second));
}

int32_t compare_key(const void *record, const void *key)
{
    return order(key_of(record), *static_cast<const uint32_t *>(key));
}

std::vector<uint32_t> g_freed;

void note_freed(void *record)
{
    g_freed.push_back(key_of(record));
    memset(record, 0xdd, sizeof(Record)); // what is given back may be reused at once
}

std::vector<uint32_t> keys_in_order(AVL_HANDLE tree)
{
    std::vector<uint32_t> keys;
    for (void *record = AVL_GetLeftMost(tree); record != nullptr; record = AVL_GetNext(tree, record)) {
        keys.push_back(key_of(record));
    }
    return keys;
}

TEST(AvlContainer, AgreesWithAnOrderedMapUnderRandomOperations)
{
    const uint64_t start = seed();
    SCOPED_TRACE("MCAST_TEST_SEED=" + std::to_string(start));
    std::mt19937_64 random(start);
    constexpr uint32_t RANGE = 400;
    std::vector<Record> records(2 * RANGE); // two records of every key
    memset(records.data(), 0xa5, records.size() * sizeof(Record));
    for (uint32_t i = 0; i < records.size(); ++i) {
        records[i].key = i % RANGE;
    }
    AVL_HANDLE tree = AVL_Init(compare_records, 0, nullptr);
    std::map<uint32_t, Record *> model;
    for (int step = 0; step < 200000; ++step) {
        Record *record = &records[random() % records.size()];
        auto entry = model.find(record->key);
        switch (random() % 4) {
        case 0:
            ASSERT_EQ(AVL_Insert(tree, record) == 0, entry == model.end());
            model.try_emplace(record->key, record);
            break;
        case 1: {
            bool present = entry != model.end() && entry->second == record;
            ASSERT_EQ(AVL_Remove(tree, record) != 0, present);
            if (present) {
                model.erase(entry);
            }
            break;
        }
        case 2:
            ASSERT_EQ(AVL_Get(tree, &record->key, compare_key),
                      entry == model.end() ? nullptr : entry->second);
            break;
        default: {
            Record probe{};
            probe.key = static_cast<uint32_t>(random() % (RANGE + 2));
            auto next = model.upper_bound(probe.key);
            auto previous = model.lower_bound(probe.key);
            ASSERT_EQ(AVL_GetNext(tree, &probe), next == model.end() ? nullptr : next->second);
            ASSERT_EQ(AVL_GetPrev(tree, &probe),
                      previous == model.begin() ? nullptr : std::prev(previous)->second);
        }
        }
        ASSERT_EQ(AVL_Count(tree), model.size());
        ASSERT_EQ(AVL_GetLeftMost(tree), model.empty() ? nullptr : model.begin()->second);
        if (step % 1000 == 0) {
            std::vector<uint32_t> expected;
            for (const auto &[key, value] : model) {
                expected.push_back(key);
            }
            ASSERT_EQ(keys_in_order(tree), expected);
        }
    }
    AVL_Fini(tree);
}

TEST(AvlContainer, FreeAllGivesEveryRecordOnceAndLeavesTheTreeUsable)
{
    g_freed.clear();
    AVL_HANDLE tree = AVL_Init(compare_records, 0, note_freed);
    std::vector<Record> records(1000);
    for (uint32_t i = 0; i < 1000; ++i) {
        records[i].key = (i * 7) % 1000;
        ASSERT_EQ(AVL_Insert(tree, &records[i]), 0u);
    }
    EXPECT_EQ(AVL_FreeAll(tree), 0u);
    EXPECT_EQ(std::set<uint32_t>(g_freed.begin(), g_freed.end()).size(), 1000u);
    EXPECT_EQ(g_freed.size(), 1000u);
    EXPECT_EQ(AVL_Count(tree), 0u);
    EXPECT_EQ(AVL_GetLeftMost(tree), nullptr);
    records[0].key = 5;
    EXPECT_EQ(AVL_Insert(tree, &records[0]), 0u);
    g_freed.clear();
    AVL_Fini(tree);
    EXPECT_EQ(g_freed, std::vector<uint32_t>{5});
}

TEST(AvlContainer, RecordOfAnotherTreeIsNotRemoved)
{
    AVL_HANDLE first = AVL_Init(compare_records, 0, nullptr);
    AVL_HANDLE second = AVL_Init(compare_records, 0, nullptr);
    Record one{};
    Record other{};
    one.key = other.key = 3;
    AVL_Insert(first, &one);
    EXPECT_EQ(AVL_Remove(second, &one), 0u);
    AVL_Insert(second, &other);
    EXPECT_EQ(AVL_Remove(second, &one), 0u);
    EXPECT_EQ(AVL_Remove(first, &one), 1u);
    EXPECT_EQ(AVL_Remove(first, &one), 0u);
    AVL_Fini(first);
    AVL_Fini(second);
}

TEST(AvlContainer, NoTreeAnswersAsAnEmptyOne)
{
    Record record{};
    EXPECT_NE(AVL_Insert(0, &record), 0u);
    EXPECT_EQ(AVL_Remove(0, &record), 0u);
    EXPECT_EQ(AVL_Get(0, &record.key, compare_key), nullptr);
    EXPECT_EQ(AVL_GetLeftMost(0), nullptr);
    EXPECT_EQ(AVL_GetNext(0, &record), nullptr);
    EXPECT_EQ(AVL_GetPrev(0, &record), nullptr);
    EXPECT_EQ(AVL_Count(0), 0u);
    AVL_Fini(0);
    AVL_HANDLE tree = AVL_Init(compare_records, 0, nullptr);
    EXPECT_NE(AVL_Insert(tree, nullptr), 0u);
    EXPECT_EQ(AVL_Remove(tree, nullptr), 0u);
    AVL_Fini(tree);
}

TEST(AvlContainer, HoldsAMillionRecords)
{
    constexpr uint32_t COUNT = 1000000;
    std::vector<Record> records(COUNT);
    AVL_HANDLE tree = AVL_Init(compare_records, 0, nullptr);
    for (uint32_t i = 0; i < COUNT; ++i) {
        records[i].key = i * 2654435761u; // odd factor: every key once
        ASSERT_EQ(AVL_Insert(tree, &records[i]), 0u);
    }
    EXPECT_EQ(AVL_Count(tree), COUNT);
    for (Record &record : records) {
        ASSERT_EQ(AVL_Get(tree, &record.key, compare_key), &record);
    }
    for (Record &record : records) {
        ASSERT_EQ(AVL_Remove(tree, &record), 1u);
    }
    EXPECT_EQ(AVL_Count(tree), 0u);
    AVL_Fini(tree);
}

struct HashRecord {
    HASH_NODE_S node;
    uint32_t key;
};

int32_t compare_hash_key(const void *record, const void *key)
{
    return static_cast<const HashRecord *>(record)->key == *static_cast<const uint32_t *>(key) ? 0 : 5;
}

std::multiset<uint32_t> walk(HASH_HANDLE table)
{
    std::multiset<uint32_t> keys;
    for (void *record = HASH_GetFirst(table); record != nullptr;) {
        keys.insert(static_cast<HashRecord *>(record)->key);
        record = HASH_GetNext(table, static_cast<HashRecord *>(record)->key, record);
    }
    return keys;
}

TEST(HashTable, AgreesWithASetUnderRandomOperations)
{
    const uint64_t start = seed();
    SCOPED_TRACE("MCAST_TEST_SEED=" + std::to_string(start));
    std::mt19937_64 random(start);
    for (uint32_t buckets : {1u, 7u, 512u}) {
        HASH_HANDLE table = HASH_Init(buckets, nullptr);
        std::vector<HashRecord> records(300);
        memset(records.data(), 0xa5, records.size() * sizeof(HashRecord));
        for (uint32_t i = 0; i < records.size(); ++i) {
            records[i].key = i * 3;
        }
        std::multiset<uint32_t> model;
        for (int step = 0; step < 20000; ++step) {
            HashRecord *record = &records[random() % records.size()];
            bool present = model.count(record->key) != 0;
            ASSERT_EQ(HASH_Get(table, record->key, &record->key, compare_hash_key),
                      present ? record : nullptr);
            if (random() % 2 == 0 && !present) {
                ASSERT_EQ(HASH_Insert(table, record->key, record), 0u);
                model.insert(record->key);
            } else {
                ASSERT_EQ(HASH_Remove(table, record->key, record) != 0, present);
                model.erase(record->key);
            }
            ASSERT_EQ(HASH_GetFirst(table) == nullptr, model.empty());
            if (step % 500 == 0) {
                ASSERT_EQ(walk(table), model);
            }
        }
        HASH_Fini(table);
    }
}

std::multiset<uint32_t> g_hash_freed;

void note_hash_freed(void *record)
{
    g_hash_freed.insert(static_cast<HashRecord *>(record)->key);
    memset(record, 0xdd, sizeof(HashRecord));
}

TEST(HashTable, FreeAllGivesEveryRecordOnceAndLeavesTheTableUsable)
{
    g_hash_freed.clear();
    HASH_HANDLE table = HASH_Init(16, note_hash_freed);
    std::vector<HashRecord> records(100);
    for (uint32_t i = 0; i < 100; ++i) {
        records[i].key = i;
        HASH_Insert(table, i, &records[i]);
    }
    EXPECT_EQ(HASH_FreeAll(table), 0u);
    EXPECT_EQ(g_hash_freed.size(), 100u);
    EXPECT_EQ(HASH_GetFirst(table), nullptr);
    EXPECT_EQ(HASH_Insert(table, 1, &records[0]), 0u);
    HASH_Fini(table);
    EXPECT_EQ(g_hash_freed.size(), 101u);
}

TEST(HashTable, NoTableAnswersAsAnEmptyOne)
{
    HashRecord record{};
    EXPECT_EQ(HASH_Init(0, nullptr), 0u);
    EXPECT_NE(HASH_Insert(0, 1, &record), 0u);
    EXPECT_EQ(HASH_Remove(0, 1, &record), 0u);
    EXPECT_EQ(HASH_Get(0, 1, &record.key, compare_hash_key), nullptr);
    EXPECT_EQ(HASH_GetFirst(0), nullptr);
    EXPECT_EQ(HASH_GetNext(0, 1, &record), nullptr);
    HASH_Fini(0);
}

TEST(PrivateData, AgreesWithAMapUnderRandomOperations)
{
    const uint64_t start = seed();
    SCOPED_TRACE("MCAST_TEST_SEED=" + std::to_string(start));
    std::mt19937_64 random(start);
    IF_INSTANCE instance = IF_CreatePDInstance(2, 0);
    ASSERT_NE(instance, IF_NO_INSTANCE);
    std::map<uint32_t, void *> model;
    std::vector<char> values(64);
    for (int step = 0; step < 50000; ++step) {
        uint32_t index = static_cast<uint32_t>(random() % 100) * 0x01000001u;
        void *value = &values[random() % values.size()];
        void *got = &model;
        uint32_t got_index = 7;
        auto next = model.upper_bound(index);
        switch (random() % 4) {
        case 0:
            ASSERT_EQ(IF_SetPrivateData(instance, index, value, 0), 0u);
            model[index] = value;
            break;
        case 1:
            ASSERT_EQ(IF_DelPrivateData(instance, index, 0) == 0, model.erase(index) == 1);
            break;
        case 2:
            ASSERT_EQ(IF_GetPrivateData(instance, index, &got) == 0, model.count(index) == 1);
            ASSERT_EQ(got, model.count(index) == 1 ? model[index] : static_cast<void *>(&model));
            break;
        default:
            ASSERT_EQ(IF_GetNextPrivateData(instance, index, &got_index, &got) == 0, next != model.end());
            ASSERT_EQ(got_index, next != model.end() ? next->first : 7);
            ASSERT_EQ(got, next != model.end() ? next->second : static_cast<void *>(&model));
        }
    }
    uint32_t index = 7;
    void *data = nullptr;
    ASSERT_EQ(IF_GetFirstPrivateData(instance, &index, &data) == 0, !model.empty());
    if (!model.empty()) {
        EXPECT_EQ(index, model.begin()->first);
        EXPECT_EQ(data, model.begin()->second);
    }
    EXPECT_EQ(IF_DestroyPDInstance(instance), 0u);
}

TEST(PrivateData, BadArgumentsAreRefused)
{
    int value = 0;
    void *data = &value;
    uint32_t index = 1;
    EXPECT_EQ(IF_CreatePDInstance(3, 0), IF_NO_INSTANCE);
    EXPECT_NE(IF_DestroyPDInstance(IF_NO_INSTANCE), 0u);
    EXPECT_NE(IF_SetPrivateData(IF_NO_INSTANCE, 1, data, 0), 0u);
    EXPECT_NE(IF_DelPrivateData(IF_NO_INSTANCE, 1, 0), 0u);
    EXPECT_NE(IF_GetPrivateData(IF_NO_INSTANCE, 1, &data), 0u);
    EXPECT_NE(IF_GetFirstPrivateData(IF_NO_INSTANCE, &index, &data), 0u);
    EXPECT_NE(IF_GetNextPrivateData(IF_NO_INSTANCE, 0, &index, &data), 0u);
    IF_INSTANCE instance = IF_CreatePDInstance(2, 0);
    EXPECT_NE(IF_GetPrivateData(instance, 1, &data), 0u);
    EXPECT_EQ(data, &value);
    EXPECT_EQ(IF_SetPrivateData(instance, 0, &value, 0), 0u); // index 0 is an index like any other
    EXPECT_EQ(IF_GetFirstPrivateData(instance, &index, &data), 0u);
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(IF_DestroyPDInstance(instance), 0u);
}

} // namespace
