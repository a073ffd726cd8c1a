#include "tests/simulation/kernel/multicast_table.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <linux/mroute.h>

#include "tests/simulation/kernel/routing_socket.h"

namespace sim
{
namespace
{

constexpr Ns WAIT_FOR_ENTRY = 10 * SECOND;
constexpr size_t MOST_WAITING = 4; // of one flow
constexpr Ns BETWEEN_WRONG_INTERFACE_REPORTS = 3 * SECOND;

} // namespace

int MulticastTable::begin(RoutingSocket *owner)
{
    if (owner_ != nullptr) {
        return -EADDRINUSE;
    }
    owner_ = owner;
    return 0;
}

void MulticastTable::end()
{
    owner_ = nullptr;
    vifs_.fill(0);
    entries_.clear();
    unresolved_.clear();
}

int MulticastTable::vif_of(uint32_t if_index) const
{
    const auto found = std::find(vifs_.begin(), vifs_.end(), if_index);
    return if_index == 0 || found == vifs_.end() ? -1 : static_cast<int>(found - vifs_.begin());
}

int MulticastTable::add_vif(unsigned vif, uint32_t if_index)
{
    if (vif >= MOST_VIFS) {
        return -ENFILE;
    }
    if (vifs_[vif] != 0) {
        return -EADDRINUSE;
    }
    if (if_index == 0) {
        return -EADDRNOTAVAIL;
    }
    if (vif_of(if_index) >= 0) {
        on_misuse("an interface gets a second virtual interface");
    }
    vifs_[vif] = if_index;
    return 0;
}

int MulticastTable::delete_vif(unsigned vif)
{
    if (vif >= MOST_VIFS) {
        return -ENFILE;
    }
    if (vifs_[vif] == 0) {
        return -EADDRNOTAVAIL;
    }
    for (const auto &[key, entry] : entries_) {
        if (entry.parent == vif || (entry.outgoing >> vif & 1) != 0) {
            on_misuse("virtual interface " + std::to_string(vif) + " is deleted while (" +
                      to_text(key.first) + ", " + to_text(key.second) + ") uses it");
        }
    }
    vifs_[vif] = 0;
    return 0;
}

void MulticastTable::interface_removed(uint32_t if_index)
{
    const int vif = vif_of(if_index);
    if (vif >= 0) {
        vifs_[static_cast<size_t>(vif)] = 0;
    }
}

int MulticastTable::set_entry(const Key &key, unsigned parent, uint32_t outgoing)
{
    if (parent >= MOST_VIFS) {
        return -ENFILE;
    }
    Entry &entry = entries_[key];
    entry.parent = parent;
    entry.outgoing = 0;
    for (unsigned vif = 0; vif < MOST_VIFS; ++vif) {
        entry.outgoing |= (outgoing >> vif & 1) != 0 && vifs_[vif] != 0 ? 1u << vif : 0;
    }
    const auto waiting = unresolved_.find(key);
    if (waiting != unresolved_.end()) {
        const Waiting resolved = std::move(waiting->second);
        unresolved_.erase(waiting);
        for (const Datum &datum : resolved.packets) {
            if (resolved.until > clock_.now()) {
                arrive(resolved.if_index, datum, send);
            }
        }
    }
    return 0;
}

int MulticastTable::delete_entry(const Key &key)
{
    return entries_.erase(key) != 0 ? 0 : -ENOENT;
}

void MulticastTable::arrive(uint32_t if_index, const Datum &datum, const Send &send_to)
{
    const int vif = vif_of(if_index);
    const Key key(datum.source, datum.group);
    const auto found = entries_.find(key);
    if (owner_ == nullptr || vif < 0) {
        return;
    }
    if (found != entries_.end()) {
        if (found->second.parent == static_cast<unsigned>(vif)) {
            forward(found->second, datum, send_to);
        } else {
            wrong_interface(found->second, key, static_cast<unsigned>(vif));
        }
        return;
    }
    Waiting &waiting = unresolved_[key];
    if (waiting.packets.empty() || waiting.until <= clock_.now()) {
        waiting = {clock_.now() + WAIT_FOR_ENTRY, if_index, {}};
        ++upcalls_;
        if (!owner_->upcall(IGMPMSG_NOCACHE, static_cast<unsigned>(vif), key)) {
            unresolved_.erase(key);
            return;
        }
    }
    if (waiting.packets.size() < MOST_WAITING) {
        waiting.packets.push_back(datum);
    }
}

void MulticastTable::forward(Entry &entry, const Datum &datum, const Send &send_to)
{
    ++entry.packets;
    if (datum.ttl <= 1) {
        return;
    }
    Datum next = datum;
    --next.ttl;
    for (const uint32_t out : outgoing(entry)) {
        send_to(out, next);
    }
}

// Told when the entry sends to where the packet came from: then another router may be forwarding there.
void MulticastTable::wrong_interface(Entry &entry, const Key &key, unsigned vif)
{
    ++entry.packets; // counted before its interface is looked at
    ++entry.wrong_interface;
    if ((entry.outgoing >> vif & 1) != 0 &&
        clock_.now() - entry.last_wrong > BETWEEN_WRONG_INTERFACE_REPORTS) {
        entry.last_wrong = clock_.now();
        ++upcalls_;
        owner_->upcall(IGMPMSG_WRONGVIF, vif, key);
    }
}

std::vector<uint32_t> MulticastTable::outgoing(const Entry &entry) const
{
    std::vector<uint32_t> result;
    for (unsigned vif = 0; vif < MOST_VIFS; ++vif) {
        if ((entry.outgoing >> vif & 1) != 0 && vifs_[vif] != 0) {
            result.push_back(vifs_[vif]);
        }
    }
    return result;
}

} // namespace sim
