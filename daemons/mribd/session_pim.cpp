/*
 * The records of a PIM daemon in a client's session. What they say is in daemons/common/pim_records.h.
 */
#include "daemons/mribd/session.h"

namespace mribd
{
namespace
{

using mcastd::PimFault;

Fault fault_of(PimFault fault)
{
    switch (fault) {
    case PimFault::Family:
        return Fault::Family;
    case PimFault::Interface:
        return Fault::Interface;
    case PimFault::Group:
        return Fault::Group;
    case PimFault::Source:
        return Fault::Source;
    default:
        return Fault::Flags;
    }
}

// The value when it passes its checks; otherwise NULL and *fault.
template <typename Value> const Value *checked(uint8_t family, const MRIB_RECORD_S &record, Fault *fault)
{
    const auto *value = mcastd::pim_value<Value>(record);
    if (value == nullptr) {
        *fault = Fault::Short;
        return nullptr;
    }
    const PimFault found = mcastd::check_pim(family, *value);
    if (found != PimFault::None) {
        *fault = fault_of(found);
        return nullptr;
    }
    return value;
}

} // namespace

Session::Taken Session::take_pim(const MRIB_RECORD_S &record)
{
    const auto take = [&]<typename Value>(Taken (Session::*taker)(const Value &)) {
        Fault fault = Fault::Flags;
        const Value *value = checked<Value>(routers_.family(), record, &fault);
        return value == nullptr ? refuse(fault) : (this->*taker)(*value);
    };
    switch (record.type) {
    case mcastd::PIM_TLV_INTERFACE:
        return take(&Session::take_pim_interface);
    case mcastd::PIM_TLV_TREE:
        return take(&Session::take_tree);
    case mcastd::PIM_TLV_ASSERT:
        return take(&Session::take_assert);
    case mcastd::PIM_TLV_REGISTERED:
        return take(&Session::take_registered);
    case mcastd::PIM_TLV_BEGIN:
    case mcastd::PIM_TLV_END:
        return take_pim_bracket(record);
    case mcastd::PIM_TLV_REQUEST:
        return take(&Session::take_pim_request);
    default:
        return refuse(Fault::NotServed);
    }
}

Session::Taken Session::take_pim_interface(const mcastd::PimInterface &value)
{
    Router *router = router_for(value.family, value.vrf_index, value.if_index);
    if (router == nullptr) {
        return Taken::Ignored;
    }
    mcastd::trace(mcastd::TraceCategory::Channel, router->key(), "client %u: PIM %s on %P", id_,
                  value.state == mcastd::PIM_GONE   ? "no longer runs"
                  : value.state == mcastd::PIM_RUNS ? "runs, another router is designated"
                                                    : "runs, this router is designated",
                  value.if_index);
    const auto state = static_cast<mcastd::PimInterfaceState>(value.state);
    return router->set_pim_interface(id_, value.if_index, state) ? Taken::Done : refuse(Fault::Limit);
}

Session::Taken Session::judge(TreeTable::Result result)
{
    switch (result) {
    case TreeTable::Result::OverLimit:
        return refuse(Fault::Limit);
    case TreeTable::Result::NoMemory:
        missed_ = true;
        return refuse(Fault::Memory);
    default:
        return Taken::Done;
    }
}

Session::Taken Session::take_tree(const mcastd::PimTree &value)
{
    Router *router = routers_.find(value.vrf_index);
    if (router == nullptr) {
        return refuse(Fault::Instance);
    }
    const MCAST_ADDR_S source = make_address(value.family, value.source);
    const Prefix groups{make_address(value.family, value.group), value.group_length};
    constexpr const char *FROM[] = {"unsaid", "from nowhere", "from", "from the register interface"};
    mcastd::trace(mcastd::TraceCategory::Channel, router->key(),
                  "client %u: tree of (%M, %N) %s %P, flags %u", id_, &source, &groups.address,
                  FROM[value.from], value.if_index, unsigned{value.flags});
    const uint16_t kept = value.flags & (mcastd::PIM_TREE_SPT | mcastd::PIM_TREE_REGISTER_OUT);
    // An answer about which nothing is known yet says nothing; it takes nothing back either when nothing is there.
    const Taken taken = judge(router->set_tree(groups, source, {value.from, kept, value.if_index, id_}));
    if ((value.flags & mcastd::PIM_TREE_ANSWER) != 0) {
        router->take_answer(groups.address, source);
    }
    if ((value.flags & mcastd::PIM_TREE_WATCH) != 0) {
        router->watch(groups.address, source);
    }
    return taken;
}

Session::Taken Session::take_assert(const mcastd::PimAssert &value)
{
    Router *router = router_for(value.family, value.vrf_index, value.if_index);
    if (router == nullptr) {
        return Taken::Ignored;
    }
    const MCAST_ADDR_S source = make_address(value.family, value.source);
    const MCAST_ADDR_S group = make_address(value.family, value.group);
    constexpr const char *STATE[] = {"none", "lost", "won"};
    mcastd::trace(mcastd::TraceCategory::Channel, router->key(), "client %u: assert of (%M, %N) %s on %P",
                  id_, &source, &group, STATE[value.state], value.if_index);
    const auto state = static_cast<mcastd::PimAssertState>(value.state);
    return judge(router->set_assert(id_, value.if_index, group, source, state));
}

// Beside the public instance of IPv4 nobody is told of them.
Session::Taken Session::take_registered(const mcastd::PimRegistered &value)
{
    const Router *router = routers_.find(value.vrf_index);
    if (router == nullptr) {
        return refuse(Fault::Instance);
    }
    const MCAST_ADDR_S source = make_address(value.family, value.source);
    const MCAST_ADDR_S group = make_address(value.family, value.group);
    mcastd::trace(mcastd::TraceCategory::Channel, router->key(), "client %u: (%M, %N) is %s", id_, &source,
                  &group, value.present == 1 ? "registered" : "registered no longer");
    if (value.family != MCAST_FAMILY_IPV4 || value.vrf_index != PUBLIC_INSTANCE) {
        return Taken::Done;
    }
    uint32_t rp_be = 0;
    std::memcpy(&rp_be, value.rp, sizeof(rp_be));
    return judge(msdp_.set_registered(group, source, rp_be, value.present == 1));
}

Session::Taken Session::take_pim_bracket(const MRIB_RECORD_S &record)
{
    const auto *value = value_of<MRIB_SMOOTH_ALERT_S>(record);
    if (value == nullptr) {
        return refuse(Fault::Short);
    }
    if (value->family != routers_.family()) {
        return refuse(Fault::Family);
    }
    const bool begins = record.type == mcastd::PIM_TLV_BEGIN;
    if (!begins && !pim_report_) {
        return refuse(Fault::Flags);
    }
    trace_channel("client %u: full report %s", id_, begins ? "begins" : "ends");
    pim_report_ = begins;
    if (begins) {
        msdp_.begin_registered();
    } else {
        msdp_.end_registered();
        routers_.end_pim_report();
    }
    return Taken::Done;
}

} // namespace mribd
