/*
 * What a PIM daemon is told, as it happens and, when it asks, whole. A replay goes through the classes of events in their
 * order, in each through the instances, and stops when messages wait: it goes on where it was when they were sent. What is told
 * as it happens goes out in between.
 */
#include <utility>

#include "daemons/mribd/address.h"
#include "daemons/mribd/session.h"

namespace mribd
{
namespace
{

mcastd::PimInstance instance_record(const Router &router, bool served)
{
    mcastd::PimInstance record{};
    record.family = router.family();
    record.served = served ? 1 : 0;
    record.vrf_index = router.vrf_index();
    record.table = router.kernel().table();
    record.register_vif = served ? router.vifs().find(mcastd::PIM_REGISTER_INTERFACE) : mcastd::PIM_NO_VIF;
    return record;
}

mcastd::PimSource source_record(const Router &router, const Entry &entry, mcastd::PimSourceState state,
                                uint32_t if_index)
{
    mcastd::PimSource record{};
    record.family = router.family();
    record.state = state;
    record.vrf_index = router.vrf_index();
    record.if_index = if_index;
    record.connected = if_index != 0 && router.environment().is_on_link(if_index, entry.source()) ? 1 : 0;
    std::memcpy(record.source, entry.source().address, sizeof(record.source));
    std::memcpy(record.group, entry.group().address, sizeof(record.group));
    return record;
}

mcastd::PimRemote remote_record(const MsdpExchange::RemoteSource &change)
{
    mcastd::PimRemote record{};
    record.family = MCAST_FAMILY_IPV4;
    record.present = change.present ? 1 : 0;
    record.vrf_index = change.vrf_index;
    std::memcpy(record.source, change.source.address, sizeof(record.source));
    std::memcpy(record.group, change.group.address, sizeof(record.group));
    return record;
}

MRIB_JOIN_PRUNE_S member_record(const Router &router, uint32_t if_index, const MCAST_ADDR_S &group,
                                const MCAST_ADDR_S &source, bool exclude, bool wanted)
{
    MRIB_JOIN_PRUNE_S record{};
    record.family = router.family();
    record.vrf_index = router.vrf_index();
    record.if_index = if_index;
    record.flag1 = wanted ? MRIB_JOIN_PRUNE_FLAG_JOIN : MRIB_JOIN_PRUNE_FLAG_PRUNE;
    record.flag2 = exclude ? MRIB_JOIN_PRUNE_FLAG_EXCLUDE : MRIB_JOIN_PRUNE_FLAG_PLAIN;
    std::memcpy(record.source, source.address, sizeof(record.source));
    std::memcpy(record.group, group.address, sizeof(record.group));
    return record;
}

} // namespace

bool Session::tell_member(const Router &router, uint32_t if_index, const MCAST_ADDR_S &group,
                          const MCAST_ADDR_S &source, bool exclude, const HostWish &wish)
{
    if (is_told(mcastd::PIM_EVENT_MEMBER)) {
        tell([&] {
            queue_.put(mcastd::PIM_TLV_MEMBER, member_record(router, if_index, group, source, exclude,
                                                             exclude ? wish.blocked : wish.joined));
        });
        return true;
    }
    return false;
}

bool Session::tell_source(const Router &router, const Entry &entry, mcastd::PimSourceState state,
                          uint32_t if_index)
{
    if (is_told(mcastd::PIM_EVENT_SOURCE)) {
        tell([&] { queue_.put(mcastd::PIM_TLV_SOURCE, source_record(router, entry, state, if_index)); });
        return !queue_.has_overflowed();
    }
    return false;
}

void Session::tell_instance(const Router &router, bool served)
{
    if (is_told(mcastd::PIM_EVENT_INSTANCE)) {
        tell([&] { queue_.put(mcastd::PIM_TLV_INSTANCE, instance_record(router, served)); });
    }
}

void Session::tell_remote_source(const MsdpExchange::RemoteSource &change)
{
    if (is_told(mcastd::PIM_EVENT_REMOTE)) {
        tell([&] { queue_.put(mcastd::PIM_TLV_REMOTE, remote_record(change)); });
    }
}

Session::Taken Session::take_pim_request(const mcastd::PimReplay &value)
{
    trace_channel("client %u: asks for what PIM is told", id_);
    PimCursor cursor;
    cursor.asked = (value.events & capabilities_) | (pim_replay_ ? pim_replay_->asked : 0);
    cursor.left = cursor.asked;
    pim_replay_ = cursor;
    continue_replay();
    return Taken::Done;
}

bool Session::is_replay_full() const
{
    return queue_.has_overflowed() || queue_.message_count() > REPLAY_WAITING;
}

// Each step answers whether its class is complete.
bool Session::replay_instances()
{
    for (const auto &[vrf_index, router] : routers_.all()) {
        queue_.put(mcastd::PIM_TLV_INSTANCE, instance_record(*router, router->kernel().is_open()));
    }
    return true;
}

bool Session::replay_members()
{
    PimCursor &at = *pim_replay_;
    const Router &router = *routers_.find(at.vrf_index);
    uint32_t after = std::exchange(at.if_index, 0);
    const auto put = [&](const MCAST_ADDR_S &group, const MCAST_ADDR_S &source,
                         const std::vector<Wish> &wishes) {
        uint32_t done =
            mcastd::compare_address(group, at.group) == 0 && mcastd::compare_address(source, at.source) == 0
                ? std::exchange(after, 0)
                : 0;
        at.group = group;
        at.source = source;
        for (const Wish &wish : wishes) { // by interface
            if (wish.if_index <= done) {
                continue;
            }
            if (is_replay_full()) {
                at.if_index = done;
                at.is_within = true;
                return false;
            }
            done = wish.if_index;
            const HostWish hosts = router.hosts(wish.if_index, group, source);
            if (hosts.joined) {
                queue_.put(mcastd::PIM_TLV_MEMBER, member_record(router, done, group, source, false, true));
            }
            if (hosts.blocked) {
                queue_.put(mcastd::PIM_TLV_MEMBER, member_record(router, done, group, source, true, true));
            }
        }
        return true;
    };
    const MCAST_ADDR_S group = at.group;
    const MCAST_ADDR_S source = at.source;
    const bool from = std::exchange(at.is_within, false);
    router.members().visit_from(from ? &group : nullptr, from ? &source : nullptr, put);
    return !at.is_within;
}

bool Session::replay_sources()
{
    PimCursor &at = *pim_replay_;
    const Router &router = *routers_.find(at.vrf_index);
    const auto put = [&](const Entry &entry) {
        at.is_within = is_replay_full();
        if (at.is_within) {
            at.group = entry.group();
            at.source = entry.source();
            return false;
        }
        if (entry.is_sending) {
            queue_.put(mcastd::PIM_TLV_SOURCE,
                       source_record(router, entry, mcastd::PIM_SOURCE_ACTIVE, entry.arrival));
        }
        return true;
    };
    const MCAST_ADDR_S group = at.group;
    const MCAST_ADDR_S source = at.source;
    const bool from = std::exchange(at.is_within, false);
    router.forwarding().visit_from(from ? &group : nullptr, from ? &source : nullptr, put);
    return !at.is_within;
}

bool Session::replay_remote()
{
    PimCursor &at = *pim_replay_;
    const auto &instances = msdp_.instances();
    for (auto next = instances.lower_bound(at.vrf_index); next != instances.end(); ++next) {
        if (next->first != at.vrf_index) {
            at.vrf_index = next->first;
            at.remote = {};
        }
        const auto put = [&](const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, uint8_t) {
            if (is_replay_full()) {
                return false;
            }
            queue_.put(mcastd::PIM_TLV_REMOTE, remote_record({at.vrf_index, group, source, true}));
            return true;
        };
        if (!next->second.remote.visit(&at.remote, put)) {
            return false;
        }
    }
    return true;
}

// Whether the class of events is complete, in every instance.
bool Session::replay_step(uint64_t event)
{
    if (event == mcastd::PIM_EVENT_INSTANCE) {
        return replay_instances();
    }
    if (event == mcastd::PIM_EVENT_REMOTE) {
        return replay_remote();
    }
    PimCursor &at = *pim_replay_;
    const auto &routers = routers_.all();
    for (auto next = routers.lower_bound(at.vrf_index); next != routers.end(); ++next) {
        if (next->first != at.vrf_index) { // the one before is complete, or gone
            at.vrf_index = next->first;
            at.is_within = false;
            at.if_index = 0;
        }
        if (event == mcastd::PIM_EVENT_MEMBER ? !replay_members() : !replay_sources()) {
            return false;
        }
    }
    at.vrf_index = 0;
    at.is_within = false;
    return true;
}

bool Session::continue_pim_replay()
{
    if (!pim_replay_ || is_replay_full()) {
        return false;
    }
    tell([this] {
        for (const uint64_t event : {mcastd::PIM_EVENT_INSTANCE, mcastd::PIM_EVENT_MEMBER,
                                     mcastd::PIM_EVENT_SOURCE, mcastd::PIM_EVENT_REMOTE}) {
            if ((pim_replay_->left & event) == 0) {
                continue;
            }
            if (!replay_step(event)) {
                return;
            }
            pim_replay_->left &= ~event;
        }
        mcastd::PimReplay end{};
        end.family = routers_.family();
        end.events = pim_replay_->asked;
        queue_.put(mcastd::PIM_TLV_REPLAYED, end);
        pim_replay_.reset();
    });
    return true;
}

} // namespace mribd
