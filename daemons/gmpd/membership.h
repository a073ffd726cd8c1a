/*
 * What a record of a report does to an interface's memberships.
 */
#ifndef DAEMONS_GMPD_MEMBERSHIP_H
#define DAEMONS_GMPD_MEMBERSHIP_H

#include <vector>

#include "daemons/gmpd/interface.h"
#include "daemons/gmpd/message.h"

namespace gmpd
{

// One row of the state tables: a record of the given type for the group, with its sources in ascending order
// and without duplicates. The group is created, changed, reported to the MRIB and removed as the row says.
void apply_record(Interface &interface, RecordType type, const Address &group,
                  const std::vector<Address> &sources);

} // namespace gmpd

#endif
