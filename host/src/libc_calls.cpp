#include "libc_calls.h"

#include <cstdlib>
#include <dlfcn.h>

namespace
{

template <typename Function> void resolve(Function *&function, const char *name)
{
    function = reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
    if (function == nullptr) {
        abort(); // loaded behind libc: nothing could be passed through
    }
}

host::LibcCalls resolve_all()
{
    host::LibcCalls calls{};
    resolve(calls.socket, "socket");
    resolve(calls.bind, "bind");
    resolve(calls.connect, "connect");
    resolve(calls.accept, "accept");
    resolve(calls.accept4, "accept4");
    resolve(calls.setsockopt, "setsockopt");
    resolve(calls.epoll_ctl, "epoll_ctl");
    return calls;
}

} // namespace

const host::LibcCalls &host::libc()
{
    static const LibcCalls CALLS = resolve_all();
    return CALLS;
}
