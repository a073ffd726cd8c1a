/*
 * An event loop: an epoll instance and a map from descriptor to handler.
 *
 * The kernel's registrations hold the descriptor number alone; the handler stays here. The two can drift
 * apart, because a descriptor may be closed without a word to the loop and its number be given out again,
 * possibly by another handler while events that were fetched earlier wait their turn. So nothing is ever
 * fetched earlier: one event per wait, its handler looked up at that moment. What a handler closes, removes
 * or replaces is gone before the next event is asked for. An event for a descriptor without a handler is the
 * kernel's memory of a registration that ended; it is removed there too.
 *
 * The kernel puts a ready descriptor that was reported at the end of its ready list. Asking for one event at
 * a time therefore serves the ready ones in turn, and the timers, which are one of them, run under any flood.
 *
 * A handler is one pointer. The loop's own wake-up and timer descriptors have none and are told apart by
 * number.
 */
#include "loop.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sys/eventfd.h>
#include <unistd.h>

#include "libc_calls.h"
#include "local_socket.h"
#include "loop_rest.h"

namespace
{

using host::Descriptor;
using host::libc;
using host::Loop;
using host::Watch;

// A plain array: it is searched in signal handlers and on every epoll_ctl of the process.
constexpr size_t MAX_LOOPS = 64;
std::array<std::atomic<Loop *>, MAX_LOOPS> g_loops;

bool publish(Loop *loop)
{
    for (std::atomic<Loop *> &slot : g_loops) {
        Loop *empty = nullptr;
        if (slot.compare_exchange_strong(empty, loop)) {
            return true;
        }
    }
    errno = EMFILE;
    return false;
}

void withdraw(Loop *loop)
{
    for (std::atomic<Loop *> &slot : g_loops) {
        Loop *expected = loop;
        if (slot.compare_exchange_strong(expected, nullptr)) {
            return;
        }
    }
}

uint32_t fail(int error)
{
    errno = error;
    return HOST_FAILED;
}

bool register_own(const Loop &loop, int fd)
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = static_cast<uint64_t>(fd);
    return libc().epoll_ctl(loop.epoll.get(), EPOLL_CTL_ADD, fd, &event) == 0;
}

// The registration of the descriptor; one without a context when there is none.
Watch watch_of(Loop *loop, int fd)
{
    std::lock_guard guard(loop->mutex);
    auto found = loop->handlers.find(fd);
    if (found == loop->handlers.end()) {
        epoll_event unused{};
        libc().epoll_ctl(loop->epoll.get(), EPOLL_CTL_DEL, fd, &unused);
        return {};
    }
    return found->second;
}

// Serves one event: 1 when a handler ran, 0 when none did, -1 with errno set.
int serve_one(Loop *loop, int timeout_ms)
{
    epoll_event event;
    int ready = epoll_wait(loop->epoll.get(), &event, 1, timeout_ms);
    if (ready <= 0) {
        return ready < 0 && errno == EINTR ? 0 : ready;
    }
    int fd = static_cast<int>(event.data.u64);
    if (fd == loop->wake.get()) {
        uint64_t count; // the wake-up only ends the wait; what it means is in stopping
        [[maybe_unused]] ssize_t drained = read(fd, &count, sizeof(count));
        return 0;
    }
    if (fd == loop->timers->descriptor()) {
        return loop->timers->expire() ? 1 : 0;
    }
    const Watch watch = watch_of(loop, fd);
    if (watch.context == 0) {
        return 0;
    }
    reinterpret_cast<HOST_LOOP_HANDLER>(watch.context)(event.events & (watch.events | EPOLLERR | EPOLLHUP),
                                                       fd);
    host::rest_when_useless(loop, fd, event.events);
    return 1;
}

} // namespace

Loop *host::find_loop(int epoll)
{
    for (const std::atomic<Loop *> &slot : g_loops) {
        Loop *loop = slot.load(std::memory_order_acquire);
        if (loop != nullptr && loop->epoll.get() == epoll) {
            return loop;
        }
    }
    return nullptr;
}

int host::register_in_kernel(const Loop &loop, int operation, int fd, const Watch &watch, uint32_t events)
{
    epoll_event event{};
    event.events = watch.is_local && (events & EPOLLIN) != 0 ? events | EPOLLRDHUP : events;
    event.data.u64 = static_cast<uint64_t>(fd);
    return libc().epoll_ctl(loop.epoll.get(), operation, fd, &event);
}

bool host::replace_descriptor(int fd, int replacement)
{
    const auto for_each_watch = [fd](int operation) {
        for (const std::atomic<Loop *> &slot : g_loops) {
            Loop *loop = slot.load(std::memory_order_acquire);
            if (loop == nullptr) {
                continue;
            }
            std::lock_guard guard(loop->mutex);
            const auto found = loop->handlers.find(fd);
            if (found != loop->handlers.end()) {
                found->second.rest = 0;
                register_in_kernel(*loop, operation, fd, found->second, found->second.events);
            }
        }
    };
    for_each_watch(EPOLL_CTL_DEL);
    const bool replaced = dup3(replacement, fd, O_CLOEXEC) >= 0;
    for_each_watch(EPOLL_CTL_ADD);
    return replaced;
}

