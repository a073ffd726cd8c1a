/*
 * What is counted for each peer: messages, why they or their entries were refused, and how connections ended.
 * Each counter has a name under which the status shows it. They live as long as the peer is configured.
 */
#ifndef DAEMONS_MSDPD_COUNTERS_H
#define DAEMONS_MSDPD_COUNTERS_H

#include "daemons/common/counters.h"

namespace msdpd
{

// Each row: identifier, name in the status.
#define MSDPD_COUNTERS(ROW)                                                                                  \
    ROW(Connections, "connections")                                                                          \
    ROW(ConnectFailed, "connect_failures")                                                                   \
    ROW(Replaced, "connections_replaced")                                                                    \
    ROW(HoldExpired, "hold_timer_expired")                                                                   \
    ROW(ClosedByPeer, "closed_by_peer")                                                                      \
    ROW(BadLength, "malformed_length")                                                                       \
    ROW(BadSourceActive, "malformed_source_active")                                                          \
    ROW(BadRequest, "malformed_request")                                                                     \
    ROW(BadKeepalive, "malformed_keepalive")                                                                 \
    ROW(ReceivedSourceActive, "received_source_active")                                                      \
    ROW(ReceivedEntries, "received_entries")                                                                 \
    ROW(ReceivedRequests, "received_requests")                                                               \
    ROW(ReceivedResponses, "received_responses")                                                             \
    ROW(ReceivedKeepalives, "received_keepalives")                                                           \
    ROW(IgnoredType, "ignored_type")                                                                         \
    ROW(IgnoredData, "ignored_data")                                                                         \
    ROW(IgnoredResponse, "ignored_response_not_asked_for")                                                   \
    ROW(IgnoredRequest, "ignored_request_while_busy")                                                        \
    ROW(DroppedOriginator, "dropped_originator_address")                                                     \
    ROW(DroppedOwn, "dropped_own_originator")                                                                \
    ROW(DroppedRpf, "dropped_rpf")                                                                           \
    ROW(DroppedPrefixLength, "dropped_prefix_length")                                                        \
    ROW(DroppedGroup, "dropped_group_address")                                                               \
    ROW(DroppedSource, "dropped_source_address")                                                             \
    ROW(DroppedSsm, "dropped_source_specific_group")                                                         \
    ROW(DroppedFilter, "dropped_filter_in")                                                                  \
    ROW(RefusedLimit, "refused_limit")                                                                       \
    ROW(RefusedMemory, "refused_no_memory")                                                                  \
    ROW(HeldDown, "not_forwarded_hold_down")                                                                 \
    ROW(FilteredOut, "not_sent_filter_out")                                                                  \
    ROW(QueueFull, "not_sent_queue_full")                                                                    \
    ROW(SentSourceActive, "sent_source_active")                                                              \
    ROW(SentEntries, "sent_entries")                                                                         \
    ROW(SentRequests, "sent_requests")                                                                       \
    ROW(SentResponses, "sent_responses")                                                                     \
    ROW(SentKeepalives, "sent_keepalives")

MCASTD_COUNTS(MSDPD_COUNTERS)

using Counters = mcastd::CounterSet<Count>;

} // namespace msdpd

#endif
