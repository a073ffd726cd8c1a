/*
 * The messages by which an agent announces users; docs/usrauth.md draws them.
 */
#ifndef TESTS_SIMULATION_NETWORK_AGENT_MESSAGE_H
#define TESTS_SIMULATION_NETWORK_AGENT_MESSAGE_H

#include <set>
#include <utility>

#include "tests/simulation/kernel/basics.h"

namespace sim
{

// Source and group; a source of no family stands for all of them.
using Permission = std::pair<Address, Address>;

struct AgentUser {
    uint32_t id;
    uint32_t if_index;
    Address address; // what the reports come from
};

// Each is one packet. Those of one family alone are in permissions.
Bytes announce_message(const AgentUser &user);
Bytes groups_message(uint32_t id, const std::set<Permission> &permissions); // the list, and its end
Bytes withdraw_message(uint32_t id);
Bytes refresh_message(bool begins);

} // namespace sim

#endif
