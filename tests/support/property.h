/*
 * Random runs: where they start and how long they are. MCAST_PROPERTY_SEED repeats a run; MCAST_PROPERTY_OPS
 * sets the number of operations of every property test.
 */
#ifndef TESTS_SUPPORT_PROPERTY_H
#define TESTS_SUPPORT_PROPERTY_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>

namespace property
{

/* The seed of this run, printed once a call with the name of what it seeds. */
inline uint64_t Seed(const char *name)
{
    const char *chosen = getenv("MCAST_PROPERTY_SEED");
    const uint64_t seed = chosen != nullptr ? strtoull(chosen, nullptr, 0) : std::random_device{}();
    printf("%s: MCAST_PROPERTY_SEED=%llu\n", name, static_cast<unsigned long long>(seed));
    return seed;
}

/* The number of operations to run: the default unless the environment says otherwise. */
inline uint64_t Operations(uint64_t otherwise)
{
    const char *chosen = getenv("MCAST_PROPERTY_OPS");
    return chosen != nullptr ? strtoull(chosen, nullptr, 0) : otherwise;
}

/* Cheap uniform numbers below a bound. */
class Random
{
public:
    explicit Random(uint64_t seed) : engine(seed)
    {
    }

    uint32_t Below(uint32_t bound)
    {
        return static_cast<uint32_t>((engine() >> 32) % bound);
    }

    /* True once in n times. */
    bool OneIn(uint32_t n)
    {
        return Below(n) == 0;
    }

private:
    std::mt19937_64 engine;
};

} // namespace property

#endif
