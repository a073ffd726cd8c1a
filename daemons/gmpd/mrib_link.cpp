/*
 * What the state machine tells, as records of the channel: appended here, sent by flush.
 */
#include "daemons/gmpd/mrib_link.h"

#include <algorithm>
#include <bit>

#include "daemons/common/log.h"
#include "daemons/common/membership.h"
#include "daemons/common/services.h"
#include "daemons/gmpd/group_state.h"
#include "daemons/gmpd/trace.h"
#include "mcast/addr.h"
#include "mcast/mrib.h"

namespace gmpd
{
namespace
{

constexpr uint32_t SEND_LATER = 0;

// Instances that the channel is set up for at first: more than most routers have, some 200 KiB.
constexpr uint64_t INSTANCES_AT_FIRST = 1024;

void trace_told(const Interface &interface, const Address &group, const Address *source, bool join,
                bool blocked)
{
    if (source == nullptr) {
        trace(TraceCategory::Channel, interface, "told: %s (*, %N) on %P", join ? "join" : "prune", &group,
              interface.index);
        return;
    }
    const char *what = blocked ? (join ? "block" : "unblock") : (join ? "join" : "prune");

    trace(TraceCategory::Channel, interface, "told: %s (%M, %N) on %P", what, source, &group,
          interface.index);
}

void send_member(const MemberChange &change)
{
    MRIB_GMP_SendGmpJoinPrune(&change.key, change.if_index, &change.group, &change.source,
                              change.join ? mcastd::MEMBERSHIP_JOIN : mcastd::MEMBERSHIP_PRUNE,
                              change.blocked ? mcastd::MEMBERSHIP_EXCLUDE : mcastd::MEMBERSHIP_PLAIN);
}

} // namespace

MribLink::MribLink(Process &process, mcastd::Reactor &reactor)
    : process_(process), policy_(process), channel_(reactor, [this] {
          policy_.connected();
          tell_all();
      })
{
}

MribLink::~MribLink()
{
    process_.policy = &EVERYTHING_MAY;
}

bool MribLink::open()
{
    const bool ipv4 = process_.config.family == MCAST_FAMILY_IPV4;
    const uint32_t component =
        ipv4 ? mcastd::COMPONENT_GMPD_IPV4 : MCAST_Mid4ToMid6(mcastd::COMPONENT_GMPD_IPV4);
    MRIB_GMP_CALLBACKS_S callbacks{};
    MribPolicy::add_callbacks(callbacks);
    process_.policy = &policy_;
    return channel_.open(process_.timers,
                         {static_cast<uint8_t>(component), process_.config.family, INSTANCES_AT_FIRST},
                         callbacks);
}

// The view has room for a number of instances that is fixed while the channel is open.
void MribLink::serve_instances()
{
    if (instances_needed_ > channel_.instance_count()) {
        mcastd::log_info("the channel to the MRIB process is opened again, for instance %llu",
                         static_cast<unsigned long long>(instances_needed_ - 1));
        policy_.start_over();
        channel_.reopen(std::bit_ceil(instances_needed_));
    }
}

void MribLink::flush()
{
    serve_instances();
    policy_.apply_changes();
    if (policy_.take_demand() && can_tell()) {
        tell_all();
    }
    if (held_.size() != 0 && MRIB_GMP_IsConnectionBusy() == 0) {
        held_.release(send_member);
    }
    channel_.flush();
}

void MribLink::tell_all()
{
    held_.clear();
    for (const auto &[index, interface] : process_.interfaces) {
        if (interface->running) {
            tell_running(*interface, true);
            tell_querier(*interface, interface->querier.elected);
            tell_everything(*interface);
        }
    }
    if (process_.users != nullptr) {
        process_.users->tell_everything();
    }
}

void MribLink::tell_user(const User &user, bool present)
{
    const MRIB_GMP_VRF_KEY_S key = {static_cast<uint8_t>(process_.config.family), 0};
    if (channel_.connected()) {
        MRIB_GMP_SendMAuthUserInfo(&key, &user.info, user.if_index, user.info.address.address,
                                   static_cast<uint8_t>(user.kind),
                                   present ? mcastd::USER_PRESENT : mcastd::USER_GONE, SEND_LATER);
    }
}

void MribLink::tell_running(const Interface &interface, bool running)
{
    const MRIB_GMP_VRF_KEY_S key = key_of(interface);

    instances_needed_ = std::max(instances_needed_, uint64_t{key.vrf_index} + 1);
    if (!can_tell()) {
        return;
    }
    trace(TraceCategory::Channel, interface, "told: %s on %P", running ? "running" : "no longer running",
          interface.index);
    if (!running) {
        const MRIB_MEMBER_SELECTOR_S every_member{};

        held_.forget(interface.index);
        MRIB_GMP_SendDeleteIfMember(&key, interface.index, &every_member);
    }
    MRIB_GMP_SendGmpEnableAlert(&key, interface.index, running ? mcastd::GMP_ENABLED : mcastd::GMP_DISABLED,
                                SEND_LATER);
}

void MribLink::tell_querier(const Interface &interface, bool elected)
{
    const MRIB_GMP_VRF_KEY_S key = key_of(interface);
    if (!can_tell()) {
        return;
    }
    trace(TraceCategory::Channel, interface, "told: %s is the querier on %P",
          elected ? "this router" : "another router", interface.index);
    MRIB_GMP_SendQuerierChangeAlert(
        &key, interface.index, elected ? mcastd::QUERIER_THIS_ROUTER : mcastd::QUERIER_OTHER, SEND_LATER);
}

void MribLink::tell_member(const Interface &interface, const Address &group, const Address *source, bool join,
                           bool blocked)
{
    if (!can_tell()) {
        return;
    }
    if (mcastd::tracing(TraceCategory::Channel)) {
        trace_told(interface, group, source, join, blocked);
    }
    const MemberChange change{key_of(interface),
                              interface.index,
                              group,
                              source == nullptr ? any_address(group.family) : *source,
                              join,
                              blocked};

    if (MRIB_GMP_IsConnectionBusy() == 0 || !held_.hold(change)) {
        send_member(change);
    } else {
        trace(TraceCategory::Channel, interface, "the MRIB process is busy: held back");
    }
}

} // namespace gmpd
