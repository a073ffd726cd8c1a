#include "support/fault.h"

#include <atomic>

extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *block, size_t size);
void __real_free(void *block);
void *__wrap_malloc(size_t size);
void *__wrap_calloc(size_t count, size_t size);
void *__wrap_realloc(void *block, size_t size);
void __wrap_free(void *block);
}

namespace
{

std::atomic<unsigned long> g_count{0};
std::atomic<unsigned long> g_failing{0};
std::atomic<long> g_live{0};

bool Fails()
{
    unsigned long count = ++g_count;
    unsigned long failing = g_failing;
    return failing != 0 && count == failing;
}

void *Taken(void *block)
{
    if (block != nullptr) {
        ++g_live;
    }
    return block;
}

} // namespace

void *__wrap_malloc(size_t size)
{
    return Fails() ? nullptr : Taken(__real_malloc(size));
}

void *__wrap_calloc(size_t count, size_t size)
{
    return Fails() ? nullptr : Taken(__real_calloc(count, size));
}

void *__wrap_realloc(void *block, size_t size)
{
    if (Fails()) {
        return nullptr;
    }
    return block == nullptr ? Taken(__real_realloc(block, size)) : __real_realloc(block, size);
}

void __wrap_free(void *block)
{
    if (block != nullptr) {
        --g_live;
    }
    __real_free(block);
}

namespace fault
{

void FailAllocation(unsigned long nth)
{
    g_failing = nth;
    g_count = 0;
}

unsigned long AllocationCount()
{
    return g_count;
}

bool Fired()
{
    return g_failing != 0 && g_count >= g_failing;
}

long LiveBlocks()
{
    return g_live;
}

} // namespace fault
