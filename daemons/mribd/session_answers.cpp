/*
 * A client introduces itself with a registration, asks for the instance states and the SSM policy, and sends
 * a smooth alert. The alert is answered with a smooth start, which makes it ask for the rest:
 *
 *     client                                   mribd
 *     REGISTER                        -->
 *     REQ_VRF_STATE                   -->
 *                                     <--      VRF_STATE for each instance, VRF_STATE_END
 *     REQ_SSM_POLICY                  -->
 *                                     <--      SSM_POLICY for each instance
 *     SMOOTH_ALERT                    -->
 *                                     <--      SMOOTH_START
 *     REQ_PIM_DR, REQ_BOUNDARY, ...   -->
 *                                     <--      PIM_DR for each interface, PIM_DR_END,
 *                                              BOUNDARY for each range and scope, BOUNDARY_END, ...
 *
 * The smooth start must follow the SSM policy: a client gives up a policy that was not confirmed by then.
 * Memberships need no request; a client reports all of them after each connect, and they live as long as its
 * connection.
 *
 * A member comes to the same port with less: it registers for the events that it names, changes them with
 * CHANGE_EVENTS, and asks for what it wants to know from the start. Without MRIB_CAP_BASE it keeps no view:
 * it is told what changes of those events and, when it missed something, to ask again; nothing else.
 */
#include <cinttypes>

#include "daemons/common/log.h"
#include "daemons/mribd/session.h"
#include "daemons/mribd/view_records.h"

namespace mribd
{
namespace
{

const char *request_name(uint16_t type)
{
    switch (type) {
    case MRIB_TLV_REQ_VRF_STATE:
        return "the instances";
    case MRIB_TLV_REQ_SSM_POLICY:
        return "the source-specific ranges";
    case MRIB_TLV_REQ_PIM_DR:
        return "the designated routers";
    case MRIB_TLV_REQ_BOUNDARY:
        return "the boundaries";
    case MRIB_TLV_REQ_LOCAL_SRC:
        return "the local sources";
    default:
        return "everything";
    }
}

} // namespace

Session::Taken Session::take_register(const MRIB_RECORD_S &record)
{
    const auto *value = value_of<MRIB_REGISTER_S>(record);
    if (value == nullptr) {
        return refuse(Fault::Short);
    }
    if (value->family != routers_.family()) {
        return refuse(Fault::Family);
    }
    registered_ = true;
    component_ = value->component;
    capabilities_ = value->capability_flags;
    if (wants(MRIB_CAP_BASE) && current_view_.view().busy != 0) {
        put_flow_control(current_view_.view(), queue_);
    }
    mcastd::log_info("%s: client %u registered as component %u", family_name(routers_.family()), id_,
                     component_);
    return Taken::Done;
}

Session::Taken Session::take_change_of_events(const MRIB_RECORD_S &record)
{
    const auto *value = value_of<MRIB_REGISTER_S>(record);
    if (value == nullptr) {
        return refuse(Fault::Short);
    }
    if (value->family != routers_.family()) {
        return refuse(Fault::Family);
    }
    if (value->component != component_) {
        return refuse(Fault::Flags);
    }
    capabilities_ = value->capability_flags;
    mcastd::log_debug("%s: client %u is told events 0x%" PRIx64 " from now on",
                      family_name(routers_.family()), id_, capabilities_);
    return Taken::Done;
}

Session::Taken Session::take_request(const MRIB_RECORD_S &record)
{
    const auto *value = value_of<MRIB_REQUEST_S>(record);
    if (value == nullptr) {
        return refuse(Fault::Short);
    }
    if (value->family != routers_.family()) {
        return refuse(Fault::Family);
    }
    trace_channel("client %u: asks for %s", id_, request_name(record.type));
    answer(record.type);
    return Taken::Done;
}

void Session::answer(uint16_t request)
{
    switch (request) {
    case MRIB_TLV_REQ_VRF_STATE:
        put_instances(current_view_.view(), queue_);
        break;
    case MRIB_TLV_REQ_SSM_POLICY:
        put_ssm_policies(current_view_.view(), queue_);
        break;
    case MRIB_TLV_REQ_PIM_DR:
        put_designated_routers(current_view_.view(), queue_);
        break;
    case MRIB_TLV_REQ_BOUNDARY:
        put_boundaries(routers_.family(), current_view_.view(), queue_);
        break;
    case MRIB_TLV_REQ_LOCAL_SRC:
        local_replay_.emplace();
        continue_replay();
        break;
    default:
        queue_.put_marker(MRIB_TLV_SMOOTH_START);
        break;
    }
}

void Session::tell_changes(const View &before)
{
    if (registered_ && capabilities_ != 0) {
        trace_channel("client %u: told what is different now", id_);
        tell([&] { put_changes(routers_.family(), before, current_view_.view(), capabilities_, queue_); });
    }
}

void Session::start_afresh()
{
    queue_.restart();
    local_replay_.reset();
    pim_replay_.reset();
    tell([this] {
        if (wants(MRIB_CAP_BASE)) {
            put_instances(current_view_.view(), queue_);
            put_ssm_policies(current_view_.view(), queue_);
            put_flow_control(current_view_.view(), queue_);
        }
        if (capabilities_ != 0) {
            trace_channel("client %u: told to ask for everything again", id_);
            queue_.put_marker(MRIB_TLV_SMOOTH_START);
        }
    });
}

} // namespace mribd
