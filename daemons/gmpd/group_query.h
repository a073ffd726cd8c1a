/*
 * Queries about one group: what follows a host's leave, their repetition, and what those of another querier
 * mean here (RFC 3376 sections 6.6.1 and 6.6.3, RFC 3810 sections 7.6.1 and 7.6.3).
 */
#ifndef GMPD_GROUP_QUERY_H
#define GMPD_GROUP_QUERY_H

#include <vector>

#include "daemons/gmpd/group_state.h"
#include "daemons/gmpd/message.h"

namespace gmpd
{

// Asks whether the group, in EXCLUDE mode, still has members, and lets it end soon when nobody answers. Only
// the querier asks; with immediate leave the group ends at once.
void query_group(GroupState &group);

// The same about some of the group's sources, all with running timers.
void query_sources(GroupState &group, const std::vector<SourceState *> &sources);

// Shortens the life of what another router's query asks for. query names a group and has its S flag clear.
void lower_queried(Interface &interface, const Message &query);

} // namespace gmpd

#endif
