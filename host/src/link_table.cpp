/*
 * The kernel's links and addresses as a map, and the events that tell how it changed.
 *
 * Two sources write it. Notifications come one message at a time (apply_message). When the kernel had no
 * room for one, everything is read anew and the map becomes the new picture (become). Both go through the
 * same four steps, set and remove of a link and of an address, and each step emits an event only for a
 * difference: reading everything anew tells no more than the notifications that were lost, and a message
 * that says nothing new says nothing.
 *
 * What holds at each event:
 *
 *   - The map is already as the event says; the sink may look at it, and gets copies of what is gone.
 *   - Addresses live inside their link: a link is added before its first address, and its addresses are
 *     removed before it is. An address whose link is not known is dropped, because the kernel tells it again
 *     behind the link.
 *   - A rename comes as an event of its own, before the change of anything else that the same message told.
 *   - become removes first and adds then, so that an address that moved to another link is never on both.
 */
#include "link_table.h"

#include <algorithm>
#include <cstring>
#include <sys/socket.h>
#include <linux/rtnetlink.h>

#include "link_message.h"

namespace host
{
namespace
{

bool equal(const HOST_LINK_S &first, const HOST_LINK_S &second)
{
    return first.flags == second.flags && first.mtu == second.mtu &&
           first.master_index == second.master_index && first.vrf_table == second.vrf_table &&
           strcmp(first.name, second.name) == 0 && strcmp(first.kind, second.kind) == 0;
}

bool equal(const HOST_ADDRESS_S &first, const HOST_ADDRESS_S &second)
{
    return first.flags == second.flags && first.prefix_length == second.prefix_length &&
           memcmp(first.peer, second.peer, sizeof(first.peer)) == 0;
}

template <typename Addresses> auto position(Addresses &addresses, const HOST_ADDRESS_S &address)
{
    return std::find_if(addresses.begin(), addresses.end(),
                        [&](const HOST_ADDRESS_S &each) { return same_address(each, address); });
}

} // namespace

/*
 * IPv4 tells the addresses of a link apart by address, peer and mask together; IPv6 by address, whose peer
 * and prefix can change.
 */
bool same_address(const HOST_ADDRESS_S &first, const HOST_ADDRESS_S &second)
{
    return first.family == second.family &&
           memcmp(first.address, second.address, sizeof(first.address)) == 0 &&
           (first.family == AF_INET6 || (first.prefix_length == second.prefix_length &&
                                         memcmp(first.peer, second.peer, sizeof(first.peer)) == 0));
}

void LinkState::emit(uint32_t kind, const HOST_LINK_S &link, const HOST_LINK_S *old_link,
                     const HOST_ADDRESS_S *address)
{
    HOST_LINK_EVENT_S event{kind, &link, old_link, address};
    sink_(event, context_);
}

void LinkState::change_link(LinkEntry *entry, const HOST_LINK_S &link)
{
    const HOST_LINK_S old_link = entry->link;
    entry->link = link;
    if (strcmp(old_link.name, link.name) != 0) {
        emit(HOST_LINK_EVENT_RENAMED, link, &old_link, nullptr);
    }
    HOST_LINK_S renamed = old_link;
    memcpy(renamed.name, link.name, sizeof(renamed.name));
    if (!equal(renamed, link)) {
        emit(HOST_LINK_EVENT_CHANGED, link, &old_link, nullptr);
    }
}

void LinkState::set_link(const HOST_LINK_S &link)
{
    auto [entry, added] = links_.try_emplace(link.if_index, LinkEntry{link, {}});
    if (added) {
        emit(HOST_LINK_EVENT_ADDED, link, nullptr, nullptr);
    } else {
        change_link(&entry->second, link);
    }
}

void LinkState::remove_link(uint32_t if_index)
{
    auto entry = links_.find(if_index);
    if (entry == links_.end()) {
        return;
    }
    while (!entry->second.addresses.empty()) {
        const HOST_ADDRESS_S address = entry->second.addresses.back();
        entry->second.addresses.pop_back();
        emit(HOST_LINK_EVENT_ADDRESS_REMOVED, entry->second.link, nullptr, &address);
    }
    const HOST_LINK_S link = entry->second.link;
    links_.erase(entry);
    emit(HOST_LINK_EVENT_REMOVED, link, nullptr, nullptr);
}

void LinkState::set_address(const HOST_ADDRESS_S &address)
{
    auto entry = links_.find(address.if_index);
    if (entry == links_.end()) {
        return; // its link is still to be told, and the address again after it
    }
    auto &addresses = entry->second.addresses;
    auto known = position(addresses, address);
    if (known == addresses.end()) {
        addresses.push_back(address);
        emit(HOST_LINK_EVENT_ADDRESS_ADDED, entry->second.link, nullptr, &address);
    } else if (!equal(*known, address)) {
        *known = address;
        emit(HOST_LINK_EVENT_ADDRESS_CHANGED, entry->second.link, nullptr, &address);
    }
}

void LinkState::remove_address(const HOST_ADDRESS_S &address)
{
    auto entry = links_.find(address.if_index);
    if (entry == links_.end()) {
        return;
    }
    auto known = position(entry->second.addresses, address);
    if (known != entry->second.addresses.end()) {
        const HOST_ADDRESS_S removed = *known;
        entry->second.addresses.erase(known);
        emit(HOST_LINK_EVENT_ADDRESS_REMOVED, entry->second.link, nullptr, &removed);
    }
}

void LinkState::become(const LinkMap &fresh)
{
    const LinkMap before = links_;
    for (const auto &[if_index, entry] : before) {
        auto kept = fresh.find(if_index);
        if (kept == fresh.end()) {
            remove_link(if_index);
            continue;
        }
        for (const HOST_ADDRESS_S &address : entry.addresses) {
            if (position(kept->second.addresses, address) == kept->second.addresses.end()) {
                remove_address(address);
            }
        }
    }
    for (const auto &[if_index, entry] : fresh) {
        set_link(entry.link);
        for (const HOST_ADDRESS_S &address : entry.addresses) {
            set_address(address);
        }
    }
}

void apply_message(const nlmsghdr *message, LinkState *state)
{
    HOST_LINK_S link;
    HOST_ADDRESS_S address;
    switch (message->nlmsg_type) {
    case RTM_NEWLINK:
        if (read_link(message, &link)) {
            state->set_link(link);
        }
        break;
    case RTM_DELLINK:
        if (read_link(message, &link)) {
            state->remove_link(link.if_index);
        }
        break;
    case RTM_NEWADDR:
        if (read_address(message, &address)) {
            state->set_address(address);
        }
        break;
    case RTM_DELADDR:
        if (read_address(message, &address)) {
            state->remove_address(address);
        }
        break;
    default:
        break;
    }
}

} // namespace host
