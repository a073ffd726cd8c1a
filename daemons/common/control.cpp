#include "daemons/common/control.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <string>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "daemons/common/config_file.h"
#include "daemons/common/control_debug.h"
#include "daemons/common/descriptor_reserve.h"
#include "daemons/common/local_listener.h"
#include "daemons/common/log.h"
#include "daemons/common/log_output.h"
#include "daemons/common/memory.h"
#include "daemons/common/port_watch.h"
#include "mcast/format.h"
#include "mcasthost/local_socket.h"

namespace mcastd
{
namespace
{

// What one wake-up takes of the listening socket; each may cost a full reply.
constexpr unsigned ACCEPTS_PER_WAKE = 8;

} // namespace

ControlServer::ControlServer(Reactor &reactor) : reactor_(reactor)
{
    fill_descriptor_reserve();
    offer_debug(registry_);
}

ControlServer::~ControlServer()
{
    close();
}

void ControlServer::close()
{
    while (!connections_.empty()) {
        drop(connections_.front());
    }
    if (listener_ >= 0) {
        reactor_.remove(listener_);
        ::close(listener_);
        listener_ = -1;
    }
}

bool ControlServer::open(uint16_t port)
{
    listener_ = listen_local(port);
    if (listener_ < 0 || !reactor_.add(listener_, EPOLLIN, [this](uint32_t) { accept_clients(); })) {
        log_error("cannot listen on local port %u for control requests: %s%s", port, std::strerror(errno),
                  errno == EADDRINUSE ? "; the same daemon serves this network namespace already" : "");
        return false;
    }
    return true;
}

void ControlServer::accept_clients()
{
    for (unsigned count = 0; count < ACCEPTS_PER_WAKE; ++count) {
        const int fd = accept_next(listener_);
        if (fd >= 0) {
            take(fd);
        } else if (is_shortage(errno)) {
            if (!accept_from_reserve()) {
                postpone_accept(reactor_, listener_, "a control request");
                return;
            }
        } else {
            return;
        }
    }
}

// Takes a client for which there is no descriptor with one of the reserve, or in place of the client that has
// waited longest for its request. False when there is neither.
bool ControlServer::accept_from_reserve()
{
    if (!lend_descriptor(RESERVED_FROM_CONTROL)) {
        if (connections_.empty()) {
            return false;
        }
        ++displaced_;
        drop(connections_.front());
    }
    const int fd = accept_next(listener_);
    if (fd >= 0) {
        take(fd);
        return true;
    }
    const bool shortage = is_shortage(errno);
    fill_descriptor_reserve();
    return !shortage;
}

// As adopt; a client for which there is no memory is turned away.
void ControlServer::take(int fd)
{
    if (!memory_unit("a control request", [this, fd] { adopt(fd); })) {
        drop(fd);
    }
}

void ControlServer::adopt(int fd)
{
    ++accepted_;
    connections_.push_back(fd);
    if (!serve(fd)) {
        return; // its request was there already
    }
    const auto request = [this, fd](uint32_t) {
        if (!memory_unit("a control request", [this, fd] { serve(fd); })) {
            drop(fd);
        }
    };
    if (!reactor_.add(fd, EPOLLIN, request)) {
        drop(fd);
        return;
    }
    if (connections_.size() > CONNECTION_LIMIT) {
        ++displaced_;
        drop(connections_.front());
    }
}

// Answers the request when it is there. Whether the connection stays, to wait for it.
bool ControlServer::serve(int fd)
{
    // A datagram that is longer is cut, and what is cut is no request.
    static std::array<uint8_t, CONTROL_REQUEST_MAX + 1> buffer;
    const ssize_t size = recv(fd, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
        return true;
    }
    if (size > 0) {
        const std::vector<uint8_t> reply = registry_.answer({buffer.data(), static_cast<size_t>(size)});
        if (send(fd, reply.data(), reply.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
            ++unsent_;
        }
    }
    drop(fd);
    return false;
}

void ControlServer::drop(int fd)
{
    std::erase(connections_, fd);
    reactor_.remove(fd);
    ::close(fd);
}

void ControlServer::visit_counters(const std::function<void(const char *name, uint64_t value)> &visitor) const
{
    std::map<std::string, uint64_t> counters = {
        {"accepts_postponed", accepts_postponed()},
        {"configurations_refused", config_refusals()},
        {"control_connections", accepted_},
        {"control_connections_displaced", displaced_},
        {"control_replies_unsent", unsent_},
        {"descriptors_lent", descriptors_lent()},
        {"failed_assertions", g_uiMcastAssertCnt},
        {"log_lines_held_back", log_lines_held_back()},
        {"log_lines_lost", log_lines_lost()},
        {"local_peers_refused", HOST_LocalSocketRefusedPeers()},
        {"local_peers_over_limit", HOST_LocalSocketOverLimit()},
        {"local_ports_rebound", local_ports_rebound()},
        {"memory_refusals", memory_refusals()},
        {"memory_reserve_lent", memory_lent()},
    };
    for (size_t i = 0; i < static_cast<size_t>(ControlStatus::Count); ++i) {
        const auto status = static_cast<ControlStatus>(i);
        counters[std::string("control_requests_") + control_status_name(status)] = registry_.answered(status);
    }
    for (const auto &[name, value] : counters) {
        visitor(name.c_str(), value);
    }
}

} // namespace mcastd
