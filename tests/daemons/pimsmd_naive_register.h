/*
 * What RFC 7761 says of Registers and of the switch to source trees (sections 4.2, 4.2.1 and 4.4), step by step as it says it,
 * to hold the daemon's trees against. Times of the register machine are those of a router whose random draws are the middle.
 */
#ifndef TESTS_DAEMONS_PIMSMD_NAIVE_REGISTER_H
#define TESTS_DAEMONS_PIMSMD_NAIVE_REGISTER_H

#include "tests/daemons/pimsmd_naive_sets.h"

namespace pimsmd_test
{

constexpr uint64_t KEEPALIVE_PERIOD = 210000;
constexpr uint64_t RP_KEEPALIVE_PERIOD = 3 * 60000 + 5000;
constexpr uint64_t SUPPRESSION = 60000 - 5000;
constexpr uint64_t PROBE = 5000;

// Of one source at its designated router.
class NaiveRegister
{
public:
    void could(bool could)
    {
        if (!could) {
            state_ = State::NoInfo;
        } else if (state_ == State::NoInfo) {
            state_ = State::Join;
        }
    }
    void stop(uint64_t now)
    {
        if (state_ == State::Join || state_ == State::JoinPending) {
            state_ = State::Prune;
            due_ = now + SUPPRESSION;
        }
    }
    // Time went on to now at once.
    void pass(uint64_t now)
    {
        if (state_ == State::Prune && due_ <= now) {
            state_ = State::JoinPending;
            due_ = now + PROBE;
            ++nulls_;
        } else if (state_ == State::JoinPending && due_ <= now) {
            state_ = State::Join;
        }
    }
    bool registers() const
    {
        return state_ == State::Join;
    }
    unsigned nulls() const
    {
        return nulls_;
    }

private:
    enum class State { NoInfo, Join, JoinPending, Prune };

    State state_ = State::NoInfo;
    uint64_t due_ = 0;
    unsigned nulls_ = 0;
};

// pim_include(*,G) (-) pim_exclude(S,G) (+) pim_include(S,G) is not empty.
inline bool has_hosts(const Model &m)
{
    return !(m.include_star() - m.exclude() + m.include_source()).empty();
}

// What an event does with the keepalive timer: nothing, or it starts with the period.
using Keepalive = std::optional<uint64_t>;

// A packet comes in. joined is the state of the (S,G) upstream machine before it, spt_bit the bit after it was updated.
inline Keepalive on_packet(const Model &m, int iif, bool joined, bool spt_bit, bool switches)
{
    Keepalive started;
    if (m.connected && m.rpf_source == iif) {
        started = KEEPALIVE_PERIOD;
    }
    if (m.rpf_source == iif && joined && !inherited_source(m).empty()) {
        started = KEEPALIVE_PERIOD;
    }
    if (!(m.rpf_source == iif && spt_bit) && m.rpf_rp == iif && !spt_bit && has_hosts(m) && switches) {
        started = KEEPALIVE_PERIOD;
    }
    return started;
}

struct OnRegister {
    bool stop = false;
    bool forward = false;
    Keepalive started;
};

// A Register comes to an address of this router.
inline OnRegister on_register(const Model &m, bool to_rp, bool switches, bool null)
{
    OnRegister done;
    if (!to_rp) {
        done.stop = true;
        return done;
    }
    if (m.spt_bit || (switches && inherited_source(m).empty())) {
        done.stop = true;
    }
    if (m.spt_bit || switches) {
        done.started = done.stop ? RP_KEEPALIVE_PERIOD : KEEPALIVE_PERIOD;
    }
    if (!m.spt_bit && !null) {
        done.forward = true;
        if (has_hosts(m) && switches) {
            done.started = KEEPALIVE_PERIOD;
        }
    }
    return done;
}

} // namespace pimsmd_test

#endif
