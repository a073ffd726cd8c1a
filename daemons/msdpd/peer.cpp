#include "daemons/msdpd/peer.h"

#include "daemons/common/log.h"
#include "daemons/msdpd/receive.h"
#include "daemons/msdpd/speaker.h"

namespace msdpd
{
namespace
{

using mcastd::MS_PER_S;

// The lower address connects, the higher one listens.
bool connects(const Peer &peer)
{
    return peer.config.local_address < peer.config.address;
}

void set_state(Peer &peer, PeerState state)
{
    peer.state = state;
    peer.state_since_s = mcastd::boot_time_s();
}

void retry(void *owner)
{
    Peer &peer = *static_cast<Peer *>(owner);
    Speaker &speaker = peer.speaker;
    speaker.transport.disconnect(peer);
    mcastd::timer_start(speaker.timers, peer.connect_retry, speaker.config.connect_retry_s * MS_PER_S, retry,
                        owner);
    speaker.transport.connect(peer);
}

// Ends the connection; the state is the caller's to set.
void end(Peer &peer, const char *reason)
{
    Speaker &speaker = peer.speaker;
    speaker.transport.disconnect(peer);
    for (mcastd::Timer *timer : {&peer.connect_retry, &peer.hold, &peer.keepalive}) {
        mcastd::timer_stop(speaker.timers, *timer);
    }
    if (peer.established()) {
        peer.last_end = reason;
        mcastd::log_warning("peer %s: connection ended: %s", to_text(peer.config.address).c_str(), reason);
    }
    peer.input.clear();
    peer.output.clear();
    peer.dump = Dump{};
}

void hold_expired(void *owner)
{
    Peer &peer = *static_cast<Peer *>(owner);
    ++peer.counters[Count::HoldExpired];
    peer_lost(peer, "the hold timer expired");
}

void restart_hold(Peer &peer)
{
    mcastd::timer_start(peer.speaker.timers, peer.hold, peer.speaker.config.hold_s * MS_PER_S, hold_expired,
                        &peer);
}

void keepalive_due(void *owner);

void restart_keepalive(Peer &peer)
{
    mcastd::timer_start_near(peer.speaker.timers, peer.keepalive, peer.speaker.config.keepalive_s * MS_PER_S,
                             keepalive_due, &peer);
}

// What waits already says more than a keepalive would.
void send_keepalive(Peer &peer)
{
    if (peer.output.empty() && peer_send(peer, build_keepalive())) {
        ++peer.counters[Count::SentKeepalives];
    }
}

void keepalive_due(void *owner)
{
    Peer &peer = *static_cast<Peer *>(owner);
    restart_keepalive(peer);
    send_keepalive(peer);
}

// Takes the whole messages off the front of what was received. The counter of what is malformed, if anything
// is.
std::optional<Count> take_messages(Peer &peer)
{
    size_t taken = 0;
    std::optional<Count> malformed;
    Tlv tlv;
    Framing framing;
    while ((framing = next_tlv(std::span(peer.input).subspan(taken), &tlv)) == Framing::Complete &&
           !malformed) {
        malformed = receive(peer, tlv);
        taken += tlv.size;
    }
    if (taken > 0) {
        restart_hold(peer);
        peer.input.erase(peer.input.begin(), peer.input.begin() + static_cast<std::ptrdiff_t>(taken));
    }
    if (!malformed && framing == Framing::BadLength) {
        malformed = Count::BadLength;
    }
    return malformed;
}

} // namespace

const char *state_name(PeerState state)
{
    switch (state) {
    case PeerState::Listening:
        return "listening";
    case PeerState::Connecting:
        return "connecting";
    case PeerState::Established:
        return "established";
    case PeerState::Disabled:
        break;
    }
    return "disabled";
}

void peer_start(Peer &peer)
{
    if (!peer.config.enabled) {
        return;
    }
    if (connects(peer)) {
        set_state(peer, PeerState::Connecting);
        retry(&peer);
    } else {
        set_state(peer, PeerState::Listening);
    }
}

void peer_stop(Peer &peer, const char *reason)
{
    end(peer, reason);
    set_state(peer, PeerState::Disabled);
}

void peer_tend(Peer &peer)
{
    if (peer.state == PeerState::Connecting && !peer.connect_retry.running()) {
        retry(&peer);
    } else if (peer.established() && (!peer.hold.running() || !peer.keepalive.running())) {
        peer_lost(peer, "memory was short");
    }
}

bool peer_may_accept(const Peer &peer)
{
    return peer.state == PeerState::Listening || (peer.established() && !connects(peer));
}

void peer_connected(Peer &peer)
{
    mcastd::timer_stop(peer.speaker.timers, peer.connect_retry);
    set_state(peer, PeerState::Established);
    ++peer.counters[Count::Connections];
    mcastd::log_info("peer %s: connection established", to_text(peer.config.address).c_str());
    restart_hold(peer);
    send_keepalive(peer);
    dump_start(peer);
}

void peer_connect_failed(Peer &peer, const char *reason)
{
    ++peer.counters[Count::ConnectFailed];
    mcastd::log_debug("peer %s: cannot connect: %s", to_text(peer.config.address).c_str(), reason);
}

void peer_lost(Peer &peer, const char *reason)
{
    end(peer, reason);
    if (connects(peer)) {
        set_state(peer, PeerState::Connecting);
        mcastd::timer_start(peer.speaker.timers, peer.connect_retry,
                            peer.speaker.config.connect_retry_s * MS_PER_S, retry, &peer);
    } else {
        set_state(peer, PeerState::Listening);
    }
}

void peer_input(Peer &peer, std::span<const uint8_t> bytes)
{
    peer.input.insert(peer.input.end(), bytes.begin(), bytes.end());
    if (const std::optional<Count> malformed = take_messages(peer)) {
        ++peer.counters[*malformed];
        peer_lost(peer, count_name(*malformed));
    }
}

bool peer_send(Peer &peer, const Bytes &message)
{
    if (!peer.output.push(message)) {
        ++peer.counters[Count::QueueFull];
        dump_start(peer);
        return false;
    }
    restart_keepalive(peer);
    return true;
}

} // namespace msdpd
