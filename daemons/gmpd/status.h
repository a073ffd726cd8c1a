/*
 * The daemon's tables as JSON text.
 */
#ifndef DAEMONS_GMPD_STATUS_H
#define DAEMONS_GMPD_STATUS_H

#include <functional>
#include <string>

#include "daemons/common/json.h"
#include "daemons/common/text_parts.h"
#include "daemons/gmpd/process.h"
#include "daemons/gmpd/status_groups.h"

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

// Groups, sources, users and interfaces that a part of the status tells of.
constexpr size_t STATUS_PART = 4096;

// One object: the daemon, then each interface with its querier, groups, sources and non-zero counters, then the user
// authentication. Times are seconds that are left. Of one moment when one part holds it all; a longer one ends with
// "of_one_moment": false. process must outlive the parts; daemon is asked for each part.
mcastd::TextParts status_parts(const Process &process, std::function<DaemonStatus()> daemon);

// The object of the user authentication in it: agents' messages by kind and type, the users with their groups.
class StatusUsers
{
public:
    // Writes the next users; service is NULL when it is gone. As StatusGroups::write.
    bool write(mcastd::Json &json, const UserService *service, size_t &budget);

private:
    bool write_user(mcastd::Json &json, const UserService *service, size_t &budget);

    bool begun_ = false;
    bool in_user_ = false;
    bool in_list_ = false; // of that user's groups
    uint32_t next_ = 0;    // interface of the user that is written, or after the last one
    StatusGroups groups_;
};

} // namespace gmpd

#endif
