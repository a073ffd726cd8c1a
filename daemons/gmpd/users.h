/*
 * The users of links that require authentication, as the state machine asks about them. Each user has
 * memberships of his own, an Interface that stands for him on the link:
 *
 *      report from address A ──► member(link, A) ──► Interface of the user: his groups, his timers
 *                                                          │ what changed
 *                                                          ▼
 *                                             LinkMembers of the link: the union of all users ──► MRIB
 *
 * so that what one user asked for ends with him and leaves the others alone.
 */
#ifndef DAEMONS_GMPD_USERS_H
#define DAEMONS_GMPD_USERS_H

#include <functional>

#include "daemons/gmpd/address.h"

namespace gmpd
{

struct Interface;

class Users
{
public:
    virtual ~Users() = default;

    // The memberships of the user who reports from the address on the running link; NULL when nobody is
    // announced there.
    virtual Interface *member(Interface &link, const Address &sender) = 0;

    // Whether the user may join the source of the group; source NULL: any source.
    virtual bool permits(const Interface &member, const Address &group, const Address *source) const = 0;

    // A join on the link was refused. It may be permitted one day, and then hosts are to be asked.
    virtual void join_refused(const Interface &link) = 0;

    // Visits the memberships of every user who has any on the link; they may change, not go.
    virtual void visit(const Interface &link, const std::function<void(Interface &)> &visitor) const = 0;

    // The link stopped: its users' memberships go without a word, and their state with them.
    virtual void link_stopped(const Interface &link) = 0;

    // Tells a MRIB that knows nothing who the users are.
    virtual void tell_everything() const = 0;
};

} // namespace gmpd

#endif
