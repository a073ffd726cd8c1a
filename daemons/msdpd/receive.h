/*
 * What a peer's messages cause.
 */
#ifndef DAEMONS_MSDPD_RECEIVE_H
#define DAEMONS_MSDPD_RECEIVE_H

#include <optional>

#include "daemons/msdpd/speaker.h"

namespace msdpd
{

// Acts on a message of an established peer. The counter of what is malformed about it, which ends the
// connection; nothing when it is well-formed, acted on or not.
std::optional<Count> receive(Peer &from, const Tlv &tlv);

// The pairs that a peer may announce at all, whatever its limit: addresses, range and filter. The counter of
// the check that failed; nothing when the pair passes.
std::optional<Count> objection(const Speaker &speaker, const PeerConfig &from, const Pair &pair);

} // namespace msdpd

#endif
