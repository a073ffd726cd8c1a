/*
 * What a router downstream asks for on a link (RFC 7761, sections 4.5.1 and 4.5.2): one machine for (*,G) and (S,G) alike, an
 * instance of it for each interface.
 *
 *               Join                     Prune
 *      NoInfo ────────► Join ──────────────────────────► PrunePending
 *         ▲              ▲  │ expired                     │  │
 *         │              │  ▼                      Join   │  │ nobody said Join within the delay:
 *         │              └─────────────────────────◄──────┘  │ say the Prune again, for a router
 *         └──────────────────────────────────────────────────┘ that missed it
 *
 * A Prune waits because another router of the link may want to go on and has to hear it first. A link with one neighbour
 * has nobody to wait for: its delay is nothing.
 */
#ifndef DAEMONS_PIMSMD_DOWNSTREAM_H
#define DAEMONS_PIMSMD_DOWNSTREAM_H

#include "daemons/pimsmd/asked_runner.h"

namespace pimsmd::downstream
{

enum class State : uint8_t { NoInfo, Join, PrunePending };
enum class Event : uint8_t { Join, Prune, PrunePendingOver, Expired };

constexpr size_t STATES = 3;
constexpr size_t EVENTS = 4;

inline constexpr const char *STATE_NAMES[STATES] = {"NoInfo", "Join", "PrunePending"};

// Beside those of timers: where the link has more than one neighbour.
constexpr Actions ECHO_PRUNE = OTHER_ACTION;

constexpr auto JOIN = State::Join;
constexpr auto NO_INFO = State::NoInfo;

using Table = Machine<State, Event, STATES, EVENTS>;

// Columns: Join, Prune, PrunePendingOver, Expired.
inline constexpr Table TABLE = {{
    // NoInfo
    {go(JOIN, START_EXPIRY), stay<State>(), never<State>(), never<State>()},
    // Join
    {stay<State>(PROLONG_EXPIRY), go(State::PrunePending, START_PRUNE_PENDING), never<State>(), go(NO_INFO)},
    // PrunePending
    {go(JOIN, PROLONG_EXPIRY | STOP_PRUNE_PENDING), stay<State>(), go(NO_INFO, STOP_EXPIRY | ECHO_PRUNE),
     go(NO_INFO, STOP_PRUNE_PENDING)},
}};
static_assert(TABLE.complete());

class Runner;

// What a machine tells and asks. It may be destroyed in none of these calls.
class Owner
{
public:
    // It began or ended to forward to the link.
    virtual void changed(Runner &runner) = 0;

    // The Prune is to be said again on the link.
    virtual void echo_prune(Runner &runner) = 0;

protected:
    ~Owner() = default;
};

// The machine of one entry on one link, with its timers.
class Runner final : public AskedRunner<Table, Owner>
{
public:
    Runner(MsQueue &queue, Owner &owner) : AskedRunner<Table, Owner>(TABLE, queue, owner)
    {
    }

    // Whether the link is among joins of the entry.
    bool forwards() const
    {
        return state() != State::NoInfo;
    }

    // A Join with its holdtime, HOLDTIME_FOREVER included.
    void join(uint16_t holdtime_s)
    {
        happen(Event::Join, {holdtime_s, 0});
    }

    // A Prune; delay_ms is the link's when other routers may override it, 0 when there are none.
    void prune(uint32_t delay_ms)
    {
        happen(Event::Prune, {0, delay_ms});
    }

private:
    void act(State before, Actions actions, const Asked &asked) override;

    bool echoes_ = false; // the pending Prune waited for others
};

} // namespace pimsmd::downstream

#endif
