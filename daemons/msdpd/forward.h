/*
 * Which pairs are sent to which peers.
 */
#ifndef DAEMONS_MSDPD_FORWARD_H
#define DAEMONS_MSDPD_FORWARD_H

#include <span>

#include "daemons/msdpd/speaker.h"

namespace msdpd
{

// Whether what from announced for the originator may go to a peer: not back, not to the originator, and not
// between members of one mesh group. from is NULL for this router's own sources, which go to everybody.
bool may_forward(const Peer &to, const Peer *from, Ipv4 originator);

// Announces pairs of one originator, at most MAX_ENTRIES, to all established peers that may have them and
// whose filter permits them. from as for may_forward.
void forward(Speaker &speaker, const Peer *from, Ipv4 originator, std::span<const Pair> pairs);

// The same to one peer, which may have them, as a source active message or a response.
void send_pairs(Peer &to, uint8_t type, Ipv4 originator, std::span<const Pair> pairs);

} // namespace msdpd

#endif
