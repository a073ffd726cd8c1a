/*
 * The calls of a daemon about itself: signals, limits, its end, random bytes, and the names of interfaces.
 */
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <net/if.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include "tests/simulation/kernel/call_frame.h"
#include "tests/simulation/kernel/machine.h"

using namespace sim;

namespace
{

// What nothing here stands in for, because no daemon needs it in these runs.
[[noreturn]] void not_simulated(const char *call)
{
    fprintf(stderr, "%s calls %s, which is not simulated\n", g_process->name().c_str(), call);
    abort();
}

} // namespace

extern "C" {

void sim_note_call(char letter)
{
    const OwnMemory own;
    g_process->calls_made += letter;
}

// Only signalfd is called in this way.
long __wrap_syscall(long number, long, long mask, long, ...)
{
    if (number != SYS_signalfd && number != SYS_signalfd4) {
        not_simulated("an unknown system call");
    }
    return make_file(Call::SignalCreate, [mask](Process &process) {
        uint64_t bits;
        memcpy(&bits, reinterpret_cast<const void *>(mask), sizeof(bits));
        return std::make_shared<SignalFile>(process.pending_signals(), bits << 1);
    });
}

int __wrap_pthread_sigmask(int, const void *, void *)
{
    return 0;
}

void *__wrap_signal(int, void *)
{
    return nullptr;
}

pid_t __wrap_getpid()
{
    return static_cast<pid_t>(1000 + g_process->number());
}

int __wrap_getrlimit(int, rlimit *limit)
{
    limit->rlim_cur = limit->rlim_max = g_process->descriptor_limit;
    return 0;
}

int __wrap_setrlimit(int, const rlimit *)
{
    return 0;
}

int __wrap_nanosleep(const timespec *, timespec *)
{
    return 0;
}

ssize_t __wrap_getrandom(void *buffer, size_t size, unsigned)
{
    const OwnMemory own;
    auto *bytes = static_cast<uint8_t *>(buffer);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] =
            static_cast<uint8_t>(g_process->kernel().draw.number(Stream::Process, g_process->number()));
    }
    return static_cast<ssize_t>(size);
}

char *__wrap_if_indextoname(unsigned if_index, char *name)
{
    const Interface *interface = g_process->machine().find(if_index);
    if (interface == nullptr) {
        errno = ENXIO;
        return nullptr;
    }
    return strcpy(name, interface->name.c_str());
}

void __wrap__Exit(int code)
{
    g_process->die(Process::End::Exited, code);
}

int __wrap___cxa_atexit(void (*function)(void *), void *argument, void *)
{
    const OwnMemory own;
    if (g_process != nullptr) {
        g_process->at_exit(function, argument);
    } else {
        g_loading_image->at_exit(function, argument);
    }
    return 0;
}

int __wrap___cxa_thread_atexit(void (*function)(void *), void *argument, void *object)
{
    return __wrap___cxa_atexit(function, argument, object);
}

// The simulation's own heap is not the daemon's to trim.
int __wrap_malloc_trim(size_t)
{
    return 0;
}

// What the library says of a broken invariant.
int __wrap_printf(const char *format, ...)
{
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    const int size = vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    const OwnMemory own;
    g_process->write_log(text);
    return size;
}

#define NOT_SIMULATED(call)                                                                                  \
    int __wrap_##call()                                                                                      \
    {                                                                                                        \
        not_simulated(#call);                                                                                \
    }

NOT_SIMULATED(posix_spawn)
NOT_SIMULATED(timer_create)
NOT_SIMULATED(timer_settime)
NOT_SIMULATED(timer_delete)
NOT_SIMULATED(waitpid)
NOT_SIMULATED(mkostemp)
NOT_SIMULATED(fcntl)
NOT_SIMULATED(dup3)
NOT_SIMULATED(stat)
NOT_SIMULATED(lstat)
NOT_SIMULATED(openat)
NOT_SIMULATED(opendir)
NOT_SIMULATED(readdir)
NOT_SIMULATED(closedir)
NOT_SIMULATED(mkdir)
NOT_SIMULATED(rename)
NOT_SIMULATED(unlink)
NOT_SIMULATED(fchmod)

} // extern "C"
