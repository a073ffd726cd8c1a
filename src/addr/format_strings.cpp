#include <stdio.h>
#include <string.h>

#include "addr/text_output.h"
#include "mcast/format.h"
#include "platform/vpn.h"

uint32_t g_uiMcastAssertCnt = 0;

namespace
{

constexpr uint32_t kMinute = 60;
constexpr uint32_t kHour = 60 * kMinute;
constexpr uint32_t kDay = 24 * kHour;
constexpr uint32_t kWeek = 7 * kDay;

void AppendText(mcast::TextOutput &out, const char *text)
{
    mcast::Append(out, text, strlen(text));
}

} // namespace

uint32_t MCAST_GetInstStr(const MRIB_GMP_VRF_KEY_S *ctx, const char *vrf_name, char *buffer)
{
    bool is_ipv6 = ctx->family == MCAST_FAMILY_IPV6;
    mcast::TextOutput out = mcast::OpenText(buffer, MCAST_INST_STR_SIZE);
    if (ctx->vrf_index == 0) {
        AppendText(out, is_ipv6 ? "IPv6: " : "");
    } else {
        AppendText(out, is_ipv6 ? "IPv6 (" : "(");
        AppendText(out, vrf_name);
        AppendText(out, "): ");
    }
    return static_cast<uint32_t>(mcast::Length(out));
}

char *MCAST_GetVrfBracketStr(uint32_t vrf_index, char *buffer)
{
    uint16_t index = static_cast<uint16_t>(vrf_index);
    mcast::TextOutput out = mcast::OpenText(buffer, MCAST_VRF_BRACKET_SIZE);
    char name[MCAST_VRF_NAME_SIZE] = {};
    if (index != 0) {
        (void)L3VPN_GetNameByVrfIndex(index, sizeof(name), name);
        AppendText(out, "(");
        mcast::Append(out, name, strnlen(name, sizeof(name)));
        AppendText(out, ")");
    }
    return buffer;
}

uint32_t MCAST_GetVrfNameByVrfIndex(uint32_t vrf_index, char *buffer)
{
    uint16_t index = static_cast<uint16_t>(vrf_index);
    buffer[0] = '\0';
    return index == 0 ? MCAST_OK : L3VPN_GetNameByVrfIndex(index, MCAST_VRF_NAME_SIZE, buffer);
}

void MCAST_ConvertTimeToString(uint32_t seconds, char *buffer)
{
    if (buffer == nullptr) {
        return;
    }
    if (seconds <= kDay) {
        (void)snprintf(buffer, MCAST_TIME_STR_SIZE, "%02u:%02u:%02u", seconds / kHour,
                       seconds % kHour / kMinute, seconds % kMinute);
    } else if (seconds <= kWeek) {
        (void)snprintf(buffer, MCAST_TIME_STR_SIZE, "%ud:%02uh", seconds / kDay, seconds % kDay / kHour);
    } else {
        (void)snprintf(buffer, MCAST_TIME_STR_SIZE, "%uw:%ud", seconds / kWeek, seconds % kWeek / kDay);
    }
}

int MCAST_Assert_X(const char *file, int line)
{
    ++g_uiMcastAssertCnt;
    return printf("assertion failed, file: %s, line: %d\n", file, line);
}
