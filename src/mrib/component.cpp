/*
 * Set-up and teardown of the channel.
 *
 *   MRIB_GMP_Init:  connection record -> component record -> buffers -> view
 *   MRIB_GMP_Fini:  component record -> view -> buffers and queue; the client closes the socket before
 *
 * All objects are constant-initialised as after MRIB_GMP_Fini: unconnected, the mutex usable, nothing held.
 * So a call in the wrong order finds an unconnected channel and an empty view, and releasing twice is
 * harmless.
 */
#include <stdlib.h>
#include <string.h>

#include "event/guards.h"
#include "mrib/channel.h"
#include "mrib/view.h"

MRIB_GMP_COMPONENT_S g_stMRIBComponent = {};
MRIB_GMP_CONNECT_S g_stMribConnectInfo = {
    {PTHREAD_MUTEX_INITIALIZER}, -1, 0, 0, nullptr, 0, nullptr, nullptr, 0, 0, 0, 0, 0, 0};
uint8_t g_ucMribGmpFamily = 0;
char *g_pcMribGmpRecvBuf = nullptr;

using namespace mcast;

namespace
{

uint64_t CapabilityFlags(const MRIB_GMP_CALLBACKS_S &callbacks)
{
    uint64_t flags = MRIB_CAP_BASE;
    flags |= callbacks.vrf_enabled != nullptr ? MRIB_CAP_VRF : 0;
    flags |= callbacks.boundary_changed != nullptr ? MRIB_CAP_BOUNDARY : 0;
    flags |= callbacks.dr_changed != nullptr ? MRIB_CAP_DR : 0;
    flags |= callbacks.ssm_policy_changed != nullptr ? MRIB_CAP_SSM_POLICY : 0;
    flags |= callbacks.msdp_local_source != nullptr ? MRIB_CAP_MSDP_LOCAL_SRC : 0;
    flags |= callbacks.msdp_remote_source_request != nullptr ? MRIB_CAP_MSDP_REMOTE_SRC : 0;
    flags |= callbacks.msdp_encap_report != nullptr ? MRIB_CAP_MSDP_ENCAP_REPORT : 0;
    return flags;
}

void ReleaseView()
{
    for (uint64_t i = 0; i < g_stMribGmpVrfInfo.count; ++i) {
        FiniVrf(&g_stMribGmpVrfInfo.vrfs[i]);
    }
    free(g_stMribGmpVrfInfo.vrfs);
    g_stMribGmpVrfInfo.vrfs = nullptr;
    g_stMribGmpVrfInfo.count = 0;
}

void ReleaseBuffers(MRIB_GMP_CONNECT_S *connection) MCAST_REQUIRES(connection->lock)
{
    free(g_pcMribGmpRecvBuf);
    g_pcMribGmpRecvBuf = nullptr;
    free(connection->out_buffer);
    connection->out_buffer = nullptr;
    connection->used = 0;
    FreePending(connection);
    connection->pending_limit = 0;
    connection->copy_size = 0;
    connection->dropped_count = 0;
    connection->allocation_failure_count = 0;
    connection->queued_count = 0;
}

/*
 * The receiver reads up to MRIB_MSG_RECV_MAX bytes and the output buffer always holds a header, so neither is
 * ever smaller than that, whatever bound the client has put on its messages.
 */
uint64_t InitBuffers(MRIB_GMP_CONNECT_S *connection, uint64_t size) MCAST_REQUIRES(connection->lock)
{
    if (size == 0 || size > UINT32_MAX) {
        return MCAST_ERR_GENERAL;
    }
    g_pcMribGmpRecvBuf = static_cast<char *>(malloc(size > MRIB_MSG_RECV_MAX ? size : MRIB_MSG_RECV_MAX));
    connection->out_buffer = static_cast<uint8_t *>(
        calloc(1, size > sizeof(MRIB_MSG_HEADER_S) ? size : sizeof(MRIB_MSG_HEADER_S)));
    if (g_pcMribGmpRecvBuf == nullptr || connection->out_buffer == nullptr) {
        ReleaseBuffers(connection);
        return MCAST_ERR_GENERAL;
    }
    ResetMessage(connection);
    connection->pending_limit = MRIB_GMP_PENDING_LIMIT;
    connection->copy_size = static_cast<uint32_t>(size);
    return MCAST_OK;
}

uint64_t InitView(uint8_t family, uint64_t count)
{
    uint64_t result = MCAST_OK;
    if (count == 0) {
        return MCAST_OK;
    }
    g_stMribGmpVrfInfo.vrfs = static_cast<MRIB_GMP_VRF_S *>(calloc(count, sizeof(MRIB_GMP_VRF_S)));
    if (g_stMribGmpVrfInfo.vrfs == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    g_stMribGmpVrfInfo.count = count;
    for (uint64_t i = 0; i < count; ++i) {
        if (!InitVrf(&g_stMribGmpVrfInfo.vrfs[i], family, static_cast<uint16_t>(i))) {
            result = MCAST_ERR_GENERAL;
        }
    }
    return result;
}

} // namespace

uint64_t MRIB_GMP_Init(uint8_t component, uint8_t family, uint64_t vrf_count, uint64_t max_message_size,
                       const MRIB_GMP_CALLBACKS_S *callbacks)
{
    MRIB_GMP_CONNECT_S *connection = &g_stMribConnectInfo;

    MRIB_GMP_CloseConnection();
    ReleaseView();
    g_ucMribGmpFamily = family;
    g_stMRIBComponent.callbacks = callbacks != nullptr ? *callbacks : MRIB_GMP_CALLBACKS_S{};
    g_stMRIBComponent.component = component;
    g_stMRIBComponent.max_message_size = max_message_size;
    g_stMRIBComponent.capability_flags |= CapabilityFlags(g_stMRIBComponent.callbacks);
    {
        MutexGuard guard(connection->lock);

        ReleaseBuffers(connection);
        if (InitBuffers(connection, max_message_size) != MCAST_OK) {
            return MCAST_ERR_GENERAL;
        }
    }
    uint64_t result = InitView(family, vrf_count);

    if (g_stMribGmpVrfInfo.count != vrf_count) {
        MutexGuard guard(connection->lock);

        ReleaseBuffers(connection);
    }
    return result;
}

uint64_t MRIB_GMP_Fini(void)
{
    MRIB_GMP_CONNECT_S *connection = &g_stMribConnectInfo;

    memset(&g_stMRIBComponent, 0, sizeof(g_stMRIBComponent));
    ReleaseView();
    {
        MutexGuard guard(connection->lock);

        ReleaseBuffers(connection);
    }
    pthread_mutex_destroy(&connection->lock.posix);
    connection->lock = {PTHREAD_MUTEX_INITIALIZER};
    return MCAST_OK;
}
