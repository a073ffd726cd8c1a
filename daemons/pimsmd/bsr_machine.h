/*
 * Which of several routers tells all others the RPs (RFC 5059, section 3.1): the machine of a router that would do it, and
 * that of one that only listens. There is one zone, the global one.
 *
 *      candidate                                        listener
 *
 *               timer             timer                             any Bootstrap
 *      Candidate ────► Pending ────────► Elected        AcceptAny ─────────────────► AcceptPreferred
 *          ▲              │                 │               ▲                              │
 *          └──────────────┴─────────────────┘               └──────────────────────────────┘
 *                 a preferred Bootstrap                                  timer
 *
 * A candidate begins in Pending, a listener in AcceptAny.
 */
#ifndef DAEMONS_PIMSMD_BSR_MACHINE_H
#define DAEMONS_PIMSMD_BSR_MACHINE_H

#include "daemons/pimsmd/address.h"
#include "daemons/pimsmd/machine.h"

namespace pimsmd::bsr
{

enum class Event : uint8_t {
    Preferred, // a Bootstrap of the elected BSR, or of one as good as it or better
    Other,     // one of a worse BSR
    GaveUp,    // one of the elected BSR, which is worse than it was
    TimerOver,
};
constexpr size_t EVENTS = 4;

enum Action : Actions {
    FORWARD = 1, // the Bootstrap, where it may be
    STORE = 2,   // what it says
    START_TIMEOUT = 4,
    START_OVERRIDE = 8,
    START_PERIOD = 16,
    ORIGINATE = 32, // a Bootstrap of one's own
};

constexpr Actions ACCEPT = FORWARD | STORE | START_TIMEOUT;

enum class CandidateState : uint8_t { Candidate, Pending, Elected };
constexpr size_t CANDIDATE_STATES = 3;
inline constexpr const char *CANDIDATE_NAMES[CANDIDATE_STATES] = {"Candidate", "Pending", "Elected"};

using CandidateTable = Machine<CandidateState, Event, CANDIDATE_STATES, EVENTS>;

// Columns as the events. Nobody but a Candidate's elected BSR is another router.
inline constexpr CandidateTable CANDIDATE_TABLE = {{
    // Candidate
    {stay<CandidateState>(ACCEPT), stay<CandidateState>(), go(CandidateState::Pending, START_OVERRIDE),
     go(CandidateState::Pending, START_OVERRIDE)},
    // Pending
    {go(CandidateState::Candidate, ACCEPT), stay<CandidateState>(), never<CandidateState>(),
     go(CandidateState::Elected, ORIGINATE | START_PERIOD)},
    // Elected
    {go(CandidateState::Candidate, ACCEPT), stay<CandidateState>(ORIGINATE | START_PERIOD),
     never<CandidateState>(), stay<CandidateState>(ORIGINATE | START_PERIOD)},
}};

enum class ListenerState : uint8_t { AcceptAny, AcceptPreferred };
constexpr size_t LISTENER_STATES = 2;
inline constexpr const char *LISTENER_NAMES[LISTENER_STATES] = {"AcceptAny", "AcceptPreferred"};

using ListenerTable = Machine<ListenerState, Event, LISTENER_STATES, EVENTS>;

inline constexpr ListenerTable LISTENER_TABLE = {{
    // AcceptAny: there is none to be better or worse than
    {go(ListenerState::AcceptPreferred, ACCEPT), never<ListenerState>(), never<ListenerState>(),
     never<ListenerState>()},
    // AcceptPreferred
    {stay<ListenerState>(ACCEPT), stay<ListenerState>(), stay<ListenerState>(), go(ListenerState::AcceptAny)},
}};

static_assert(CANDIDATE_TABLE.complete() && LISTENER_TABLE.complete());

// What makes a BSR better than another: the higher priority, then the higher address.
struct Weight {
    uint8_t priority = 0;
    Address address{};
};
bool is_as_good(const Weight &first, const Weight &second);

// Milliseconds (section 5).
constexpr uint32_t PERIOD_MS = 60 * 1000;
constexpr uint32_t TIMEOUT_MS = 2 * PERIOD_MS + 10 * 1000;

// How long a pending router waits whether a better one speaks: the shorter, the better it is itself; from 5 to 23 s. best is
// the best BSR it knows of, itself or another.
uint32_t override_ms(const Weight &own, const Weight &best);

} // namespace pimsmd::bsr

#endif
