/*
 * What a record of a report does to memberships.
 */
#ifndef DAEMONS_GMPD_STATE_TABLE_H
#define DAEMONS_GMPD_STATE_TABLE_H

#include <vector>

#include "daemons/gmpd/memberships.h"
#include "daemons/gmpd/message.h"

namespace gmpd
{

// One row of the state tables: a record of the given type for the group, with its sources in ascending order
// and without duplicates. The group is created, changed, reported to the MRIB and removed as the row says.
void apply_record(Memberships &memberships, RecordType type, const Address &group,
                  const std::vector<Address> &sources);

} // namespace gmpd

#endif
