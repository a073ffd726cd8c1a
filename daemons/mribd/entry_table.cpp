/*
 * Anybody on a link can make up sources, and any host can join sources that never send. So the table has a
 * limit, and who fills it must not keep others out:
 *
 *                      the share of a virtual interface          of none
 *                      vif 0         vif 1         ...           NO_VIF
 *     used   oldest -> [a, b, c]     [d]                         []
 *     spare  oldest -> [e]           [f, g, h, i]                [j, k]
 *
 * An entry is used while its packets come and somebody receives them; every other one is spare: it keeps the
 * kernel from asking about packets that nobody wants, or waits for the first packet of a source that was
 * joined by name, and both can be made again. Its share is that of the virtual interface where the packet
 * arrived for which it was made, or where its packets are to arrive.
 *
 * When the table is full a new entry takes the place of the oldest spare one of the largest share that has
 * one: a flood on one link displaces itself. Only a new flow that has receivers may take the place of a used
 * one (forwarding_limit.cpp).
 *
 * Everything but create works without memory: entries carry the links of the lists that they are in, and the
 * ordered walks go from address to address.
 */
#include "daemons/mribd/entry_table.h"

#include <new>

#include "daemons/mribd/address.h"

namespace mribd
{

EntryTable::EntryTable(uint8_t family, uint32_t limit)
    : table_(MRT_CreateTable(family, "entries", nullptr, nullptr)), limit_(limit)
{
    if (table_ == nullptr) {
        throw std::bad_alloc();
    }
}

EntryTable::~EntryTable()
{
    visit_all([this](Entry *entry) { destroy(entry); });
    MRT_DestroyTable(table_);
}

Entry *EntryTable::find(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) const
{
    const MRT_SOURCE_S *node = MRT_LocateSource(table_, &group, &source);
    return node == nullptr ? nullptr : static_cast<Entry *>(node->user_data);
}

Entry *EntryTable::create(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source)
{
    auto *entry = new (std::nothrow) Entry;
    if (entry == nullptr) {
        return nullptr;
    }
    const unsigned length = address_bits(static_cast<uint8_t>(group.family));
    entry->node = MRT_CreateEntryMask(table_, &group, length, &source, length);
    if (entry->node == nullptr) {
        delete entry;
        return nullptr;
    }
    entry->node->user_data = entry;
    entry->share = NO_VIF;
    ++size_;
    list_of(*entry).push_back(*entry);
    return entry;
}

void EntryTable::destroy(Entry *entry)
{
    list_of(*entry).erase(Ranked::s_iterator_to(*entry));
    --size_;
    entry->node->user_data = nullptr;
    MRT_DeleteSourceGroup(entry->node);
    delete entry;
}

EntryTable::Ranked &EntryTable::list_of(const Entry &entry)
{
    Share &share = shares_[entry.share];
    return entry.is_used ? share.used : share.spare;
}

void EntryTable::rank(Entry *entry, unsigned share, bool is_used)
{
    if (entry->share == share && entry->is_used == is_used) {
        return;
    }
    list_of(*entry).erase(Ranked::s_iterator_to(*entry));
    entry->share = static_cast<uint8_t>(share);
    entry->is_used = is_used;
    list_of(*entry).push_back(*entry);
}

void EntryTable::renew(Entry *entry)
{
    Ranked &list = list_of(*entry);
    list.splice(list.end(), list, Ranked::s_iterator_to(*entry));
}

Entry *EntryTable::oldest(Ranked Share::*rank)
{
    Share *largest = nullptr;
    for (Share &share : shares_) {
        const size_t size = share.spare.size() + share.used.size();
        if (!(share.*rank).empty() &&
            (largest == nullptr || size > largest->spare.size() + largest->used.size())) {
            largest = &share;
        }
    }
    return largest == nullptr ? nullptr : &(largest->*rank).front();
}

Entry *EntryTable::oldest_spare()
{
    return oldest(&Share::spare);
}

Entry *EntryTable::oldest_used()
{
    return oldest(&Share::used);
}

void EntryTable::visit_from(const MCAST_ADDR_S *group, const MCAST_ADDR_S *source,
                            const std::function<bool(const Entry &)> &visitor) const
{
    const MRT_SOURCE_S *node = MRT_LocateSource(table_, group, source);
    if (node == nullptr) {
        node = MRT_GetNextSourceGroup(table_, group, 0, source, 0);
    }
    while (node != nullptr && visitor(*static_cast<const Entry *>(node->user_data))) {
        node = MRT_GetNextSourceGroup(table_, node->group->address, 0, node->address, 0);
    }
}

} // namespace mribd
