/*
 * State machines as constant tables: for each state and event the next state and what is to be done. The tables stand
 * where the RFC's text has them, a row a state, so that one can be read beside the other. The tables are all that decides:
 * a Runner has the state of one machine, and what derives from it has the timers and does the actions.
 *
 *      event, timer ──► Runner::happen ──► table: next state, actions ──► act of what derives from it ──► Owner
 */
#ifndef DAEMONS_PIMSMD_MACHINE_H
#define DAEMONS_PIMSMD_MACHINE_H

#include <cstddef>
#include <cstdint>

#include "daemons/common/expect.h"
#include "daemons/pimsmd/holdtime.h"

namespace pimsmd
{

// A set of actions: bits of an enumeration of the machine.
using Actions = uint16_t;

// What an event does in a state.
template <typename State> struct Cell {
    enum class Kind : uint8_t {
        Missing,
        Stay,
        Go,
        Never, // the event cannot come in the state
    };
    Kind kind = Kind::Missing;
    State next{};
    Actions actions = 0;
};

// As it stands in a table.
template <typename State> constexpr Cell<State> go(State next, Actions actions = 0)
{
    return {Cell<State>::Kind::Go, next, actions};
}
template <typename State> constexpr Cell<State> stay(Actions actions = 0)
{
    return {Cell<State>::Kind::Stay, State{}, actions};
}
template <typename State> constexpr Cell<State> never()
{
    return {Cell<State>::Kind::Never, State{}, 0};
}

template <typename StateOf, typename EventOf, size_t STATES, size_t EVENTS> struct Machine {
    using State = StateOf;
    using Event = EventOf;

    Cell<State> cells[STATES][EVENTS];

    constexpr const Cell<State> &cell(State state, Event event) const
    {
        return cells[static_cast<size_t>(state)][static_cast<size_t>(event)];
    }

    // Takes the event: changes the state and returns the actions. One that cannot come changes nothing and is reported.
    Actions step(State &state, Event event) const
    {
        const Cell<State> &taken = cell(state, event);
        mcastd::expect(taken.kind == Cell<State>::Kind::Stay || taken.kind == Cell<State>::Kind::Go);
        if (taken.kind == Cell<State>::Kind::Go) {
            state = taken.next;
        }
        return taken.actions;
    }

    // Whether every cell was written.
    constexpr bool complete() const
    {
        for (const auto &row : cells) {
            for (const Cell<State> &one : row) {
                if (one.kind == Cell<State>::Kind::Missing) {
                    return false;
                }
            }
        }
        return true;
    }
};

// What comes with the events of a machine that need nothing more.
struct NothingMore {
};

// One machine of a table: its state, the queue of its timers, and the owner whom it tells and asks. More is what comes with
// an event, a default one with the end of a timer.
template <typename Table, typename Owner, typename More = NothingMore> class Runner
{
public:
    using State = typename Table::State;
    using Event = typename Table::Event;

    // All of them outlive it.
    Runner(const Table &table, MsQueue &queue, Owner &owner) : queue_(queue), owner_(owner), table_(table)
    {
    }
    Runner(const Runner &) = delete;
    Runner &operator=(const Runner &) = delete;

    State state() const
    {
        return state_;
    }

protected:
    ~Runner() = default;

    // Does the actions of an event that came in the state before.
    virtual void act(State before, Actions actions, const More &more) = 0;

    // The event comes.
    void happen(Event event, const More &more = {})
    {
        const State before = state_;
        const Actions actions = table_.step(state_, event);
        act(before, actions, more);
    }

    // Starts the timer, or starts it over; its end is the event.
    template <Event EVENT> void start(MsTimer &timer, uint64_t delay_ms)
    {
        queue_.start(timer, delay_ms, over<EVENT>, this);
    }

    // The same with a holdtime, of which the highest number never ends.
    template <Event EVENT> void hold(MsTimer &timer, uint16_t holdtime_s)
    {
        pimsmd::hold(queue_, timer, holdtime_s, over<EVENT>, this);
    }

    bool is_of(const Table &table) const
    {
        return &table_ == &table;
    }

    MsQueue &queue_;
    Owner &owner_;

private:
    template <Event EVENT> static void over(void *self)
    {
        static_cast<Runner *>(self)->happen(EVENT);
    }

    const Table &table_;
    State state_{};
};

} // namespace pimsmd

#endif
