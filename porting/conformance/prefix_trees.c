/* Prefix trees, against their definitions applied to a list of all ranges. */
#include <string.h>

#include "check.h"
#include "mcast/platform/prefix_tree.h"

#define RECORDS 150u

static RDX_NODE_S g_records[RECORDS];
static int g_linked[RECORDS];
static uint32_t g_bits; /* of an address of the family that is tried */
static const RDX_AFI_CB_S *g_operations;
static uint32_t g_released;

static uint32_t Length(const RDX_PREFIX_S *prefix)
{
    return prefix->length < g_bits ? prefix->length : g_bits;
}

static int Bit(const RDX_PREFIX_S *prefix, uint32_t bit)
{
    return (prefix->address[bit / 8] & (0x80 >> bit % 8)) != 0;
}

static int Contains(const RDX_PREFIX_S *range, const RDX_PREFIX_S *prefix)
{
    for (uint32_t bit = 0; bit < Length(range); ++bit) {
        if (bit >= Length(prefix) || Bit(range, bit) != Bit(prefix, bit)) {
            return 0;
        }
    }
    return 1;
}

/* By address with the bits past the length cleared, then by length. */
static int Before(const RDX_PREFIX_S *first, const RDX_PREFIX_S *second)
{
    for (uint32_t bit = 0; bit < g_bits; ++bit) {
        const int a = bit < Length(first) && Bit(first, bit);
        const int b = bit < Length(second) && Bit(second, bit);
        if (a != b) {
            return b;
        }
    }
    return Length(first) < Length(second);
}

/* Few distinct bits, so that ranges nest, coincide and differ past their lengths. */
static RDX_PREFIX_S RandomPrefix(void)
{
    RDX_PREFIX_S prefix;
    memset(&prefix, 0, sizeof(prefix));
    for (uint32_t i = 0; i < g_bits / 8; ++i) {
        prefix.address[i] = (uint8_t)(PORT_Random(2) == 0 ? 0u : 1u << PORT_Random(8));
    }
    prefix.length = PORT_Random(PORT_Random(3) == 0 ? g_bits + 9 : 18);
    return prefix;
}

static void InsertOrRemoveOne(RDX_TREE_S *tree)
{
    const uint32_t number = PORT_Random(RECORDS);
    RDX_NODE_S *record = &g_records[number];
    if (g_linked[number] != 0) {
        g_operations->remove(tree, record);
        g_linked[number] = 0;
        return;
    }
    memset(record, 0xa5, sizeof(*record)); /* what a node header holds before insertion does not matter */
    record->prefix = RandomPrefix();
    int equal = 0;
    for (uint32_t i = 0; i < RECORDS; ++i) {
        equal |= g_linked[i] != 0 && Contains(&g_records[i].prefix, &record->prefix) &&
                 Contains(&record->prefix, &g_records[i].prefix);
    }
    CHECK(g_operations->insert(tree, record) == (equal ? RDX_ERR_PRESENT : 0));
    g_linked[number] = !equal;
}

static void CheckQuestions(RDX_TREE_S *tree)
{
    const RDX_PREFIX_S asked = RandomPrefix();
    RDX_NODE_S *longest = NULL;
    uint32_t within = 0;
    uint32_t linked = 0;
    for (uint32_t i = 0; i < RECORDS; ++i) {
        RDX_NODE_S *each = &g_records[i];
        if (g_linked[i] == 0) {
            continue;
        }
        ++linked;
        within += (uint32_t)Contains(&asked, &each->prefix);
        if (Contains(&each->prefix, &asked) &&
            (longest == NULL || Length(&each->prefix) > Length(&longest->prefix))) {
            longest = each;
        }
    }
    CHECK(g_operations->count(tree) == linked);
    CHECK(g_operations->search(tree, &asked) == longest);
    uint32_t collected = 0;
    for (RDX_NODE_S *each = g_operations->collect(tree, &asked); each != NULL && collected <= RECORDS;
         each = each->collected) {
        CHECK(Contains(&asked, &each->prefix) && g_linked[each - g_records] != 0);
        ++collected;
    }
    CHECK(collected == within);
}

