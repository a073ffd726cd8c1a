/* Ordered containers, against a plain array of what must be in the tree. */
#include <stdlib.h>
#include <string.h>

#include "check.h"
#include "mcast/platform/avl.h"

#define KEYS 300u
#define MAGIC 0x5ec04dedu

/* Two records of every key, so that an insertion meets an equal one. */
typedef struct RECORD_S {
    AVL_NODE_S node;
    uint32_t magic;
    uint32_t key;
    uint32_t times_freed;
} RECORD_S;

static RECORD_S g_records[2 * KEYS];
static RECORD_S *g_present[KEYS];
static uint32_t g_freed;

/* Differences are scaled so that nothing but the sign can be relied on. */
static int32_t Order(uint32_t first, uint32_t second)
{
    return first < second ? -1000 : first > second ? 77 : 0;
}

static int32_t CompareRecords(const void *first, const void *second)
{
    const RECORD_S *a = (const RECORD_S *)first;
    const RECORD_S *b = (const RECORD_S *)second;
    CHECK(a->magic == MAGIC && b->magic == MAGIC);
    return Order(a->key, b->key);
}

static int32_t CompareKey(const void *record, const void *key)
{
    const RECORD_S *a = (const RECORD_S *)record;
    CHECK(a->magic == MAGIC); /* the record comes first, the bare key second */
    return Order(a->key, *(const uint32_t *)key);
}

static void Free(void *record)
{
    RECORD_S *freed = (RECORD_S *)record;
    CHECK(freed->magic == MAGIC);
    ++freed->times_freed;
    ++g_freed;
    memset(&freed->node, 0xdd, sizeof(freed->node)); /* what is given back may be used again at once */
    freed->magic = 0;
}

static void Prepare(void)
{
    memset(g_records, 0xa5,
           sizeof(g_records)); /* what a node header holds before insertion does not matter */
    memset(g_present, 0, sizeof(g_present));
    g_freed = 0;
    for (uint32_t i = 0; i < 2 * KEYS; ++i) {
        g_records[i].magic = MAGIC;
        g_records[i].key = i % KEYS;
        g_records[i].times_freed = 0;
    }
}

static RECORD_S *PresentFrom(uint32_t key)
{
    while (key < KEYS && g_present[key] == NULL) {
        ++key;
    }
    return key < KEYS ? g_present[key] : NULL;
}

static RECORD_S *PresentBelow(uint32_t key)
{
    key = key > KEYS ? KEYS : key;
    while (key > 0 && g_present[key - 1] == NULL) {
        --key;
    }
    return key > 0 ? g_present[key - 1] : NULL;
}

static void CheckWalk(AVL_HANDLE tree)
{
    uint32_t count = 0;
    void *record = AVL_GetLeftMost(tree);
    CHECK(record == PresentFrom(0));
    while (record != NULL && !PORT_CaseFailed()) {
        RECORD_S *expected = PresentFrom(((RECORD_S *)record)->key + 1);
        ++count;
        record = AVL_GetNext(tree, record);
        CHECK(record == expected);
    }
    CHECK(AVL_Count(tree) == count);
}

static void Step(AVL_HANDLE tree)
{
    RECORD_S *record = &g_records[PORT_Random(2 * KEYS)];
    RECORD_S *there = g_present[record->key];
    RECORD_S probe;
    memset(&probe, 0xa5, sizeof(probe));
    probe.magic = MAGIC;
    probe.key = PORT_Random(KEYS + 2);
    switch (PORT_Random(4)) {
    case 0:
        CHECK((AVL_Insert(tree, record) == 0) == (there == NULL));
        g_present[record->key] = there == NULL ? record : there;
        break;
    case 1:
        CHECK((AVL_Remove(tree, record) != 0) == (there == record));
        g_present[record->key] = there == record ? NULL : there;
        break;
    case 2:
        CHECK(AVL_Get(tree, &record->key, CompareKey) == there);
        break;
    default:
        CHECK(AVL_GetNext(tree, &probe) == PresentFrom(probe.key + 1));
        CHECK(AVL_GetPrev(tree, &probe) == PresentBelow(probe.key));
    }
}

static void AgreesWithAModelUnderRandomOperations(void)
{
    Prepare();
    const AVL_HANDLE tree = AVL_Init(CompareRecords, 0, NULL);
    NEED(tree != 0);
    for (int step = 0; step < 100000 && !PORT_CaseFailed(); ++step) {
        Step(tree);
        if (step % 1000 == 0) {
            CheckWalk(tree);
        }
    }
    AVL_Fini(tree);
}

static void InsertAll(AVL_HANDLE tree)
{
    for (uint32_t i = 0; i < KEYS; ++i) {
        CHECK(AVL_Insert(tree, &g_records[i * 7 % KEYS]) == 0);
    }
}

static void CheckEachFreedOnce(void)
{
    CHECK(g_freed == KEYS);
    for (uint32_t i = 0; i < KEYS; ++i) {
        CHECK(g_records[i].times_freed == 1);
    }
}

