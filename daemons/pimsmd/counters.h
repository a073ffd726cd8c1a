/*
 * What is counted: why received messages are refused, and what of others is left out. Each counter has a name under
 * which it is shown.
 */
#ifndef DAEMONS_PIMSMD_COUNTERS_H
#define DAEMONS_PIMSMD_COUNTERS_H

#include "daemons/common/counters.h"

namespace pimsmd
{

// Each row: identifier, name where it is shown.
#define PIMSMD_COUNTERS(ROW)                                                                                 \
    ROW(ShortMessage, "dropped_short_message")                                                               \
    ROW(Version, "dropped_version")                                                                          \
    ROW(MessageType, "dropped_message_type")                                                                 \
    ROW(Checksum, "dropped_checksum")                                                                        \
    ROW(AddressFamily, "dropped_address_family")                                                             \
    ROW(AddressEncoding, "dropped_address_encoding")                                                         \
    ROW(MaskLength, "dropped_mask_length")                                                                   \
    ROW(GroupAddress, "dropped_group_address")                                                               \
    ROW(SourceAddress, "dropped_source_address")                                                             \
    ROW(RouterAddress, "dropped_router_address")                                                             \
    ROW(SourceFlags, "dropped_source_flags")                                                                 \
    ROW(CountBeyond, "dropped_count")                                                                        \
    ROW(BytesBehind, "dropped_bytes_behind")                                                                 \
    ROW(OptionLength, "dropped_option_length")                                                               \
    ROW(OptionTwice, "dropped_option_twice")                                                                 \
    ROW(InnerPacket, "dropped_inner_packet")                                                                 \
    ROW(HelloSource, "dropped_hello_source")                                                                 \
    ROW(NeighbourLimit, "refused_neighbour_limit")                                                           \
    ROW(NoMemory, "refused_no_memory")                                                                       \
    ROW(NeighbourAddresses, "ignored_neighbour_addresses")                                                   \
    ROW(MovedAddress, "moved_neighbour_addresses")                                                           \
    ROW(EntryLimit, "refused_entry_limit")                                                                   \
    ROW(JoinLimit, "refused_join_limit")                                                                     \
    ROW(RegisteredLimit, "refused_registered_limit")                                                         \
    ROW(RegisterDestination, "dropped_register_destination")                                                 \
    ROW(NotRp, "refused_register_not_rp")                                                                    \
    ROW(OtherStop, "ignored_register_stop")                                                                  \
    ROW(StopRate, "held_register_stops")                                                                     \
    ROW(OtherRp, "ignored_other_rp")                                                                         \
    ROW(GroupRange, "ignored_group_range")                                                                   \
    ROW(RpLimit, "refused_rp_limit")                                                                         \
    ROW(RpShare, "refused_rp_share")                                                                         \
    ROW(BootstrapSender, "dropped_bootstrap_sender")                                                         \
    ROW(BootstrapOwn, "dropped_bootstrap_own")                                                               \
    ROW(BootstrapZone, "ignored_bootstrap_zone")                                                             \
    ROW(BootstrapLate, "dropped_bootstrap_late")                                                             \
    ROW(BootstrapRpf, "dropped_bootstrap_rpf")                                                               \
    ROW(BootstrapRate, "refused_bootstrap_rate")                                                             \
    ROW(BootstrapIncomplete, "bootstrap_incomplete_ranges")                                                  \
    ROW(BootstrapKept, "refused_bootstrap_pieces")                                                           \
    ROW(CandidateNotBsr, "ignored_candidate_rp")                                                             \
    ROW(RpRangeKind, "ignored_rp_range_kind")                                                                \
    ROW(NoLink, "dropped_no_link")                                                                           \
    ROW(OwnMessage, "dropped_own_message")                                                                   \
    ROW(Destination, "dropped_destination")                                                                  \
    ROW(NoNeighbour, "dropped_no_neighbour")                                                                 \
    ROW(IpHeader, "dropped_ip_header")                                                                       \
    ROW(Truncated, "dropped_truncated")                                                                      \
    ROW(LostInKernel, "packets_lost_in_kernel")                                                              \
    ROW(SendFailed, "send_failed")                                                                           \
    ROW(SendDelayed, "send_delayed")                                                                         \
    ROW(SendQueueFull, "dropped_send_queue_full")                                                            \
    ROW(TooLong, "send_too_long")

MCASTD_COUNTS(PIMSMD_COUNTERS)

// What a check says of a message that passed.
inline constexpr Count NO_DROP = Count::Total;

using Counters = mcastd::CounterSet<Count>;

} // namespace pimsmd

#endif