int host::loop_control(Loop *loop, int operation, int fd, const void *record)
{
    HOST_LOOP_RECORD_S wanted{};
    if (operation != EPOLL_CTL_DEL) {
        if (record == nullptr) {
            errno = EFAULT;
            return -1;
        }
        memcpy(&wanted, record, sizeof(wanted));
        if (wanted.context == 0) {
            errno = EINVAL;
            return -1;
        }
    }
    std::lock_guard guard(loop->mutex);
    if (operation == EPOLL_CTL_DEL) {
        epoll_event unused{};
        loop->handlers.erase(fd);
        return libc().epoll_ctl(loop->epoll.get(), operation, fd, &unused);
    }
    // The map first: once the kernel has accepted the registration nothing may fail any more.
    try {
        loop->handlers.try_emplace(fd);
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return -1;
    }
    Watch watch = loop->handlers[fd];
    watch.events = wanted.events;
    watch.rest = 0;
    watch.is_local = operation == EPOLL_CTL_ADD ? is_local_socket(fd) : watch.is_local;
    const int result = register_in_kernel(*loop, operation, fd, watch, wanted.events);
    if (result == 0) {
        watch.context = wanted.context;
        loop->handlers[fd] = watch;
    } else if (loop->handlers[fd].context == 0) {
        loop->handlers.erase(fd);
    }
    return result;
}

extern "C" {

int32_t HOST_LoopCreate(void)
{
    std::unique_ptr<Loop> loop(new (std::nothrow) Loop);
    if (loop == nullptr) {
        errno = ENOMEM;
        return -1;
    }
    loop->epoll = Descriptor(epoll_create1(EPOLL_CLOEXEC));
    loop->wake = Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    loop->timers = TIMER_SERVICE_S::create();
    if (!loop->epoll.valid() || !loop->wake.valid() || loop->timers == nullptr ||
        !register_own(*loop, loop->wake.get()) || !register_own(*loop, loop->timers->descriptor()) ||
        !publish(loop.get())) {
        return -1;
    }
    return loop.release()->epoll.get();
}

uint32_t HOST_LoopRun(int32_t epoll)
{
    Loop *loop = host::find_loop(epoll);
    if (loop == nullptr || loop->running) {
        return fail(loop == nullptr ? EINVAL : EBUSY);
    }
    loop->running = true;
    int served = 0;
    while (!loop->stopping && served >= 0) {
        served = serve_one(loop, -1);
    }
    loop->running = false;
    if (served < 0) {
        return HOST_FAILED;
    }
    loop->stopping = false;
    return 0;
}

int32_t HOST_LoopRunOnce(int32_t epoll, int32_t timeout_ms)
{
    Loop *loop = host::find_loop(epoll);
    if (loop == nullptr || loop->running) {
        errno = loop == nullptr ? EINVAL : EBUSY;
        return -1;
    }
    if (loop->stopping) {
        return 0;
    }
    loop->running = true;
    int served = serve_one(loop, timeout_ms);
    loop->running = false;
    return served;
}

uint32_t HOST_LoopStop(int32_t epoll)
{
    int saved = errno; // signal handlers come here
    Loop *loop = host::find_loop(epoll);
    if (loop == nullptr) {
        return fail(EINVAL);
    }
    loop->stopping = true;
    uint64_t one = 1;
    [[maybe_unused]] ssize_t written = write(loop->wake.get(), &one, sizeof(one));
    errno = saved;
    return 0;
}

uint32_t HOST_LoopDestroy(int32_t epoll)
{
    Loop *loop = host::find_loop(epoll);
    if (loop == nullptr || loop->running) {
        return fail(loop == nullptr ? EINVAL : EBUSY);
    }
    withdraw(loop);
    delete loop;
    return 0;
}

uint32_t HOST_LoopAdd(int32_t epoll, int32_t fd, uint32_t events, HOST_LOOP_HANDLER handler)
{
    Loop *loop = host::find_loop(epoll);
    if (loop == nullptr) {
        return fail(EINVAL);
    }
    HOST_LOOP_RECORD_S record{events, static_cast<uint64_t>(fd), reinterpret_cast<uint64_t>(handler)};
    return host::loop_control(loop, EPOLL_CTL_ADD, fd, &record) == 0 ? 0 : HOST_FAILED;
}

uint32_t HOST_LoopModify(int32_t epoll, int32_t fd, uint32_t events, HOST_LOOP_HANDLER handler)
{
    Loop *loop = host::find_loop(epoll);
    if (loop == nullptr) {
        return fail(EINVAL);
    }
    HOST_LOOP_RECORD_S record{events, static_cast<uint64_t>(fd), reinterpret_cast<uint64_t>(handler)};
    return host::loop_control(loop, EPOLL_CTL_MOD, fd, &record) == 0 ? 0 : HOST_FAILED;
}

uint32_t HOST_LoopRemove(int32_t epoll, int32_t fd)
{
    Loop *loop = host::find_loop(epoll);
    if (loop == nullptr) {
        return fail(EINVAL);
    }
    return host::loop_control(loop, EPOLL_CTL_DEL, fd, nullptr) == 0 ? 0 : HOST_FAILED;
}

TIMER_SERVICE HOST_LoopTimerService(int32_t epoll)
{
    Loop *loop = host::find_loop(epoll);
    return loop == nullptr ? nullptr : loop->timers.get();
}

} // extern "C"
