/*
 * The ends of groups and sources that nobody confirms.
 */
#ifndef DAEMONS_GMPD_GROUP_EXPIRY_H
#define DAEMONS_GMPD_GROUP_EXPIRY_H

#include <cstdint>

#include "daemons/gmpd/group_state.h"

namespace gmpd
{

// Starts, or starts over, the time after which EXCLUDE mode ends. Throws std::bad_alloc when memory is short.
void start_group_timer(GroupState &group, uint32_t timeout_ms);

// Sees to it that the end of a source whose timer runs is noticed. Throws std::bad_alloc, with the source no longer
// wanted, when memory is short.
void watch_end(SourceState &source);

// To be called every round: takes up, when there is memory again, what could not be ended or put off on the link for
// want of it. Nothing ends unasked for that reason (own_question.h).
void resume_ends(Interface &link);

} // namespace gmpd

#endif
