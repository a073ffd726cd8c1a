/*
 * How much hosts can make this daemon hold. An entry is a group, or a source of a group. Entries are counted for the
 * process, for each interface, and for each host or user that made them.
 */
#ifndef DAEMONS_GMPD_LIMITS_H
#define DAEMONS_GMPD_LIMITS_H

#include <cstdint>
#include <map>

#include "daemons/gmpd/address.h"
#include "daemons/gmpd/counters.h"

namespace gmpd
{

struct GroupState;
struct Interface;
struct Memberships;
struct Process;
struct SourceState;

// The entries that a host or a user made.
struct HostUse {
    Address host{}; // of a host; a user's use is in its Memberships
    uint32_t entries = 0;
};

struct HostLess {
    bool operator()(const Address &first, const Address &second) const
    {
        return address_less(first, second);
    }
};

// The entries on a link, users' included.
struct LinkUse {
    uint32_t entries = 0;
    std::map<Address, HostUse, HostLess> hosts; // those that have entries
};

struct ProcessUse {
    uint32_t entries = 0;
    uint64_t bytes = 0;
    uint32_t guarantee = 0; // what every interface can have whatever the others hold
    uint64_t committed = 0; // for each interface the greater of its entries and the guarantee, all together
    bool stale = true;      // an interface came or went: guarantee and committed are to be computed
};

// What speaks against a group more, or a source more of the group: a limit, the lack of memory, or NO_DROP.
Count group_refused(const Memberships &memberships, const Address &group);
Count source_refused(const GroupState &group);

// The group or source was made, or is about to go. Counting what was made throws std::bad_alloc, with nothing counted,
// when memory is short.
void count_group(GroupState &group);
void count_source(SourceState &source);
void uncount_group(GroupState &group);
void uncount_source(SourceState &source);

// Warns when the memberships, or the group, come near their limit, once until they are well below it again.
void warn_group_limit(Memberships &memberships);
void warn_source_limit(GroupState &group);

} // namespace gmpd

#endif
