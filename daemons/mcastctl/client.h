/*
 * Requests to the daemons, carried by the library's management calls: one connection, one request and one
 * reply each.
 */
#ifndef DAEMONS_MCASTCTL_CLIENT_H
#define DAEMONS_MCASTCTL_CLIENT_H

#include <functional>
#include <string>
#include <vector>

#include "daemons/common/control_message.h"
#include "daemons/common/control_tables.h"
#include "daemons/mcastctl/daemon_list.h"

namespace mcastctl
{

using Daemons = std::vector<const DaemonInfo *>;

// How reading a table from several daemons went.
struct Outcome {
    Daemons unreachable;
    std::vector<std::string> errors; // what the daemons refused, each with the daemon's name in front

    bool good() const
    {
        return errors.empty();
    }
};

// Adds what more says to *outcome.
void append(Outcome *outcome, const Outcome &more);

// Takes a row of a daemon. False: of those that follow in the table none is wanted.
using RowVisitor = std::function<bool(const DaemonInfo &daemon, const mcastd::ControlFields &row)>;

// Visits the rows from the key on, or all with an empty one: those of the first daemon, then those of the
// second, and so on.
Outcome walk_in_turn(const Daemons &daemons, const mcastd::ControlSchema &schema,
                     const mcastd::ControlFields &from, const RowVisitor &visitor);

// Visits the rows of all daemons by their key, interface index first; of equal ones the first daemon's first.
Outcome walk_merged(const Daemons &daemons, const mcastd::ControlSchema &schema,
                    const mcastd::ControlFields &from, const RowVisitor &visitor);

// Visits the row with the whole key at each daemon that has it.
Outcome get_row(const Daemons &daemons, const mcastd::ControlSchema &schema, const mcastd::ControlFields &key,
                const RowVisitor &visitor);

// Sets a value, for all of the daemon with an empty key.
Outcome set_value(const DaemonInfo &daemon, const mcastd::ControlSchema &schema,
                  const mcastd::ControlFields &key, const char *setting, const mcastd::ControlField &value);

// Gives a command. What the daemon answers when it is done goes to *answer.
Outcome give_command(const DaemonInfo &daemon, uint16_t command, const mcastd::ControlFields &arguments,
                     std::string *answer);

// Whether the daemon runs. When it is a service of the platform, the platform says so; a daemon that was
// started by hand runs when it can be connected to.
bool is_running(const DaemonInfo &daemon);

} // namespace mcastctl

#endif
