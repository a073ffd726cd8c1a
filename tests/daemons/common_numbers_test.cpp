/*
 * Numbers that programs of different versions share: a daemon, mcastctl, clients of the channel. A change of one
 * is a change of what they say to each other.
 */
#include <gtest/gtest.h>

#include "daemons/common/control_tables.h"
#include "daemons/common/membership.h"
#include "daemons/common/services.h"

using namespace mcastd;

namespace
{

TEST(Numbers, TablesHaveTheDocumentedOnesAndKeys)
{
    const struct {
        const ControlSchema &table;
        unsigned number;
        const char *name;
        size_t key;
    } rows[] = {
        {COUNTER_TABLE, 1, "counters", 3},
        {DEBUG_TABLE, 2, "debug", 1},
        {GROUP_TABLE, 16, "groups", 2},
        {SOURCE_TABLE, 17, "sources", 3},
        {INTERFACE_TABLE, 18, "interfaces", 1},
        {QUERIER_TABLE, 19, "queriers", 1},
        {USER_TABLE, 20, "users", 1},
        {USER_RIGHT_TABLE, 21, "user-rights", 3},
        {USER_MESSAGE_TABLE, 22, "user-messages", 3},
        {USER_STATISTICS_TABLE, 23, "user-statistics", 3},
        {ROUTE_TABLE, 32, "routes", 3},
        {MEMBER_TABLE, 33, "members", 5},
        {VIF_TABLE, 34, "vifs", 3},
        {CLIENT_TABLE, 35, "clients", 2},
        {MSDP_PEER_TABLE, 48, "msdp-peers", 1},
        {MSDP_CACHE_TABLE, 49, "msdp-cache", 2},
        {MSDP_COUNTER_TABLE, 50, "msdp-counters", 2},
        {MSDP_RPF_TABLE, 51, "msdp-rpf", 1},
        {PIM_INTERFACE_TABLE, 64, "pim-interfaces", 1},
        {PIM_NEIGHBOR_TABLE, 65, "pim-neighbors", 2},
        {PIM_JOIN_TABLE, 66, "pim-joins", 3},
        {PIM_TREE_TABLE, 67, "pim-trees", 2},
        {PIM_ASSERT_TABLE, 68, "pim-asserts", 3},
        {RP_TABLE, 69, "rp", 4},
        {BSR_TABLE, 70, "bsr", 1},
        {RPF_TABLE, 71, "rpf", 1},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(row.table.number, row.number) << row.name;
        EXPECT_STREQ(row.table.name, row.name);
        EXPECT_EQ(row.table.key_size, row.key) << row.name;
    }
}

TEST(Numbers, CommandsHaveTheDocumentedOnes)
{
    const unsigned commands[] = {COMMAND_DEBUG,       COMMAND_CLEAR_USERS,         COMMAND_CLEAR_MSDP_CACHE,
                                 COMMAND_SWITCH_OVER, COMMAND_CLEAR_USER_COUNTERS, COMMAND_CLEAR_RPS};
    for (unsigned i = 0; i < std::size(commands); ++i) {
        EXPECT_EQ(commands[i], i + 1);
    }
}

TEST(Numbers, MembershipsAreReportedByTheDocumentedFlags)
{
    EXPECT_EQ(MEMBERSHIP_PRUNE, 0);
    EXPECT_EQ(MEMBERSHIP_JOIN, 1);
    EXPECT_EQ(MEMBERSHIP_PLAIN, 0);
    EXPECT_EQ(MEMBERSHIP_EXCLUDE, 1);
    EXPECT_EQ(GMP_DISABLED, 0);
    EXPECT_EQ(GMP_ENABLED, 1);
}

TEST(Numbers, DaemonsHaveTheDocumentedPortsAndComponents)
{
    EXPECT_EQ(CONTROL_PORT_MRIBD, 2201);
    EXPECT_EQ(CONTROL_PORT_GMPD_IPV4, 2202);
    EXPECT_EQ(CONTROL_PORT_GMPD_IPV6, 2203);
    EXPECT_EQ(CONTROL_PORT_MSDPD, 2204);
    EXPECT_EQ(BACKUP_PORT_GMPD_IPV4, 2205);
    EXPECT_EQ(BACKUP_PORT_GMPD_IPV6, 2206);
    EXPECT_EQ(CONTROL_PORT_PIMSMD_IPV4, 2207);
    EXPECT_EQ(CONTROL_PORT_PIMSMD_IPV6, 2208);
    EXPECT_EQ(COMPONENT_MRIBD, 0);
    EXPECT_EQ(COMPONENT_GMPD_IPV4, 4);
    EXPECT_EQ(COMPONENT_PIMSMD_IPV4, 6);
    EXPECT_EQ(COMPONENT_MSDPD, 8);
}

} // namespace
