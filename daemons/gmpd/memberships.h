/*
 * What is wanted on a link: by all of its hosts together or, where users are authenticated, by one user.
 *
 *      Interface ─── memberships ───────────► groups: MRT_TABLE_S of GroupState
 *          ▲                                       └── sources: MRT_TABLE_S of SourceState
 *          │ link
 *      Memberships of a user ──────────────► groups of the user's own
 *
 * Protocol values, address and querier are always those of the link.
 */
#ifndef DAEMONS_GMPD_MEMBERSHIPS_H
#define DAEMONS_GMPD_MEMBERSHIPS_H

#include <cstdint>
#include <string>

#include "daemons/common/limit_watch.h"
#include "daemons/gmpd/counters.h"
#include "daemons/gmpd/limits.h"
#include "mcast/route_table.h"

namespace gmpd
{

struct Interface;

struct Memberships {
    Interface &link;
    const uint32_t user_index; // the index by which the user is found; 0: these are the link's own
    std::string user_name;     // "user 7 of node 1"; empty: these are the link's own
    MRT_TABLE_S *groups;
    mcastd::LimitWatch<90, 80> group_limit_watch;
    const Address *reporter = nullptr; // the host whose report is being handled

    // Those of all hosts of the link, which must outlive them.
    explicit Memberships(Interface &of_link);
    // Those of one user on the link.
    Memberships(Interface &of_link, uint32_t of_user, const std::string &name);
    ~Memberships();
    Memberships(const Memberships &) = delete;
    Memberships &operator=(const Memberships &) = delete;

    bool of_user() const
    {
        return user_index != 0;
    }

    // For messages: the link's name, with the user's.
    std::string name() const;

    // The index that trace lines show: the user's, or the link's.
    uint32_t shown_index() const;

    // What is counted: for a user apart from the link.
    Counters &counters();

    Counters user_counters; // of a user alone
    HostUse user_use;       // likewise
};

} // namespace gmpd

#endif
