/*
 * The main function of every conformance program: runs its cases, one line each. 0 when all passed, 1 when one failed,
 * 77 when all were skipped. PORT_SEED in the environment repeats the random operations of an earlier run.
 */
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include "check.h"
#include "driver.h"

static int g_failures;
static const char *g_skipped;
static uint64_t g_random;

void PORT_Failed(const char *condition, const char *file, int line)
{
    if (++g_failures <= 5) {
        printf("    %s:%d: not so: %s\n", file, line, condition);
    }
}

void PORT_Skip(const char *reason)
{
    g_skipped = reason;
}

int PORT_CaseFailed(void)
{
    return g_failures != 0;
}

uint32_t PORT_Random(uint32_t bound)
{
    g_random ^= g_random << 13;
    g_random ^= g_random >> 7;
    g_random ^= g_random << 17;
    return (uint32_t)(g_random >> 16) % bound;
}

static void Seed(void)
{
    const char *given = getenv("PORT_SEED");
    g_random = given != NULL ? strtoull(given, NULL, 0) : (uint64_t)time(NULL);
    printf("%s: PORT_SEED=%llu\n", PORT_SERVICE, (unsigned long long)g_random);
    g_random = (g_random + 1) * 0x9E3779B97F4A7C15u | 1u;
}

int main(void)
{
    size_t failed = 0;
    size_t skipped = 0;
    setvbuf(stdout, NULL, _IOLBF, 0);
    Seed();
    if (PORT_Begin() != 0) {
        printf("%s: the driver could not start the platform\n", PORT_SERVICE);
        return 1;
    }
    for (size_t i = 0; i < PORT_CASE_COUNT; ++i) {
        g_failures = 0;
        g_skipped = NULL;
        PORT_CASES[i].run();
        if (g_failures != 0) {
            ++failed;
            printf("FAILED   %s (%d checks)\n", PORT_CASES[i].name, g_failures);
        } else if (g_skipped != NULL) {
            ++skipped;
            printf("skipped  %s: %s\n", PORT_CASES[i].name, g_skipped);
        } else {
            printf("passed   %s\n", PORT_CASES[i].name);
        }
    }
    PORT_End();
    printf("%s: %zu cases, %zu failed, %zu skipped\n", PORT_SERVICE, PORT_CASE_COUNT, failed, skipped);
    if (failed != 0) {
        return 1;
    }
    return skipped == PORT_CASE_COUNT ? 77 : 0;
}
