/*
 * Requests for the sources of a group, asked and answered.
 */
#ifndef DAEMONS_MSDPD_REQUEST_H
#define DAEMONS_MSDPD_REQUEST_H

#include "daemons/msdpd/speaker.h"

namespace msdpd
{

// Asks the peers that are configured to be asked.
void ask_for_sources(Speaker &speaker, Ipv4 group);

// Tells the peer what is known about the group. While much waits for the peer a request is ignored, so that
// small questions do not make answers without bound.
void answer_request(Peer &from, Ipv4 group);

} // namespace msdpd

#endif
