/*
 * What is counted: why packets are dropped, what was received and sent, and what the state machine refused.
 * Each counter has a name under which the status file shows it. Counters never wrap in practice and are never
 * reset while an interface exists.
 */
#ifndef DAEMONS_GMPD_COUNTERS_H
#define DAEMONS_GMPD_COUNTERS_H

#include "daemons/common/counters.h"

namespace gmpd
{

// Each row: identifier, name in the status file. The drop reasons come first, in the order of the checks.
#define GMPD_COUNTERS(ROW)                                                                                   \
    ROW(ShortPacket, "dropped_short_packet")                                                                 \
    ROW(IpVersion, "dropped_ip_version")                                                                     \
    ROW(HeaderLength, "dropped_header_length")                                                               \
    ROW(TotalLength, "dropped_total_length")                                                                 \
    ROW(HeaderChecksum, "dropped_header_checksum")                                                           \
    ROW(Fragment, "dropped_fragment")                                                                        \
    ROW(Protocol, "dropped_protocol")                                                                        \
    ROW(ExtensionHeader, "dropped_extension_header")                                                         \
    ROW(HopLimit, "dropped_hop_limit")                                                                       \
    ROW(Source, "dropped_source_address")                                                                    \
    ROW(ShortMessage, "dropped_short_message")                                                               \
    ROW(Checksum, "dropped_checksum")                                                                        \
    ROW(MessageType, "dropped_message_type")                                                                 \
    ROW(MessageLength, "dropped_message_length")                                                             \
    ROW(RouterAlert, "dropped_router_alert")                                                                 \
    ROW(UnicastQuery, "dropped_unicast_query")                                                               \
    ROW(Destination, "dropped_destination")                                                                  \
    ROW(Group, "dropped_group_address")                                                                      \
    ROW(RecordCount, "dropped_record_count")                                                                 \
    ROW(SourceCount, "dropped_source_count")                                                                 \
    ROW(LostInKernel, "packets_lost_in_kernel")                                                              \
    ROW(Truncated, "dropped_truncated")                                                                      \
    ROW(NotNeighbour, "dropped_source_off_link")                                                             \
    ROW(OwnAddress, "dropped_own_address")                                                                   \
    ROW(QueryNoSource, "dropped_query_without_source")                                                       \
    ROW(QuerierAddress, "dropped_querier_address")                                                           \
    ROW(QuerierNotPermitted, "dropped_querier_not_permitted")                                                \
    ROW(NewerVersion, "dropped_newer_version")                                                               \
    ROW(QueriesV1, "received_queries_v1")                                                                    \
    ROW(QueriesV2, "received_queries_v2")                                                                    \
    ROW(QueriesV3, "received_queries_v3")                                                                    \
    ROW(ReportsV1, "received_reports_v1")                                                                    \
    ROW(ReportsV2, "received_reports_v2")                                                                    \
    ROW(ReportsV3, "received_reports_v3")                                                                    \
    ROW(Leaves, "received_leaves")                                                                           \
    ROW(OlderQueries, "received_older_queries")                                                              \
    ROW(RecordType, "ignored_record_type")                                                                   \
    ROW(LinkScopeGroup, "ignored_unroutable_group")                                                          \
    ROW(BadSource, "ignored_record_source")                                                                  \
    ROW(OldHostPresent, "ignored_for_older_hosts")                                                           \
    ROW(SsmRange, "ignored_any_source_in_ssm_range")                                                         \
    ROW(UnknownUser, "refused_unknown_user")                                                                 \
    ROW(UserGroup, "refused_user_group")                                                                     \
    ROW(UserSource, "refused_user_source")                                                                   \
    ROW(Boundary, "refused_boundary")                                                                        \
    ROW(GroupList, "refused_group_list")                                                                     \
    ROW(GroupLimit, "refused_group_limit")                                                                   \
    ROW(SourceLimit, "refused_source_limit")                                                                 \
    ROW(HostLimit, "refused_host_limit")                                                                     \
    ROW(InterfaceLimit, "refused_interface_limit")                                                           \
    ROW(TotalLimit, "refused_total_limit")                                                                   \
    ROW(NoMemory, "refused_no_memory")                                                                       \
    ROW(SentGeneral, "sent_general_queries")                                                                 \
    ROW(SentGroup, "sent_group_queries")                                                                     \
    ROW(SentSources, "sent_source_queries")                                                                  \
    ROW(DelayedQueries, "delayed_group_queries")                                                             \
    ROW(SendFailed, "send_failures")

MCASTD_COUNTS(GMPD_COUNTERS)

// No reason: the packet is good.
inline constexpr Count NO_DROP = Count::Total;

// One set of counters: an interface's, or those of packets that no interface could be told for.
using Counters = mcastd::CounterSet<Count>;

} // namespace gmpd

#endif
