/*
 * Linked into every image in place of two files of the host platform: how it reaches libc, and how local sockets
 * are made of the kernel's own.
 */
#include <cerrno>
#include <cstdint>

#include "host/src/libc_calls.h"
#include "host/src/local_socket.h"
#include "mcasthost/local_socket.h"
#include "platform/local_socket.h"

extern "C" {
int sim_socket(int domain, int type, int protocol);
int sim_bind(int fd, const sockaddr *address, socklen_t length);
int sim_connect(int fd, const sockaddr *address, socklen_t length);
int sim_accept4(int fd, sockaddr *address, socklen_t *length, int flags);
int sim_setsockopt(int fd, int level, int option, const void *value, socklen_t size);
int sim_epoll_ctl(int epoll, int operation, int fd, epoll_event *event);
int sim_is_local(int fd);
}

namespace
{

int accept_plain(int fd, sockaddr *address, socklen_t *length)
{
    return sim_accept4(fd, address, length, 0);
}

} // namespace

namespace host
{

const LibcCalls &libc()
{
    static constinit const LibcCalls calls = {sim_socket,  sim_bind,       sim_connect,  accept_plain,
                                              sim_accept4, sim_setsockopt, sim_epoll_ctl};
    return calls;
}

bool is_local_socket(int fd)
{
    return sim_is_local(fd) != 0;
}

bool is_local_address(const sockaddr *address, socklen_t length)
{
    return address != nullptr && length >= 2 &&
           reinterpret_cast<const unsigned char *>(address)[1] == LOCAL_SOCKET_FAMILY;
}

PortUse local_port_use(const RuntimeDir &, unsigned)
{
    return PortUse::Unknown;
}

int local_socket(int type, int protocol)
{
    return sim_socket(LOCAL_SOCKET_FAMILY, type, protocol);
}

int local_bind(int fd, const sockaddr *address, socklen_t length)
{
    return sim_bind(fd, address, length);
}

int local_connect(int fd, const sockaddr *address, socklen_t length)
{
    return sim_connect(fd, address, length);
}

int local_accept(int fd, sockaddr *address, socklen_t *length, int flags)
{
    return sim_accept4(fd, address, length, flags);
}

bool is_local_option(int option)
{
    constexpr int OPTION_REUSE = 0x200;
    return option == LOCAL_SOCKET_OPTION_LINGER || option == OPTION_REUSE;
}

int local_set_option(int, const void *, socklen_t)
{
    return 0;
}

} // namespace host

// Which parts of the library the daemon begins, switches over and ends is written down on the way. None of these
// functions has more than six arguments, all of them numbers or pointers: handing on the registers that hold six
// hands on whatever they are.
extern "C" void sim_note_call(char letter);

#define RECORDED(letter, name)                                                                               \
    extern "C" uint64_t __real_##name(uint64_t, uint64_t, uint64_t, uint64_t, uint64_t, uint64_t);           \
    extern "C" uint64_t __wrap_##name(uint64_t a, uint64_t b, uint64_t c, uint64_t d, uint64_t e,            \
                                      uint64_t f)                                                            \
    {                                                                                                        \
        sim_note_call(letter);                                                                               \
        return __real_##name(a, b, c, d, e, f);                                                              \
    }

RECORDED('I', MCAST_IF_Init)
RECORDED('G', MRIB_GMP_Init)
RECORDED('U', MCAST_USRAUTH_Init)
RECORDED('A', MCAST_USRAUTH_Upgrade)
RECORDED('D', MCAST_IF_Degrade)
RECORDED('r', MCAST_ReserveIf)
RECORDED('F', MCAST_IF_ReserveFinish)
RECORDED('d', MCAST_USRAUTH_Degrade)
RECORDED('S', MCAST_USRAUTH_StopServer)
RECORDED('X', MCAST_USRAUTH_Fini)
RECORDED('Y', MRIB_GMP_Fini)
RECORDED('Z', MCAST_IF_Fini)

// Every peer is of the same user.
extern "C" uint64_t HOST_LocalSocketRefusedPeers(void)
{
    return 0;
}
