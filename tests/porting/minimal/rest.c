/*
 * What is left of the minimal platform: one node without services, the public VPN instance alone, one module's texts,
 * help that nobody reads, and random bytes of the kernel.
 */
#include <stddef.h>
#include <stdlib.h>
#include <sys/random.h>

#include "mcast/platform/device.h"
#include "mcast/platform/random.h"
#include "mcast/platform/resource.h"
#include "mcast/platform/vpn.h"

static const RC_TEXT_TABLE_S *g_texts;
static uint32_t g_module;
static uint32_t g_text_count;

uint16_t DEV_GetSystemMaster(void)
{
    return 0;
}

uint16_t DEV_GetSelf(void)
{
    return 0;
}

uint16_t *DEV_GetAllNodes(uint32_t *count)
{
    uint16_t *nodes = calloc(1, sizeof(*nodes));
    if (nodes != NULL) {
        *count = 1;
    }
    return nodes;
}

uint16_t *DEV_GetAllStandbyNodes(uint32_t *count)
{
    (void)count;
    return NULL;
}

uint32_t IF_IsNodeUp(uint16_t node)
{
    return node == 0;
}

uint32_t LIP_GetLocalLip(void)
{
    return 0;
}

uint32_t SERVICE_GetStatus(uint16_t node, uint64_t service, uint32_t option, uint32_t *state)
{
    (void)node, (void)service, (void)option;
    *state = SERVICE_STATE_ABSENT;
    return 0;
}

uint32_t SERVICE_Start(uint16_t node, uint64_t service, uint64_t parameter, uint32_t option)
{
    (void)node, (void)service, (void)parameter, (void)option;
    return 1;
}

uint32_t CIOCTL(uint16_t node, uint32_t command, uint32_t length, const void *input, void *output,
                uint32_t output_length, uint32_t *status)
{
    (void)length, (void)input, (void)output, (void)output_length;
    *status = 0;
    return node == 0 && command == CIOCTL_START_MULTICAST_THREADS ? 0 : 1;
}

uint32_t L3VPN_GetNameByVrfIndex(uint16_t vrf_index, uint32_t capacity, char *name)
{
    if (vrf_index != 0 || capacity == 0) {
        return 1;
    }
    name[0] = '\0';
    return 0;
}

uint32_t L3VPN_GetVrfIndexByIfIndex(uint32_t if_index, uint16_t *vrf_index)
{
    (void)if_index;
    *vrf_index = 0;
    return 0;
}

uint32_t RC_RegInfo(uint32_t module_id, const RC_TEXT_TABLE_S *table, uint32_t count)
{
    if (g_texts != NULL) {
        return 1;
    }
    g_texts = table;
    g_module = module_id;
    g_text_count = count;
    return 0;
}

uint32_t RC_DeregInfo(uint32_t module_id)
{
    if (g_texts == NULL || g_module != module_id) {
        return 1;
    }
    g_texts = NULL;
    return 0;
}

const char *RC_LoadString(uint32_t id)
{
    const int known = g_texts != NULL && id >= g_module && id - g_module < g_text_count;
    return known ? g_texts->texts[id - g_module] : "";
}

void CLI_NewHelpInfo(const char *syntax, const char *description, CLI_HELP_LIST_S *list)
{
    (void)syntax, (void)description, (void)list;
}

int FIPS_rand_bytes(uint8_t *buffer, int length)
{
    size_t done = 0;
    while (length > 0 && done < (size_t)length) {
        const ssize_t got = getrandom(buffer + done, (size_t)length - done, 0);
        if (got < 0) {
            return 0;
        }
        done += (size_t)got;
    }
    return length >= 0;
}
