/*
 * What the users of one link ask for together. A source is wanted on the link when it is wanted by at least
 * one of them, and the MRIB is told of the link alone.
 */
#ifndef DAEMONS_GMPD_USERS_UNION_H
#define DAEMONS_GMPD_USERS_UNION_H

#include <cstdint>

#include "daemons/gmpd/address.h"
#include "mcast/route_table.h"

namespace gmpd
{

struct Interface;

class UsersUnion
{
public:
    // For the link, which must outlive it.
    explicit UsersUnion(Interface &link);
    ~UsersUnion();
    UsersUnion(const UsersUnion &) = delete;
    UsersUnion &operator=(const UsersUnion &) = delete;

    // One user's state changed by one step, as in Outputs::tell_member. The MRIB hears of it with settle.
    void note(const Address &group, const Address *source, bool join, bool blocked);

    // Tells the MRIB what the steps noted for the group come to, in an order in which wanted traffic never
    // stops and unwanted traffic never starts.
    void settle(const Address &group);

    // Forgets everything without telling the MRIB.
    void clear();

    // Tells a MRIB that knows nothing of the link everything.
    void tell_everything();

    bool has_group(const Address &group) const;
    uint32_t group_count() const;

    // The groups and their sources, for a walk that keeps its place; and what is told of an entry.
    MRT_TABLE_S *table() const
    {
        return groups_;
    }
    static bool wants_any_source(const MRT_GROUP_S *group);
    static bool wants_source(const MRT_SOURCE_S *source);

private:
    Interface &link_;
    MRT_TABLE_S *groups_;
};

} // namespace gmpd

#endif
