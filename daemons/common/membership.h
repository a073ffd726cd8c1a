/*
 * What the bytes of the membership records mean between a GMP daemon and mribd, as mcast/mrib_wire.h says it
 * to every client; the channel carries them unchanged. docs/channel.md tells the same in prose.
 *
 * A client's wish for (S, G) on an interface, from its last records:
 *
 *     joined (S, G), or joined (*, G) and not blocked (S, G)
 *
 * The interface receives (S, G) while at least one client wishes so.
 */
#ifndef DAEMONS_COMMON_MEMBERSHIP_H
#define DAEMONS_COMMON_MEMBERSHIP_H

#include <cstdint>

#include "mcast/mrib_wire.h"

namespace mcastd
{

// First flag of a join/prune record.
constexpr uint8_t MEMBERSHIP_PRUNE = MRIB_JOIN_PRUNE_FLAG_PRUNE;
constexpr uint8_t MEMBERSHIP_JOIN = MRIB_JOIN_PRUNE_FLAG_JOIN;

// Second flag of a join/prune record. Exclude: source S of group G is blocked on the interface while (*, G)
// is joined; a join sets the block and a prune removes it. An all-zero source means any source and is
// never combined with Exclude.
constexpr uint8_t MEMBERSHIP_PLAIN = MRIB_JOIN_PRUNE_FLAG_PLAIN;
constexpr uint8_t MEMBERSHIP_EXCLUDE = MRIB_JOIN_PRUNE_FLAG_EXCLUDE;

// Value of an enable record: the protocol runs on the interface, or no longer does; 0 forgets every
// membership that the client had reported there.
constexpr uint8_t GMP_DISABLED = MRIB_GMP_DISABLED;
constexpr uint8_t GMP_ENABLED = MRIB_GMP_ENABLED;

// Value of a querier record. Without a record the router counts as querier. Where no multicast routing
// protocol elects a forwarder, the querier is the one router that forwards on to a link.
constexpr uint8_t QUERIER_OTHER = MRIB_QUERIER_OTHER;
constexpr uint8_t QUERIER_THIS_ROUTER = MRIB_QUERIER_THIS_ROUTER;

// First byte of a user record; its second byte is the user's kind and its block the address that the user
// reports from. The record's interface is the user's own, under which a later record replaces the one before.
constexpr uint8_t USER_GONE = MRIB_USER_GONE;
constexpr uint8_t USER_PRESENT = MRIB_USER_PRESENT;

// A delete-member record with an all-zero selector forgets every membership of the interface that this
// client reported; mribd ignores and counts other selectors.

} // namespace mcastd

#endif
