/*
 * Random numbers that depend on what they are for, not on what was drawn before: each is a function of the
 * seed, the stream (what kind of thing is decided), the entity that it is decided for, and how often that was
 * decided for that entity already. So an action that is taken out of a script leaves the draws of others as they
 * were, and the script that is left breaks in the same way.
 *
 * Never two draws in one expression: compilers differ in the order in which they evaluate it.
 */
#ifndef TESTS_SIMULATION_KERNEL_DRAW_H
#define TESTS_SIMULATION_KERNEL_DRAW_H

#include <cstdint>
#include <map>
#include <utility>

namespace sim
{

enum class Stream : uint8_t { Script, Delivery, Host, Scheduler, Fault, Process, Tcp };

class Draw
{
public:
    explicit Draw(uint64_t seed) : seed_(seed)
    {
    }

    uint64_t number(Stream stream, uint64_t entity)
    {
        const uint64_t ordinal = ordinals_[{stream, entity}]++;
        return mix(mix(mix(seed_ ^ static_cast<uint64_t>(stream)) ^ entity) ^ ordinal);
    }
    // From 0 to limit - 1; 0 when limit is 0.
    uint64_t below(Stream stream, uint64_t entity, uint64_t limit)
    {
        return limit == 0 ? 0 : number(stream, entity) % limit;
    }
    bool chance(Stream stream, uint64_t entity, double probability)
    {
        return probability > 0 && static_cast<double>(number(stream, entity) >> 11) * 0x1.0p-53 < probability;
    }

private:
    static uint64_t mix(uint64_t value)
    {
        value += 0x9e3779b97f4a7c15;
        value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9;
        value = (value ^ (value >> 27)) * 0x94d049bb133111eb;
        return value ^ (value >> 31);
    }

    uint64_t seed_;
    std::map<std::pair<Stream, uint64_t>, uint64_t> ordinals_;
};

} // namespace sim

#endif