static void CheckWalk(const RDX_TREE_S *tree)
{
    uint32_t walked = 0;
    const RDX_NODE_S *previous = NULL;
    for (RDX_NODE_S *each = g_operations->first(tree); each != NULL && walked <= RECORDS;
         each = g_operations->next(tree, each)) {
        CHECK(previous == NULL || Before(&previous->prefix, &each->prefix));
        previous = each;
        ++walked;
    }
    CHECK(walked == g_operations->count(tree));
}

static void RunRandomOperations(void)
{
    RDX_TREE_S tree;
    memset(&tree, 0, sizeof(tree));
    memset(g_linked, 0, sizeof(g_linked));
    for (int step = 0; step < 10000 && !PORT_CaseFailed(); ++step) {
        InsertOrRemoveOne(&tree);
        CheckQuestions(&tree);
        if (step % 50 == 0) {
            CheckWalk(&tree);
        }
    }
    g_operations->destroy(&tree, NULL);
    CHECK(g_operations->first(&tree) == NULL);
}

static void RemoveWhatWasCollected(void)
{
    RDX_TREE_S tree;
    RDX_PREFIX_S half;
    memset(&tree, 0, sizeof(tree));
    memset(&half, 0, sizeof(half));
    memset(g_records, 0, sizeof(g_records));
    for (uint32_t i = 0; i < 64; ++i) {
        g_records[i].prefix.address[0] = (uint8_t)(i << 2);
        g_records[i].prefix.length = 6;
        CHECK(g_operations->insert(&tree, &g_records[i]) == 0);
    }
    half.length = 1;
    for (RDX_NODE_S *each = g_operations->collect(&tree, &half); each != NULL; each = each->collected) {
        g_operations->remove(&tree, each);
    }
    CHECK(g_operations->count(&tree) == 32);
    CHECK(g_operations->first(&tree) == &g_records[32]);
    CHECK(g_operations->collect(&tree, &half) == NULL);
    g_operations->destroy(&tree, NULL);
}

static void Release(RDX_NODE_S *node)
{
    ++g_released;
    memset(node, 0xdd, sizeof(*node)); /* what is given back may be used again at once */
}

static void DestroyAndUseAgain(void)
{
    RDX_TREE_S tree;
    memset(&tree, 0, sizeof(tree));
    memset(g_records, 0, sizeof(g_records));
    g_released = 0;
    g_operations->destroy(&tree, Release);
    CHECK(g_released == 0);
    for (uint32_t i = 0; i < RECORDS; ++i) {
        g_records[i].prefix.address[1] = (uint8_t)i;
        g_records[i].prefix.length = 24;
        CHECK(g_operations->insert(&tree, &g_records[i]) == 0);
    }
    g_operations->destroy(&tree, Release);
    CHECK(g_released == RECORDS);
    CHECK(g_operations->count(&tree) == 0);
    memset(&g_records[0], 0, sizeof(g_records[0]));
    CHECK(g_operations->insert(&tree, &g_records[0]) == 0);
    RDX_PREFIX_S any;
    memset(&any, 0x5a, sizeof(any));
    any.length = g_bits;
    CHECK(g_operations->search(&tree, &any) == &g_records[0]); /* the range of length 0 contains everything */
    g_operations->destroy(&tree, NULL);
}

static void InBothFamilies(void (*run)(void))
{
    g_bits = 32;
    g_operations = &g_astRdxAFICBArray[RDX_AFI_IPV4];
    run();
    g_bits = 128;
    g_operations = &g_astRdxAFICBArray[RDX_AFI_IPV6];
    run();
}

static void AgreesWithItsDefinitionsUnderRandomOperations(void)
{
    InBothFamilies(RunRandomOperations);
}

static void CollectedRecordsMayBeRemovedInTurn(void)
{
    InBothFamilies(RemoveWhatWasCollected);
}

static void DestroyReleasesEveryRecordOnceAndLeavesTheTreeUsable(void)
{
    InBothFamilies(DestroyAndUseAgain);
}

const char *const PORT_SERVICE = "prefix trees";
const PORT_CASE_S PORT_CASES[] = {
    {"agrees with its definitions under random operations", AgreesWithItsDefinitionsUnderRandomOperations},
    {"collected records may be removed in turn", CollectedRecordsMayBeRemovedInTurn},
    {"destroying releases every record once and leaves the tree usable",
     DestroyReleasesEveryRecordOnceAndLeavesTheTreeUsable},
};
const size_t PORT_CASE_COUNT = sizeof(PORT_CASES) / sizeof(PORT_CASES[0]);
