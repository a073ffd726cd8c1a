/*
 * The changes of boundaries follow what a client does with a record: adding a range drops every range within
 * it, and removing a range removes every range within it. So
 *
 *     - a range that a new one covers needs no removal of its own; the groups in it stay blocked throughout,
 *     - removals go before additions, or they would take narrower new ranges with them,
 *     - an interface that loses all it had is told so in one record.
 *
 * An instance that is switched off loses all its interface state at the client; a view has none for such an
 * instance, so that the state comes back as ordinary additions when it is switched on again.
 */
#include "daemons/mribd/view_records.h"

#include "mcast/mrib_wire.h"

namespace mribd
{
namespace
{

void put_instance(uint16_t vrf_index, bool enabled, ClientQueue &queue)
{
    MRIB_VRF_STATE_S record{};
    record.vrf_index = vrf_index;
    record.state = enabled ? 1 : 0;
    queue.put(MRIB_TLV_VRF_STATE, record);
}

void put_ssm_policy(uint16_t vrf_index, uint32_t acl_number, ClientQueue &queue)
{
    MRIB_SSM_POLICY_S record{};
    record.vrf_index = vrf_index;
    record.acl_number = acl_number;
    queue.put(MRIB_TLV_SSM_POLICY, record);
}

void put_designated_router(const InterfaceKey &key, bool is_designated, ClientQueue &queue)
{
    MRIB_PIM_DR_S record{};
    record.state = is_designated ? 1 : 0;
    record.vrf_index = key.vrf_index;
    record.if_index = key.if_index;
    queue.put(MRIB_TLV_PIM_DR, record);
}

MRIB_BOUNDARY_S boundary_record(uint8_t family, const InterfaceKey &key, bool add)
{
    MRIB_BOUNDARY_S record{};
    record.family = family;
    record.vrf_index = key.vrf_index;
    record.operation = add ? 1 : 0;
    record.if_index = key.if_index;
    return record;
}

void put_range(const InterfaceKey &key, bool add, const Prefix &range, ClientQueue &queue)
{
    MRIB_BOUNDARY_S record = boundary_record(static_cast<uint8_t>(range.address.family), key, add);
    record.prefix_length = range.length;
    std::memcpy(record.address, range.address.address, sizeof(record.address));
    queue.put(MRIB_TLV_BOUNDARY, record);
}

// scope 0 clears.
void put_scope(uint8_t family, const InterfaceKey &key, uint8_t scope, ClientQueue &queue)
{
    MRIB_BOUNDARY_S record = boundary_record(family, key, scope != 0);
    record.scope_flag = 1;
    record.scope = scope;
    queue.put(MRIB_TLV_BOUNDARY, record);
}

void put_boundary_changes(uint8_t family, const InterfaceKey &key, const BoundaryView &before,
                          const BoundaryView &now, ClientQueue &queue)
{
    for (const Prefix &range : before.ranges) {
        if (!any_covers(now.ranges, range)) {
            put_range(key, false, range, queue);
        }
    }
    for (const Prefix &range : now.ranges) {
        if (!before.ranges.contains(range)) {
            put_range(key, true, range, queue);
        }
    }
    if (before.scope != now.scope) {
        put_scope(family, key, now.scope, queue);
    }
}

void put_all_boundary_changes(uint8_t family, const View &before, const View &now, ClientQueue &queue)
{
    for (const auto &[key, boundary] : before.boundaries) {
        if (!now.boundaries.contains(key)) {
            MRIB_BOUNDARY_S record = boundary_record(family, key, false);
            record.remove_all = 1;
            queue.put(MRIB_TLV_BOUNDARY, record);
        }
    }
    for (const auto &[key, boundary] : now.boundaries) {
        const auto known = before.boundaries.find(key);
        put_boundary_changes(family, key, known == before.boundaries.end() ? BoundaryView{} : known->second,
                             boundary, queue);
    }
}

// What is in one and not in the other.
template <typename Visitor>
void visit_missing(const std::set<InterfaceKey> &in, const std::set<InterfaceKey> &not_in,
                   const Visitor &visitor)
{
    for (const InterfaceKey &key : in) {
        if (!not_in.contains(key)) {
            visitor(key);
        }
    }
}

} // namespace

void put_instances(const View &view, ClientQueue &queue)
{
    for (const auto &[vrf_index, instance] : view.instances) {
        put_instance(vrf_index, instance.enabled, queue);
    }
    queue.put_marker(MRIB_TLV_VRF_STATE_END);
}

void put_ssm_policies(const View &view, ClientQueue &queue)
{
    for (const auto &[vrf_index, instance] : view.instances) {
        put_ssm_policy(vrf_index, instance.ssm_acl, queue);
    }
}

void put_designated_routers(const View &view, ClientQueue &queue)
{
    for (const InterfaceKey &key : view.designated) {
        put_designated_router(key, true, queue);
    }
    queue.put_marker(MRIB_TLV_PIM_DR_END);
}

void put_boundaries(uint8_t family, const View &view, ClientQueue &queue)
{
    put_all_boundary_changes(family, View{}, view, queue);
    queue.put_marker(MRIB_TLV_BOUNDARY_END);
}

void put_flow_control(const View &view, ClientQueue &queue)
{
    MRIB_FLOW_CONTROL_S record{};
    record.busy = view.busy;
    queue.put(MRIB_TLV_FLOW_CONTROL, record);
}

void put_changes(uint8_t family, const View &before, const View &now, uint64_t capabilities,
                 ClientQueue &queue)
{
    const auto old_of = [&before](uint16_t vrf_index) {
        const auto found = before.instances.find(vrf_index);
        return found == before.instances.end() ? InstanceView{false, MCAST_NONE} : found->second;
    };
    View all = now; // with the instances that are configured no longer, as switched off
    for (const auto &[vrf_index, instance] : before.instances) {
        all.instances.try_emplace(vrf_index, InstanceView{false, MCAST_NONE});
    }
    for (const auto &[vrf_index, instance] : all.instances) {
        const InstanceView old = old_of(vrf_index);
        if ((capabilities & MRIB_CAP_VRF) != 0 && old.enabled != instance.enabled) {
            put_instance(vrf_index, instance.enabled, queue);
        }
        if ((capabilities & MRIB_CAP_SSM_POLICY) != 0 && old.ssm_acl != instance.ssm_acl) {
            put_ssm_policy(vrf_index, instance.ssm_acl, queue);
        }
    }
    if ((capabilities & MRIB_CAP_BOUNDARY) != 0) {
        put_all_boundary_changes(family, before, now, queue);
    }
    if ((capabilities & MRIB_CAP_DR) != 0) {
        visit_missing(before.designated, now.designated,
                      [&](const InterfaceKey &key) { put_designated_router(key, false, queue); });
        visit_missing(now.designated, before.designated,
                      [&](const InterfaceKey &key) { put_designated_router(key, true, queue); });
    }
    if ((capabilities & MRIB_CAP_BASE) != 0 && before.busy != now.busy) {
        put_flow_control(now, queue);
    }
}

} // namespace mribd
