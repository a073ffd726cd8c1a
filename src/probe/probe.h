/*
 * Probes: places at which a tracer can watch the library while it runs. docs/probes.md lists them for their users.
 *
 * Each is one instruction that does nothing, and a note in the library that tells a tracer where it stands and where the
 * arguments are just then. So arguments are what is at hand there: a value that had to be computed for the probe alone
 * would cost something when nobody watches. Without <sys/sdt.h> at build time there are none.
 */
#ifndef SRC_PROBE_PROBE_H
#define SRC_PROBE_PROBE_H

#include <stdint.h>

#include "mcast/timer.h"
#include "mcast/usrauth.h"

#if defined(MCAST_PROBES)
#include <sys/sdt.h>
#define MCAST_PROBE(count, ...) STAP_PROBE##count(mcastcommon, __VA_ARGS__)
#else
#define MCAST_PROBE(count, ...) static_cast<void>(0)
#endif

#define MCAST_PROBE_FUNCTION [[gnu::always_inline]] inline void

namespace mcast::probe
{

/* Whether a message that is sent had to wait for the socket. */
enum class Way : uint32_t { kAtOnce = 0, kFromQueue = 1 };

enum class Loss : uint32_t { kFullQueue = 1, kShortMemory = 2 };

/* Where an entry stands. */
enum class Entry : uint32_t { kRouteSource = 0, kRouteGroup = 1, kSource = 2, kGroup = 3 };

/* ---- The MRIB channel ---- */

MCAST_PROBE_FUNCTION MessageOut([[maybe_unused]] int descriptor, [[maybe_unused]] const void *message,
                                [[maybe_unused]] uint32_t length, [[maybe_unused]] Way way)
{
    MCAST_PROBE(4, message__out, descriptor, message, length, static_cast<uint32_t>(way));
}

MCAST_PROBE_FUNCTION MessageIn([[maybe_unused]] int descriptor, [[maybe_unused]] const void *message,
                               [[maybe_unused]] uint32_t length)
{
    MCAST_PROBE(3, message__in, descriptor, message, length);
}

MCAST_PROBE_FUNCTION MessageQueued([[maybe_unused]] const void *message, [[maybe_unused]] uint32_t length,
                                   [[maybe_unused]] uint32_t waiting)
{
    MCAST_PROBE(3, message__queued, message, length, waiting);
}

MCAST_PROBE_FUNCTION MessageDropped([[maybe_unused]] const void *message, [[maybe_unused]] uint32_t length,
                                    [[maybe_unused]] Loss loss)
{
    MCAST_PROBE(3, message__dropped, message, length, static_cast<uint32_t>(loss));
}

MCAST_PROBE_FUNCTION RecordApplied([[maybe_unused]] uint32_t type, [[maybe_unused]] const void *value,
                                   [[maybe_unused]] uint32_t length, [[maybe_unused]] uint64_t result)
{
    MCAST_PROBE(4, record__applied, type, value, length, result);
}

/* ---- Timers ---- */

MCAST_PROBE_FUNCTION TimerFired([[maybe_unused]] const MCAST_TMR_S *manager,
                                [[maybe_unused]] const MCAST_TMR_NODE_S *timer, [[maybe_unused]] uint32_t now)
{
    MCAST_PROBE(4, timer__fired, manager, reinterpret_cast<uintptr_t>(timer->callback), timer->expiry, now);
}

/* ---- Users ---- */

MCAST_PROBE_FUNCTION UserOnline([[maybe_unused]] const MCAST_USRAUTH_USER_S *user,
                                [[maybe_unused]] uint32_t node)
{
    MCAST_PROBE(4, user__online, user, node, user->user_id, user->if_index);
}

MCAST_PROBE_FUNCTION UserOffline([[maybe_unused]] const MCAST_USRAUTH_USER_S *user,
                                 [[maybe_unused]] uint32_t node)
{
    MCAST_PROBE(4, user__offline, user, node, user->user_id, user->if_index);
}

/* ---- Entries of route tables, and of group and source tables ---- */

MCAST_PROBE_FUNCTION EntryMade([[maybe_unused]] Entry kind, [[maybe_unused]] const void *entry,
                               [[maybe_unused]] const MCAST_ADDR_S *address, [[maybe_unused]] uint32_t length,
                               [[maybe_unused]] const void *owner)
{
    MCAST_PROBE(5, entry__made, static_cast<uint32_t>(kind), entry, address, length, owner);
}

MCAST_PROBE_FUNCTION EntryRemoved([[maybe_unused]] Entry kind, [[maybe_unused]] const void *entry,
                                  [[maybe_unused]] const MCAST_ADDR_S *address,
                                  [[maybe_unused]] uint32_t length, [[maybe_unused]] const void *owner)
{
    MCAST_PROBE(5, entry__removed, static_cast<uint32_t>(kind), entry, address, length, owner);
}

} // namespace mcast::probe

#undef MCAST_PROBE
#undef MCAST_PROBE_FUNCTION

#endif
