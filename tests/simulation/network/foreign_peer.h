/*
 * An MSDP peer that is no program of ours: it connects to a router, announces what it is told to, and may stop sending
 * while it goes on reading. The router is to end such a connection too, as one whose peer has closed it.
 */
#ifndef TESTS_SIMULATION_NETWORK_FOREIGN_PEER_H
#define TESTS_SIMULATION_NETWORK_FOREIGN_PEER_H

#include <memory>
#include <optional>

#include "tests/simulation/kernel/tcp_socket.h"

namespace sim
{

class ForeignPeer : public std::enable_shared_from_this<ForeignPeer>
{
public:
    // On the machine; other and own are addresses, own one of the machine's.
    ForeignPeer(Machine &machine, const Address &other, const Address &own);

    void connect();
    // Says that the source sends to the group, as their own rendezvous point.
    void announce(const Address &source, const Address &group);
    void stop_sending();

    // Whether it has stopped and was not told the end of the other side soon after, long before a silent peer is given up.
    bool was_kept_waiting() const;
    const Address other;

private:
    void read_later();
    void read();

    Machine &machine_;
    const std::shared_ptr<TcpEnd> end_;
    std::optional<Ns> stopped_; // when
    std::optional<Ns> over_;
};

} // namespace sim

#endif
