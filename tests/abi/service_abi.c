/* Endpoints and management requests, and their use from C. */
#include "abi.h"

/* A request with room for what the parser writes. */
struct request {
    MCAST_MIB_REQUEST_S mib;
    char output[16];
};

static void check_records(void)
{
    ABI_SIZE(MCAST_APP_ENDPOINT_S, 16);
    ABI_AT(MCAST_APP_ENDPOINT_S, service, 0);
    ABI_AT(MCAST_APP_ENDPOINT_S, port, 8);
    ABI_AT(MCAST_APP_ENDPOINT_S, start_if_absent, 10);
    ABI_SIZE(MCAST_MIB_REQUEST_S, 48);
    ABI_AT(MCAST_MIB_REQUEST_S, request_length, 0);
    ABI_AT(MCAST_MIB_REQUEST_S, request, 8);
    ABI_AT(MCAST_MIB_REQUEST_S, reply_size, 16);
    ABI_AT(MCAST_MIB_REQUEST_S, reply, 24);
    ABI_AT(MCAST_MIB_REQUEST_S, reply_length, 32);
    ABI_AT(MCAST_MIB_REQUEST_S, result, 40);
    ABI_AT(struct request, output, 48);
}

static MCAST_STATUS parse(const void *reply, uint64_t length, void *output, void *extra1, void *extra2)
{
    (void)reply, (void)length, (void)output, (void)extra1, (void)extra2;
    return MCAST_OK;
}

static uint32_t choose(MCAST_MIB_REQUEST_S *const requests[], uint32_t count)
{
    (void)requests, (void)count;
    return 0;
}

/* Nobody listens on the port, and nobody is to be started. */
static void check_unreachable_daemon(void)
{
    static const MCAST_APP_ENDPOINT_S endpoint = {99, 9, 0};
    const MCAST_APP_ENDPOINT_S *daemons[2] = {&endpoint, NULL};
    char reply[8];
    struct request request = {{1, "?", sizeof(reply), reply, 0, 0}, ""};
    struct request other = {{1, "?", sizeof(reply), reply, 0, MCAST_MIB_NO_NEXT}, ""};
    MCAST_MIB_REQUEST_S *requests[2] = {&request.mib, &other.mib};
    uint32_t error_index = 0;
    uint32_t chosen = 7;
    abi_check("connection", (size_t)(MCAST_Connect2APP(&endpoint) < 0), 1);
    abi_check("get", MCAST_MIB_Get(&endpoint, parse, &request.mib), MCAST_MIB_NO_ENTRY);
    abi_check("set", MCAST_MIB_SetGlobal(&endpoint, parse, &request.mib), MCAST_MIB_NO_ENTRY);
    abi_check("set table", MCAST_MIB_SetTable(&endpoint, parse, &request.mib, &error_index),
              MCAST_MIB_NO_ENTRY);
    abi_check("error index", error_index, MCAST_MIB_NO_ERROR_INDEX);
    abi_check("next by index", MCAST_MIB_GetNextByIndex(daemons, requests, 2, parse, choose, &chosen),
              MCAST_MIB_NO_NEXT);
    abi_check("next by address", MCAST_MIB_GetNextByInet(daemons, requests, 2, 1, parse, &chosen),
              MCAST_MIB_NO_NEXT);
    abi_check("chosen", chosen, 7);
    abi_check("result", (size_t)request.mib.result, MCAST_MIB_NO_ENTRY);
    abi_check("combined", mcastMib_GetNextResult(requests, 2, 0), MCAST_MIB_NO_ENTRY);
    abi_check("output", (size_t)((char *)MCAST_MIB_Output(&request.mib) - (char *)&request), 48);
}

static void check_instances(void)
{
    uint16_t vrf = 7;
    abi_check("public instance", MCAST_VrfIsExist(0x10000), MCAST_TRUE);
    abi_check("no such instance", MCAST_VrfIsExist(65535), MCAST_FALSE);
    abi_check("no such interface", MCAST_GetVrfIndexByIfIndex(0x7fffffff, &vrf), MCAST_ERR_GENERAL);
    abi_check("untouched", vrf, 7);
}

int main(void)
{
    check_records();
    check_unreachable_daemon();
    check_instances();
    return ABI_RESULT();
}
