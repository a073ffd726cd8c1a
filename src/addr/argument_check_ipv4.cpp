#include "mcast/addr.h"
#include "mcast/argument_check.h"

namespace
{

constexpr uint32_t kLastLinkLocalGroup = 0xe00000ff;
constexpr uint16_t kAnyMask = 0;

bool IsGroup(uint32_t addr)
{
    return addr >> 28 == 0xe;
}

bool IsRoutableGroup(uint32_t addr)
{
    return IsGroup(addr) && addr > kLastLinkLocalGroup;
}

bool IsAdminScopedGroup(uint32_t addr)
{
    return addr >> 24 == 239;
}

bool IsSource(uint32_t addr)
{
    return MCAST_IPv4SrcAddrCheck(addr) != MCAST_FALSE;
}

bool IsSourceOrWildcard(uint32_t addr)
{
    return addr == 0 || IsSource(addr);
}

bool IsMask(uint32_t mask)
{
    return MCAST_IsNetworkMask(mask, kAnyMask) != MCAST_FALSE;
}

bool IsGroupMask(uint32_t mask)
{
    return MCAST_IsNetworkMask(mask, MCAST_MASK_KIND_GROUP) != MCAST_FALSE;
}

bool IsAdminScopedMask(uint32_t mask)
{
    return IsMask(mask) && mask >> 24 == 255;
}

MCAST_STATUS Check(const char *text, bool (*accepts)(uint32_t))
{
    uint32_t addr = 0;
    return MCAST_StrToIP4(text, &addr) == MCAST_OK && accepts(addr) ? MCAST_OK : MCAST_ERR_GENERAL;
}

} // namespace

MCAST_STATUS MCAST_GroupIPCheck(const char *text)
{
    return Check(text, IsRoutableGroup);
}

MCAST_STATUS MCAST_GroupIPCheckExcludeResvAddr_Ext(const char *text)
{
    return Check(text, IsRoutableGroup);
}

MCAST_STATUS MCAST_GroupIPCheck_Ext(const char *text)
{
    return Check(text, IsGroup);
}

MCAST_STATUS MCAST_AdmGroupIPCheck(const char *text)
{
    return Check(text, IsAdminScopedGroup);
}

MCAST_STATUS MCAST_AdmGroupMaskCheck(const char *text)
{
    return Check(text, IsAdminScopedMask);
}

MCAST_STATUS MCAST_GrpMaskCheck(const char *text)
{
    return Check(text, IsGroupMask);
}

MCAST_STATUS MCAST_MaskCheck(const char *text)
{
    return Check(text, IsMask);
}

MCAST_STATUS MCAST_SrcIPStrictCheck(const char *text)
{
    return Check(text, IsSource);
}

MCAST_STATUS MCAST_SourceIPCheck(const char *text)
{
    return Check(text, IsSourceOrWildcard);
}
