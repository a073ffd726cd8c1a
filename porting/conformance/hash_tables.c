/* Hash tables, against flags that say which records must be in the table. */
#include <string.h>

#include "check.h"
#include "mcast/platform/hash.h"

#define RECORDS 300u

typedef struct RECORD_S {
    HASH_NODE_S node;
    uint32_t key;
    uint32_t present;
    uint32_t seen;
} RECORD_S;

static RECORD_S g_records[RECORDS];
static uint32_t g_freed;

static int32_t CompareKey(const void *record, const void *key)
{
    return ((const RECORD_S *)record)->key == *(const uint32_t *)key ? 0 : 5;
}

static void Free(void *record)
{
    RECORD_S *freed = (RECORD_S *)record;
    CHECK(freed->present == 1);
    freed->present = 0;
    ++g_freed;
    memset(&freed->node, 0xdd, sizeof(freed->node)); /* what is given back may be used again at once */
}

static void Prepare(void)
{
    memset(g_records, 0xa5,
           sizeof(g_records)); /* what a node header holds before insertion does not matter */
    g_freed = 0;
    for (uint32_t i = 0; i < RECORDS; ++i) {
        g_records[i].key = i * 3;
        g_records[i].present = 0;
    }
}

static void CheckWalk(HASH_HANDLE table)
{
    for (uint32_t i = 0; i < RECORDS; ++i) {
        g_records[i].seen = 0;
    }
    uint32_t steps = 0;
    for (void *record = HASH_GetFirst(table); record != NULL && steps <= RECORDS; ++steps) {
        RECORD_S *at = (RECORD_S *)record;
        ++at->seen;
        record = HASH_GetNext(table, at->key, record);
    }
    for (uint32_t i = 0; i < RECORDS; ++i) {
        CHECK(g_records[i].seen == g_records[i].present);
    }
}

static void RunRandomOperations(uint32_t buckets)
{
    Prepare();
    const HASH_HANDLE table = HASH_Init(buckets, NULL);
    NEED(table != 0);
    for (int step = 0; step < 20000 && !PORT_CaseFailed(); ++step) {
        RECORD_S *record = &g_records[PORT_Random(RECORDS)];
        CHECK(HASH_Get(table, record->key, &record->key, CompareKey) ==
              (record->present != 0 ? record : NULL));
        if (record->present == 0 && PORT_Random(2) == 0) {
            CHECK(HASH_Insert(table, record->key, record) == 0);
            record->present = 1;
        } else {
            CHECK((HASH_Remove(table, record->key, record) != 0) == (record->present != 0));
            record->present = 0;
        }
        if (step % 500 == 0) {
            CheckWalk(table);
        }
    }
    HASH_Fini(table);
}

static void AgreesWithAModelWithOneBucket(void)
{
    RunRandomOperations(1);
}

static void AgreesWithAModelWithSevenBuckets(void)
{
    RunRandomOperations(7);
}

static void AgreesWithAModelWith512Buckets(void)
{
    RunRandomOperations(512);
}

static void InsertAll(HASH_HANDLE table)
{
    for (uint32_t i = 0; i < RECORDS; ++i) {
        CHECK(HASH_Insert(table, g_records[i].key, &g_records[i]) == 0);
        g_records[i].present = 1;
    }
}

static void FreeAllGivesEveryRecordOnceAndLeavesTheTableUsable(void)
{
    Prepare();
    const HASH_HANDLE table = HASH_Init(16, Free);
    NEED(table != 0);
    InsertAll(table);
    CHECK(HASH_FreeAll(table) == 0);
    CHECK(g_freed == RECORDS);
    CHECK(HASH_GetFirst(table) == NULL);
    InsertAll(table);
    HASH_Fini(table);
    CHECK(g_freed == 2 * RECORDS);
}

static void RecordsMayBeRemovedDuringAWalkThatHasTheNextOne(void)
{
    Prepare();
    const HASH_HANDLE table = HASH_Init(16, NULL);
    NEED(table != 0);
    InsertAll(table);
    uint32_t removed = 0;
    for (RECORD_S *record = (RECORD_S *)HASH_GetFirst(table); record != NULL && removed < RECORDS;
         ++removed) {
        RECORD_S *next = (RECORD_S *)HASH_GetNext(table, record->key, record);
        CHECK(HASH_Remove(table, record->key, record) != 0);
        record = next;
    }
    CHECK(removed == RECORDS);
    CHECK(HASH_GetFirst(table) == NULL);
    HASH_Fini(table);
}

static void NoTableIsEmptyAndRefusesRecords(void)
{
    Prepare();
    CHECK(HASH_Init(0, NULL) == 0);
    CHECK(HASH_Insert(0, 1, &g_records[0]) != 0);
    CHECK(HASH_Remove(0, 1, &g_records[0]) == 0);
    CHECK(HASH_Get(0, 1, &g_records[0].key, CompareKey) == NULL);
    CHECK(HASH_GetFirst(0) == NULL);
    CHECK(HASH_GetNext(0, 1, &g_records[0]) == NULL);
    (void)HASH_FreeAll(0);
    HASH_Fini(0);
}

static void NullIsRefused(void)
{
    const HASH_HANDLE table = HASH_Init(4, NULL);
    NEED(table != 0);
    CHECK(HASH_Insert(table, 1, NULL) != 0);
    CHECK(HASH_GetFirst(table) == NULL);
    HASH_Fini(table);
}

const char *const PORT_SERVICE = "hash tables";
const PORT_CASE_S PORT_CASES[] = {
    {"agrees with a model with one bucket", AgreesWithAModelWithOneBucket},
    {"agrees with a model with seven buckets", AgreesWithAModelWithSevenBuckets},
    {"agrees with a model with 512 buckets", AgreesWithAModelWith512Buckets},
    {"freeing all gives every record once and leaves the table usable",
     FreeAllGivesEveryRecordOnceAndLeavesTheTableUsable},
    {"records may be removed during a walk that has the next one",
     RecordsMayBeRemovedDuringAWalkThatHasTheNextOne},
    {"the handle 0 is empty and refuses records", NoTableIsEmptyAndRefusesRecords},
    {"NULL is refused", NullIsRefused},
};
const size_t PORT_CASE_COUNT = sizeof(PORT_CASES) / sizeof(PORT_CASES[0]);
