#include <gtest/gtest.h>
#include <iterator>

#include "mcast/argument_check.h"
#include "support/scripted_resource.h"

namespace
{

const char *const kExpected[] = {
    "",
    "Group address",
    "Specify group mask",
    "Group mask address",
    "Group mask length",
    "Source address",
    "Specify source mask",
    "Source mask address",
    "Source mask length",
    "IP address",
    "IP mask address",
    "Routes including this outgoing interface",
    "Routes excluding this outgoing interface",
    "Routes exactly matching this outgoing interface",
    "Specify incoming interface in entries",
    "Specify outgoing interface in entries",
    "Interface name",
    "Interface type",
    "Interface number",
    "Detailed information",
    "",
    "Specify an interface",
    "Display multicast forwarding table information",
    "Multicast module",
    "Specify all debugging functions",
    "Specify event debugging",
    "No enough memory",
    "VPN instance name",
    "All VPN instance",
    "IPv6 address",
    "IPv6 group address",
    "IPv6 source address",
    "IPv6 group prefix length",
    "IPv6 prefix length",
    "Specify a basic ACL",
    "Specify a basic IPv6 ACL",
    "Specify a basic or an advanced ACL",
    "Specify a basic or an advanced IPv6 ACL",
    "Specify an advanced ACL",
    "Specify an advanced IPv6 ACL",
    "Specify a mask",
    "Mask",
    "Mask length",
    "Static RP IPv6 address",
    "IPv6 prefix address",
    "Command can be executed only on public network.\r\n",
    "%s\r\n",
    "Specify interface debugging",
    "Statistics information",
    "Specify multicast group",
    "Specify multicast source",
    "Multicast-UA interface",
    "Multicast-UA interface number",
    "Multicast-UA interface",
    "%s is not ready.",
};

class HelpTexts : public testing::Test
{
protected:
    void TearDown() override
    {
        scripted::ResetResource();
    }
};

TEST_F(HelpTexts, AreRegisteredByIndexUnderTheirModule)
{
    int calls = 0;
    scripted::rc_register = [&](uint32_t module, const RC_TEXT_TABLE_S *table, uint32_t count) -> uint32_t {
        ++calls;
        EXPECT_EQ(module, 0x4a00000u);
        EXPECT_EQ(count, 55u);
        EXPECT_EQ(std::size(kExpected), 55u);
        EXPECT_EQ(table->reserved, 0u);
        for (uint32_t i = 0; i < count && i < std::size(kExpected); ++i) {
            EXPECT_STREQ(table->texts[i], kExpected[i]) << i;
        }
        return 0x1234;
    };
    EXPECT_EQ(MC_CommonRcInit(), 0x1234u);
    EXPECT_EQ(calls, 1);
}

TEST_F(HelpTexts, TableOutlivesTheRegistration)
{
    const RC_TEXT_TABLE_S *kept = nullptr;
    scripted::rc_register = [&](uint32_t, const RC_TEXT_TABLE_S *table, uint32_t) -> uint32_t {
        kept = table;
        return 0;
    };
    EXPECT_EQ(MC_CommonRcInit(), 0u);
    EXPECT_STREQ(kept->texts[54], "%s is not ready.");
}

TEST_F(HelpTexts, AreWithdrawnByModule)
{
    scripted::rc_withdraw = [](uint32_t module) -> uint32_t { return module == 0x4a00000 ? 0x77 : 1; };
    EXPECT_EQ(MC_CommonRcExit(), 0x77u);
}

} // namespace
