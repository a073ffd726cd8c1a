/*
 * A local socket is an AF_UNIX SOCK_SEQPACKET socket: it keeps message boundaries and order, refuses when
 * nobody listens, gives EAGAIN when the peer does not read, and end-of-file and hang-up when it closes. A
 * port is a file of that name in the runtime directory.
 *
 * What a socket is nobody has to remember: descriptors are duplicated, inherited and closed without our being
 * told, so every fact is kept where the kernel moves it along with the socket. What this process is bound to it
 * does remember, to notice when a name is gone (local_ports.h).
 *
 *   - A socket of ours is marked by its SO_RCVLOWAT, which message sockets do not use.
 *   - Whether a port is taken the kernel says. A connect from a socket of the wrong type to a name fails with
 *     EPROTOTYPE when a socket is bound to it, listening or not, and with ECONNREFUSED when a process that is
 *     gone left the name. The probe never reaches the listener. Probe, removal of a dead name and bind happen
 *     under a lock file, so that of two daemons starting together exactly one gets the port; the lock goes
 *     with its holder, so a killed daemon blocks nobody.
 *
 * The name needs no removal on close: a dead one is as good as none.
 */
#include "local_socket.h"

#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "libc_calls.h"
#include "local_ports.h"
#include "loop_rest.h"
#include "mcasthost/local_socket.h"
#include "platform/local_socket.h"
#include "runtime_dir.h"

namespace
{

using host::accept_ran_short;
using host::accept_went_well;
using host::Descriptor;
using host::libc;
using host::Missing;
using host::PortUse;
using host::RuntimeDir;

constexpr int MARK = LOCAL_SOCKET_FAMILY;

// Room for a hundred of the largest messages; the kernel may grant less, but not less than its default.
constexpr int SEND_BUFFER = 1 << 20;

// Peers that one accept turns away before its caller has something else to do.
constexpr unsigned MOST_REFUSALS = 64;

// How long a bind waits for the lock of the names, and how often it looks.
constexpr long LOCK_WAIT_MS = 2000;
constexpr unsigned LOCK_TRIES = 200;

std::atomic<uint64_t> g_refused_peers{0};

int fail(int error)
{
    errno = error;
    return -1;
}

int int_option(int fd, int option)
{
    int value = -1;
    socklen_t length = sizeof(value);
    return getsockopt(fd, SOL_SOCKET, option, &value, &length) == 0 ? value : -1;
}

bool mark(int fd)
{
    int value = MARK;
    int size = SEND_BUFFER;
    if (libc().setsockopt(fd, SOL_SOCKET, SO_RCVLOWAT, &value, sizeof(value)) != 0) {
        return false;
    }
    return int_option(fd, SO_SNDBUF) >= size ||
           libc().setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &size, sizeof(size)) == 0;
}

bool read_port(const sockaddr *address, socklen_t length, unsigned *port)
{
    LOCAL_SOCKET_ADDR_S local;
    if (length < sizeof(local)) {
        errno = EINVAL;
        return false;
    }
    memcpy(&local, address, sizeof(local));
    *port = ntohs(local.port_be);
    if (*port == 0 || local.node != LOCAL_SOCKET_NODE) {
        errno = EADDRNOTAVAIL;
        return false;
    }
    return true;
}

bool port_name(const RuntimeDir &dir, unsigned port, sockaddr_un *name)
{
    name->sun_family = AF_UNIX;
    int length = snprintf(name->sun_path, sizeof(name->sun_path), "%s/%u", dir.path, port);
    if (length < 0 || static_cast<size_t>(length) >= sizeof(name->sun_path)) {
        errno = ENAMETOOLONG;
        return false;
    }
    return true;
}

const sockaddr *generic(const sockaddr_un *name)
{
    return reinterpret_cast<const sockaddr *>(name);
}

PortUse use_of(const sockaddr_un &name)
{
    const Descriptor probe(libc().socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!probe.valid()) {
        return PortUse::Unknown;
    }
    if (libc().connect(probe.get(), generic(&name), sizeof(name)) == 0) {
        return PortUse::Bound;
    }
    switch (errno) {
    case EPROTOTYPE:
        return PortUse::Bound;
    case ECONNREFUSED:
        return PortUse::Left;
    case ENOENT:
        return PortUse::Unused;
    default:
        return PortUse::Unknown;
    }
}

// Makes the name free for a bind, or fails with EADDRINUSE. The caller holds the lock.
bool clear_name(const sockaddr_un &name)
{
    // A link would be followed by the probe and not by the bind. Nobody but the folder's owner put it there.
    struct stat status;
    if (lstat(name.sun_path, &status) == 0 && !S_ISSOCK(status.st_mode)) {
        return unlink(name.sun_path) == 0;
    }
    switch (use_of(name)) {
    case PortUse::Bound:
        errno = EADDRINUSE;
        return false;
    case PortUse::Left:
        return unlink(name.sun_path) == 0;
    case PortUse::Unused:
        return true;
    default:
        return false;
    }
}

