#include "mcast/argument_check.h"
#include "platform/resource.h"

namespace
{

/* Daemons refer to a text by its place, so the order is part of the contract, as are the empty texts. */
constexpr const char *kTexts[] = {
    /* 0 */
    "",
    "Group address",
    "Specify group mask",
    "Group mask address",
    "Group mask length",
    /* 5 */
    "Source address",
    "Specify source mask",
    "Source mask address",
    "Source mask length",
    "IP address",
    /* 10 */
    "IP mask address",
    "Routes including this outgoing interface",
    "Routes excluding this outgoing interface",
    "Routes exactly matching this outgoing interface",
    "Specify incoming interface in entries",
    /* 15 */
    "Specify outgoing interface in entries",
    "Interface name",
    "Interface type",
    "Interface number",
    "Detailed information",
    /* 20 */
    "",
    "Specify an interface",
    "Display multicast forwarding table information",
    "Multicast module",
    "Specify all debugging functions",
    /* 25 */
    "Specify event debugging",
    "No enough memory",
    "VPN instance name",
    "All VPN instance",
    "IPv6 address",
    /* 30 */
    "IPv6 group address",
    "IPv6 source address",
    "IPv6 group prefix length",
    "IPv6 prefix length",
    "Specify a basic ACL",
    /* 35 */
    "Specify a basic IPv6 ACL",
    "Specify a basic or an advanced ACL",
    "Specify a basic or an advanced IPv6 ACL",
    "Specify an advanced ACL",
    "Specify an advanced IPv6 ACL",
    /* 40 */
    "Specify a mask",
    "Mask",
    "Mask length",
    "Static RP IPv6 address",
    "IPv6 prefix address",
    /* 45 */
    "Command can be executed only on public network.\r\n",
    "%s\r\n",
    "Specify interface debugging",
    "Statistics information",
    "Specify multicast group",
    /* 50 */
    "Specify multicast source",
    "Multicast-UA interface",
    "Multicast-UA interface number",
    "Multicast-UA interface",
    "%s is not ready.",
};

static_assert(sizeof(kTexts) / sizeof(kTexts[0]) == MCAST_RC_TEXT_COUNT, "every index has its text");
static_assert(MCAST_RC_TEXT_NOT_READY + 1 == MCAST_RC_TEXT_COUNT, "the last text has the last name");

/* The platform keeps the table as long as it is registered. */
const RC_TEXT_TABLE_S kTable = {kTexts, 0};

} // namespace

MCAST_STATUS MC_CommonRcInit(void)
{
    return RC_RegInfo(MCAST_RC_MODULE, &kTable, MCAST_RC_TEXT_COUNT);
}

MCAST_STATUS MC_CommonRcExit(void)
{
    return RC_DeregInfo(MCAST_RC_MODULE);
}
