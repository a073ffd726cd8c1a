/*
 * What may be done with a group on an interface. The MRIB process decides; the state machine asks here, at
 * two places: before a join becomes state, and when it computes what the MRIB is to know.
 */
#ifndef DAEMONS_GMPD_POLICY_H
#define DAEMONS_GMPD_POLICY_H

#include "daemons/gmpd/address.h"

namespace gmpd
{

struct Interface;

// Which joins of a group count on an interface.
enum class Joins : uint8_t {
    All,
    SourcesOnly, // the group is in the range of source-specific multicast
    None,        // a boundary of the interface blocks the group
    Unlisted,    // the operator's list of groups does not have it
};

// The answers of a router without a policy: everything may.
class Policy
{
public:
    virtual ~Policy() = default;

    virtual Joins joins_of(const Interface &, const Address &) const
    {
        return Joins::All;
    }

    // Whether this router forwards to the interface. If not, memberships are kept, for the day that it does,
    // and the MRIB knows of none.
    virtual bool reports(const Interface &) const
    {
        return true;
    }
};

// Brings the interface's groups in line with answers that may have changed: forgets those behind a boundary,
// ends joins of any source in the source-specific range, and tells the MRIB what it is to know now. Linear in
// the groups and sources.
void apply_policy(Interface &interface);

} // namespace gmpd

#endif
