/*
 * Messages of IGMP and MLD, as hosts write reports and read queries. Versions are numbered as IGMP's: 3 is also
 * MLDv2, 2 also MLDv1; version 1 has no twin.
 */
#ifndef TESTS_SIMULATION_NETWORK_MEMBERSHIP_MESSAGE_H
#define TESTS_SIMULATION_NETWORK_MEMBERSHIP_MESSAGE_H

#include <optional>
#include <set>
#include <vector>

#include "tests/simulation/kernel/basics.h"

namespace sim
{

enum class RecordType : uint8_t {
    IsInclude = 1,
    IsExclude = 2,
    ToInclude = 3,
    ToExclude = 4,
    Allow = 5,
    Block = 6,
};

struct Record {
    RecordType type;
    Address group;
    std::set<Address> sources;
};

struct Query {
    Address from;
    unsigned version;
    Ns response_time; // in which hosts answer
    Address group;    // of no family in a general query
    std::set<Address> sources;
};

// Whole packets. Those of versions 1 and 2 carry one group.
Bytes report_packet(const Address &from, const std::vector<Record> &records);
Bytes old_report_packet(const Address &from, const Address &group, unsigned version);
Bytes leave_packet(const Address &from, const Address &group);
Bytes general_query_packet(const Address &from, unsigned version, Ns response_time);

// Nothing for a packet that is no query.
std::optional<Query> read_query(const Bytes &packet);

// The group of a report of version 1 or 2, which other hosts of these versions need not repeat.
std::optional<Address> read_old_report(const Bytes &packet);

} // namespace sim

#endif
