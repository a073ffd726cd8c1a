/*
 * The senders of the group-membership daemons. Each reserves one record under the mutex, stores its fields
 * and sends or leaves it; ReserveValue and Finish hold what they share. The layouts are those of the wire
 * header, so a sender is a handful of stores at fixed offsets.
 */
#include <bit>
#include <string.h>

#include "event/guards.h"
#include "mrib/channel.h"

using namespace mcast;

namespace
{

inline uint64_t Finish(MRIB_GMP_CONNECT_S *connection, uint32_t send_now) MCAST_REQUIRES(connection->lock)
{
    return static_cast<uint16_t>(send_now) == 1 ? MRIB_GMP_TrySendBuffer(connection) : MCAST_OK;
}

/* A record about an interface with one value byte; Value says where that byte stands. */
template <typename Value>
uint64_t SendIfAlert(uint16_t type, const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index, uint8_t alert,
                     uint32_t send_now)
{
    MRIB_GMP_CONNECT_S *connection = &g_stMribConnectInfo;
    MutexGuard guard(connection->lock);
    Value *value = ReserveValue<Value>(connection, type);
    if (value == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    value->value = alert;
    value->family = key->family;
    value->vrf_index = key->vrf_index;
    value->if_index = if_index;
    return Finish(connection, send_now);
}

/*
 * The eight bytes of a join/prune record between the family and the source in one store: the record is the
 * hot one, and the lock's release has to wait for each store before it.
 */
inline void StoreJoinPruneKey(MRIB_JOIN_PRUNE_S *value, uint16_t vrf_index, uint32_t if_index, uint8_t flag1,
                              uint8_t flag2)
{
    static_assert(offsetof(MRIB_JOIN_PRUNE_S, source) - offsetof(MRIB_JOIN_PRUNE_S, vrf_index) ==
                  sizeof(uint64_t));
    if constexpr (std::endian::native == std::endian::little) {
        const uint64_t key =
            uint64_t{vrf_index} | uint64_t{if_index} << 16 | uint64_t{flag1} << 48 | uint64_t{flag2} << 56;

        memcpy(reinterpret_cast<uint8_t *>(value) + offsetof(MRIB_JOIN_PRUNE_S, vrf_index), &key,
               sizeof(key));
    } else {
        value->vrf_index = vrf_index;
        value->if_index = if_index;
        value->flag1 = flag1;
        value->flag2 = flag2;
    }
}

uint8_t LowByte(uint32_t value)
{
    return static_cast<uint8_t>(value);
}

uint8_t OneOrZero(uint32_t value)
{
    return value == 1 ? 1 : 0;
}

} // namespace

uint64_t MRIB_GMP_SendGmpEnableAlert(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index, uint32_t enable,
                                     uint32_t send_now)
{
    return SendIfAlert<MRIB_IF_ALERT_S>(MRIB_TLV_GMP_ENABLE, key, if_index, LowByte(enable), send_now);
}

uint64_t MRIB_GMP_SendQuerierChangeAlert(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index, uint32_t querier,
                                         uint32_t send_now)
{
    return SendIfAlert<MRIB_IF_ALERT_S>(MRIB_TLV_QUERIER_CHANGE, key, if_index, LowByte(querier), send_now);
}

uint64_t MRIB_GMP_SendHostEnableAlert(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index, uint32_t enable,
                                      uint32_t send_now)
{
    return SendIfAlert<MRIB_PROXY_ALERT_S>(MRIB_TLV_HOST_ENABLE, key, if_index, OneOrZero(enable), send_now);
}

uint64_t MRIB_GMP_SendProxyEnableAlert(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index, uint32_t enable,
                                       uint32_t send_now)
{
    return SendIfAlert<MRIB_PROXY_ALERT_S>(MRIB_TLV_PROXY_ENABLE, key, if_index, OneOrZero(enable), send_now);
}

uint64_t MRIB_GMP_ProxyForwardingAlert(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index, uint32_t forwarding,
                                       uint32_t send_now)
{
    return SendIfAlert<MRIB_PROXY_ALERT_S>(MRIB_TLV_PROXY_FORWARDING, key, if_index, LowByte(forwarding),
                                           send_now);
}

uint64_t MRIB_GMP_SendProxyMultipathAlert(const MRIB_GMP_VRF_KEY_S *key, uint32_t multipath,
                                          uint32_t send_now)
{
    MRIB_GMP_CONNECT_S *connection = &g_stMribConnectInfo;
    MutexGuard guard(connection->lock);
    auto *value = ReserveValue<MRIB_PROXY_MULTIPATH_S>(connection, MRIB_TLV_PROXY_MULTIPATH);
    if (value == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    value->family = key->family;
    value->value = LowByte(multipath);
    value->vrf_index = key->vrf_index;
    return Finish(connection, send_now);
}

uint64_t MRIB_GMP_SendGmpJoinPrune(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index,
                                   const MCAST_ADDR_S *group, const MCAST_ADDR_S *source, uint8_t flag1,
                                   uint8_t flag2)
{
    static const uint8_t kNoSource[sizeof(source->address)] = {};
    MRIB_GMP_CONNECT_S *connection = &g_stMribConnectInfo;
    MutexGuard guard(connection->lock);
    auto *value = ReserveValue<MRIB_JOIN_PRUNE_S>(connection, MRIB_TLV_GMP_JOIN_PRUNE);
    if (value == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    value->family = key->family;
    StoreJoinPruneKey(value, key->vrf_index, if_index, flag1, flag2);
    memcpy(value->source, source != nullptr ? source->address : kNoSource, sizeof(value->source));
    memcpy(value->group, group->address, sizeof(value->group));
    memset(value->reserved, 0, sizeof(value->reserved));
    return MCAST_OK;
}

uint64_t MRIB_GMP_SendDeleteIfMember(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index,
                                     const MRIB_MEMBER_SELECTOR_S *selector)
{
    MRIB_GMP_CONNECT_S *connection = &g_stMribConnectInfo;
    MutexGuard guard(connection->lock);
    auto *value = ReserveValue<MRIB_DELETE_IF_MEMBER_S>(connection, MRIB_TLV_DELETE_IF_MEMBER);
    if (value == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    value->family = key->family;
    value->vrf_index = key->vrf_index;
    value->if_index = if_index;
    value->selector = *selector;
    return MRIB_GMP_TrySendBuffer(connection);
}

uint64_t MRIB_GMP_SendMAuthUserInfo(const MRIB_GMP_VRF_KEY_S *key, const MCAST_USRAUTH_INFO_S *user,
                                    uint32_t if_index, const uint8_t *block, uint8_t byte1, uint8_t byte2,
                                    uint16_t send_now)
{
    MRIB_GMP_CONNECT_S *connection = &g_stMribConnectInfo;
    MutexGuard guard(connection->lock);
    auto *value = ReserveValue<MRIB_MAUTH_USER_INFO_S>(connection, MRIB_TLV_MAUTH_USER_INFO);
    if (value == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    value->byte2 = byte2;
    value->family = key->family;
    value->vrf_index = key->vrf_index;
    value->if_index = if_index;
    value->access_if_index = user->access_if_index;
    value->user_id = user->user_id;
    value->attribute_36 = user->attribute_36;
    memcpy(value->block, block, sizeof(value->block));
    value->attribute_32 = user->attribute_32;
    value->attribute_34 = user->attribute_34;
    value->byte1 = byte1;
    value->hardware_address_first = user->hardware_address_first;
    value->hardware_address_last = user->hardware_address_last;
    value->attribute_80 = user->attribute_80;
    value->attribute_84 = user->attribute_84;
    return Finish(connection, send_now);
}

uint64_t MRIB_GMP_SendSmoothAlert(uint8_t family, uint16_t type, const MRIB_SMOOTH_RECORD_S *smooth_record)
{
    MRIB_GMP_CONNECT_S *connection = &g_stMribConnectInfo;
    MutexGuard guard(connection->lock);
    auto *value = ReserveValue<MRIB_SMOOTH_ALERT_S>(connection, type);
    if (value == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    value->family = family;
    value->smooth = *smooth_record;
    return MRIB_GMP_TrySendBuffer(connection);
}

uint64_t MRIB_GMP_SendSmoothRequire(MRIB_GMP_CONNECT_S *connection, uint16_t type)
{
    auto *value = ReserveValue<MRIB_REQUEST_S>(connection, type);
    if (value == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    *value = {g_ucMribGmpFamily, {}};
    return MRIB_GMP_TrySendBuffer(connection);
}
