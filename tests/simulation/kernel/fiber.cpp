#include "tests/simulation/kernel/fiber.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <sys/mman.h>
#include <utility>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SIM_ADDRESS_SANITIZER
#endif
#endif
#ifdef SIM_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#endif

namespace sim
{
namespace
{

constexpr size_t GUARD = 4096;
constexpr size_t STACK = 1 << 20;

Fiber *g_entering;

} // namespace

Fiber::Fiber()
{
    void *memory = mmap(nullptr, GUARD + STACK, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED || mprotect(memory, GUARD, PROT_NONE) != 0) {
        abort();
    }
    stack_ = static_cast<std::byte *>(memory) + GUARD;
}

Fiber::~Fiber()
{
    munmap(stack_ - GUARD, GUARD + STACK);
}

void Fiber::begin(std::function<void()> body)
{
#ifdef SIM_ADDRESS_SANITIZER
    __asan_unpoison_memory_region(stack_, STACK); // of a life that ended in the middle
#endif
    body_ = std::move(body);
    errno_ = 0;
    memset(exceptions_, 0, sizeof(exceptions_));
    fake_stack_ = nullptr;
    getcontext(&context_);
    context_.uc_stack.ss_sp = stack_;
    context_.uc_stack.ss_size = STACK;
    context_.uc_link = nullptr;
    makecontext(&context_, enter, 0);
}

void Fiber::enter()
{
    Fiber &self = *g_entering;
#ifdef SIM_ADDRESS_SANITIZER
    __sanitizer_finish_switch_fiber(nullptr, &self.scheduler_stack_, &self.scheduler_size_);
#endif
    self.body_();
    abort(); // it was to leave
}

void Fiber::exchange_thread_state()
{
    void *globals = abi::__cxa_get_globals();
    void *saved[2];
    memcpy(saved, globals, sizeof(saved));
    memcpy(globals, exceptions_, sizeof(saved));
    memcpy(exceptions_, saved, sizeof(saved));
    errno_ = std::exchange(errno, errno_);
}

void Fiber::resume()
{
    g_entering = this;
    exchange_thread_state();
#ifdef SIM_ADDRESS_SANITIZER
    void *fake = nullptr;
    __sanitizer_start_switch_fiber(&fake, stack_, STACK);
#endif
    swapcontext(&scheduler_, &context_);
#ifdef SIM_ADDRESS_SANITIZER
    __sanitizer_finish_switch_fiber(fake, nullptr, nullptr);
#endif
    exchange_thread_state();
}

void Fiber::leave([[maybe_unused]] bool for_ever)
{
#ifdef SIM_ADDRESS_SANITIZER
    __sanitizer_start_switch_fiber(for_ever ? nullptr : &fake_stack_, scheduler_stack_, scheduler_size_);
#endif
    swapcontext(&context_, &scheduler_);
#ifdef SIM_ADDRESS_SANITIZER
    __sanitizer_finish_switch_fiber(fake_stack_, &scheduler_stack_, &scheduler_size_);
#endif
}

} // namespace sim
