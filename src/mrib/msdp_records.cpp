/* Received records of the MSDP exchange, and the request to replay the local sources. */
#include "event/guards.h"
#include "mcast/msdp.h"
#include "mrib/channel.h"
#include "mrib/msdp_table.h"
#include "mrib/view.h"

using namespace mcast;

namespace
{

/* The record at value when it is long enough and of the exchange's family; else nullptr. */
template <typename Value> const Value *RecordAt(const void *value, uint16_t length)
{
    const Value *record = static_cast<const Value *>(value);
    return length >= sizeof(Value) && record->family == MCAST_FAMILY_IPV4 ? record : nullptr;
}

MRIB_GMP_VRF_KEY_S Ipv4KeyOf(uint16_t vrf_index)
{
    MRIB_GMP_VRF_KEY_S key = {};
    key.family = MCAST_FAMILY_IPV4;
    key.vrf_index = vrf_index;
    return key;
}

} // namespace

uint64_t MRIB_MSDP_ProcLocalSrcChgTlv(uint16_t length, const void *value)
{
    const auto *record = RecordAt<MRIB_MSDP_LOCAL_SRC_S>(value, length);

    if (record == nullptr || record->data_length > length - sizeof(*record)) {
        return MCAST_OK;
    }
    MRIB_GMP_VRF_S *vrf = VrfAt(record->vrf_index);

    if (vrf == nullptr) {
        return MCAST_OK;
    }
    {
        WriteGuard guard(vrf->lock);
        if (record->operation != 1) {
            RemoveLocalSource(vrf, record->group_be, record->source_be);
            return MCAST_OK;
        }
        if (!AddLocalSource(vrf, record->rp_be, record->group_be, record->source_be)) {
            return MCAST_ERR_GENERAL;
        }
    }
    if (g_stMRIBComponent.callbacks.msdp_local_source != nullptr) {
        const MRIB_GMP_VRF_KEY_S key = Ipv4KeyOf(record->vrf_index);

        g_stMRIBComponent.callbacks.msdp_local_source(
            &key, record->rp_be, record->group_be, record->source_be,
            record->data_length == 0 ? nullptr : record + 1, record->data_length);
    }
    return MCAST_OK;
}

uint64_t MRIB_MSDP_ProcLocalSrcSmoothEndTlv(uint16_t, const void *)
{
    for (uint64_t i = 0; i < g_stMribGmpVrfInfo.count; ++i) {
        MRIB_GMP_VRF_S *vrf = &g_stMribGmpVrfInfo.vrfs[i];
        WriteGuard guard(vrf->lock);

        SweepLocalSources(vrf);
    }
    MRIB_GMP_ClearSmoothFlag(MRIB_GMP_SMOOTH_LOCAL_SRC);
    return MCAST_OK;
}

uint64_t MRIB_MSDP_ProcPimRequestRemoteSourceTlv(uint16_t length, const void *value)
{
    const auto *record = RecordAt<MRIB_MSDP_REQ_REMOTE_SRC_S>(value, length);

    if (record == nullptr || VrfAt(record->vrf_index) == nullptr ||
        g_stMRIBComponent.callbacks.msdp_remote_source_request == nullptr) {
        return MCAST_OK;
    }
    const MRIB_GMP_VRF_KEY_S key = Ipv4KeyOf(record->vrf_index);

    return g_stMRIBComponent.callbacks.msdp_remote_source_request(&key, record->group_be);
}

uint64_t MRIB_MSDP_ProcEncapdataReportTlv(uint16_t length, const void *value)
{
    if (RecordAt<MRIB_MSDP_ENCAP_REPORT_S>(value, length) != nullptr &&
        g_stMRIBComponent.callbacks.msdp_encap_report != nullptr) {
        g_stMRIBComponent.callbacks.msdp_encap_report(length, value);
    }
    return MCAST_OK;
}

uint64_t MRIB_MSDP_SendSmoothLocalSrcRequest(void)
{
    MutexGuard guard(g_stMribConnectInfo.lock);

    if ((g_stMRIBComponent.capability_flags & MRIB_CAP_MSDP_LOCAL_SRC) == 0) {
        return MCAST_OK;
    }
    uint64_t result = MRIB_GMP_SendSmoothRequire(&g_stMribConnectInfo, MRIB_TLV_REQ_LOCAL_SRC);

    if (result != MCAST_OK) {
        return result;
    }
    SetSmoothFlag(MRIB_GMP_SMOOTH_LOCAL_SRC);
    for (uint64_t i = 0; i < g_stMribGmpVrfInfo.count; ++i) {
        MRIB_GMP_VRF_S *vrf = &g_stMribGmpVrfInfo.vrfs[i];
        WriteGuard vrf_guard(vrf->lock);

        MarkLocalSourcesStale(vrf);
    }
    return MCAST_OK;
}
