#include "daemons/common/control.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <string>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "daemons/common/config_file.h"
#include "daemons/common/control_debug.h"
#include "daemons/common/local_listener.h"
#include "daemons/common/log.h"
#include "daemons/common/log_output.h"
#include "mcast/format.h"

namespace mcastd
{
namespace
{

// What one wake-up takes of the listening socket; each may cost a full reply.
constexpr unsigned ACCEPTS_PER_WAKE = 8;

int open_spare()
{
    return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

} // namespace

ControlServer::ControlServer(Reactor &reactor) : reactor_(reactor), spare_(open_spare())
{
    offer_debug(registry_);
}

ControlServer::~ControlServer()
{
    close();
    if (spare_ >= 0) {
        ::close(spare_);
    }
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
        const int fd = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd >= 0) {
            adopt(fd);
        } else if ((errno != EMFILE && errno != ENFILE) || !accept_without_room()) {
            return;
        }
    }
}

// Takes a client for which there is no descriptor: without that it would wait, and the listener be ready, for
// ever. Whether there was one.
bool ControlServer::accept_without_room()
{
    ::close(spare_);
    const int fd = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    const bool has_place = fd >= 0 && !connections_.empty();
    if (has_place) {
        ++displaced_;
        drop(connections_.front());
    } else if (fd >= 0) {
        ++turned_away_;
        ::close(fd);
    }
    spare_ = open_spare();
    if (has_place) {
        adopt(fd);
    }
    return fd >= 0;
}

void ControlServer::adopt(int fd)
{
    ++accepted_;
    connections_.push_back(fd);
    if (!serve(fd)) {
        return; // its request was there already
    }
    if (!reactor_.add(fd, EPOLLIN, [this, fd](uint32_t) { serve(fd); })) {
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
    connections_.erase(std::find(connections_.begin(), connections_.end(), fd));
    reactor_.remove(fd);
    ::close(fd);
}

void ControlServer::visit_counters(const std::function<void(const char *name, uint64_t value)> &visitor) const
{
    std::map<std::string, uint64_t> counters = {
        {"configurations_refused", config_refusals()},
        {"control_connections", accepted_},
        {"control_connections_displaced", displaced_},
        {"control_connections_turned_away", turned_away_},
        {"control_replies_unsent", unsent_},
        {"failed_assertions", g_uiMcastAssertCnt},
        {"log_lines_held_back", log_lines_held_back()},
        {"log_lines_lost", log_lines_lost()},
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
