/*
 * The machines of (S,G,rpt): sources that do not come over the shared tree, because somebody gets them over their own.
 *
 * Downstream (RFC 7761, section 4.5.3), for each interface: a Join(*,G) takes back every Prune(S,G,rpt) that does not come
 * with it in the same message. So it puts those that stand into states of which the rest of the message decides:
 *
 *                      Join(*,G)              Prune(S,G,rpt)
 *      Prune         ─────────────► PruneTmp        ─────────────► Prune
 *      PrunePending  ─────────────► PrunePendingTmp ─────────────► PrunePending
 *                                          │ end of the message
 *                                          └────────────────────► NoInfo
 *
 * Within a message no timer ends, so that nothing but the message reaches the two states. For packets they are what they
 * were before.
 *
 * The RFC has no row for a Prune-Pending that expires, since a holdtime is longer than the delay. A message may say a
 * shorter one; then the prune is over before it began.
 */
#ifndef DAEMONS_PIMSMD_RPT_PRUNE_H
#define DAEMONS_PIMSMD_RPT_PRUNE_H

#include "daemons/pimsmd/asked_runner.h"

namespace pimsmd::rpt_downstream
{

enum class State : uint8_t { NoInfo, Prune, PrunePending, PruneTmp, PrunePendingTmp };
enum class Event : uint8_t { JoinStar, JoinRpt, PruneRpt, EndOfMessage, PrunePendingOver, Expired };

constexpr size_t STATES = 5;
constexpr size_t EVENTS = 6;

inline constexpr const char *STATE_NAMES[STATES] = {"NoInfo", "Prune", "PrunePending", "PruneTmp",
                                                    "PrunePendingTmp"};

constexpr auto NO_INFO = State::NoInfo;
constexpr auto PRUNE = State::Prune;
constexpr auto PRUNE_PENDING = State::PrunePending;
constexpr Actions STOP_BOTH = STOP_EXPIRY | STOP_PRUNE_PENDING;

using Table = Machine<State, Event, STATES, EVENTS>;

// Columns: JoinStar, JoinRpt, PruneRpt, EndOfMessage, PrunePendingOver, Expired.
inline constexpr Table TABLE = {{
    // NoInfo
    {stay<State>(), stay<State>(), go(PRUNE_PENDING, START_PRUNE_PENDING | START_EXPIRY), stay<State>(),
     never<State>(), never<State>()},
    // Prune
    {go(State::PruneTmp), go(NO_INFO, STOP_EXPIRY), stay<State>(PROLONG_EXPIRY), stay<State>(),
     never<State>(), go(NO_INFO)},
    // PrunePending
    {go(State::PrunePendingTmp), go(NO_INFO, STOP_BOTH), stay<State>(), stay<State>(), go(PRUNE),
     go(NO_INFO, STOP_PRUNE_PENDING)},
    // PruneTmp
    {stay<State>(), stay<State>(), go(PRUNE, PROLONG_EXPIRY), go(NO_INFO, STOP_EXPIRY), never<State>(),
     never<State>()},
    // PrunePendingTmp
    {stay<State>(), stay<State>(), go(PRUNE_PENDING, PROLONG_EXPIRY), go(NO_INFO, STOP_BOTH), never<State>(),
     never<State>()},
}};
static_assert(TABLE.complete());

class Runner;

class Owner
{
public:
    // The link began or ended to be among prunes(S,G,rpt). The machine may not be destroyed in the call.
    virtual void changed(Runner &runner) = 0;

protected:
    ~Owner() = default;
};

// The machine of one source on one link, with its timers.
class Runner final : public AskedRunner<Table, Owner>
{
public:
    Runner(MsQueue &queue, Owner &owner) : AskedRunner<Table, Owner>(TABLE, queue, owner)
    {
    }

    // Whether the link is among prunes(S,G,rpt).
    bool prunes() const
    {
        return is_prune(state());
    }

    // What a message says, in its order: delay_ms as for downstream::Runner.
    void join_star()
    {
        happen(Event::JoinStar);
    }
    void join()
    {
        happen(Event::JoinRpt);
    }
    void prune(uint16_t holdtime_s, uint32_t delay_ms)
    {
        happen(Event::PruneRpt, {holdtime_s, delay_ms});
    }
    void end_of_message()
    {
        happen(Event::EndOfMessage);
    }

private:
    static bool is_prune(State state)
    {
        return state == State::Prune || state == State::PruneTmp;
    }
    void act(State before, Actions actions, const Asked &asked) override;
};

} // namespace pimsmd::rpt_downstream

/*
 * Upstream (section 4.5.7): messages that do not wait for the next Join(*,G). While this router is on the shared tree and
 * wants the source over it, another router's Prune(S,G,rpt) has to be overridden in time, for which there is a timer.
 */
namespace pimsmd::rpt_upstream
{

enum class State : uint8_t { RptNotJoined, Pruned, NotPruned };
enum class Event : uint8_t {
    PruneDesired,
    PruneNotDesired,
    RptJoinNotDesired,
    Inherits, // inherited_olist(S,G,rpt) has outputs now
    OverrideOver,
    SeePruneRpt, // of another router of the link, to this router's upstream neighbour for (S,G,rpt)
    SeeJoinRpt,
    SeePruneSource,
    RpfJoinsStar, // the upstream neighbour became that of (*,G)
};

constexpr size_t STATES = 3;
constexpr size_t EVENTS = 9;

inline constexpr const char *STATE_NAMES[STATES] = {"RptNotJoined", "Pruned", "NotPruned"};

// The override timer is lowered to a random time within the override interval, or started with it.
enum Action : Actions {
    SEND_PRUNE = 1,
    SEND_JOIN = 2,
    LOWER_OVERRIDE = 4,
    STOP_OVERRIDE = 8,
};

using Table = Machine<State, Event, STATES, EVENTS>;

// Columns: PruneDesired, PruneNotDesired, RptJoinNotDesired, Inherits, OverrideOver, SeePruneRpt, SeeJoinRpt,
// SeePruneSource, RpfJoinsStar.
inline constexpr Table TABLE = {{
    // RptNotJoined
    {go(State::Pruned), stay<State>(), stay<State>(), go(State::NotPruned), never<State>(), stay<State>(),
     stay<State>(), stay<State>(), stay<State>()},
    // Pruned
    {stay<State>(), go(State::NotPruned, SEND_JOIN), go(State::RptNotJoined), stay<State>(), never<State>(),
     stay<State>(), stay<State>(), stay<State>(), stay<State>()},
    // NotPruned
    {go(State::Pruned, SEND_PRUNE | STOP_OVERRIDE), stay<State>(), go(State::RptNotJoined, STOP_OVERRIDE),
     stay<State>(), stay<State>(SEND_JOIN), stay<State>(LOWER_OVERRIDE), stay<State>(STOP_OVERRIDE),
     stay<State>(LOWER_OVERRIDE), stay<State>(LOWER_OVERRIDE)},
}};
static_assert(TABLE.complete());

class Owner
{
public:
    // To this router's upstream neighbour for (S,G,rpt), at once.
    virtual void send_join_rpt() = 0;
    virtual void send_prune_rpt() = 0;

    // A random time within the override interval of the upstream link, in milliseconds.
    virtual uint32_t draw_override_ms() = 0;

protected:
    ~Owner() = default;
};

// The machine of one source, with its timer.
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

    MsTimer override_;
};

} // namespace pimsmd::rpt_upstream

#endif
