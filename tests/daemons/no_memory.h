/*
 * Times without memory: while an object lives, every allocation of the process fails, by malloc and by new,
 * in the daemons' code as in the library's. Linked into programs whose code must work then.
 */
#ifndef TESTS_DAEMONS_NO_MEMORY_H
#define TESTS_DAEMONS_NO_MEMORY_H

namespace no_memory
{

// Whether allocations can be made to fail: a sanitizer has allocation functions of its own.
#ifdef MCAST_SANITIZED
constexpr bool AVAILABLE = false;
#else
constexpr bool AVAILABLE = true;
#endif

class Period
{
public:
    // The first allocations of the period still succeed.
    explicit Period(unsigned long first = 0);
    ~Period();
    Period(const Period &) = delete;
    Period &operator=(const Period &) = delete;

    // How many allocations failed so far.
    unsigned long failures() const;
};

} // namespace no_memory

// Ends a test as skipped where allocations cannot be made to fail.
#define NEEDS_FAILING_ALLOCATIONS()                                                                          \
    if (!no_memory::AVAILABLE) {                                                                             \
        GTEST_SKIP() << "the sanitizer has allocation functions of its own";                                 \
    }

#endif
