/*
 * The control endpoint of a daemon: a local port on which mcastctl reads tables, sets values and gives
 * commands. A connection carries one request and one reply and is then closed.
 *
 * What a client can cost is bounded. A client that connects and sends nothing holds one of a few places, and the one
 * that has waited longest gives way to a newcomer; a client that sends more than its request is not read any
 * further; a reply is sent without waiting or not at all. One wake-up serves a few clients, then everything
 * else has its turn. When descriptors have run out, a few kept back for it (descriptor_reserve.h) serve
 * clients.
 */
#ifndef DAEMONS_COMMON_CONTROL_H
#define DAEMONS_COMMON_CONTROL_H

#include <cstdint>
#include <deque>
#include <functional>

#include "daemons/common/control_registry.h"
#include "daemons/common/reactor.h"

namespace mcastd
{

class ControlServer
{
public:
    // Connections that may be open without a request.
    static constexpr size_t CONNECTION_LIMIT = 32;

    // The reactor must outlive the server.
    explicit ControlServer(Reactor &reactor);
    ~ControlServer();
    ControlServer(const ControlServer &) = delete;
    ControlServer &operator=(const ControlServer &) = delete;

    // Listens on the port. Failures are logged with what to do.
    bool open(uint16_t port);

    // Ends listening and every connection, until the next open; harmless when not open.
    void close();

    // Serves a connected descriptor, which becomes the server's; what accepting does with each.
    void adopt(int fd);

    ControlRegistry &registry()
    {
        return registry_;
    }

    size_t connections() const
    {
        return connections_.size();
    }

    // Visits the endpoint's own counters, by ascending name: requests by result, connections by fate.
    void visit_counters(const std::function<void(const char *name, uint64_t value)> &visitor) const;

private:
    void accept_clients();
    bool accept_from_reserve();
    void take(int fd);
    bool serve(int fd);
    void drop(int fd);

    Reactor &reactor_;
    ControlRegistry registry_;
    int listener_ = -1;
    std::deque<int> connections_; // that wait for their request, the oldest first
    uint64_t accepted_ = 0;
    uint64_t displaced_ = 0;
    uint64_t unsent_ = 0;
};

} // namespace mcastd

#endif
