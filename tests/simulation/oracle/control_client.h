/*
 * What a daemon says of itself on its control port, asked as mcastctl asks. No time passes: the daemon answers in the
 * rounds of its event loop that are due now.
 */
#ifndef TESTS_SIMULATION_ORACLE_CONTROL_CLIENT_H
#define TESTS_SIMULATION_ORACLE_CONTROL_CLIENT_H

#include <optional>
#include <vector>

#include "daemons/common/control_message.h"
#include "daemons/common/control_tables.h"
#include "tests/simulation/kernel/machine.h"

namespace sim
{

using Row = mcastd::ControlFields;

// The reply to one request; nothing when nobody listens on the port or does not answer at once.
std::optional<mcastd::ControlReply> ask(Machine &machine, uint16_t port,
                                        const mcastd::ControlRequest &request);

// All rows of a table; nothing when a request of the walk is not answered.
std::optional<std::vector<Row>> read_table(Machine &machine, uint16_t port,
                                           const mcastd::ControlSchema &schema);

// What the daemon prints for its operator on SIGUSR1.
std::string ask_for_status(Process &process);

Address address_in(const mcastd::ControlField &field);

} // namespace sim

#endif
