/*
 * The daemon's tables as JSON text.
 */
#ifndef DAEMONS_GMPD_STATUS_H
#define DAEMONS_GMPD_STATUS_H

#include <string>

#include "daemons/common/json.h"
#include "daemons/gmpd/process.h"

namespace gmpd
{

class UserService;

// What only the daemon knows.
struct DaemonStatus {
    bool mrib_connected = false;
    uint64_t mrib_connects = 0;
    uint32_t mrib_pending = 0;          // messages that wait for the channel
    size_t mrib_held = 0;               // changes that wait while it is busy
    uint64_t kernel_drops = 0;          // packets lost before they were read
    bool mrib_replayed = false;         // it has said all that it had to say
    const UserService *users = nullptr; // NULL without user authentication
    bool active = true;
    size_t standbys = 0;       // of the active one, that know everything
    bool synchronised = false; // of a standby: it knows everything
    size_t backed_up = 0;      // users whose indexes the standby knows
};

// One object: the daemon, then each interface with its querier, groups, sources and non-zero counters. Times
// are seconds that are left.
std::string status_text(const Process &process, const DaemonStatus &daemon);

// The part of it that users have too: groups with their sources.
void write_groups(mcastd::Json &json, const Memberships &memberships);

// The object of the user authentication: agents' messages by kind and type, the users with their groups.
void write_users(mcastd::Json &json, const UserService &users);

} // namespace gmpd

#endif
