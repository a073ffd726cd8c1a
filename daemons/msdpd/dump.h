/*
 * Everything that is known, told to one peer: after its connection came up, and after messages for it had to
 * be dropped. It goes out as the peer reads, first the local sources, then the cache.
 */
#ifndef DAEMONS_MSDPD_DUMP_H
#define DAEMONS_MSDPD_DUMP_H

#include "daemons/msdpd/sa_cache.h"
#include "mcast/msdp.h"

namespace msdpd
{

struct Peer;

struct Dump {
    enum class Phase { Done, LocalSources, Cache };

    Phase phase = Phase::Done;
    MRIB_MSDP_CURSOR_S local{};
    SaCache::Cursor cache;
};

// Begins a dump, or begins it again.
void dump_start(Peer &peer);

// Appends the next messages of a dump to what waits for the peer, as long as that is little. Whether there is
// more to come.
bool dump_continue(Peer &peer);

} // namespace msdpd

#endif
