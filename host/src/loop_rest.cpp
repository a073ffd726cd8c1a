#include "loop_rest.h"

#include <cerrno>
#include <new>
#include <sys/socket.h>

namespace
{

using host::Loop;

constexpr uint32_t REST_MS = 1000;

// What the handler that runs on this thread met.
thread_local int g_short_listener = -1;

// Whether nothing is left to read of what the peer sent before it stopped.
bool is_read_to_its_end(int fd)
{
    char byte;
    return recv(fd, &byte, sizeof(byte), MSG_PEEK | MSG_DONTWAIT) == 0;
}

// Ends the rest of that number; whether it still lasted.
bool end_rest(Loop *loop, int fd, uint64_t rest, uint32_t *events)
{
    const auto found = loop->handlers.find(fd);
    if (found == loop->handlers.end() || found->second.rest != rest) {
        return false;
    }
    found->second.rest = 0;
    *events = found->second.events;
    return true;
}

void watch_again(uint64_t parameters[4])
{
    auto *loop = reinterpret_cast<Loop *>(parameters[0]);
    const int fd = static_cast<int>(parameters[1]);
    uint32_t events = 0;
    std::lock_guard guard(loop->mutex);
    if (end_rest(loop, fd, parameters[2], &events)) {
        host::register_in_kernel(*loop, EPOLL_CTL_MOD, fd, loop->handlers[fd], events);
    }
}

void hang_up(uint64_t parameters[4])
{
    auto *loop = reinterpret_cast<Loop *>(parameters[0]);
    const int fd = static_cast<int>(parameters[1]);
    uint32_t events = 0;
    std::lock_guard guard(loop->mutex);
    if (end_rest(loop, fd, parameters[2], &events)) {
        shutdown(fd, SHUT_RDWR);
    }
}

// Does not look at the descriptor until the timer has run; without memory for a timer it runs now.
void rest(Loop *loop, int fd, TIMER_HANDLER afterwards)
{
    uint64_t parameters[4] = {reinterpret_cast<uint64_t>(loop), static_cast<uint64_t>(fd), 0, 0};
    {
        std::lock_guard guard(loop->mutex);
        const auto found = loop->handlers.find(fd);
        if (found == loop->handlers.end() || !found->second.is_local ||
            (found->second.events & EPOLLIN) == 0) {
            return;
        }
        parameters[2] = found->second.rest = ++loop->rests;
        host::register_in_kernel(*loop, EPOLL_CTL_MOD, fd, found->second, 0);
    }
    if (Timer_Create(loop->timers.get(), TIMER_KIND_ONE_SHOT, REST_MS, afterwards, parameters) ==
        TIMER_NONE) {
        afterwards(parameters);
    }
}

} // namespace

void host::rest_when_useless(Loop *loop, int fd, uint32_t events)
{
    if (g_short_listener == fd) {
        g_short_listener = -1;
        rest(loop, fd, watch_again);
    } else if ((events & EPOLLRDHUP) != 0 && (events & (EPOLLHUP | EPOLLERR)) == 0 &&
               is_read_to_its_end(fd)) {
        rest(loop, fd, hang_up);
    }
}

void host::accept_ran_short(int listener)
{
    g_short_listener = listener;
}

void host::accept_went_well(int listener)
{
    if (g_short_listener == listener) {
        g_short_listener = -1;
    }
}
