/*
 * The reserve is blocks that lie in the heap, so that what they leave is found by any allocation. Growth is let
 * through without looking for so many bytes at a time; then headroom is looked for by taking and giving it back.
 * The limit may be the process's, its control group's or the machine's: nothing else tells all of them.
 */
#include "daemons/common/memory.h"

#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <malloc.h>
#include <mutex>

#include "daemons/common/log.h"

namespace mcastd
{
namespace
{

// Below what malloc maps one by one.
constexpr size_t BLOCK = size_t{64} * 1024;
constexpr size_t BLOCKS = MEMORY_RESERVE / BLOCK;

// Growth between two looks for headroom.
constexpr size_t LOOK_AFTER = size_t{128} * 1024;

// How long memory stays short at least.
constexpr uint64_t SHORT_MS = 250;

struct Memory {
    std::mutex mutex; // of the reserve, which other threads may be lent
    std::array<void *, BLOCKS> reserve{};
    std::atomic<bool> open = false;
    std::atomic<bool> whole = false; // the reserve is there
    std::atomic<uint64_t> lent = 0;
    bool is_short = false;
    size_t granted = 0; // since headroom was looked for
    uint64_t refusals = 0;
    uint64_t retry_at_ms = 0;
};

Memory g_memory;

uint64_t now_ms()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

// Whether that much is free beside the reserve.
bool has_room(size_t bytes)
{
    std::array<void *, MEMORY_RESERVE / BLOCK> taken{};
    size_t count = 0;
    while (count * BLOCK < bytes && (taken[count] = malloc(BLOCK)) != nullptr) {
        ++count;
    }
    const bool has = count * BLOCK >= bytes;
    while (count > 0) {
        free(taken[--count]);
    }
    return has;
}

bool fill_reserve()
{
    const std::lock_guard guard(g_memory.mutex);
    if (g_memory.whole) {
        return true;
    }
    for (void *&block : g_memory.reserve) {
        block = malloc(BLOCK);
        if (block == nullptr) {
            for (void *&taken : g_memory.reserve) {
                free(taken);
                taken = nullptr;
            }
            return false;
        }
        memset(block, 1, BLOCK); // or the machine would not have it when it is needed
    }
    g_memory.whole = true;
    return true;
}

void become_short()
{
    if (!g_memory.is_short) {
        g_memory.is_short = true;
        log_warning("memory is short: nothing new is kept until there is room again");
    }
    g_memory.retry_at_ms = now_ms() + SHORT_MS;
}

// Of operator new: it tries again when this returns.
void new_failed()
{
    if (!memory_lend()) {
        throw std::bad_alloc();
    }
}

void look_for_room()
{
    g_memory.retry_at_ms = now_ms() + SHORT_MS;
    malloc_trim(0);
    // More than growth needs, so that it is not short again at once.
    if (fill_reserve() && has_room(2 * MEMORY_HEADROOM)) {
        g_memory.is_short = false;
        g_memory.granted = 0;
        log_info("there is memory again");
    }
}

} // namespace

bool memory_open()
{
    std::set_new_handler(new_failed);
    g_memory.open = fill_reserve() && has_room(MEMORY_HEADROOM);
    return g_memory.open;
}

bool memory_is_short()
{
    return g_memory.is_short || (g_memory.open && !g_memory.whole);
}

bool memory_permits(size_t bytes)
{
    if (!g_memory.open) {
        return true;
    }
    g_memory.granted += bytes;
    if (g_memory.granted >= LOOK_AFTER) {
        g_memory.granted = 0;
        if (!has_room(MEMORY_HEADROOM)) {
            become_short();
        }
    }
    if (memory_is_short()) {
        ++g_memory.refusals;
        return false;
    }
    return true;
}

bool memory_lend()
{
    const std::lock_guard guard(g_memory.mutex);
    if (!g_memory.whole.exchange(false)) {
        return false;
    }
    for (void *&block : g_memory.reserve) {
        free(block);
        block = nullptr;
    }
    ++g_memory.lent;
    return true;
}

int memory_tend()
{
    if (!g_memory.open || !memory_is_short()) {
        return -1;
    }
    if (!g_memory.is_short) {
        become_short(); // the reserve was lent meanwhile
    } else if (now_ms() >= g_memory.retry_at_ms) {
        look_for_room();
    }
    return static_cast<int>(SHORT_MS);
}

uint64_t memory_refusals()
{
    return g_memory.refusals;
}

uint64_t memory_lent()
{
    return g_memory.lent;
}

void memory_refuse(const char *what)
{
    ++g_memory.refusals;
    if (g_memory.open) {
        become_short(); // so that rounds come, in which what was refused is done again
    }
    log_warning("%s is refused for lack of memory", what);
}

} // namespace mcastd
