#include "daemons/uagent/connection.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <linux/sockios.h>

#include "daemons/common/address.h"
#include "daemons/common/line_format.h"
#include "mcast/service.h"
#include "mcast/usrauth_wire.h"
#include "platform/local_socket.h"

namespace uagent
{
namespace
{

using Clock = std::chrono::steady_clock;

// Packets that may wait before send waits for the socket.
constexpr uint64_t MOST_PENDING = 64;
constexpr int UNREAD_POLL_MS = 2;
// The longest wait before it is asked whether to wait on.
constexpr int64_t WAIT_MS = 100;

// Takes a packet whole or not at all. The result is the reason why not.
uint64_t transmit(uint32_t peer, const void *data, uint64_t length, uint64_t *sent)
{
    ssize_t taken;
    do {
        taken = ::send(static_cast<int>(peer), data, length, MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (taken < 0 && errno == EINTR);
    if (taken < 0) {
        return static_cast<uint64_t>(errno);
    }
    *sent = length;
    return 0;
}

std::string reason(const char *what, int error)
{
    return std::string(what) + ": " + std::strerror(error);
}

// Bytes that the other end has not read yet.
int unread(int fd)
{
    int bytes = 0;
    return ioctl(fd, SIOCOUTQ, &bytes) == 0 ? bytes : 0;
}

} // namespace

Connection::Connection(int timeout_ms) : timeout_ms_(timeout_ms)
{
}

bool Connection::hung_up() const
{
    pollfd state{socket_.get(), 0, 0};
    return poll(&state, 1, 0) == 1 && (state.revents & (POLLHUP | POLLERR)) != 0;
}

bool Connection::open(uint16_t family, std::string *error)
{
    const MESSAGER_CALLBACKS_S callbacks = {nullptr, nullptr, transmit};
    LOCAL_SOCKET_ADDR_S address{};
    address.length = sizeof(address);
    address.family = LOCAL_SOCKET_FAMILY;
    address.port_be = htons(family == MCAST_FAMILY_IPV4 ? USRAUTH_PORT_IPV4 : USRAUTH_PORT_IPV6);
    address.node = LOCAL_SOCKET_NODE;
    socket_ = mcastd::Descriptor(socket(LOCAL_SOCKET_FAMILY, SOCK_DGRAM, LOCAL_SOCKET_PROTOCOL));
    if (!socket_.valid()) {
        *error = reason("cannot make a socket", errno);
        return false;
    }
    if (MCAST_Connect(socket_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        *error = reason("cannot connect to the user authentication", errno);
        if (errno == ECONNREFUSED) {
            *error +=
                std::string(": is gmpd running for ") + mcastd::family_name(family) + " with --user-auth?";
        }
        return false;
    }
    messager_.reset(Messager_Init(static_cast<uint32_t>(socket_.get()), USRAUTH_MSG_RECV_MAX, 0,
                                  MESSAGER_KEEP_PACKET, MOST_PENDING, &callbacks));
    if (messager_ == nullptr) {
        *error = "out of memory";
        return false;
    }
    return true;
}

bool Connection::send(const std::vector<uint8_t> &message, std::string *error)
{
    const auto append = [&] {
        return Messager_Send(messager_.get(), message.data(), static_cast<uint16_t>(message.size()),
                             MCAST_FALSE) == MCAST_OK;
    };
    if (append()) {
        return true;
    }
    // Too many packets wait.
    if (!flush(error)) {
        return false;
    }
    if (!append()) {
        *error = "a message is too long";
        return false;
    }
    return true;
}

bool Connection::flush(std::string *error)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeout_ms_);
    while (const uint64_t status = Messager_Announce(messager_.get())) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (status != EAGAIN) {
            *error = reason("cannot send", static_cast<int>(status));
            return false;
        }
        pollfd state{socket_.get(), POLLOUT, 0};
        poll(&state, 1, static_cast<int>(std::clamp(left.count(), int64_t{0}, WAIT_MS)));
        if (stop_asked_for_()) {
            *error = "ended before the daemon had read everything";
            return false;
        }
        if (left.count() <= 0) {
            *error = mcastd::formatted("the daemon does not read what was sent to it, %u bytes wait",
                                       static_cast<uint32_t>(Messager_GetDataLen(messager_.get())));
            return false;
        }
    }
    return true;
}

bool Connection::finish(std::string *error)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeout_ms_);
    if (!flush(error)) {
        return false;
    }
    while (unread(socket_.get()) > 0 && !hung_up() && !stop_asked_for_() && Clock::now() < deadline) {
        poll(nullptr, 0, UNREAD_POLL_MS);
    }
    if (hung_up()) {
        *error = "the daemon closed the connection; how much it has read is not known";
        return false;
    }
    if (unread(socket_.get()) > 0) {
        *error = "the daemon does not read";
        return false;
    }
    return true;
}

} // namespace uagent
