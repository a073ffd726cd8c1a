#include "addr/bytes.h"
#include "mcast/addr.h"
#include "mcast/argument_check.h"

namespace
{

using mcast::AllZero;

constexpr uint8_t kLinkLocalScope = 2;

bool IsMulticast(const MCAST_ADDR_S *addr)
{
    return addr->address[0] == 0xff;
}

bool IsUnspecified(const MCAST_ADDR_S *addr)
{
    return AllZero(addr->address, 16);
}

bool IsLoopback(const MCAST_ADDR_S *addr)
{
    return AllZero(addr->address, 15) && addr->address[15] == 1;
}

bool IsRoutableGroup(const MCAST_ADDR_S *addr)
{
    return MCAST_GrpAddrCheck(addr) != MCAST_FALSE;
}

bool IsGroupAboveLink(const MCAST_ADDR_S *addr)
{
    return IsMulticast(addr) && (addr->address[1] & 0x0f) > kLinkLocalScope &&
           MCAST_IsReservedGroupAddr(addr->address) == MCAST_FALSE;
}

bool IsSource(const MCAST_ADDR_S *addr)
{
    return MCAST_SrcAddrCheck(addr) != MCAST_FALSE;
}

bool IsSourceOrWildcard(const MCAST_ADDR_S *addr)
{
    return IsUnspecified(addr) || IsSource(addr);
}

bool IsRoutableSource(const MCAST_ADDR_S *addr)
{
    return MCAST_IsIPv6AddrRoutable(addr) != MCAST_FALSE && !IsLoopback(addr);
}

bool IsProtocolSource(const MCAST_ADDR_S *addr)
{
    return MCAST_ProtoSrcAddrCheck(addr) == MCAST_OK;
}

bool IsNotMulticast(const MCAST_ADDR_S *addr)
{
    return !IsMulticast(addr);
}

bool IsLinkLocal(const MCAST_ADDR_S *addr)
{
    return addr->address[0] == 0xfe && (addr->address[1] & 0xc0) == 0x80;
}

MCAST_STATUS Check(const char *text, bool (*accepts)(const MCAST_ADDR_S *))
{
    MCAST_ADDR_S addr = {};
    /* "default" is refused by the result, whatever the rule says of ::. */
    return MCAST_StrToInet6Addr(text, &addr) == 1 && accepts(&addr) ? MCAST_OK : MCAST_ERR_GENERAL;
}

} // namespace

MCAST_STATUS MCAST_GroupIPv6Check(const char *text)
{
    return Check(text, IsRoutableGroup);
}

MCAST_STATUS MCAST_GroupIPv6StrictCheck(const char *text)
{
    return Check(text, IsGroupAboveLink);
}

MCAST_STATUS MCAST_GroupIPv6Check_Ext(const char *text)
{
    return Check(text, IsMulticast);
}

MCAST_STATUS MCAST_SourceIPv6Check(const char *text)
{
    return Check(text, IsSource);
}

MCAST_STATUS MCAST_SourceIPv6Check_Ext(const char *text)
{
    return Check(text, IsSourceOrWildcard);
}

MCAST_STATUS MCAST_SrcIPv6Check(const char *text)
{
    return Check(text, IsRoutableSource);
}

MCAST_STATUS MCAST_SrcIPv6StrictCheck(const char *text)
{
    return Check(text, IsProtocolSource);
}

MCAST_STATUS MCAST_SrcIPv6RelaxCheck(const char *text)
{
    return Check(text, IsNotMulticast);
}

MCAST_STATUS MCAST_IPv6StrLinkCheck(const char *text)
{
    return Check(text, IsLinkLocal);
}
