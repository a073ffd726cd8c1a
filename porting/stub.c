/*
 * Every name that the library asks of a platform, to start a port from: each call fails in the way that its contract
 * allows and says once, on standard error, that it is not ported yet. A program that links the library and this file
 * starts, so that services can be filled in one after the other. Replace a service whole: its handles and node headers
 * belong together.
 *
 *   cc -shared -fPIC -o libplatform.so stub.c -I PREFIX/include/mcastcommon
 *
 * The local sockets are no names of their own: they are the socket calls of libc for family 37, which fail on a kernel
 * without it.
 */
#include <stdio.h>

#include "mcast/platform/acl.h"
#include "mcast/platform/avl.h"
#include "mcast/platform/device.h"
#include "mcast/platform/hash.h"
#include "mcast/platform/interface.h"
#include "mcast/platform/prefix_tree.h"
#include "mcast/platform/random.h"
#include "mcast/platform/resource.h"
#include "mcast/platform/timer.h"
#include "mcast/platform/vpn.h"

#pragma GCC diagnostic ignored "-Wunused-parameter" /* nothing is used yet */

/* The platform's general failure. */
#define FAILED 0x40010001u

/* Names the function that it stands in, the first time, and returns what it is given. */
#define NOT_PORTED(...)                                                                                      \
    do {                                                                                                     \
        static int said;                                                                                     \
        if (!said) {                                                                                         \
            said = 1;                                                                                        \
            fprintf(stderr, "%s is not ported yet\n", __func__);                                             \
        }                                                                                                    \
        return __VA_ARGS__;                                                                                  \
    } while (0)

/* ---- Ordered containers ---- */

AVL_HANDLE AVL_Init(AVL_NODE_COMPARE compare, uint32_t option, AVL_FREE free_record)
{
    NOT_PORTED(0);
}

void AVL_Fini(AVL_HANDLE tree)
{
    NOT_PORTED();
}

uint32_t AVL_FreeAll(AVL_HANDLE tree)
{
    NOT_PORTED(FAILED);
}

uint32_t AVL_Insert(AVL_HANDLE tree, void *record)
{
    NOT_PORTED(FAILED);
}

uint32_t AVL_Remove(AVL_HANDLE tree, void *record)
{
    NOT_PORTED(0);
}

void *AVL_Get(AVL_HANDLE tree, const void *key, AVL_KEY_COMPARE compare)
{
    NOT_PORTED(NULL);
}

void *AVL_GetLeftMost(AVL_HANDLE tree)
{
    NOT_PORTED(NULL);
}

void *AVL_GetNext(AVL_HANDLE tree, const void *record_or_probe)
{
    NOT_PORTED(NULL);
}

void *AVL_GetPrev(AVL_HANDLE tree, const void *record_or_probe)
{
    NOT_PORTED(NULL);
}

uint32_t AVL_Count(AVL_HANDLE tree)
{
    NOT_PORTED(0);
}

/* ---- Hash tables ---- */

HASH_HANDLE HASH_Init(uint32_t bucket_count, HASH_FREE free_record)
{
    NOT_PORTED(0);
}

void HASH_Fini(HASH_HANDLE table)
{
    NOT_PORTED();
}

uint32_t HASH_FreeAll(HASH_HANDLE table)
{
    NOT_PORTED(FAILED);
}

uint32_t HASH_Insert(HASH_HANDLE table, uint32_t hash, void *record)
{
    NOT_PORTED(FAILED);
}

uint32_t HASH_Remove(HASH_HANDLE table, uint32_t hash, void *record)
{
    NOT_PORTED(0);
}

void *HASH_Get(HASH_HANDLE table, uint32_t hash, const void *key, HASH_KEY_COMPARE compare)
{
    NOT_PORTED(NULL);
}

void *HASH_GetFirst(HASH_HANDLE table)
{
    NOT_PORTED(NULL);
}

void *HASH_GetNext(HASH_HANDLE table, uint32_t hash, const void *record)
{
    NOT_PORTED(NULL);
}

