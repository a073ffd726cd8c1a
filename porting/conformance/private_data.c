/* Private data of interfaces, against a plain array of what must be stored. */
#include "check.h"
#include "mcast/platform/interface.h"

#define INDEXES 100u
#define STEP 0x01000001u /* so that indexes differ in all their bytes */

static char g_values[64];
static void *g_model[INDEXES];

static uint32_t PresentFrom(uint32_t position)
{
    while (position < INDEXES && g_model[position] == NULL) {
        ++position;
    }
    return position;
}

static void CheckNext(IF_INSTANCE instance, uint32_t position)
{
    const uint32_t next = PresentFrom(position + 1);
    uint32_t if_index = 7;
    void *data = &g_model;
    CHECK((IF_GetNextPrivateData(instance, position * STEP, &if_index, &data) == 0) == (next < INDEXES));
    CHECK(if_index == (next < INDEXES ? next * STEP : 7));
    CHECK(data == (next < INDEXES ? g_model[next] : (void *)&g_model));
}

static void Step(IF_INSTANCE instance)
{
    const uint32_t position = PORT_Random(INDEXES);
    void *value = &g_values[PORT_Random(sizeof(g_values))];
    void *data = &g_model;
    switch (PORT_Random(4)) {
    case 0:
        CHECK(IF_SetPrivateData(instance, position * STEP, value, 0) == 0);
        g_model[position] = value;
        break;
    case 1:
        CHECK((IF_DelPrivateData(instance, position * STEP, 0) == 0) == (g_model[position] != NULL));
        g_model[position] = NULL;
        break;
    case 2:
        CHECK((IF_GetPrivateData(instance, position * STEP, &data) == 0) == (g_model[position] != NULL));
        CHECK(data == (g_model[position] != NULL ? g_model[position] : (void *)&g_model));
        break;
    default:
        CheckNext(instance, position);
    }
}

static void AgreesWithAModelUnderRandomOperations(void)
{
    const IF_INSTANCE instance = IF_CreatePDInstance(2, 0);
    NEED(instance != IF_NO_INSTANCE);
    for (uint32_t i = 0; i < INDEXES; ++i) {
        g_model[i] = NULL;
    }
    for (int step = 0; step < 50000 && !PORT_CaseFailed(); ++step) {
        Step(instance);
    }
    uint32_t if_index = 7;
    void *data = &g_model;
    const uint32_t first = PresentFrom(0);
    CHECK((IF_GetFirstPrivateData(instance, &if_index, &data) == 0) == (first < INDEXES));
    CHECK(if_index == (first < INDEXES ? first * STEP : 7));
    CHECK(IF_DestroyPDInstance(instance) == 0);
}

static void InstancesAreApart(void)
{
    const IF_INSTANCE one = IF_CreatePDInstance(2, 0);
    const IF_INSTANCE other = IF_CreatePDInstance(2, 0);
    uint32_t if_index = 7;
    void *data = &g_model;
    NEED(one != IF_NO_INSTANCE && other != IF_NO_INSTANCE);
    CHECK(one != other);
    CHECK(IF_SetPrivateData(one, 5, &g_values[1], 0) == 0);
    CHECK(IF_GetPrivateData(other, 5, &data) != 0);
    CHECK(IF_GetFirstPrivateData(other, &if_index, &data) != 0);
    CHECK(data == &g_model && if_index == 7);
    CHECK(IF_SetPrivateData(other, 5, &g_values[2], 0) == 0);
    CHECK(IF_DestroyPDInstance(one) == 0);
    CHECK(IF_GetPrivateData(other, 5, &data) == 0);
    CHECK(data == &g_values[2]);
    CHECK(IF_DestroyPDInstance(other) == 0);
}

/* The library's own interfaces have indexes above 0xBFFFFFFF. */
static void EveryIndexMayBeUsed(void)
{
    const uint32_t indexes[] = {0, 1, 0x7fffffffu, 0x80000000u, 0xd0000007u, UINT32_MAX};
    const size_t count = sizeof(indexes) / sizeof(indexes[0]);
    const IF_INSTANCE instance = IF_CreatePDInstance(2, 0);
    NEED(instance != IF_NO_INSTANCE);
    for (size_t i = count; i > 0; --i) {
        CHECK(IF_SetPrivateData(instance, indexes[i - 1], &g_values[i], 0) == 0);
    }
    uint32_t if_index = 7;
    void *data = NULL;
    CHECK(IF_GetFirstPrivateData(instance, &if_index, &data) == 0);
    for (size_t i = 0; i < count && !PORT_CaseFailed(); ++i) {
        CHECK(if_index == indexes[i] && data == &g_values[i + 1]);
        CHECK((IF_GetNextPrivateData(instance, if_index, &if_index, &data) == 0) == (i + 1 < count));
    }
    CHECK(IF_DestroyPDInstance(instance) == 0);
}

static void NoInstanceIsRefused(void)
{
    uint32_t if_index = 7;
    void *data = &g_model;
    CHECK(IF_DestroyPDInstance(IF_NO_INSTANCE) != 0);
    CHECK(IF_SetPrivateData(IF_NO_INSTANCE, 1, g_values, 0) != 0);
    CHECK(IF_DelPrivateData(IF_NO_INSTANCE, 1, 0) != 0);
    CHECK(IF_GetPrivateData(IF_NO_INSTANCE, 1, &data) != 0);
    CHECK(IF_GetFirstPrivateData(IF_NO_INSTANCE, &if_index, &data) != 0);
    CHECK(IF_GetNextPrivateData(IF_NO_INSTANCE, 0, &if_index, &data) != 0);
    CHECK(if_index == 7 && data == &g_model);
}

const char *const PORT_SERVICE = "private data";
const PORT_CASE_S PORT_CASES[] = {
    {"agrees with a model under random operations", AgreesWithAModelUnderRandomOperations},
    {"instances are apart", InstancesAreApart},
    {"every index may be used", EveryIndexMayBeUsed},
    {"no instance is refused", NoInstanceIsRefused},
};
const size_t PORT_CASE_COUNT = sizeof(PORT_CASES) / sizeof(PORT_CASES[0]);
