/* The record dispatcher: which received record, from which length on, does what. */
#include "mcast/msdp.h"
#include "mrib/view.h"

using namespace mcast;

namespace
{

struct Row {
    uint16_t minimum; /* bytes of value */
    uint64_t (*apply)(uint16_t length, const void *value);
};

/* By record type; types without a row of their own are ignored. */
constexpr Row kRows[MRIB_TLV_TO_CLIENT_LAST + 1] = {
    /*  0 MRIB_TLV_VRF_STATE */ {sizeof(MRIB_VRF_STATE_S), ApplyVrfState},
    /*  1 */ {},
    /*  2 MRIB_TLV_BOUNDARY */ {sizeof(MRIB_BOUNDARY_S), ApplyBoundary},
    /*  3 to 6 */ {},
    {},
    {},
    {},
    /*  7 MRIB_TLV_PIM_DR */ {sizeof(MRIB_PIM_DR_S), ApplyPimDr},
    /*  8 MRIB_TLV_VRF_STATE_END */ {0, ApplyVrfStateEnd},
    /*  9 MRIB_TLV_PIM_DR_END */ {0, ApplyPimDrEnd},
    /* 10 MRIB_TLV_BOUNDARY_END */ {0, ApplyBoundaryEnd},
    /* 11 */ {},
    /* 12 MRIB_TLV_FLOW_CONTROL */ {sizeof(MRIB_FLOW_CONTROL_S), ApplyFlowControl},
    /* 13 MRIB_TLV_SSM_POLICY */ {sizeof(MRIB_SSM_POLICY_S), ApplySsmPolicy},
    /* 14 MRIB_TLV_MSDP_LOCAL_SRC */ {sizeof(MRIB_MSDP_LOCAL_SRC_S), MRIB_MSDP_ProcLocalSrcChgTlv},
    /* 15 MRIB_TLV_MSDP_REQ_REMOTE_SRC */
    {sizeof(MRIB_MSDP_REQ_REMOTE_SRC_S), MRIB_MSDP_ProcPimRequestRemoteSourceTlv},
    /* 16 MRIB_TLV_SMOOTH_START */ {0, ApplySmoothStart},
    /* 17 and 18 */ {},
    {},
    /* 19 MRIB_TLV_MSDP_LOCAL_SRC_END */ {0, MRIB_MSDP_ProcLocalSrcSmoothEndTlv},
    /* 20 */ {},
    /* 21 MRIB_TLV_MSDP_ENCAP_REPORT */ {sizeof(MRIB_MSDP_ENCAP_REPORT_S), MRIB_MSDP_ProcEncapdataReportTlv},
};

static_assert(kRows[MRIB_TLV_BOUNDARY].apply == ApplyBoundary && kRows[MRIB_TLV_PIM_DR].apply == ApplyPimDr &&
                  kRows[MRIB_TLV_FLOW_CONTROL].apply == ApplyFlowControl &&
                  kRows[MRIB_TLV_SMOOTH_START].apply == ApplySmoothStart &&
                  kRows[MRIB_TLV_MSDP_LOCAL_SRC_END].apply == MRIB_MSDP_ProcLocalSrcSmoothEndTlv &&
                  kRows[MRIB_TLV_MSDP_ENCAP_REPORT].apply == MRIB_MSDP_ProcEncapdataReportTlv,
              "each row stands at its record's number");

} // namespace

uint64_t mribGmpTLVProc(uint16_t type, uint16_t length, const void *value)
{
    if (type > MRIB_TLV_TO_CLIENT_LAST) {
        return MCAST_OK;
    }
    const Row &row = kRows[type];

    if (row.apply == nullptr || length < row.minimum) {
        return MCAST_OK;
    }
    return row.apply(length, value);
}