// Its holders have it for the time of a bind; who has it longer has stopped, or is no user of this library.
Descriptor lock_names(const RuntimeDir &dir)
{
    Descriptor lock(openat(dir.fd.get(), "lock", O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    constexpr timespec PAUSE{0, LOCK_WAIT_MS / LOCK_TRIES * 1000000};
    for (unsigned tries = 0; lock.valid() && flock(lock.get(), LOCK_EX | LOCK_NB) != 0;) {
        if (errno != EINTR && (errno != EWOULDBLOCK || ++tries == LOCK_TRIES)) {
            const int error = errno == EWOULDBLOCK ? EBUSY : errno;
            lock = Descriptor();
            errno = error;
        } else {
            nanosleep(&PAUSE, nullptr);
        }
    }
    return lock;
}

bool trusted_peer(int fd)
{
    ucred peer;
    socklen_t length = sizeof(peer);
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 &&
           (peer.uid == geteuid() || peer.uid == 0);
}

// The kernel looks for a descriptor before it looks for a connection. Keeps errno.
void note_shortage(int listener)
{
    const int error = errno;
    pollfd waiting{listener, POLLIN, 0};
    if ((error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM) &&
        poll(&waiting, 1, 0) > 0) {
        accept_ran_short(listener);
    }
    errno = error;
}

// Clients have no port of their own.
void give_peer_address(sockaddr *address, socklen_t *length)
{
    LOCAL_SOCKET_ADDR_S local{};
    local.family = LOCAL_SOCKET_FAMILY;
    local.node = LOCAL_SOCKET_NODE;
    if (address != nullptr && length != nullptr) {
        memcpy(address, &local, *length < sizeof(local) ? *length : sizeof(local));
        *length = sizeof(local);
    }
}

} // namespace

bool host::is_local_socket(int fd)
{
    int saved = errno;
    bool local = int_option(fd, SO_RCVLOWAT) == MARK && int_option(fd, SO_DOMAIN) == AF_UNIX &&
                 int_option(fd, SO_TYPE) == SOCK_SEQPACKET;
    errno = saved;
    return local;
}

bool host::is_local_address(const sockaddr *address, socklen_t length)
{
    return address != nullptr && length >= 2 &&
           reinterpret_cast<const unsigned char *>(address)[1] == LOCAL_SOCKET_FAMILY;
}

PortUse host::local_port_use(const RuntimeDir &dir, unsigned port)
{
    sockaddr_un name{};
    return port_name(dir, port, &name) ? use_of(name) : PortUse::Unknown;
}

int host::local_socket(int type, int protocol)
{
    constexpr int FLAGS = SOCK_NONBLOCK | SOCK_CLOEXEC;
    if ((type & ~FLAGS) != SOCK_DGRAM) {
        return fail(ESOCKTNOSUPPORT);
    }
    if (protocol != LOCAL_SOCKET_PROTOCOL) {
        return fail(EPROTONOSUPPORT);
    }
    Descriptor fd(libc().socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | (type & SOCK_NONBLOCK), 0));
    return fd.valid() && mark(fd.get()) ? fd.release() : -1;
}

int host::local_bind(int fd, const sockaddr *address, socklen_t length)
{
    unsigned port = 0;
    RuntimeDir dir;
    sockaddr_un name{};
    if (!read_port(address, length, &port) || !open_runtime_dir(Missing::Create, &dir) ||
        !port_name(dir, port, &name)) {
        return -1;
    }
    Descriptor lock = lock_names(dir);
    if (!lock.valid() || !clear_name(name)) {
        return -1;
    }
    // The name takes its mode from the socket, whatever the process's mask.
    if (fchmod(fd, 0600) != 0) {
        return -1;
    }
    if (libc().bind(fd, generic(&name), sizeof(name)) != 0) {
        return -1;
    }
    remember_port(fd, static_cast<uint16_t>(port), name);
    return 0;
}

int host::local_connect(int fd, const sockaddr *address, socklen_t length)
{
    unsigned port = 0;
    RuntimeDir dir;
    sockaddr_un name{};
    if (!read_port(address, length, &port)) {
        return -1;
    }
    if (!open_runtime_dir(Missing::Fail, &dir)) {
        return fail(errno == ENOENT ? ECONNREFUSED : errno);
    }
    if (!port_name(dir, port, &name)) {
        return -1;
    }
    int result = libc().connect(fd, generic(&name), sizeof(name));
    if (result != 0 && (errno == ENOENT || errno == EPROTOTYPE)) {
        errno = ECONNREFUSED;
    }
    return result;
}

/*
 * Whoever calls was told that a connection waits, and may not wait for the next one when that was somebody
 * else's: on a listener that blocks, a stranger could otherwise hang its owner.
 */
int host::local_accept(int fd, sockaddr *address, socklen_t *length, int flags)
{
    for (unsigned refused = 0; refused < MOST_REFUSALS; ++refused) {
        pollfd waiting{fd, POLLIN, 0};
        if (refused != 0 && poll(&waiting, 1, 0) <= 0) {
            break;
        }
        Descriptor peer(libc().accept4(fd, nullptr, nullptr, flags | SOCK_CLOEXEC));
        if (!peer.valid()) {
            note_shortage(fd);
            return -1;
        }
        accept_went_well(fd);
        if (!trusted_peer(peer.get()) || !mark(peer.get())) {
            g_refused_peers.fetch_add(1, std::memory_order_relaxed);
        } else if (admit_peer(fd, peer.get())) {
            give_peer_address(address, length);
            return peer.release();
        }
    }
    return fail((fcntl(fd, F_GETFL) & O_NONBLOCK) != 0 ? EAGAIN : ECONNABORTED);
}

bool host::is_local_option(int option)
{
    return option == LOCAL_SOCKET_OPTION_LINGER || option == LOCAL_SOCKET_OPTION_REUSE;
}

/*
 * Both options are accepted without effect: what a closed socket sent stays readable for its peer, and a
 * name left behind never stands in the way.
 */
int host::local_set_option(int option, const void *value, socklen_t length)
{
    socklen_t expected = option == LOCAL_SOCKET_OPTION_LINGER ? 8 : 4;
    if (value == nullptr) {
        return fail(EFAULT);
    }
    return length == expected ? 0 : fail(EINVAL);
}

extern "C" uint64_t HOST_LocalSocketRefusedPeers(void)
{
    return g_refused_peers.load(std::memory_order_relaxed);
}
