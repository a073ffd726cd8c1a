#include "tests/simulation/kernel/memory.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace sim
{

Account *g_account;
Account g_loading_account;

Account::Account() : list_{&list_, &list_, nullptr, 0}
{
}

Account::~Account()
{
    if (this != &g_loading_account) {
        reset();
    }
}

bool Account::is_refused(size_t size)
{
    ++taken_;
    if (observer) {
        const OwnMemory own;
        observer(taken_);
    }
    const bool chosen = skip == 0 && refuse != 0;
    refuse -= chosen;
    skip -= skip != 0;
    const bool refused = chosen || size > byte_limit - std::min(bytes_, byte_limit);
    refused_ += refused;
    return refused;
}

void *Account::take(size_t size)
{
    if (is_refused(size)) {
        errno = ENOMEM;
        return nullptr;
    }
    auto *block = static_cast<Block *>(std::malloc(sizeof(Block) + size));
    if (block == nullptr) {
        abort();
    }
    *block = {&list_, list_.next, this, size};
    list_.next->previous = block;
    list_.next = block;
    ++blocks_;
    bytes_ += size;
    return block + 1;
}

void Account::give(Block *block)
{
    block->previous->next = block->next;
    block->next->previous = block->previous;
    --blocks_;
    bytes_ -= block->size;
    std::free(block);
}

void Account::visit(const std::function<void(const void *memory, size_t size)> &visitor) const
{
    for (const Block *block = list_.next; block != &list_; block = block->next) {
        visitor(block + 1, block->size);
    }
}

void Account::reset()
{
    while (list_.next != &list_) {
        give(list_.next);
    }
    taken_ = refused_ = 0;
    new_handler = nullptr;
}

namespace
{

void *take(size_t size)
{
    if (g_account != nullptr) {
        return g_account->take(size);
    }
    auto *block = static_cast<Block *>(std::malloc(sizeof(Block) + size));
    if (block == nullptr) {
        return nullptr;
    }
    *block = {nullptr, nullptr, nullptr, size};
    return block + 1;
}

void give(void *memory)
{
    if (memory == nullptr) {
        return;
    }
    Block *block = static_cast<Block *>(memory) - 1;
    if (block->account == &g_loading_account) {
        return;
    }
    if (block->account != nullptr) {
        block->account->give(block);
    } else {
        std::free(block);
    }
}

// What operator new does, with the handler of the daemon that runs.
void *take_or_throw(size_t size)
{
    for (;;) {
        if (void *memory = take(size == 0 ? 1 : size)) {
            return memory;
        }
        void (*handler)() = g_account != nullptr ? g_account->new_handler : nullptr;
        if (handler == nullptr) {
            throw std::bad_alloc();
        }
        handler();
    }
}

void *take_or_null(size_t size) noexcept
{
    try {
        return take_or_throw(size);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

} // namespace

} // namespace sim

void *operator new(size_t size)
{
    return sim::take_or_throw(size);
}
void *operator new[](size_t size)
{
    return sim::take_or_throw(size);
}
void *operator new(size_t size, const std::nothrow_t &) noexcept
{
    return sim::take_or_null(size);
}
void *operator new[](size_t size, const std::nothrow_t &) noexcept
{
    return sim::take_or_null(size);
}
void operator delete(void *memory) noexcept
{
    sim::give(memory);
}
void operator delete[](void *memory) noexcept
{
    sim::give(memory);
}
void operator delete(void *memory, size_t) noexcept
{
    sim::give(memory);
}
void operator delete[](void *memory, size_t) noexcept
{
    sim::give(memory);
}

extern "C" {

void *__wrap_malloc(size_t size)
{
    return sim::take(size);
}

void *__wrap_calloc(size_t count, size_t size)
{
    void *memory = sim::take(count * size);
    if (memory != nullptr) {
        memset(memory, 0, count * size);
    }
    return memory;
}

void *__wrap_realloc(void *old, size_t size)
{
    void *memory = sim::take(size);
    if (memory != nullptr && old != nullptr) {
        memcpy(memory, old, std::min(size, (static_cast<sim::Block *>(old) - 1)->size));
        sim::give(old);
    }
    return memory;
}

void __wrap_free(void *memory)
{
    sim::give(memory);
}

void (*__wrap__ZSt15set_new_handlerPFvvE(void (*handler)()))()
{
    return std::exchange(sim::g_account->new_handler, handler);
}

void (*__wrap__ZSt15get_new_handlerv())()
{
    return sim::g_account->new_handler;
}

} // extern "C"