static void FreeAllGivesEveryRecordOnceAndLeavesTheTreeUsable(void)
{
    Prepare();
    const AVL_HANDLE tree = AVL_Init(CompareRecords, 0, Free);
    NEED(tree != 0);
    InsertAll(tree);
    CHECK(AVL_FreeAll(tree) == 0);
    CheckEachFreedOnce();
    CHECK(AVL_Count(tree) == 0);
    CHECK(AVL_GetLeftMost(tree) == NULL);
    CHECK(AVL_FreeAll(tree) == 0);
    Prepare();
    InsertAll(tree);
    CHECK(AVL_Count(tree) == KEYS);
    AVL_Fini(tree);
    CheckEachFreedOnce();
}

static void FreeAllWithoutAFreeFunctionForgetsTheRecords(void)
{
    Prepare();
    const AVL_HANDLE tree = AVL_Init(CompareRecords, 0, NULL);
    NEED(tree != 0);
    InsertAll(tree);
    CHECK(AVL_FreeAll(tree) == 0);
    CHECK(AVL_Count(tree) == 0);
    InsertAll(tree);
    AVL_Fini(tree);
    CHECK(g_freed == 0);
}

static void RecordOfAnotherTreeIsNotRemoved(void)
{
    Prepare();
    const AVL_HANDLE first = AVL_Init(CompareRecords, 0, NULL);
    const AVL_HANDLE second = AVL_Init(CompareRecords, 0, NULL);
    RECORD_S *one = &g_records[3];
    RECORD_S *equal = &g_records[3 + KEYS];
    NEED(first != 0 && second != 0);
    CHECK(AVL_Insert(first, one) == 0);
    CHECK(AVL_Remove(second, one) == 0);
    CHECK(AVL_Insert(second, equal) == 0);
    CHECK(AVL_Remove(second, one) == 0);
    CHECK(AVL_Remove(first, one) != 0);
    CHECK(AVL_Remove(first, one) == 0);
    CHECK(AVL_Count(first) == 0);
    CHECK(AVL_Count(second) == 1);
    AVL_Fini(first);
    AVL_Fini(second);
}

static void NoTreeIsEmptyAndRefusesRecords(void)
{
    Prepare();
    CHECK(AVL_Insert(0, &g_records[0]) != 0);
    CHECK(AVL_Remove(0, &g_records[0]) == 0);
    CHECK(AVL_Get(0, &g_records[0].key, CompareKey) == NULL);
    CHECK(AVL_GetLeftMost(0) == NULL);
    CHECK(AVL_GetNext(0, &g_records[0]) == NULL);
    CHECK(AVL_GetPrev(0, &g_records[0]) == NULL);
    CHECK(AVL_Count(0) == 0);
    (void)AVL_FreeAll(0);
    AVL_Fini(0);
}

static void NullIsRefused(void)
{
    const AVL_HANDLE tree = AVL_Init(CompareRecords, 0, NULL);
    NEED(tree != 0);
    CHECK(AVL_Insert(tree, NULL) != 0);
    CHECK(AVL_Count(tree) == 0);
    AVL_Fini(tree);
}

static void HoldsAHundredThousandRecords(void)
{
    const uint32_t count = 100000;
    const AVL_HANDLE tree = AVL_Init(CompareRecords, 0, NULL);
    NEED(tree != 0);
    RECORD_S *records = (RECORD_S *)calloc(count, sizeof(*records));
    NEED(records != NULL);
    for (uint32_t i = 0; i < count; ++i) {
        records[i].magic = MAGIC;
        records[i].key = i; /* ascending: a tree that does not balance takes very long */
        CHECK(AVL_Insert(tree, &records[i]) == 0);
    }
    CHECK(AVL_Count(tree) == count);
    for (uint32_t i = 0; i < count; ++i) {
        CHECK(AVL_Get(tree, &records[i].key, CompareKey) == &records[i]);
        CHECK(AVL_Remove(tree, &records[i]) != 0);
    }
    CHECK(AVL_Count(tree) == 0);
    AVL_Fini(tree);
    free(records);
}

const char *const PORT_SERVICE = "ordered containers";
const PORT_CASE_S PORT_CASES[] = {
    {"agrees with a model under random operations", AgreesWithAModelUnderRandomOperations},
    {"freeing all gives every record once and leaves the tree usable",
     FreeAllGivesEveryRecordOnceAndLeavesTheTreeUsable},
    {"freeing all without a free function forgets the records", FreeAllWithoutAFreeFunctionForgetsTheRecords},
    {"a record of another tree is not removed", RecordOfAnotherTreeIsNotRemoved},
    {"the handle 0 is empty and refuses records", NoTreeIsEmptyAndRefusesRecords},
    {"NULL is refused", NullIsRefused},
    {"holds a hundred thousand records", HoldsAHundredThousandRecords},
};
const size_t PORT_CASE_COUNT = sizeof(PORT_CASES) / sizeof(PORT_CASES[0]);
