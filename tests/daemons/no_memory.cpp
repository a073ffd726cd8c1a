#include "daemons/no_memory.h"

#include <cerrno>
#include <cstddef>

namespace
{

bool g_active = false;
unsigned long g_left = 0;
unsigned long g_failures = 0;

[[maybe_unused]] bool fails()
{
    if (!g_active) {
        return false;
    }
    if (g_left > 0) {
        --g_left;
        return false;
    }
    ++g_failures;
    errno = ENOMEM;
    return true;
}

} // namespace

namespace no_memory
{

Period::Period(unsigned long first)
{
    g_left = first;
    g_failures = 0;
    g_active = AVAILABLE;
}

Period::~Period()
{
    g_active = false;
}

unsigned long Period::failures() const
{
    return g_failures;
}

} // namespace no_memory

#ifndef MCAST_SANITIZED
// The program's definitions come before the C library's, for its own shared libraries too. What they take
// goes back to the C library's free.
extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);

void *malloc(size_t size)
{
    return fails() ? nullptr : __libc_malloc(size);
}

void *calloc(size_t count, size_t size)
{
    return fails() ? nullptr : __libc_calloc(count, size);
}

void *realloc(void *block, size_t size)
{
    return fails() ? nullptr : __libc_realloc(block, size);
}
}
#endif
