/* Random bytes. A good source fails one of these with a chance of less than one in 2 to the power of 100. */
#include <string.h>

#include "check.h"
#include "mcast/platform/random.h"

#define GUARD 0x5a

static uint8_t g_bytes[4096 + 8];

static void FillsExactlyTheLengthAsked(void)
{
    const int lengths[] = {1, 2, 3, 4, 5, 64, 256, 257, 4096};
    for (size_t i = 0; i < sizeof(lengths) / sizeof(lengths[0]); ++i) {
        memset(g_bytes, GUARD, sizeof(g_bytes));
        CHECK(FIPS_rand_bytes(g_bytes, lengths[i]) == 1);
        for (size_t guard = 0; guard < 8; ++guard) {
            CHECK(g_bytes[(size_t)lengths[i] + guard] == GUARD);
        }
    }
}

static void LeavesNoPartAsItWas(void)
{
    static uint8_t touched[64];
    memset(touched, 0, sizeof(touched));
    for (int draw = 0; draw < 64; ++draw) {
        memset(g_bytes, GUARD, 64);
        CHECK(FIPS_rand_bytes(g_bytes, 64) == 1);
        for (size_t i = 0; i < 64; ++i) {
            touched[i] |= g_bytes[i] != GUARD;
        }
    }
    for (size_t i = 0; i < 64; ++i) {
        CHECK(touched[i] == 1);
    }
}

/* As the library draws: four bytes at a time. */
static void DrawsDiffer(void)
{
    uint32_t first = 0;
    uint32_t different = 0;
    CHECK(FIPS_rand_bytes((uint8_t *)&first, 4) == 1);
    for (int draw = 0; draw < 64; ++draw) {
        uint32_t value = first;
        CHECK(FIPS_rand_bytes((uint8_t *)&value, 4) == 1);
        different += value != first;
    }
    CHECK(different >= 60);
}

const char *const PORT_SERVICE = "random bytes";
const PORT_CASE_S PORT_CASES[] = {
    {"fills exactly the length asked", FillsExactlyTheLengthAsked},
    {"leaves no part as it was", LeavesNoPartAsItWas},
    {"draws differ", DrawsDiffer},
};
const size_t PORT_CASE_COUNT = sizeof(PORT_CASES) / sizeof(PORT_CASES[0]);
