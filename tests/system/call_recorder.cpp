/*
 * Preloaded into a daemon it writes down, one a line in the file that MCAST_CALL_RECORD names, which of the
 * library's functions that begin, switch over and end a part the daemon calls, and hands each call on. What
 * the library calls itself is not written down.
 */
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

namespace
{

using Function = uint64_t (*)(uint64_t, uint64_t, uint64_t, uint64_t, uint64_t, uint64_t);

void write_down(const char *name)
{
    static const int fd = open(getenv("MCAST_CALL_RECORD"), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    char line[64];
    const int length = snprintf(line, sizeof(line), "%s\n", name);
    if (write(fd, line, static_cast<size_t>(length)) != length) {
        abort();
    }
}

bool is_of_library(const void *caller)
{
    Dl_info place{};
    return dladdr(caller, &place) != 0 && strstr(place.dli_fname, "libmcastcommon") != nullptr;
}

Function next(const char *name)
{
    const auto function = reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
    if (function == nullptr) {
        abort();
    }
    return function;
}

} // namespace

// None of these functions has more than six arguments, all of them numbers or pointers: handing on the
// registers that hold six hands on whatever they are.
#define RECORDED(name)                                                                                       \
    extern "C" __attribute__((visibility("default"))) uint64_t name(uint64_t a, uint64_t b, uint64_t c,      \
                                                                    uint64_t d, uint64_t e, uint64_t f)      \
    {                                                                                                        \
        static const Function real = next(#name);                                                            \
        if (!is_of_library(__builtin_return_address(0))) {                                                   \
            write_down(#name);                                                                               \
        }                                                                                                    \
        return real(a, b, c, d, e, f);                                                                       \
    }

RECORDED(MC_CommonRcInit)
RECORDED(MCAST_IF_Init)
RECORDED(MBR_LIB_Init)
RECORDED(MBR_LIB_RegEvt)
RECORDED(MRIB_GMP_Init)
RECORDED(MRIB_GMP_OpenConnect)
RECORDED(MCAST_USRAUTH_Init)
RECORDED(MCAST_USRAUTH_Upgrade)
RECORDED(MCAST_IF_Degrade)
RECORDED(MCAST_ReserveIf)
RECORDED(MCAST_IF_ReserveFinish)
RECORDED(MCAST_USRAUTH_Degrade)
RECORDED(MCAST_USRAUTH_StopServer)
RECORDED(MCAST_USRAUTH_Fini)
RECORDED(MRIB_GMP_CloseConnection)
RECORDED(MRIB_GMP_Fini)
RECORDED(MBR_LIB_Fini)
RECORDED(MCAST_IF_Fini)
RECORDED(MC_CommonRcExit)