/* ---- Prefix trees ---- */

static RDX_NODE_S *PrefixSearch(const RDX_TREE_S *tree, const RDX_PREFIX_S *prefix)
{
    NOT_PORTED(NULL);
}

static RDX_NODE_S *PrefixCollect(RDX_TREE_S *tree, const RDX_PREFIX_S *prefix)
{
    NOT_PORTED(NULL);
}

static uint32_t PrefixInsert(RDX_TREE_S *tree, RDX_NODE_S *node)
{
    NOT_PORTED(FAILED);
}

static void PrefixRemove(RDX_TREE_S *tree, RDX_NODE_S *node)
{
    NOT_PORTED();
}

static RDX_NODE_S *PrefixFirst(const RDX_TREE_S *tree)
{
    NOT_PORTED(NULL);
}

static RDX_NODE_S *PrefixNext(const RDX_TREE_S *tree, const RDX_NODE_S *node)
{
    NOT_PORTED(NULL);
}

static uint32_t PrefixCount(const RDX_TREE_S *tree)
{
    NOT_PORTED(0);
}

static void PrefixDestroy(RDX_TREE_S *tree, RDX_RELEASE release)
{
    NOT_PORTED();
}

/* A data object is bound when the process starts, not at the first call: it must be there from the beginning. */
const RDX_AFI_CB_S g_astRdxAFICBArray[RDX_AFI_COUNT] = {
    {PrefixSearch, PrefixCollect, PrefixInsert, PrefixRemove, PrefixFirst, PrefixNext, PrefixCount,
     PrefixDestroy},
    {PrefixSearch, PrefixCollect, PrefixInsert, PrefixRemove, PrefixFirst, PrefixNext, PrefixCount,
     PrefixDestroy},
};

/* ---- Interfaces and their private data ---- */

IF_INSTANCE IF_CreatePDInstance(uint32_t kind, uint32_t option)
{
    NOT_PORTED(IF_NO_INSTANCE);
}

uint32_t IF_DestroyPDInstance(IF_INSTANCE instance)
{
    NOT_PORTED(FAILED);
}

uint32_t IF_SetPrivateData(IF_INSTANCE instance, uint32_t if_index, void *data, uint32_t option)
{
    NOT_PORTED(FAILED);
}

uint32_t IF_DelPrivateData(IF_INSTANCE instance, uint32_t if_index, uint32_t option)
{
    NOT_PORTED(FAILED);
}

uint32_t IF_GetPrivateData(IF_INSTANCE instance, uint32_t if_index, void **data)
{
    NOT_PORTED(FAILED);
}

uint32_t IF_GetFirstPrivateData(IF_INSTANCE instance, uint32_t *if_index, void **data)
{
    NOT_PORTED(FAILED);
}

uint32_t IF_GetNextPrivateData(IF_INSTANCE instance, uint32_t after, uint32_t *if_index, void **data)
{
    NOT_PORTED(FAILED);
}

uint32_t IF_GetDataByIfIndex(uint32_t if_index, uint32_t item, void *data)
{
    NOT_PORTED(FAILED);
}

uint32_t IF_GetDataByIfType(uint32_t type, uint32_t item, void *data)
{
    NOT_PORTED(FAILED);
}

uint32_t IF_Select_Init(uint32_t kind, IF_SELECTOR_S *selector)
{
    NOT_PORTED(FAILED);
}

uint32_t IF_SelectProperty_Set(uint32_t property, IF_SELECTOR_S *selector)
{
    NOT_PORTED(FAILED);
}

uint32_t IF_SelectType_Set(uint32_t type, IF_SELECTOR_S *selector)
{
    NOT_PORTED(FAILED);
}

uint32_t IF_IfNameFill(const IF_SELECTOR_S *selector, const char *text, uint32_t mode, char *full_name)
{
    NOT_PORTED(FAILED);
}

