/*
 * The record dispatcher: what each type of received record does, and the length that it must have at least.
 */
#include "event/table_by_type.h"
#include "mcast/msdp.h"
#include "mrib/view.h"
#include "probe/probe.h"

using namespace mcast;

namespace
{

struct Row {
    uint16_t minimum; /* bytes of value */
    uint64_t (*apply)(uint16_t length, const void *value);
};

/* Types without a row are ignored. */
constexpr auto kRows = MakeTableByType<MRIB_TLV_TO_CLIENT_LAST + 1, Row>({
    {MRIB_TLV_VRF_STATE, {sizeof(MRIB_VRF_STATE_S), ApplyVrfState}},
    {MRIB_TLV_VRF_STATE_END, {0, ApplyVrfStateEnd}},
    {MRIB_TLV_PIM_DR, {sizeof(MRIB_PIM_DR_S), ApplyPimDr}},
    {MRIB_TLV_PIM_DR_END, {0, ApplyPimDrEnd}},
    {MRIB_TLV_BOUNDARY, {sizeof(MRIB_BOUNDARY_S), ApplyBoundary}},
    {MRIB_TLV_BOUNDARY_END, {0, ApplyBoundaryEnd}},
    {MRIB_TLV_SSM_POLICY, {sizeof(MRIB_SSM_POLICY_S), ApplySsmPolicy}},
    {MRIB_TLV_SMOOTH_START, {0, ApplySmoothStart}},
    {MRIB_TLV_FLOW_CONTROL, {sizeof(MRIB_FLOW_CONTROL_S), ApplyFlowControl}},
    {MRIB_TLV_MSDP_LOCAL_SRC, {sizeof(MRIB_MSDP_LOCAL_SRC_S), MRIB_MSDP_ProcLocalSrcChgTlv}},
    {MRIB_TLV_MSDP_LOCAL_SRC_END, {0, MRIB_MSDP_ProcLocalSrcSmoothEndTlv}},
    {MRIB_TLV_MSDP_REQ_REMOTE_SRC,
     {sizeof(MRIB_MSDP_REQ_REMOTE_SRC_S), MRIB_MSDP_ProcPimRequestRemoteSourceTlv}},
    {MRIB_TLV_MSDP_ENCAP_REPORT, {sizeof(MRIB_MSDP_ENCAP_REPORT_S), MRIB_MSDP_ProcEncapdataReportTlv}},
});

} // namespace

uint64_t mribGmpTLVProc(uint16_t type, uint16_t length, const void *value)
{
    const Row *row = kRows.Find(type);
    if (row == nullptr || length < row->minimum) {
        return MCAST_OK;
    }
    const uint64_t result = row->apply(length, value);

    probe::RecordApplied(type, value, length, result);
    return result;
}
