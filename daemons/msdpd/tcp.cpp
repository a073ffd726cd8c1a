/*
 * Connections without waiting. The speaker's state machine asks for a connection and is told what became of
 * it; the sockets are all non-blocking and are looked at when the event loop finds them ready.
 *
 *     listener ── accept_some ── take ──┐ from a configured peer, to its local_address
 *     connect ───── finish_connect ─────┴──► peer_connected
 *     socket readable ── read_some ────────► peer_input
 *     end of a round ── flush ── send_some ◄─ peer.output, filled by peer_send and dump_continue
 *
 * What is sent leaves at the end of a round of the loop, so that the messages of a round share segments. A
 * socket that takes no more is watched for room; until then its peer's messages wait in a buffer of bounded
 * size. One wake-up takes a bounded number of reads, sends and accepts, so that no peer keeps the others
 * waiting. There is at most one connection a peer; the map is keyed by the peer's address, and whatever a
 * callback of the state machine ends is gone from it when the callback returns.
 */
#include "daemons/msdpd/tcp.h"

#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include "daemons/common/log.h"
#include "daemons/common/memory.h"

namespace msdpd
{
namespace
{

using mcastd::Descriptor;

// What one wake-up takes, so that no peer keeps the others waiting.
constexpr size_t READ_SIZE = 16384;
constexpr int MOST_ACCEPTS = 16;
constexpr int MOST_SENDS = 8;
constexpr int BACKLOG = 64;
// Routing traffic: class selector 6.
constexpr int TRAFFIC_CLASS = 0xc0;

sockaddr_in socket_address(Ipv4 address, uint16_t port)
{
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_addr.s_addr = to_network(address);
    result.sin_port = htons(port);
    return result;
}

const sockaddr *generic(const sockaddr_in &address)
{
    return reinterpret_cast<const sockaddr *>(&address);
}

Descriptor make_socket()
{
    Descriptor made(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (made.valid()) {
        set_option(made, IPPROTO_IP, IP_TOS, TRAFFIC_CLASS); // best effort
    }
    return made;
}

Ipv4 local_address(const Descriptor &socket)
{
    sockaddr_in local{};
    socklen_t size = sizeof(local);
    getsockname(socket.get(), reinterpret_cast<sockaddr *>(&local), &size);
    return from_network(local.sin_addr.s_addr);
}

const char *remedy(int error)
{
    switch (error) {
    case EACCES:
        return "; run as root or with CAP_NET_BIND_SERVICE";
    case EADDRINUSE:
        return "; only one MSDP daemon may run in a network namespace";
    default:
        return "";
    }
}

} // namespace

Tcp::~Tcp()
{
    if (timers_ != nullptr) {
        mcastd::timer_stop(timers_, paused_);
    }
    for (const auto &[address, connection] : connections_) {
        reactor_.remove(connection.socket.get());
    }
    if (listener_.valid()) {
        reactor_.remove(listener_.get());
    }
}

bool Tcp::open(Speaker &speaker, uint16_t port)
{
    const sockaddr_in any = socket_address(Ipv4{}, port);
    speaker_ = &speaker;
    timers_ = speaker.timers;
    port_ = port;
    listener_ = make_socket();
    if (!listener_.valid() || !set_option(listener_, SOL_SOCKET, SO_REUSEADDR, 1) ||
        bind(listener_.get(), generic(any), sizeof(any)) != 0 || listen(listener_.get(), BACKLOG) != 0 ||
        !reactor_.add(listener_.get(), EPOLLIN, [this](uint32_t) { accept_some(); })) {
        mcastd::log_error("cannot listen on TCP port %u: %s%s", port, strerror(errno), remedy(errno));
        return false;
    }
    return true;
}

void Tcp::accept_some()
{
    for (int i = 0; i < MOST_ACCEPTS; ++i) {
        sockaddr_in remote{};
        socklen_t size = sizeof(remote);
        Descriptor socket(accept4(listener_.get(), reinterpret_cast<sockaddr *>(&remote), &size,
                                  SOCK_NONBLOCK | SOCK_CLOEXEC));

        if (!socket.valid()) {
            if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
                pause_accepting(errno);
            }
            return;
        }
        take(std::move(socket), from_network(remote.sin_addr.s_addr));
    }
}

// What cannot be accepted waits, and the listener would be ready for ever.
void Tcp::pause_accepting(int error)
{
    const auto resume = [](void *tcp) { static_cast<Tcp *>(tcp)->resume_accepting(); };
    ++speaker_->postponed_accepts;
    mcastd::log_warning("a connection cannot be accepted, trying again in a second: %s", strerror(error));
    if (mcastd::timer_try_start(timers_, paused_, mcastd::MS_PER_S, resume, this)) {
        reactor_.modify(listener_.get(), 0);
    }
}

void Tcp::resume_accepting()
{
    reactor_.modify(listener_.get(), EPOLLIN);
}

void Tcp::take(Descriptor socket, Ipv4 remote)
{
    Peer *peer = speaker_find_peer(*speaker_, remote);

    if (peer == nullptr || !peer_may_accept(*peer) || local_address(socket) != peer->config.local_address) {
        ++speaker_->refused_connections;
        mcastd::log_debug("a connection from %s to %s is refused", to_text(remote).c_str(),
                          to_text(local_address(socket)).c_str());
        return;
    }
    if (peer->established()) {
        ++peer->counters[Count::Replaced];
        peer_lost(*peer, "replaced by a new one");
    }
    Connection connection;

    connection.socket = std::move(socket);
    if (watch(remote, std::move(connection), EPOLLIN)) {
        peer_connected(*peer);
    }
}

bool Tcp::watch(Ipv4 address, Connection connection, uint32_t events)
{
    const int fd = connection.socket.get();
    connections_.insert_or_assign(address, std::move(connection));
    bool watched = false;
    mcastd::memory_unit("a connection", [&] {
        watched = reactor_.add(fd, events, [this, address](uint32_t happened) { ready(address, happened); });
    });
    if (!watched) {
        connections_.erase(address);
    }
    return watched;
}

void Tcp::connect(Peer &peer)
{
    const sockaddr_in from = socket_address(peer.config.local_address, 0);
    const sockaddr_in to = socket_address(peer.config.address, port_);
    Connection connection;
    connection.connecting = true;
    connection.socket = make_socket();
    if (!connection.socket.valid() || bind(connection.socket.get(), generic(from), sizeof(from)) != 0 ||
        (::connect(connection.socket.get(), generic(to), sizeof(to)) != 0 && errno != EINPROGRESS) ||
        !watch(peer.config.address, std::move(connection), EPOLLOUT)) {
        peer_connect_failed(peer, strerror(errno));
    }
}

void Tcp::disconnect(Peer &peer)
{
    const auto found = connections_.find(peer.config.address);
    if (found != connections_.end()) {
        reactor_.remove(found->second.socket.get());
        connections_.erase(found);
    }
}

void Tcp::ready(Ipv4 address, uint32_t events)
{
    Peer *peer = speaker_find_peer(*speaker_, address);
    const auto found = connections_.find(address);
    if (peer == nullptr || found == connections_.end()) {
        return;
    }
    if (found->second.connecting) {
        finish_connect(*peer, found->second);
    } else if ((events & (EPOLLIN | EPOLLERR | EPOLLHUP)) != 0) {
        read_some(*peer, found->second);
    }
}

void Tcp::finish_connect(Peer &peer, Connection &connection)
{
    int error = 0;
    socklen_t size = sizeof(error);
    if (getsockopt(connection.socket.get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0 || error != 0) {
        disconnect(peer);
        peer_connect_failed(peer, strerror(error));
        return;
    }
    connection.connecting = false;
    reactor_.modify(connection.socket.get(), EPOLLIN);
    peer_connected(peer);
}

void Tcp::read_some(Peer &peer, const Connection &connection)
{
    uint8_t bytes[READ_SIZE];
    const ssize_t size = recv(connection.socket.get(), bytes, sizeof(bytes), 0);
    if (size > 0) {
        const auto input = std::span(bytes, static_cast<size_t>(size));
        if (!mcastd::memory_unit("what a peer says", [&] { peer_input(peer, input); })) {
            peer_lost(peer, "memory was short"); // where its next message begins is not known
        }
    } else if (size == 0) {
        ++peer.counters[Count::ClosedByPeer];
        peer_lost(peer, "closed by the peer");
    } else if (errno != EAGAIN && errno != EINTR) {
        peer_lost(peer, strerror(errno));
    }
}

void Tcp::watch_for_room(Connection &connection, bool wanted)
{
    if (connection.waits_for_room != wanted &&
        reactor_.modify(connection.socket.get(), wanted ? EPOLLIN | EPOLLOUT : EPOLLIN)) {
        connection.waits_for_room = wanted;
    }
}

bool Tcp::send_some(Peer &peer)
{
    Connection &connection = connections_.at(peer.config.address);

    for (int i = 0; i < MOST_SENDS; ++i) {
        dump_continue(peer);
        const std::span<const uint8_t> waiting = peer.output.waiting();

        if (waiting.empty()) {
            watch_for_room(connection, false);
            return false;
        }
        const ssize_t sent = send(connection.socket.get(), waiting.data(), waiting.size(), MSG_NOSIGNAL);

        if (sent > 0) {
            peer.output.consume(static_cast<size_t>(sent));
        } else if (errno == EAGAIN) {
            watch_for_room(connection, true);
            return false;
        } else if (errno != EINTR) {
            peer_lost(peer, strerror(errno));
            return false;
        }
    }
    return true;
}

bool Tcp::flush()
{
    bool more = false;
    for (const auto &[address, peer] : speaker_->peers) {
        if (peer->established()) {
            more |= send_some(*peer);
        }
    }
    return more;
}

} // namespace msdpd
