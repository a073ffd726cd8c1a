/*
 * The daemon's tables as JSON text.
 */
#ifndef DAEMONS_MSDPD_STATUS_H
#define DAEMONS_MSDPD_STATUS_H

#include <string>

#include "daemons/msdpd/speaker.h"

namespace msdpd
{

// What only the process knows.
struct ProcessStatus {
    bool mrib_connected = false;
    uint64_t mrib_connects = 0;
    uint32_t mrib_pending = 0; // messages that wait for the channel
};

// One object: the process, its peers with their non-zero counters, the local sources that are announced, and
// the cache. Times are seconds, since something happened or until it will.
std::string status_text(Speaker &speaker, const ProcessStatus &process);

} // namespace msdpd

#endif
