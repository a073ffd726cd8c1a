/*
 * The peers' TCP connections in the event loop.
 */
#ifndef DAEMONS_MSDPD_TCP_H
#define DAEMONS_MSDPD_TCP_H

#include <map>

#include "daemons/common/descriptor.h"
#include "daemons/common/reactor.h"
#include "daemons/common/timer.h"
#include "daemons/msdpd/speaker.h"

namespace msdpd
{

constexpr uint16_t MSDP_PORT = 639;

class Tcp final : public Transport
{
public:
    explicit Tcp(mcastd::Reactor &reactor) : reactor_(reactor)
    {
    }
    ~Tcp() override;
    Tcp(const Tcp &) = delete;
    Tcp &operator=(const Tcp &) = delete;

    // Listens for the speaker's peers, on all addresses. False on failure, which is logged.
    bool open(Speaker &speaker, uint16_t port = MSDP_PORT);

    void connect(Peer &peer) override;
    void disconnect(Peer &peer) override;

    // Sends what waits for the peers, as far as their sockets take it, and what dumps have to add. Whether
    // there is more to do without waiting.
    bool flush();

private:
    struct Connection {
        mcastd::Descriptor socket;
        bool connecting = false;
        bool waits_for_room = false;
    };

    void accept_some();
    void pause_accepting(int error);
    void resume_accepting();
    void take(mcastd::Descriptor socket, Ipv4 remote);
    bool watch(Ipv4 address, Connection connection, uint32_t events);
    void ready(Ipv4 address, uint32_t events);
    void finish_connect(Peer &peer, Connection &connection);
    void read_some(Peer &peer, const Connection &connection);
    bool send_some(Peer &peer);
    void watch_for_room(Connection &connection, bool wanted);

    mcastd::Reactor &reactor_;
    Speaker *speaker_ = nullptr;
    uint16_t port_ = MSDP_PORT;
    mcastd::Descriptor listener_;
    MCAST_TMR_S *timers_ = nullptr;
    mcastd::Timer paused_;                   // runs while connections wait for a descriptor
    std::map<Ipv4, Connection> connections_; // by peer
};

} // namespace msdpd

#endif
