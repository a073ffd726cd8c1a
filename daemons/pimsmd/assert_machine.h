/*
 * Which of several routers forwards to a link (RFC 7761, section 4.6): a machine for (S,G) and one for (*,G), an instance of
 * each for every interface. A router that hears the packets which it forwards itself says on what terms it gets them; the
 * best terms win, and the others are silent for as long as the winner repeats it.
 *
 *             packet, or worse terms            better terms
 *      NoInfo ──────────────────────► Winner ─────────────────► Loser
 *         ▲                             │                         │
 *         └─────────────────────────────┴─────────────────────────┘
 *            nothing to forward any more: AssertCancel     the winner is gone, gave up or got worse
 *
 * What a received Assert means depends on the state, the terms of both and the kind of the machine: meaning_of makes an
 * event of it.
 */
#ifndef DAEMONS_PIMSMD_ASSERT_MACHINE_H
#define DAEMONS_PIMSMD_ASSERT_MACHINE_H

#include <optional>

#include "daemons/pimsmd/address.h"
#include "daemons/pimsmd/machine.h"
#include "daemons/pimsmd/ms_timer.h"

namespace pimsmd::asserts
{

enum class State : uint8_t { NoInfo, Winner, Loser };
enum class Event : uint8_t {
    Data,         // a packet came in from the link to which this router could forward it
    Inferior,     // an Assert worse than this router's own terms, to which it could forward
    Preferred,    // one better than the winner's terms, or than one's own where nobody won
    WinnerStands, // the winner's, still better than one's own
    WinnerGaveUp, // the winner's, worse than one's own, or its AssertCancel
    TimerOver,
    WinnerGone,      // it restarted, or is no neighbour any more
    CouldNotAssert,  // this router does not forward to the link any more
    NotTracking,     // nor does it matter to it who does
    OwnMetricBetter, // than the winner's
    RpfMovedAway,    // the interface is not that to source or RP any more
    JoinHeard,       // a Join on the interface, for what the machine is about
};

constexpr size_t STATES = 3;
constexpr size_t EVENTS = 12;

inline constexpr const char *STATE_NAMES[STATES] = {"NoInfo", "Winner", "Loser"};

// Actions A1 to A6 are sets of these. The timer is started a little early by the winner, so that its Assert comes before the
// losers forget it.
enum Action : Actions {
    SEND_ASSERT = 1,
    START_WINNER_TIMER = 2,
    STORE_SELF = 4,
    STORE_WINNER = 8,
    START_LOSER_TIMER = 16,
    SEND_CANCEL = 32,
    FORGET = 64,       // winner, its metric and the timer
    SET_SPT_BIT = 128, // of a joined (S,G) on the interface to its source
};

constexpr Actions A1 = SEND_ASSERT | START_WINNER_TIMER | STORE_SELF;
constexpr Actions A2 = STORE_WINNER | START_LOSER_TIMER;
constexpr Actions A3 = SEND_ASSERT | START_WINNER_TIMER;
constexpr Actions A4 = SEND_CANCEL | FORGET;
constexpr Actions A5 = FORGET;
constexpr Actions A6 = STORE_WINNER | START_LOSER_TIMER | SET_SPT_BIT;

using Table = Machine<State, Event, STATES, EVENTS>;

// Columns: Data, Inferior, Preferred, WinnerStands, WinnerGaveUp, TimerOver; WinnerGone, CouldNotAssert, NotTracking,
// OwnMetricBetter, RpfMovedAway, JoinHeard.
constexpr Table table(bool source)
{
    constexpr auto NO_INFO = State::NoInfo;
    return {{
        // NoInfo
        {go(State::Winner, A1), go(State::Winner, A1), go(State::Loser, source ? A6 : A2), never<State>(),
         never<State>(), never<State>(), stay<State>(), stay<State>(), stay<State>(), stay<State>(),
         stay<State>(), stay<State>()},
        // Winner
        {stay<State>(), stay<State>(A3), go(State::Loser, A2), never<State>(), never<State>(),
         stay<State>(A3), stay<State>(), go(NO_INFO, A4), stay<State>(), stay<State>(), stay<State>(),
         stay<State>()},
        // Loser
        {stay<State>(), stay<State>(), stay<State>(A2), stay<State>(A2), go(NO_INFO, A5), go(NO_INFO, A5),
         go(NO_INFO, A5), stay<State>(), go(NO_INFO, A5), go(NO_INFO, A5), go(NO_INFO, A5), go(NO_INFO, A5)},
    }};
}

inline constexpr Table STAR_TABLE = table(false);
inline constexpr Table SOURCE_TABLE = table(true);
static_assert(STAR_TABLE.complete() && SOURCE_TABLE.complete());

// They lose against all others.
constexpr uint32_t INFINITE_PREFERENCE = 0x7fffffff;
constexpr uint32_t INFINITE_METRIC = 0xffffffff;

// The terms on which a router forwards to a link.
struct Metric {
    bool rpt = true; // over the shared tree
    uint32_t preference = INFINITE_PREFERENCE;
    uint32_t metric = INFINITE_METRIC;
    Address address{}; // of the router on the link
};

// The terms that lose against all others; an AssertCancel has them but for the address.
Metric infinite_metric(uint16_t family);

bool is_infinite(const Metric &metric);

// Whether the first terms win: source tree before shared tree, then the lower preference, the lower metric, the higher
// address.
bool is_better(const Metric &first, const Metric &second);

// What a machine is about and stands at when an Assert comes.
struct Standing {
    bool source; // the machine of (S,G)
    State state;
    bool could_assert; // on the interface
    bool tracking;     // it matters to this router who forwards there
    Metric own;        // infinite when it could not assert
    Metric winner;     // of a Loser; of a Winner its own
};

// The event that an Assert with these terms is; nothing when it is none for the machine.
std::optional<Event> meaning_of(const Metric &heard, const Standing &standing);

// Milliseconds for which a loser keeps quiet, and by how much earlier the winner repeats itself.
constexpr uint32_t ASSERT_MS = 180 * 1000;
constexpr uint32_t ASSERT_OVERRIDE_MS = 3 * 1000;

class Runner;

// What a machine tells and asks. It may be destroyed in none of these calls.
class Owner
{
public:
    // Its state or the winner's terms are others now.
    virtual void changed(Runner &runner) = 0;

    // An Assert with this router's terms on the link, or an AssertCancel.
    virtual void send_assert(Runner &runner) = 0;
    virtual void send_cancel(Runner &runner) = 0;

    // This router's terms on the link now, infinite when it could not assert there.
    virtual Metric own_metric(const Runner &runner) = 0;

    // The loser gets the packets of a joined source from the winner: they come over its tree.
    virtual void set_spt_bit(Runner &runner) = 0;

protected:
    ~Owner() = default;
};

// The machine of one entry on one link, with its timer; the table is one of the two above. The owner sees to it that (*,G) is
// told of an Assert only when the machine of (S,G) is in NoInfo before and after it.
class Runner final : public pimsmd::Runner<Table, Owner, Metric>
{
public:
    using pimsmd::Runner<Table, Owner, Metric>::Runner;

    // The winner's terms, this router's own as the winner; of no meaning in NoInfo.
    const Metric &winner() const
    {
        return winner_;
    }

    // An Assert on the link. Whether it was an event for the machine.
    bool heard(const Metric &metric, bool could_assert, bool tracking);

    // Any event but those of Asserts.
    void take(Event event)
    {
        happen(event);
    }

private:
    void act(State before, Actions actions, const Metric &metric) override;

    Metric winner_;
    MsTimer timer_;
};

} // namespace pimsmd::asserts

#endif
