/* The senders of the MSDP daemon. */
#include <string.h>

#include "event/guards.h"
#include "mcast/msdp.h"
#include "mrib/channel.h"

using namespace mcast;

namespace
{

uint64_t SendEnable(uint16_t type, uint32_t vrf_index, uint8_t enable)
{
    MRIB_GMP_CONNECT_S *connection = &g_stMribConnectInfo;
    MutexGuard guard(connection->lock);
    auto *value = ReserveValue<MRIB_MSDP_ENABLE_S>(connection, type);
    if (value == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    *value = {};
    value->family = MCAST_FAMILY_IPV4;
    value->vrf_index = static_cast<uint16_t>(vrf_index);
    value->enable = enable;
    return MRIB_GMP_TrySendBuffer(connection);
}

uint64_t SendMarker(uint16_t type)
{
    static const MRIB_SMOOTH_RECORD_S kZero = {};
    return MRIB_GMP_SendSmoothAlert(MCAST_FAMILY_IPV4, type, &kZero);
}

} // namespace

uint64_t MRIB_MSDP_SendRequestSAEnable(uint32_t vrf_index, uint8_t enable)
{
    return SendEnable(MRIB_TLV_MSDP_REQ_SA_ENABLE, vrf_index, enable);
}

uint64_t MRIB_MSDP_SendEncapDataEnable(uint32_t vrf_index, uint8_t enable)
{
    return SendEnable(MRIB_TLV_MSDP_ENCAP_ENABLE, vrf_index, enable);
}

uint64_t MRIB_MSDP_SendRemoteOneSG(uint32_t vrf_index, uint8_t operation, uint32_t group_be,
                                   uint32_t source_be, uint8_t entry, const void *data, uint16_t length)
{
    MRIB_GMP_CONNECT_S *connection = &g_stMribConnectInfo;
    const uint32_t value_length = static_cast<uint32_t>(sizeof(MRIB_MSDP_REMOTE_SG_S)) + length;

    if (value_length > UINT16_MAX) {
        return MCAST_ERR_GENERAL;
    }
    MutexGuard guard(connection->lock);
    void *record = ReserveRecord(connection, MRIB_RECORD_SIZE(value_length));

    if (record == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    auto *value = static_cast<MRIB_MSDP_REMOTE_SG_S *>(
        MRIB_TlvStart(record, MRIB_TLV_MSDP_REMOTE_SG, static_cast<uint16_t>(value_length)));

    value->family = MCAST_FAMILY_IPV4;
    value->unused = 0;
    value->vrf_index = static_cast<uint16_t>(vrf_index);
    value->operation = operation;
    value->entry = entry;
    value->data_length = length;
    value->group_be = group_be;
    value->source_be = source_be;
    if (data != nullptr) {
        memcpy(value + 1, data, length);
    } else {
        memset(value + 1, 0, length);
    }
    return MRIB_GMP_TrySendBuffer(connection);
}

uint64_t MRIB_MSDP_SendDelOneGrpRemoteSG(uint32_t vrf_index, uint32_t group_be)
{
    return MRIB_MSDP_SendRemoteOneSG(vrf_index, 0, group_be, 0, 0, nullptr, 0);
}

uint64_t MRIB_MSDP_SendDelAllRemoteSG(uint32_t vrf_index)
{
    return MRIB_MSDP_SendRemoteOneSG(vrf_index, 0, 0, 0, 0, nullptr, 0);
}

uint64_t MRIB_MSDP_SendRemoteSG(uint32_t vrf_index, uint8_t operation, const MRIB_MSDP_SG_S *pairs,
                                const uint16_t *entries, uint8_t count, const void *data, uint16_t length)
{
    uint64_t result = MCAST_OK;
    for (uint8_t i = 0; i < count; ++i) {
        result |= MRIB_MSDP_SendRemoteOneSG(vrf_index, operation, pairs[i].group_be, pairs[i].source_be,
                                            static_cast<uint8_t>(entries[i]), data, length);
    }
    return result;
}

uint64_t MRIB_MSDP_SendSmoothRemoteSGBegin(void)
{
    return SendMarker(MRIB_TLV_MSDP_SMOOTH_REMOTE_SG_BEGIN);
}

uint64_t MRIB_MSDP_SendSmoothRemoteSGEnd(void)
{
    return SendMarker(MRIB_TLV_MSDP_SMOOTH_REMOTE_SG_END);
}

uint64_t MRIB_MSDP_SendSmoothRequestEnableBegin(void)
{
    return SendMarker(MRIB_TLV_MSDP_SMOOTH_REQ_ENABLE_BEGIN);
}

uint64_t MRIB_MSDP_SendSmoothRequestEnableEnd(void)
{
    return SendMarker(MRIB_TLV_MSDP_SMOOTH_REQ_ENABLE_END);
}

uint64_t MRIB_MSDP_SendSmoothEncapDataBegin(void)
{
    return SendMarker(MRIB_TLV_MSDP_SMOOTH_ENCAP_BEGIN);
}

uint64_t MRIB_MSDP_SendSmoothEncapDataEnd(void)
{
    return SendMarker(MRIB_TLV_MSDP_SMOOTH_ENCAP_END);
}
