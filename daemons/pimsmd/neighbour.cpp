/*
 * A router is a neighbour from its first Hello until one with holdtime 0, or until it was silent for the holdtime that
 * it gave. Each Hello replaces what the last one said; one with another generation comes from a router that started
 * anew and knows nothing of what it was told.
 *
 *                  Hello                         another generation
 *      unknown ────────────► neighbour_up ──┐  ┌───────────────────► neighbour_restarted
 *         ▲                                 ▼  │
 *         └── neighbour_down ◄───────── known ─┴─── Hello: nothing but its values
 *               holdtime 0, or over
 *
 * What follows for the link (designated router, delays, suppression) depends on all neighbours, and changes seldom: it
 * is worked out anew after every Hello that changed something, and kept.
 *
 * Further addresses: an address is one neighbour's at a time, that of the last who named it. The map of owners and the
 * lists of the neighbours say the same.
 *
 * Any host of the link can say Hello from any address. What that costs is bounded by the limits of neighbours and of
 * their addresses; which hosts may is the operator's to say before a Hello comes here.
 */
#include "daemons/pimsmd/neighbour.h"

#include <algorithm>
#include <memory>

#include "daemons/common/expect.h"
#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "daemons/pimsmd/dr.h"

namespace pimsmd
{
namespace
{

constexpr uint64_t MS_PER_S = 1000;

// What a neighbour takes, roughly, without further addresses.
constexpr size_t NEIGHBOUR_BYTES = sizeof(Neighbour) + 128;

bool may_say_hello(const Address &sender)
{
    const bool link_local = sender.address[0] == 0xfe && (sender.address[1] & 0xc0) == 0x80;
    return is_unicast(sender) && (sender.family == MCAST_FAMILY_IPV4 || link_local);
}

int32_t order(const Address &first, const Address &second)
{
    return mcastd::compare_address(first, second);
}

bool same_delay(const std::optional<LanDelay> &first, const std::optional<LanDelay> &second)
{
    if (!first || !second) {
        return first.has_value() == second.has_value();
    }
    return first->tracking == second->tracking && first->propagation_ms == second->propagation_ms &&
           first->override_ms == second->override_ms;
}

} // namespace

Neighbours::Neighbours(MsQueue &queue, const LinkSettings &settings, LinkEvents &events)
    : queue_(queue), settings_(settings), events_(events), dr_(settings.address)
{
    MCAST_AVL_SetFunction(
        &tree_,
        [](const void *first, const void *second) {
            return order(static_cast<const Neighbour *>(first)->address,
                         static_cast<const Neighbour *>(second)->address);
        },
        [](const void *data, const void *key) {
            return order(static_cast<const Neighbour *>(data)->address, *static_cast<const Address *>(key));
        },
        [](MCAST_AVL_NODE_S *node) { delete node; },
        [](void *data) { delete static_cast<Neighbour *>(data); }, nullptr);
    settle();
}

Neighbours::~Neighbours()
{
    MCAST_AVL_FreeAll(&tree_);
}

const Neighbour *Neighbours::find(const Address &primary) const
{
    return find_mutable(primary);
}

Neighbour *Neighbours::find_mutable(const Address &primary) const
{
    const MCAST_AVL_NODE_S *node = MCAST_AVL_Search(&tree_, &primary);
    return node != nullptr ? static_cast<Neighbour *>(node->data) : nullptr;
}

const Neighbour *Neighbours::owner_of(const Address &address) const
{
    const Neighbour *neighbour = find(address);
    if (neighbour != nullptr) {
        return neighbour;
    }
    const auto found = owners_.find(address);
    return found != owners_.end() ? found->second : nullptr;
}

Neighbour *Neighbours::add(const Address &address)
{
    auto neighbour = std::make_unique<Neighbour>();
    auto node = std::make_unique<MCAST_AVL_NODE_S>();
    neighbour->address = address;
    neighbour->link = this;
    // Room for its timer, which it then has.
    queue_.start(neighbour->expiry, 0, expired, neighbour.get());
    node->data = neighbour.get();
    if (MCAST_AVL_Insert(&tree_, node.get()) != MCAST_AVL_OK) {
        return nullptr;
    }
    static_cast<void>(node.release());
    return neighbour.release();
}

void Neighbours::remove(Neighbour &neighbour)
{
    mcastd::log_info("%s: neighbour %s is gone", settings_.name.c_str(), to_text(neighbour.address).c_str());
    drop_addresses(neighbour);
    const Address address = neighbour.address;
    const std::unique_ptr<MCAST_AVL_NODE_S> node(MCAST_AVL_Remove(&tree_, &address));
    const std::unique_ptr<Neighbour> record(&neighbour);

    mcastd::expect(node != nullptr && node->data == &neighbour);
    limit_watch_.take(size(), settings_.most_neighbours);
    events_.neighbour_down(neighbour);
}

void Neighbours::expired(void *owner)
{
    auto &neighbour = *static_cast<Neighbour *>(owner);
    Neighbours &link = *neighbour.link;
    link.remove(neighbour);
    link.settle();
}

void Neighbours::drop_addresses(Neighbour &neighbour)
{
    for (const Address &address : neighbour.addresses) {
        owners_.erase(address);
    }
    neighbour.addresses.clear();
}

void Neighbours::take_addresses(Neighbour &neighbour, EncodedUnicasts addresses, Counters &counters)
{
    Address address;
    drop_addresses(neighbour);
    while (addresses.next(&address)) {
        Neighbour *&owner = owners_[address];
        if (owner == &neighbour) {
            continue; // named twice
        }
        if (owner != nullptr) {
            ++counters[Count::MovedAddress];
            std::erase_if(owner->addresses,
                          [&](const Address &other) { return same_address(other, address); });
        } else if (neighbour.addresses.size() == MOST_NEIGHBOUR_ADDRESSES) {
            ++counters[Count::NeighbourAddresses];
            owners_.erase(address);
            continue;
        }
        owner = &neighbour;
        neighbour.addresses.push_back(address);
    }
}

void Neighbours::take(Neighbour &neighbour, const Hello &hello, Counters &counters)
{
    const uint16_t holdtime_s = hello.holdtime_s.value_or(DEFAULT_HOLDTIME_S);
    if (holdtime_s == HOLDTIME_FOREVER) {
        queue_.stop(neighbour.expiry);
    } else {
        queue_.start(neighbour.expiry, holdtime_s * MS_PER_S, expired, &neighbour);
    }
    neighbour.lan_delay = hello.lan_delay;
    neighbour.dr_priority = hello.dr_priority;
    neighbour.generation = hello.generation;
    take_addresses(neighbour, hello.addresses, counters);
}

Count Neighbours::heard(const Address &sender, const Hello &hello, Counters &counters)
{
    if (!may_say_hello(sender)) {
        return Count::HelloSource;
    }
    Neighbour *neighbour = find_mutable(sender);

    if (hello.holdtime_s == 0) {
        if (neighbour != nullptr) {
            remove(*neighbour);
            settle();
        }
        return NO_DROP;
    }
    const bool is_new = neighbour == nullptr;

    if (is_new) {
        if (size() >= settings_.most_neighbours) {
            return Count::NeighbourLimit;
        }
        if (!mcastd::memory_permits(NEIGHBOUR_BYTES) || (neighbour = add(sender)) == nullptr) {
            return Count::NoMemory;
        }
        if (limit_watch_.take(size(), settings_.most_neighbours)) {
            mcastd::log_warning("%s: %u neighbours, near the limit of %u", settings_.name.c_str(), size(),
                                settings_.most_neighbours);
        }
        mcastd::log_info("%s: neighbour %s", settings_.name.c_str(), to_text(sender).c_str());
    }
    const bool restarted = !is_new && neighbour->generation != hello.generation;
    const bool link_changes = is_new || neighbour->dr_priority != hello.dr_priority ||
                              !same_delay(neighbour->lan_delay, hello.lan_delay);

    take(*neighbour, hello, counters);
    if (is_new) {
        events_.neighbour_up(*neighbour);
    } else if (restarted) {
        mcastd::log_info("%s: neighbour %s restarted", settings_.name.c_str(), to_text(sender).c_str());
        events_.neighbour_restarted(*neighbour);
    }
    if (link_changes) {
        settle();
    }
    return NO_DROP;
}

void Neighbours::set(const LinkSettings &settings)
{
    settings_ = settings;
    settle();
}

void Neighbours::clear()
{
    while (tree_.root != nullptr) {
        remove(*static_cast<Neighbour *>(tree_.root->data));
    }
    settle();
}

void Neighbours::settle()
{
    DrElection election;
    bool all_say = true;
    bool all_track = true;
    uint32_t propagation_ms = settings_.lan_delay.propagation_ms;
    uint32_t override_ms = settings_.lan_delay.override_ms;

    election.offer(settings_.address, settings_.dr_priority);
    visit([&](const Neighbour &neighbour) {
        const LanDelay says = neighbour.lan_delay.value_or(LanDelay{});

        election.offer(neighbour.address, neighbour.dr_priority);
        all_say = all_say && neighbour.lan_delay.has_value();
        all_track = all_track && says.tracking;
        propagation_ms = std::max<uint32_t>(propagation_ms, says.propagation_ms);
        override_ms = std::max<uint32_t>(override_ms, says.override_ms);
    });
    propagation_ms_ = all_say ? propagation_ms : DEFAULT_PROPAGATION_MS;
    override_ms_ = all_say ? override_ms : DEFAULT_OVERRIDE_MS;
    suppresses_joins_ = !all_say || !all_track;
    const Address dr = election.winner().value_or(settings_.address);

    if (!same_address(dr, dr_)) {
        dr_ = dr;
        events_.dr_changed(dr);
    }
}

} // namespace pimsmd
