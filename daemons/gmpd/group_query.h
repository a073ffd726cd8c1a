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
// in EXCLUDE mode, still have members: the group waits for its turn, and what is asked about then ends soon when
// nobody answers. Only the querier asks; with immediate leave it ends at once. The caller settles the group, and
// calls ask_waiting.
void ask(GroupState &group, const std::vector<SourceState *> &sources, bool about_group);

// Asks about the groups whose turn it is, as many as the link's allowance has queries for. May remove groups.
void ask_waiting(Interface &link);

// The group is asked about no more.
void leave_queue(GroupState &group);

// Whether a repetition of the group's queries waits for its turn, so that nothing of what it asks about may end.
inline bool asking(const GroupState &group)
{
    return group.waits() && group.repeats;
}

// Shortens the life of what another router's query asks for. query names a group and has its S flag clear.
void lower_queried(Memberships &memberships, const Message &query);

} // namespace gmpd

#endif
