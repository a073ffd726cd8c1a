#include <cstring>
#include <gtest/gtest.h>

#include "mcast/addr.h"
#include "support/addresses.h"

namespace
{

TEST(AddressConstants, AreTheWellKnownAddressesByteForByte)
{
    const struct {
        const MCAST_ADDR_S *constant;
        const char *text;
    } rows[] = {
        {&g_stPimAllRoutersAddr4, "224.0.0.13"}, {&g_stPimAllRoutersAddr6, "ff02::d"},
        {&g_stMcastDefSrcAddr4, "0.0.0.0"},      {&g_stMcastDefSrcAddr6, "::"},
        {&g_stMcastDefGrpAddr4, "224.0.0.0"},    {&g_stMcastDefGrpAddr6, "ff00::"},
    };

    for (const auto &row : rows) {
        MCAST_ADDR_S expected = Addr(row.text);

        EXPECT_EQ(std::memcmp(row.constant, &expected, sizeof(expected)), 0) << row.text;
    }
}

} // namespace
