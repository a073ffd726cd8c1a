/*
 * Whose memory is whose. Every block that a daemon takes, by operator new or by malloc, is on that daemon's
 * account: counted, refused on demand, and dropped when it crashes. What the simulation itself takes is on
 * nobody's.
 *
 *     block:  | account, neighbours, size | what the daemon sees ... |
 */
#ifndef TESTS_SIMULATION_KERNEL_MEMORY_H
#define TESTS_SIMULATION_KERNEL_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <functional>

namespace sim
{

struct Account;

struct alignas(16) Block {
    Block *previous;
    Block *next;
    Account *account;
    size_t size;
};

struct Account {
    Account();
    ~Account();
    Account(const Account &) = delete;
    Account &operator=(const Account &) = delete;

    // The next skip allocations are granted, then as many refused.
    uint64_t skip = 0;
    uint64_t refuse = 0;
    size_t byte_limit = SIZE_MAX; // as ulimit -v
    void (*new_handler)() = nullptr;
    // Told of each allocation's ordinal, before it is made; for the sweeps, which note who asks.
    std::function<void(uint64_t ordinal)> observer;

    uint64_t taken() const
    {
        return taken_;
    }
    uint64_t refused() const
    {
        return refused_;
    }
    size_t live_blocks() const
    {
        return blocks_;
    }
    size_t live_bytes() const
    {
        return bytes_;
    }
    void visit(const std::function<void(const void *memory, size_t size)> &visitor) const;

    // Frees everything, and begins to count anew.
    void reset();

    void *take(size_t size);
    void give(Block *block);

private:
    bool is_refused(size_t size);

    Block list_;
    uint64_t taken_ = 0;
    uint64_t refused_ = 0;
    size_t blocks_ = 0;
    size_t bytes_ = 0;
};

// The account of what images take while they are loaded, by the constructors of their globals: it is never given
// back, for the next life finds the globals as they were then.
extern Account g_loading_account;

// The account of whoever runs; nullptr for the simulation itself.
extern Account *g_account;

// Within its life what is taken is the simulation's own.
class OwnMemory
{
public:
    OwnMemory() : account_(g_account)
    {
        g_account = nullptr;
    }
    ~OwnMemory()
    {
        g_account = account_;
    }
    OwnMemory(const OwnMemory &) = delete;
    OwnMemory &operator=(const OwnMemory &) = delete;

private:
    Account *account_;
};

} // namespace sim

#endif
