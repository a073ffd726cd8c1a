/*
 * The designated router of a source and the RP (RFC 7761, section 4.4.1): packets go to the RP in Registers until it says
 * stop, and after a while it is asked with a null Register whether it still means that.
 *
 *      Join ── stop ──► Prune ── timer ──► JoinPending ── timer ──► Join
 *                         ▲   null Register     │  the RP was silent for the probe time
 *                         └────── stop ─────────┘
 */
#ifndef DAEMONS_PIMSMD_REGISTER_H
#define DAEMONS_PIMSMD_REGISTER_H

#include "daemons/pimsmd/machine.h"
#include "daemons/pimsmd/ms_timer.h"

namespace pimsmd::registers
{

enum class State : uint8_t { NoInfo, Join, JoinPending, Prune };
enum class Event : uint8_t { TimerOver, CouldRegister, CouldNotRegister, Stop, RpChanged };

constexpr size_t STATES = 4;
constexpr size_t EVENTS = 5;

inline constexpr const char *STATE_NAMES[STATES] = {"NoInfo", "Join", "JoinPending", "Prune"};

// The tunnel is the output that makes Registers. The timer is started with a random suppression time, or with the time
// that a probe waits for its answer.
enum Action : Actions {
    ADD_TUNNEL = 1,
    REMOVE_TUNNEL = 2,
    UPDATE_TUNNEL = 4,
    START_SUPPRESSION = 8,
    START_PROBE = 16,
    STOP_TIMER = 32,
    SEND_NULL_REGISTER = 64,
};

constexpr auto JOIN = State::Join;
constexpr auto NO_INFO = State::NoInfo;
constexpr auto PRUNE = State::Prune;

using Table = Machine<State, Event, STATES, EVENTS>;

// Columns: TimerOver, CouldRegister, CouldNotRegister, Stop, RpChanged.
inline constexpr Table TABLE = {{
    // NoInfo
    {never<State>(), go(JOIN, ADD_TUNNEL), stay<State>(), stay<State>(), stay<State>()},
    // Join
    {never<State>(), stay<State>(), go(NO_INFO, REMOVE_TUNNEL), go(PRUNE, REMOVE_TUNNEL | START_SUPPRESSION),
     stay<State>(UPDATE_TUNNEL)},
    // JoinPending
    {go(JOIN, ADD_TUNNEL), stay<State>(), go(NO_INFO, STOP_TIMER), go(PRUNE, START_SUPPRESSION),
     go(JOIN, ADD_TUNNEL | STOP_TIMER)},
    // Prune
    {go(State::JoinPending, START_PROBE | SEND_NULL_REGISTER), stay<State>(), go(NO_INFO, STOP_TIMER),
     stay<State>(), go(JOIN, ADD_TUNNEL | STOP_TIMER)},
}};
static_assert(TABLE.complete());

class Owner
{
public:
    // Registers of the source begin or end to be sent, or go to another RP.
    virtual void set_tunnel(bool on) = 0;
    virtual void update_tunnel() = 0;
    virtual void send_null_register() = 0;

    // Milliseconds: a random time for which the RP's stop counts, without the probe time; the probe time.
    virtual uint32_t draw_suppression_ms() = 0;
    virtual uint32_t probe_ms() = 0;

protected:
    ~Owner() = default;
};

// The machine of one source at its designated router, with its timer.
class Runner final : public pimsmd::Runner<Table, Owner>
{
public:
    Runner(MsQueue &queue, Owner &owner) : pimsmd::Runner<Table, Owner>(TABLE, queue, owner)
    {
    }

    void take(Event event)
    {
        happen(event);
    }

private:
    void act(State before, Actions actions, const NothingMore &more) override;

    MsTimer timer_;
};

} // namespace pimsmd::registers

#endif
