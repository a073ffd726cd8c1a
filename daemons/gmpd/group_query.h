/*
 * Queries about one group: what follows a host's leave, their repetition, and what those of another querier
 * mean here (RFC 3376 sections 6.6.1 and 6.6.3, RFC 3810 sections 7.6.1 and 7.6.3).
 */
#ifndef DAEMONS_GMPD_GROUP_QUERY_H
#define DAEMONS_GMPD_GROUP_QUERY_H

#include <vector>

#include "daemons/gmpd/group_state.h"
#include "daemons/gmpd/message.h"

namespace gmpd
{

// Asks whether some of the group's sources, all with running timers, and with about_group the group itself,
// in EXCLUDE mode, still have members, and lets them end soon when nobody answers. Only the querier asks;
// with immediate leave they end at once. The caller settles the group.
void ask(GroupState &group, const std::vector<SourceState *> &sources, bool about_group);

// Shortens the life of what another router's query asks for. query names a group and has its S flag clear.
void lower_queried(Memberships &memberships, const Message &query);

} // namespace gmpd

#endif
