/*
 * From which peer the announcements of an originator are accepted: the RPF peer (RFC 3618, section 10.1.3).
 * The first rule that names an established peer decides:
 *
 *      originator    the originator is a peer itself
 *      only peer     there is no other peer to choose
 *      static        the longest of the prefixes configured as rpf that covers the originator
 *      next hop      the unicast route to the originator goes through the peer
 *      direction     the unicast route to the peer leaves the same way as the one to the originator; of several
 *                    peers the one with the highest address
 *      default       the peers configured as default_peer, in the order of the file
 *
 * While the kernel cannot be asked for a route that decides, the originator has no RPF peer ("unknown"): a later rule might
 * name the wrong one. Its next announcement asks again.
 *
 * Section 10.1.3 has two more rules about the paths of BGP; the kernel's routes do not tell those.
 * "direction" replaces them: it finds the peer that the path towards the originator leads past. What is
 * configured for a prefix goes before what routes say, since an operator writes it to overrule
 * them.
 */
#ifndef DAEMONS_MSDPD_RPF_H
#define DAEMONS_MSDPD_RPF_H

#include "daemons/msdpd/speaker.h"

namespace msdpd
{

enum class RpfRule { None, Originator, OnlyPeer, Static, NextHop, Direction, Default, Unknown };

// The name of a rule in the status.
const char *rule_name(RpfRule rule);

struct RpfChoice {
    const Peer *peer = nullptr; // NULL: announcements of this originator are not accepted
    RpfRule rule = RpfRule::None;
};

// The RPF peer of the originator.
RpfChoice rpf_peer(const Speaker &speaker, Ipv4 originator);

} // namespace msdpd

#endif