uint32_t IF_GetIfIndexByFullName(const char *full_name)
{
    NOT_PORTED(0);
}

/* ---- Timers and boot time ---- */

TIMER_ID Timer_Create(TIMER_SERVICE service, uint32_t kind, uint32_t period_ms, TIMER_HANDLER handler,
                      const uint64_t parameters[4])
{
    NOT_PORTED(TIMER_NONE);
}

uint32_t Timer_SetStatus(TIMER_SERVICE service, TIMER_ID timer, uint32_t state, uint32_t value)
{
    NOT_PORTED(FAILED);
}

uint32_t Timer_GetAttr(TIMER_SERVICE service, TIMER_ID timer, TIMER_ATTR_S *attributes, uint32_t option)
{
    NOT_PORTED(FAILED);
}

uint32_t Timer_Delete(TIMER_SERVICE service, TIMER_ID timer)
{
    NOT_PORTED(FAILED);
}

void TIME_GetSystemBootTime(uint32_t *seconds, uint32_t *sub_seconds)
{
    *seconds = 0;
    *sub_seconds = 0;
    NOT_PORTED();
}

/* ---- Access lists ---- */

uint32_t ACL_GetGroupTypeByIndex(uint32_t family_index, uint32_t acl_number)
{
    NOT_PORTED(0);
}

uint32_t ACL_GetRuleTotalNumber(uint32_t family_index, uint32_t acl_number)
{
    NOT_PORTED(0);
}

uint32_t ACL_MatchWithPacketInfo(uint32_t family_index, uint32_t acl_number, const void *packet_info,
                                 uint32_t count, uint32_t *result, uint32_t *action)
{
    NOT_PORTED(ACL_ERR_NO_ACL);
}

/* ---- VPN instances ---- */

uint32_t L3VPN_GetNameByVrfIndex(uint16_t vrf_index, uint32_t capacity, char *name)
{
    NOT_PORTED(FAILED);
}

uint32_t L3VPN_GetVrfIndexByIfIndex(uint32_t if_index, uint16_t *vrf_index)
{
    NOT_PORTED(FAILED);
}

/* ---- Resources and help ---- */

uint32_t RC_RegInfo(uint32_t module_id, const RC_TEXT_TABLE_S *table, uint32_t count)
{
    NOT_PORTED(FAILED);
}

uint32_t RC_DeregInfo(uint32_t module_id)
{
    NOT_PORTED(FAILED);
}

const char *RC_LoadString(uint32_t id)
{
    NOT_PORTED("");
}

void CLI_NewHelpInfo(const char *syntax, const char *description, CLI_HELP_LIST_S *list)
{
    NOT_PORTED();
}

/* ---- Devices and services ---- */

uint16_t DEV_GetSystemMaster(void)
{
    NOT_PORTED(0);
}

uint16_t DEV_GetSelf(void)
{
    NOT_PORTED(0);
}

uint16_t *DEV_GetAllNodes(uint32_t *count)
{
    NOT_PORTED(NULL);
}

uint16_t *DEV_GetAllStandbyNodes(uint32_t *count)
{
    NOT_PORTED(NULL);
}

uint32_t IF_IsNodeUp(uint16_t node)
{
    NOT_PORTED(0);
}

uint32_t LIP_GetLocalLip(void)
{
    NOT_PORTED(0);
}

uint32_t SERVICE_GetStatus(uint16_t node, uint64_t service, uint32_t option, uint32_t *state)
{
    NOT_PORTED(FAILED);
}

uint32_t SERVICE_Start(uint16_t node, uint64_t service, uint64_t parameter, uint32_t option)
{
    NOT_PORTED(FAILED);
}

uint32_t CIOCTL(uint16_t node, uint32_t command, uint32_t length, const void *input, void *output,
                uint32_t output_length, uint32_t *status)
{
    NOT_PORTED(FAILED);
}

/* ---- Random bytes ---- */

int FIPS_rand_bytes(uint8_t *buffer, int length)
{
    NOT_PORTED(0);
}
