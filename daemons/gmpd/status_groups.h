/*
 * The groups and sources of a table as a list of the status, in parts.
 */
#ifndef DAEMONS_GMPD_STATUS_GROUPS_H
#define DAEMONS_GMPD_STATUS_GROUPS_H

#include <cstddef>
#include <optional>

#include "daemons/common/json.h"
#include "daemons/gmpd/address.h"
#include "mcast/route_table.h"

namespace gmpd
{

class StatusGroups
{
public:
    // Whose groups they are: of hosts, with times, or of the users of a link together.
    enum class Kind { OfHosts, OfUsers };

    // Writes the next groups and sources of the table, NULL for one that is gone, and takes 1 from budget for each.
    // True when all are written, and the next call begins a list anew; false when the budget is used up. Groups and
    // sources may come and go between the calls: each that stays is written once, in address order.
    bool write(mcastd::Json &json, MRT_TABLE_S *groups, Kind kind, size_t &budget);

private:
    void open_group(mcastd::Json &json, const MRT_GROUP_S *group, Kind kind);
    bool write_sources(mcastd::Json &json, const MRT_GROUP_S *group, Kind kind, size_t &budget);

    bool begun_ = false;
    bool in_group_ = false;
    Address group_{};               // the one written last
    std::optional<Address> source_; // of it
};

} // namespace gmpd

#endif
