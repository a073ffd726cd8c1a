/*
 * State machines as constant tables: for each state and event the next state and what is to be done. The tables stand
 * where the RFC's text has them, a row a state, so that one can be read beside the other. Whoever runs a machine has its
 * timers and does its actions; the tables are all that decides.
 */
#ifndef DAEMONS_PIMSMD_MACHINE_H
#define DAEMONS_PIMSMD_MACHINE_H

#include <cstddef>
#include <cstdint>

#include "daemons/common/expect.h"

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

template <typename State, typename Event, size_t STATES, size_t EVENTS> struct Machine {
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

} // namespace pimsmd

#endif
