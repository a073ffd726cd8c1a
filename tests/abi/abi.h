/*
 * Checks for programs that prove record layouts from plain C: each prints what differs, and the program ends
 * with ABI_RESULT().
 */
#ifndef TESTS_ABI_ABI_H
#define TESTS_ABI_ABI_H

#include <stddef.h>
#include <stdio.h>

#include "all_public_headers.h"

static int g_abi_faults;

static inline void abi_check(const char *what, size_t actual, size_t expected)
{
    if (actual != expected) {
        printf("%s is %zu, not %zu\n", what, actual, expected);
        ++g_abi_faults;
    }
}

#define ABI_SIZE(record, size) abi_check("size of " #record, sizeof(record), (size))
#define ABI_AT(record, field, offset)                                                                        \
    abi_check("offset of " #record "." #field, offsetof(record, field), (offset))
#define ABI_RESULT() (g_abi_faults == 0 ? 0 : 1)

#endif
