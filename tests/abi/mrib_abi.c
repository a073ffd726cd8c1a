/* The channel's records, its exported objects before set-up, and a life cycle through the shared library. */
#include "abi.h"
#include "strict.h"

static void check_channel_records(void)
{
    const size_t mutex = sizeof(pthread_mutex_t);
    const size_t rwlock = sizeof(pthread_rwlock_t);
    ABI_SIZE(MRIB_GMP_CALLBACKS_S, 88);
    ABI_AT(MRIB_GMP_CALLBACKS_S, connected, 0);
    ABI_AT(MRIB_GMP_CALLBACKS_S, disconnected, 8);
    ABI_AT(MRIB_GMP_CALLBACKS_S, smooth_finished, 16);
    ABI_AT(MRIB_GMP_CALLBACKS_S, vrf_enabled, 24);
    ABI_AT(MRIB_GMP_CALLBACKS_S, vrf_disabled, 32);
    ABI_AT(MRIB_GMP_CALLBACKS_S, dr_changed, 40);
    ABI_AT(MRIB_GMP_CALLBACKS_S, boundary_changed, 48);
    ABI_AT(MRIB_GMP_CALLBACKS_S, ssm_policy_changed, 56);
    ABI_AT(MRIB_GMP_CALLBACKS_S, msdp_local_source, 64);
    ABI_AT(MRIB_GMP_CALLBACKS_S, msdp_remote_source_request, 72);
    ABI_AT(MRIB_GMP_CALLBACKS_S, msdp_encap_report, 80);
    ABI_SIZE(MRIB_GMP_COMPONENT_S, 112);
    ABI_AT(MRIB_GMP_COMPONENT_S, capability_flags, 88);
    ABI_AT(MRIB_GMP_COMPONENT_S, component, 96);
    ABI_AT(MRIB_GMP_COMPONENT_S, max_message_size, 104);
    ABI_SIZE(MRIB_GMP_CONNECT_S, mutex + 80);
    ABI_AT(MRIB_GMP_CONNECT_S, lock, 0);
    ABI_AT(MRIB_GMP_CONNECT_S, socket, mutex);
    ABI_AT(MRIB_GMP_CONNECT_S, busy, mutex + 4);
    ABI_AT(MRIB_GMP_CONNECT_S, failed, mutex + 6);
    ABI_AT(MRIB_GMP_CONNECT_S, out_buffer, mutex + 8);
    ABI_AT(MRIB_GMP_CONNECT_S, used, mutex + 16);
    ABI_AT(MRIB_GMP_CONNECT_S, pending_head, mutex + 24);
    ABI_AT(MRIB_GMP_CONNECT_S, pending_tail, mutex + 32);
    ABI_AT(MRIB_GMP_CONNECT_S, pending_limit, mutex + 40);
    ABI_AT(MRIB_GMP_CONNECT_S, pending_count, mutex + 44);
    ABI_AT(MRIB_GMP_CONNECT_S, copy_size, mutex + 48);
    ABI_AT(MRIB_GMP_CONNECT_S, dropped_count, mutex + 56);
    ABI_AT(MRIB_GMP_CONNECT_S, allocation_failure_count, mutex + 64);
    ABI_AT(MRIB_GMP_CONNECT_S, queued_count, mutex + 72);
    ABI_SIZE(MRIB_GMP_PENDING_S, 24);
    ABI_AT(MRIB_GMP_PENDING_S, message, 8);
    ABI_AT(MRIB_GMP_PENDING_S, length, 16);
    ABI_SIZE(MRIB_GMP_VRF_S, rwlock + 40);
    ABI_AT(MRIB_GMP_VRF_S, key, rwlock);
    ABI_AT(MRIB_GMP_VRF_S, l3mc_state, rwlock + 4);
    ABI_AT(MRIB_GMP_VRF_S, if_table, rwlock + 8);
    ABI_AT(MRIB_GMP_VRF_S, flags, rwlock + 16);
    ABI_AT(MRIB_GMP_VRF_S, ssm_acl, rwlock + 24);
    ABI_AT(MRIB_GMP_VRF_S, msdp_local_source, rwlock + 32);
    ABI_SIZE(MRIB_GMP_VRF_INFO_S, 16);
    ABI_AT(MRIB_GMP_VRF_INFO_S, vrfs, 8);
    ABI_AT(MRIB_GMP_IF_S, owner, 0);
    ABI_AT(MRIB_GMP_IF_S, if_index, 8);
    ABI_AT(MRIB_GMP_IF_S, dr_state, 12);
    ABI_AT(MRIB_GMP_IF_S, scope, 14);
    ABI_AT(MRIB_GMP_IF_S, flags, 16);
    ABI_AT(MRIB_GMP_IF_S, boundaries, 24);
}

