/*
 * What a run leaves behind: a hash of everything that happened, so that two runs can be compared by one number;
 * the first rule that was broken; and the log lines of the daemons.
 */
#ifndef TESTS_SIMULATION_KERNEL_TRACE_H
#define TESTS_SIMULATION_KERNEL_TRACE_H

#include <cstdint>
#include <string>
#include <string_view>

#include "tests/simulation/kernel/basics.h"

namespace sim
{

// The rules that must hold; docs/testing.md says what each means.
enum class Rule : uint8_t {
    None = 0,
    Forwarding = 1,     // at rest the kernel forwards what hosts want, and nothing else
    Tables = 2,         // at rest the daemons' tables are what hosts want
    Roles = 3,          // at rest there is one querier, one forwarder, one active daemon
    Unwanted = 4,       // packets that nobody wants end in time
    Missed = 5,         // packets that somebody wants arrive, once
    KernelContract = 6, // no call that the kernel refuses for a fault of the caller
    Limits = 7,         // tables and memory stay within their limits
    Counters = 8,       // counters never fall and add up
    CleanEnd = 9,       // a daemon ends for a reason, and leaves nothing behind
};

class Trace
{
public:
    void note(uint64_t value)
    {
        hash_ = (hash_ ^ value) * 1099511628211u;
    }
    void note(std::string_view text)
    {
        for (const char c : text) {
            note(static_cast<uint8_t>(c));
        }
    }
    uint64_t hash() const
    {
        return hash_;
    }

    // Only the first counts: what follows may be its consequence.
    void broken(Rule rule, Ns when, const std::string &what);
    bool is_good() const
    {
        return rule_ == Rule::None;
    }
    Rule rule() const
    {
        return rule_;
    }
    const std::string &what() const
    {
        return what_;
    }
    Ns when() const
    {
        return when_;
    }

private:
    uint64_t hash_ = 14695981039346656037u;
    Rule rule_ = Rule::None;
    std::string what_;
    Ns when_ = 0;
};

} // namespace sim

#endif
