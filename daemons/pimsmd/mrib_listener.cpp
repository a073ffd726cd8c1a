#include "daemons/pimsmd/mrib_listener.h"

#include "daemons/common/log.h"
#include "daemons/common/membership.h"
#include "daemons/common/memory.h"

namespace pimsmd
{
namespace
{

using mcastd::PimInstance;
using mcastd::PimRemote;
using mcastd::PimSource;

// What a wish takes, with what the trees make of it.
constexpr size_t WISH_BYTES = 256;

int compare(const Address &first, const Address &second)
{
    return mcastd::compare_address(first, second);
}

} // namespace

bool MribListener::Wish::operator<(const Wish &other) const
{
    if (if_index != other.if_index) {
        return if_index < other.if_index;
    }
    if (const int order = compare(group, other.group)) {
        return order < 0;
    }
    const int order = compare(source, other.source);
    return order != 0 ? order < 0 : exclude < other.exclude;
}

bool MribListener::Remote::operator<(const Remote &other) const
{
    const int order = compare(group, other.group);
    return order != 0 ? order < 0 : address_less(source, other.source);
}

MribListener::MribListener(uint16_t instance, MsQueue &queue, Trees &trees,
                           ListenerSurroundings &surroundings, MribTeller &teller, RegisterTunnels &tunnels)
    : instance_(instance), family_(trees.family()), queue_(queue), trees_(trees), surroundings_(surroundings),
      teller_(teller), tunnels_(tunnels)
{
}

void MribListener::replay_begins()
{
    ++replay_;
    refused_ = false;
    sweeping_ = false;
    queue_.stop(sweep_delay_);
}

template <typename Value, typename Take> void MribListener::take_value(const MRIB_RECORD_S &record, Take take)
{
    const auto *value = mcastd::pim_value<Value>(record);
    if (value == nullptr ||
        mcastd::check_pim(static_cast<uint8_t>(family_), *value) != mcastd::PimFault::None) {
        ++counts_.wrong;
    } else if (value->vrf_index != instance_) {
        ++counts_.other_instance;
    } else {
        take(*value);
    }
}

// A record that finds no memory is as one that was refused: a further replay brings it.
bool MribListener::take(const MRIB_RECORD_S &record)
{
    ++counts_.records;
    const bool had_memory = mcastd::memory_unit("a record of the MRIB process", [&] {
        switch (record.type) {
        case mcastd::PIM_TLV_MEMBER:
            take_value<MRIB_JOIN_PRUNE_S>(record, [this](const auto &value) { take_member(value); });
            break;
        case mcastd::PIM_TLV_SOURCE:
            take_value<PimSource>(record, [this](const auto &value) { take_source(value); });
            break;
        case mcastd::PIM_TLV_REMOTE:
            take_value<PimRemote>(record, [this](const auto &value) { take_remote(value); });
            break;
        case mcastd::PIM_TLV_INSTANCE:
            take_value<PimInstance>(record, [this](const auto &value) { take_instance(value); });
            break;
        case mcastd::PIM_TLV_REPLAYED:
            queue_.start(sweep_delay_, SWEEP_DELAY_MS, sweep_due, this);
            break;
        default:
            break;
        }
    });
    refused_ |= !had_memory;
    return record.type == MRIB_TLV_SMOOTH_START;
}

bool MribListener::has_room(size_t used, uint32_t limit)
{
    if (used < limit && mcastd::memory_permits(WISH_BYTES)) {
        return true;
    }
    ++counts_.refused;
    refused_ |= used < limit;
    return false;
}

void MribListener::apply(const Wish &wish, bool wanted)
{
    const std::optional<unsigned> link = surroundings_.link_of(wish.if_index);
    if (!link) {
        return;
    }
    if (wish.exclude) {
        trees_.set_excluded(*link, wish.group, wish.source, wanted);
    } else {
        trees_.set_receivers(*link, wish.group, wish.source, wanted);
    }
}

void MribListener::take_member(const MRIB_JOIN_PRUNE_S &value)
{
    const Wish wish{value.if_index, make_address(family_, value.group), make_address(family_, value.source),
                    value.flag2 == mcastd::MEMBERSHIP_EXCLUDE};
    if (value.flag1 == mcastd::MEMBERSHIP_PRUNE) {
        const auto found = wanted_.find(wish);
        if (found != wanted_.end()) {
            if (sweeping_ && swept_ == found) {
                ++swept_;
            }
            wanted_.erase(found);
        }
        apply(wish, false);
        limit_watch_.take(wanted_.size(), MOST_WANTED);
        return;
    }
    const auto found = wanted_.find(wish);
    if (found != wanted_.end()) {
        found->second = replay_;
        return;
    }
    if (has_room(wanted_.size(), MOST_WANTED)) {
        wanted_.emplace(wish, replay_);
        apply(wish, true);
        if (limit_watch_.take(wanted_.size(), MOST_WANTED)) {
            mcastd::log_warning("hosts want %zu groups and sources, near the limit of %u", wanted_.size(),
                                MOST_WANTED);
        }
    }
}

void MribListener::take_source(const PimSource &value)
{
    const Address group = make_address(family_, value.group);
    const Address source = make_address(family_, value.source);
    const std::optional<unsigned> link = surroundings_.link_of(value.if_index);
    const auto came = [&] {
        if (link) {
            trees_.packet(*link, group, source);
        }
    };
    switch (value.state) {
    case mcastd::PIM_SOURCE_NEW:
        came();
        teller_.answer(group, source);
        break;
    case mcastd::PIM_SOURCE_ACTIVE:
    case mcastd::PIM_SOURCE_WRONG:
        came();
        break;
    case mcastd::PIM_SOURCE_SILENT:
        trees_.source_silent(group, source);
        break;
    default: // it is forgotten there, which says nothing of its packets
        break;
    }
}

void MribListener::take_remote(const PimRemote &value)
{
    const Remote remote{make_address(family_, value.group), make_address(family_, value.source)};
    const auto found = remote_.find(remote);
    if (value.present == 0) {
        if (found != remote_.end()) {
            if (sweeping_ && swept_remote_ == found) {
                ++swept_remote_;
            }
            remote_.erase(found);
        }
        trees_.set_remote(remote.group, remote.source, false);
    } else if (found != remote_.end()) {
        found->second = replay_;
    } else if (has_room(remote_.size(), MOST_REMOTE)) {
        remote_.emplace(remote, replay_);
        trees_.set_remote(remote.group, remote.source, true);
    }
}

void MribListener::take_instance(const PimInstance &value)
{
    if (value.served != 0 && value.register_vif != mcastd::PIM_NO_VIF) {
        tunnels_.set_instance(instance_, value.table, static_cast<uint32_t>(value.register_vif));
    } else {
        tunnels_.remove_instance(instance_);
    }
}

void MribListener::link_came(unsigned link, uint32_t if_index)
{
    const Wish first{if_index, any_address(family_), any_address(family_), false};
    for (auto at = wanted_.lower_bound(first); at != wanted_.end() && at->first.if_index == if_index; ++at) {
        const Wish &wish = at->first;

        if (wish.exclude) {
            trees_.set_excluded(link, wish.group, wish.source, true);
        } else {
            trees_.set_receivers(link, wish.group, wish.source, true);
        }
    }
}

void MribListener::sweep_due(void *self)
{
    auto *listener = static_cast<MribListener *>(self);
    listener->sweeping_ = true;
    listener->swept_ = listener->wanted_.begin();
    listener->swept_remote_ = listener->remote_.begin();
}

bool MribListener::sweep(size_t most)
{
    for (; sweeping_ && most > 0; --most) {
        if (swept_ != wanted_.end()) {
            const auto at = swept_++;

            if (at->second != replay_) {
                apply(at->first, false);
                wanted_.erase(at);
            }
        } else if (swept_remote_ != remote_.end()) {
            const auto at = swept_remote_++;

            if (at->second != replay_) {
                trees_.set_remote(at->first.group, at->first.source, false);
                remote_.erase(at);
            }
        } else {
            sweeping_ = false;
        }
    }
    return sweeping_;
}

bool MribListener::wants_replay() const
{
    return refused_ && !mcastd::memory_is_short();
}

} // namespace pimsmd
