/*
 * What this router asks its upstream neighbour for (RFC 7761, sections 4.5.4 and 4.5.5): a machine for (*,G) and one for (S,G),
 * which differ in whose Prunes they override and in the SPT bit.
 *
 * While Joined, a Join goes out each period. Another router of the link that joins the same puts the next one off; one
 * that prunes it brings it forward, before the neighbour acts on the Prune. RPF' stands for the neighbour that is asked: the
 * next hop to RP or source, or the winner of an assert.
 */
#ifndef DAEMONS_PIMSMD_UPSTREAM_H
#define DAEMONS_PIMSMD_UPSTREAM_H

#include "daemons/pimsmd/machine.h"
#include "daemons/pimsmd/ms_timer.h"

namespace pimsmd::upstream
{

enum class State : uint8_t { NotJoined, Joined };
enum class Event : uint8_t {
    JoinDesired,
    JoinNotDesired,
    TimerOver,
    SeeJoin, // of another router of the link to RPF', for the same
    SeePrune,
    SeePruneRpt,  // for (S,G,rpt), to RPF' of (S,G)
    SeePruneStar, // for (*,G), to RPF' of (S,G)
    RpfChangedByAssert,
    RpfChanged,
    NeighbourRestarted, // RPF' has another generation
};

constexpr size_t STATES = 2;
constexpr size_t EVENTS = 10;

inline constexpr const char *STATE_NAMES[STATES] = {"NotJoined", "Joined"};

// The timer is raised to the suppression time, and lowered to a random time within the override interval.
enum Action : Actions {
    SEND_JOIN = 1, // after a change of RPF' to the new neighbour
    SEND_PRUNE = 2,
    SEND_PRUNE_TO_OLD = 4,
    START_PERIOD = 8,
    STOP_TIMER = 16,
    SUPPRESS = 32,
    LOWER_TO_OVERRIDE = 64,
    CLEAR_SPT_BIT = 128,
};

using Table = Machine<State, Event, STATES, EVENTS>;

// Columns: JoinDesired, JoinNotDesired, TimerOver, SeeJoin, SeePrune, SeePruneRpt, SeePruneStar, RpfChangedByAssert,
// RpfChanged, NeighbourRestarted. Prunes of two columns concern (S,G) alone.
constexpr Table table(bool source)
{
    constexpr auto NONE = stay<State>();
    const Cell<State> not_joined = source ? NONE : never<State>();
    const Cell<State> joined = source ? stay<State>(LOWER_TO_OVERRIDE) : never<State>();
    const Actions clear = source ? CLEAR_SPT_BIT : 0;
    return {{
        // NotJoined
        {go(State::Joined, SEND_JOIN | START_PERIOD), NONE, never<State>(), NONE, NONE, not_joined,
         not_joined, NONE, NONE, NONE},
        // Joined
        {NONE, go(State::NotJoined, static_cast<Actions>(SEND_PRUNE | STOP_TIMER | clear)),
         stay<State>(SEND_JOIN | START_PERIOD), stay<State>(SUPPRESS), stay<State>(LOWER_TO_OVERRIDE), joined,
         joined, stay<State>(LOWER_TO_OVERRIDE), stay<State>(SEND_JOIN | SEND_PRUNE_TO_OLD | START_PERIOD),
         stay<State>(LOWER_TO_OVERRIDE)},
    }};
}

inline constexpr Table STAR_TABLE = table(false);
inline constexpr Table SOURCE_TABLE = table(true);
static_assert(STAR_TABLE.complete() && SOURCE_TABLE.complete());

class Owner
{
public:
    // To RPF', at once; or to the neighbour that it was before it changed.
    virtual void send_join() = 0;
    virtual void send_prune() = 0;
    virtual void send_prune_to_old() = 0;
    virtual void clear_spt_bit() = 0;

    // Milliseconds: of the period; random ones for how long another's Join counts as one's own, 0 when it does not, and
    // within the override interval of the upstream link.
    virtual uint32_t period_ms() = 0;
    virtual uint32_t draw_suppression_ms() = 0;
    virtual uint32_t draw_override_ms() = 0;

protected:
    ~Owner() = default;
};

// Seconds of another router's Join.
struct Seen {
    uint16_t holdtime_s = 0;
};

// The machine of one entry, with its timer; the table is one of the two above.
class Runner final : public pimsmd::Runner<Table, Owner, Seen>
{
public:
    using pimsmd::Runner<Table, Owner, Seen>::Runner;

    bool joined() const
    {
        return state() == State::Joined;
    }

    // Any event but SeeJoin.
    void take(Event event)
    {
        happen(event);
    }

    // Another router's Join, with its holdtime.
    void see_join(uint16_t holdtime_s)
    {
        happen(Event::SeeJoin, {holdtime_s});
    }

    // Milliseconds until the next Join.
    uint64_t next_join_ms() const
    {
        return queue_.remaining_ms(timer_);
    }

private:
    void act(State before, Actions actions, const Seen &seen) override;

    MsTimer timer_;
};

} // namespace pimsmd::upstream

#endif
