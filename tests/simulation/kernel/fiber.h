/*
 * A stack of its own on which a daemon's main() runs until it waits. The scheduler resumes it; it leaves when it
 * waits or ends. What a thread would have for itself is exchanged at each switch: errno, the state of exceptions
 * in flight, and the address sanitizer's knowledge of the stack.
 *
 *     scheduler's stack ── resume() ──►  fiber's stack
 *                       ◄── leave() ───  (at epoll_wait, at the end, or at a crash: then for ever)
 */
#ifndef TESTS_SIMULATION_KERNEL_FIBER_H
#define TESTS_SIMULATION_KERNEL_FIBER_H

#include <cstddef>
#include <functional>
#include <ucontext.h>

namespace sim
{

class Fiber
{
public:
    Fiber();
    ~Fiber();
    Fiber(const Fiber &) = delete;
    Fiber &operator=(const Fiber &) = delete;

    // Begins anew with the function, which must not return but leave for ever.
    void begin(std::function<void()> body);
    void resume();
    // Called on the fiber. With for_ever nothing comes back to it before the next begin.
    void leave(bool for_ever);

private:
    static void enter();
    void exchange_thread_state();

    std::byte *stack_;
    ucontext_t context_{};
    ucontext_t scheduler_{};
    std::function<void()> body_;
    int errno_ = 0;
    void *exceptions_[2] = {};
    void *fake_stack_ = nullptr;
    const void *scheduler_stack_ = nullptr;
    size_t scheduler_size_ = 0;
};

} // namespace sim

#endif
