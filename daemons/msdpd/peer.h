/*
 * A peer: its configuration, the state of its connection and what waits to be sent to it. The state machine
 * (RFC 3618, section 11.2) is in peer.cpp and knows no sockets: it asks for connections through Transport and
 * is told what became of them.
 *
 *                     start, our address is the lower one
 *      Disabled ------------------------------------------> Connecting <---- connect retry
 *         |                                                      |
 *         | start, ours is the higher one                        | connected
 *         v                    accepted                          v
 *      Listening ------------------------------------------> Established
 *
 * From Established a connection that ends, however it ends, leads back to where the peer came from.
 */
#ifndef DAEMONS_MSDPD_PEER_H
#define DAEMONS_MSDPD_PEER_H

#include <cstdint>
#include <span>
#include <string>

#include "daemons/common/limit_watch.h"
#include "daemons/common/timer.h"
#include "daemons/msdpd/config.h"
#include "daemons/msdpd/counters.h"
#include "daemons/msdpd/dump.h"
#include "daemons/msdpd/send_buffer.h"
#include "daemons/msdpd/wire.h"

namespace msdpd
{

struct Speaker;

enum class PeerState { Disabled, Listening, Connecting, Established };

// The name of a state in the status.
const char *state_name(PeerState state);

struct Peer {
    Peer(Speaker &owner, const PeerConfig &settings) : speaker(owner), config(settings)
    {
    }

    Speaker &speaker;
    PeerConfig config;
    PeerState state = PeerState::Disabled;
    mcastd::Timer connect_retry; // runs while Connecting
    mcastd::Timer hold;          // both run while Established
    mcastd::Timer keepalive;
    uint32_t state_since_s = 0; // boot time
    std::string last_end;       // why the last connection ended; empty when there was none
    Bytes input;                // what was received and is no whole message yet
    SendBuffer output;
    Dump dump;
    mcastd::LimitWatch<95, 90> limit_watch; // of its number of entries
    Counters counters;

    bool established() const
    {
        return state == PeerState::Established;
    }
    bool in_mesh_group() const
    {
        return !config.mesh_group.empty();
    }
    bool shares_mesh_group(const Peer &other) const
    {
        return in_mesh_group() && config.mesh_group == other.config.mesh_group;
    }
};

// The connections that the state machine asks for.
class Transport
{
public:
    virtual ~Transport() = default;

    // Begins to connect; peer_connected or peer_connect_failed tells what became of it, later.
    virtual void connect(Peer &peer) = 0;

    // Ends the peer's connection and attempts, if any; nothing is told about it.
    virtual void disconnect(Peer &peer) = 0;
};

// Begins to keep up a connection, in the role that the order of the addresses gives, unless the configuration
// disables the peer.
void peer_start(Peer &peer);

// Ends the connection and stays Disabled.
void peer_stop(Peer &peer, const char *reason);

// As speaker_tend.
void peer_tend(Peer &peer);

// Whether a connection from the peer's address is to be taken. One that comes while another is up takes its
// place: the peer has lost the old one.
bool peer_may_accept(const Peer &peer);

// The transport has a connection, accepted or made.
void peer_connected(Peer &peer);

// The attempt ended without a connection.
void peer_connect_failed(Peer &peer, const char *reason);

// The connection is gone, closed by the peer or broken.
void peer_lost(Peer &peer, const char *reason);

// Bytes arrived. What is malformed ends the connection.
void peer_input(Peer &peer, std::span<const uint8_t> bytes);

// Appends a message to what waits for the peer, which is established. False when too much waits already;
// nothing is appended then.
bool peer_send(Peer &peer, const Bytes &message);

} // namespace msdpd

#endif