static void check_msdp_records(void)
{
    ABI_SIZE(MRIB_MSDP_SG_S, 8);
    ABI_AT(MRIB_MSDP_SG_S, source_be, 4);
    ABI_SIZE(MRIB_MSDP_FILTER_S, 16);
    ABI_AT(MRIB_MSDP_FILTER_S, acl_number, 4);
    ABI_AT(MRIB_MSDP_FILTER_S, limit, 8);
    ABI_AT(MRIB_MSDP_FILTER_S, group_be, 12);
    ABI_SIZE(MRIB_MSDP_CURSOR_S, 12);
    ABI_AT(MRIB_MSDP_CURSOR_S, group_be, 4);
    ABI_AT(MRIB_MSDP_CURSOR_S, source_be, 8);
    ABI_SIZE(MRIB_MSDP_BATCH_S, 2056);
    ABI_AT(MRIB_MSDP_BATCH_S, pairs, 4);
    ABI_AT(MRIB_MSDP_BATCH_S, count, 2048);
}

static void check_wire_records(void)
{
    ABI_SIZE(MRIB_MSG_HEADER_S, 12);
    ABI_AT(MRIB_MSG_HEADER_S, record_count, 4);
    ABI_AT(MRIB_MSG_HEADER_S, body_length, 8);
    ABI_SIZE(MRIB_TLV_HEADER_S, 4);
    ABI_SIZE(MRIB_REGISTER_S, 10);
    ABI_AT(MRIB_REGISTER_S, capability_flags, 2);
    ABI_SIZE(MRIB_IF_ALERT_S, 8);
    ABI_AT(MRIB_IF_ALERT_S, value, 0);
    ABI_SIZE(MRIB_PROXY_ALERT_S, 8);
    ABI_AT(MRIB_PROXY_ALERT_S, value, 1);
    ABI_SIZE(MRIB_JOIN_PRUNE_S, 67);
    ABI_AT(MRIB_JOIN_PRUNE_S, source, 9);
    ABI_AT(MRIB_JOIN_PRUNE_S, group, 25);
    ABI_AT(MRIB_JOIN_PRUNE_S, reserved, 41);
    ABI_SIZE(MRIB_REQUEST_S, 6);
    ABI_SIZE(MRIB_DELETE_IF_MEMBER_S, 12);
    ABI_SIZE(MRIB_SMOOTH_ALERT_S, 6);
    ABI_SIZE(MRIB_MSDP_REMOTE_SG_S, 16);
    ABI_SIZE(MRIB_MSDP_ENABLE_S, 8);
    ABI_SIZE(MRIB_PROXY_MULTIPATH_S, 4);
    ABI_SIZE(MRIB_MAUTH_USER_INFO_S, 55);
    ABI_SIZE(MRIB_VRF_STATE_S, 6);
    ABI_SIZE(MRIB_BOUNDARY_S, 31);
    ABI_SIZE(MRIB_PIM_DR_S, 10);
    ABI_SIZE(MRIB_FLOW_CONTROL_S, 4);
    ABI_SIZE(MRIB_SSM_POLICY_S, 9);
    ABI_SIZE(MRIB_MSDP_LOCAL_SRC_S, 24);
    ABI_SIZE(MRIB_MSDP_REQ_REMOTE_SRC_S, 12);
    ABI_SIZE(MRIB_MSDP_ENCAP_REPORT_S, 4);
}

static void check_life_cycle(void)
{
    const MRIB_GMP_CALLBACKS_S callbacks = {0};
    abi_check("socket before set-up", (size_t)(g_stMribConnectInfo.socket == -1), 1);
    abi_check("MRIB_GMP_Init", MRIB_GMP_Init(1, MCAST_FAMILY_IPV4, 4, 10240, &callbacks), MCAST_OK);
    abi_check("instances", g_stMribGmpVrfInfo.count, 4);
    abi_check("instance index", g_stMribGmpVrfInfo.vrfs[3].key.vrf_index, 3);
    abi_check("bytes used", g_stMribConnectInfo.used, 12);
    abi_check("MRIB_GMP_Fini", MRIB_GMP_Fini(), MCAST_OK);
}

static void check_strict_layouts(void)
{
    abi_check("size of a lock in strict C11", strict_layout.lock_size, sizeof(pthread_rwlock_t));
    abi_check("its alignment", strict_layout.lock_alignment, _Alignof(pthread_rwlock_t));
    abi_check("size of an instance record", strict_layout.instance_size, sizeof(MRIB_GMP_VRF_S));
    abi_check("its last field", strict_layout.last_field_of_instance,
              offsetof(MRIB_GMP_VRF_S, msdp_local_source));
}

int main(void)
{
    check_strict_layouts();
    check_channel_records();
    check_msdp_records();
    check_wire_records();
    check_life_cycle();
    return ABI_RESULT();
}
