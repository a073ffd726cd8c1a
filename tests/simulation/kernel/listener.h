/*
 * A socket that is connected to: what waits to be accepted.
 */
#ifndef TESTS_SIMULATION_KERNEL_LISTENER_H
#define TESTS_SIMULATION_KERNEL_LISTENER_H

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <utility>

namespace sim
{

template <typename End> struct Listener {
    uint64_t owner = 0; // the number of the process that bound it
    bool listening = false;
    size_t backlog_limit = 0;
    std::deque<std::shared_ptr<End>> backlog;
};

// The connection that waits longest; without one nullptr, and the error of accept. listener may be nullptr.
template <typename End> std::shared_ptr<End> next_connection(Listener<End> *listener, int *error)
{
    if (listener == nullptr || !listener->listening) {
        *error = EINVAL;
        return nullptr;
    }
    if (listener->backlog.empty()) {
        *error = EAGAIN;
        return nullptr;
    }
    std::shared_ptr<End> end = std::move(listener->backlog.front());
    listener->backlog.pop_front();
    return end;
}

} // namespace sim

#endif
