#include <arpa/inet.h>
#include <string.h>

#include "mcast/addr.h"

MCAST_STATUS MCAST_StrToIP4(const char *text, uint32_t *out)
{
    struct in_addr parsed;
    if (text == nullptr || out == nullptr || inet_pton(AF_INET, text, &parsed) != 1) {
        return MCAST_ERR_GENERAL;
    }
    *out = ntohl(parsed.s_addr);
    return MCAST_OK;
}

int MCAST_StrToInet6Addr(const char *text, MCAST_ADDR_S *out)
{
    MCAST_ADDR_S parsed = g_stMcastDefSrcAddr6;
    if (text == nullptr || out == nullptr) {
        return 0;
    }
    if (strcmp(text, "default") == 0) {
        *out = parsed;
        return 0;
    }
    if (inet_pton(AF_INET6, text, parsed.address) != 1) {
        return 0;
    }
    *out = parsed;
    return 1;
}
