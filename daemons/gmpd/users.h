/*
 * The users of links that require authentication, as the state machine asks about them. Each user has
 * memberships of its own:
 *
 *      report from address A ──► member(link, A) ──► Memberships of the user: its groups, its timers
 *                                                          │ what changed
 *                                                          ▼
 *                                             UsersUnion of the link: the union of all users ──► MRIB
 *
 * so that what one user asked for ends with that user and leaves the others alone.
 */
#ifndef DAEMONS_GMPD_USERS_H
#define DAEMONS_GMPD_USERS_H

#include <functional>

#include "daemons/gmpd/address.h"

namespace gmpd
{

struct Interface;
struct Memberships;

class Users
{
public:
    virtual ~Users() = default;

    // The memberships of the user that reports from the address on the running link; NULL when no user is
    // announced there.
    virtual Memberships *member(Interface &link, const Address &sender) = 0;

    // Whether the user may join the source of the group; source NULL: any source.
    virtual bool permits(const Memberships &user, const Address &group, const Address *source) const = 0;

    // A join on the link was refused. It may be permitted one day, and then hosts are to be asked.
    virtual void join_refused(const Interface &link) = 0;

    // Visits the memberships of every user that has any on the link; they may change, not go.
    virtual void visit(const Interface &link, const std::function<void(Memberships &)> &visitor) const = 0;

    // The link stopped: its users' memberships go, and the MRIB is not told of each.
    virtual void link_stopped(const Interface &link) = 0;

    // Tells a MRIB that knows nothing which users there are.
    virtual void tell_everything() const = 0;
};

} // namespace gmpd

#endif
