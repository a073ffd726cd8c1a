/*
 * A bound socket is a file in the runtime directory, of which the socket is not told when it goes. So the file's
 * number is kept beside the socket's own, by which a descriptor that was closed and given out again is told from
 * the one that was bound:
 *
 *     port ─► descriptor ── is it still this socket? ──► name ── is it still this file? ──► bind again
 *
 * A socket can be bound once. The name is therefore taken by a new socket, which then takes the old one's
 * descriptor, so that whoever holds the number never learns of it.
 */
#include "local_ports.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <new>
#include <sys/socket.h>
#include <sys/stat.h>
#include <vector>

#include "descriptor.h"
#include "local_socket.h"
#include "loop.h"
#include "mcasthost/local_socket.h"
#include "platform/local_socket.h"

namespace
{

using host::Descriptor;

constexpr size_t MOST_PORTS = 32;
constexpr int BACKLOG = 1024;

// A socket, whatever else has its number now.
struct OpenSocket {
    int fd = -1;
    ino_t inode = 0;

    bool is_open() const
    {
        struct stat status;
        return fd >= 0 && fstat(fd, &status) == 0 && S_ISSOCK(status.st_mode) && status.st_ino == inode;
    }
};

struct Port {
    OpenSocket socket;
    uint16_t number = 0;
    sockaddr_un name{};
    dev_t device = 0; // of the name
    ino_t inode = 0;
};

struct Limit {
    size_t most = 0;
    std::vector<OpenSocket> peers; // with room for most of them
};

std::mutex g_mutex; // guards what follows
std::array<Port, MOST_PORTS> g_ports;
std::map<uint16_t, Limit> g_limits;
std::atomic<bool> g_has_limits = false;
std::atomic<uint64_t> g_over_limit = 0;

OpenSocket open_socket(int fd)
{
    struct stat status;
    return fstat(fd, &status) == 0 ? OpenSocket{fd, status.st_ino} : OpenSocket();
}

bool name_is_there(const Port &port)
{
    struct stat status;
    if (lstat(port.name.sun_path, &status) == 0) {
        return status.st_dev == port.device && status.st_ino == port.inode;
    }
    return errno == ENOMEM || errno == EINTR || errno == EIO; // which says nothing about it
}

bool is_listening(int fd)
{
    int value = 0;
    socklen_t length = sizeof(value);
    return getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &value, &length) == 0 && value != 0;
}

// False with errno set. Not under the mutex, which the bind takes.
bool bind_again(int fd, uint16_t port)
{
    LOCAL_SOCKET_ADDR_S address{};
    address.length = sizeof(address);
    address.family = LOCAL_SOCKET_FAMILY;
    address.port_be = htons(port);
    address.node = LOCAL_SOCKET_NODE;
    const int blocking = (fcntl(fd, F_GETFL) & O_NONBLOCK) != 0 ? SOCK_NONBLOCK : 0;
    const Descriptor fresh(host::local_socket(SOCK_DGRAM | blocking, LOCAL_SOCKET_PROTOCOL));
    return fresh.valid() &&
           host::local_bind(fresh.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) ==
               0 &&
           (!is_listening(fd) || listen(fresh.get(), BACKLOG) == 0) &&
           host::replace_descriptor(fd, fresh.get());
}

// The port's record, or nullptr. The caller holds the mutex.
Port *find_port(const OpenSocket &socket)
{
    const auto found = std::find_if(g_ports.begin(), g_ports.end(), [&](const Port &port) {
        return port.socket.fd == socket.fd && port.socket.inode == socket.inode;
    });
    return found == g_ports.end() ? nullptr : &*found;
}

void tend(const Port &port, HOST_LOCAL_SOCKET_TEND_S *found)
{
    if (bind_again(port.socket.fd, port.number)) {
        // The new record names the descriptor that the new socket had at first.
        const OpenSocket now = open_socket(port.socket.fd);
        std::lock_guard guard(g_mutex);
        for (Port &other : g_ports) {
            if (other.socket.inode == now.inode) {
                other.socket.fd = now.fd;
            }
        }
        ++found->rebound;
        return;
    }
    ++found->lost;
    if (found->error != EADDRINUSE) {
        found->error = errno;
        found->lost_port = port.number;
    }
}

} // namespace

void host::remember_port(int fd, uint16_t port, const sockaddr_un &name)
{
    struct stat status;
    if (lstat(name.sun_path, &status) != 0) {
        return;
    }
    std::lock_guard guard(g_mutex);
    const auto place =
        std::find_if(g_ports.begin(), g_ports.end(), [](const Port &old) { return !old.socket.is_open(); });
    if (place != g_ports.end()) {
        *place = {open_socket(fd), port, name, status.st_dev, status.st_ino};
    }
}

bool host::admit_peer(int listener, int peer)
{
    if (!g_has_limits) {
        return true;
    }
    std::lock_guard guard(g_mutex);
    const Port *const port = find_port(open_socket(listener));
    const auto limit = port == nullptr ? g_limits.end() : g_limits.find(port->number);
    if (limit == g_limits.end()) {
        return true;
    }
    std::vector<OpenSocket> &peers = limit->second.peers;
    if (peers.size() >= limit->second.most) {
        std::erase_if(peers, [](const OpenSocket &old) { return !old.is_open(); });
    }
    if (peers.size() >= limit->second.most) {
        g_over_limit.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
    peers.push_back(open_socket(peer));
    return true;
}

extern "C" {

uint32_t HOST_LocalSocketLimit(uint16_t port, uint32_t most)
{
    std::lock_guard guard(g_mutex);
    try {
        if (most == 0) {
            g_limits.erase(port);
        } else {
            Limit &limit = g_limits[port];
            limit.peers.reserve(most);
            limit.most = most;
        }
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return HOST_FAILED;
    }
    g_has_limits = !g_limits.empty();
    return 0;
}

uint64_t HOST_LocalSocketOverLimit(void)
{
    return g_over_limit.load(std::memory_order_relaxed);
}

void HOST_LocalSocketTend(HOST_LOCAL_SOCKET_TEND_S *found)
{
    *found = {};
    std::array<Port, MOST_PORTS> gone;
    size_t count = 0;
    {
        std::lock_guard guard(g_mutex);
        for (Port &port : g_ports) {
            if (port.socket.fd < 0) {
                continue;
            }
            if (!port.socket.is_open()) {
                port = {};
            } else if (!name_is_there(port)) {
                gone[count++] = port;
            }
        }
    }
    for (size_t i = 0; i < count; ++i) {
        tend(gone[i], found);
    }
}

} // extern "C"
