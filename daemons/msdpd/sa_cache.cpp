#include "daemons/msdpd/sa_cache.h"

#include <memory>
#include <new>
#include <utility>

#include "daemons/common/expect.h"

namespace msdpd
{
namespace
{

using Visitor = std::function<bool(const SaEntry &)>;

using mcastd::MS_PER_S;

uint32_t visit_source(MTABLE_GROUP_S *, MTABLE_SOURCE_S *source, void *visitor)
{
    const bool goes_on = (*static_cast<const Visitor *>(visitor))(*reinterpret_cast<SaEntry *>(source));
    return goes_on ? MCAST_OK : MCAST_WALK_AGAIN;
}

uint32_t walk(const MTABLE_S &table, SaCache::Cursor *cursor, uint64_t mode, const Visitor &visitor)
{
    MTABLE_WALK_S position{&cursor->group, &cursor->source, mode};
    return MTable_Walk(&table, &position, nullptr, nullptr, visit_source, const_cast<Visitor *>(&visitor));
}

MTABLE_GROUP_S *find_or_add_group(MTABLE_S *table, const MCAST_ADDR_S &address, MTABLE_RELEASE release)
{
    MTABLE_GROUP_S *group = MTable_SearchGroup(table, &address);
    if (group == nullptr) {
        auto fresh = std::make_unique<MTABLE_GROUP_S>();
        if (MTable_InitGroup(fresh.get(), &address, release) != MCAST_OK) {
            throw std::bad_alloc();
        }
        if (MTable_InsertGroup(table, fresh.get()) != MCAST_OK) {
            MTable_FiniGroup(fresh.get());
            throw std::bad_alloc();
        }
        group = fresh.release();
    }
    return group;
}

} // namespace

SaCache::SaCache(MCAST_TMR_S *timers) : timers_(timers)
{
    if (MTable_Init(&table_, [](void *group) { delete static_cast<MTABLE_GROUP_S *>(group); }) != MCAST_OK) {
        throw std::bad_alloc();
    }
}

SaCache::~SaCache()
{
    MTable_Fini(&table_); // releases the entries, then their groups
}

void SaCache::on_change(std::function<void(const Pair &, bool)> told)
{
    told_ = std::move(told);
}

void SaCache::on_forget(std::function<void(Ipv4)> told)
{
    told_of_forgetting_ = std::move(told);
}

SaEntry *SaCache::find(const Pair &pair) const
{
    const MCAST_ADDR_S group = to_record(pair.group);
    const MCAST_ADDR_S source = to_record(pair.source);
    return reinterpret_cast<SaEntry *>(MTable_SearchSource(&table_, &group, &source));
}

SaEntry *SaCache::insert(const Pair &pair)
{
    auto entry = std::make_unique<SaEntry>();
    MTABLE_GROUP_S *group = find_or_add_group(&table_, to_record(pair.group), release);
    entry->head.address = to_record(pair.source);
    entry->cache = this;
    entry->learned_s = mcastd::boot_time_s();
    mcastd::expect(MTable_InsertSource(group, &entry->head) == MCAST_OK); // it is not there
    return entry.release();
}

// Counts the entry with its announcer and takes it from the counts of the one before. Throws with nothing changed.
void SaCache::count(SaEntry *entry, Ipv4 rp, Ipv4 peer)
{
    peers_.add(peer);
    try {
        originators_.add(rp);
    } catch (const std::bad_alloc &) {
        peers_.remove(peer);
        throw;
    }
    if (entry->peer != Ipv4{}) {
        peers_.remove(entry->peer);
        originators_.remove(entry->rp);
    }
    entry->rp = rp;
    entry->peer = peer;
}

// A new entry, counted and with its timer running. Throws with nothing changed.
SaEntry *SaCache::begin(const Pair &pair, Ipv4 rp, Ipv4 peer, uint32_t state_s)
{
    SaEntry *entry = insert(pair);
    try {
        count(entry, rp, peer);
        mcastd::timer_start(timers_, entry->expiry, state_s * MS_PER_S, expired, entry);
    } catch (const std::bad_alloc &) {
        take_out(entry);
        throw;
    }
    return entry;
}

SaCache::Learned SaCache::learn(const Pair &pair, Ipv4 rp, Ipv4 peer, uint32_t state_s, SaEntry **entry)
{
    SaEntry *known = find(pair);
    Learned result = Learned::Refreshed;
    if (known == nullptr) {
        known = begin(pair, rp, peer, state_s);
        result = Learned::New;
    } else if (known->rp != rp || known->peer != peer) {
        count(known, rp, peer);
        result = Learned::Moved;
    }
    mcastd::timer_start(timers_, known->expiry, state_s * MS_PER_S, expired, known);
    if (result == Learned::New && told_) {
        told_(pair, true);
    }
    *entry = known;
    return result;
}

void SaCache::expired(void *entry)
{
    auto *record = static_cast<SaEntry *>(entry);
    record->cache->remove(record);
}

void SaCache::remove(SaEntry *entry)
{
    const Pair pair = entry->pair();
    take_out(entry);
    if (told_) {
        told_(pair, false);
    }
}

void SaCache::take_out(SaEntry *entry)
{
    MTABLE_GROUP_S *group = entry->head.group;
    MTable_RemoveSource(group, &entry->head);
    release(entry);
    if (AVL_Count(group->sources) == 0) {
        remove_empty(group);
    }
}

// Of a source that has left the table.
void SaCache::release(void *source)
{
    auto *entry = static_cast<SaEntry *>(source);
    mcastd::timer_stop(entry->cache->timers_, entry->expiry);
    if (entry->peer != Ipv4{}) {
        entry->cache->peers_.remove(entry->peer);
        entry->cache->originators_.remove(entry->rp);
    }
    delete entry;
}

void SaCache::remove_empty(MTABLE_GROUP_S *group)
{
    MTable_RemoveGroup(&table_, group);
    MTable_FiniGroup(group);
    delete group;
}

uint32_t SaCache::forget(Ipv4 group)
{
    const uint32_t before = size();
    const MCAST_ADDR_S address = to_record(group);

    if (group == Ipv4{}) {
        MTable_FreeAll(&table_);
    } else if (MTABLE_GROUP_S *found = MTable_SearchGroup(&table_, &address)) {
        MTable_FreeAllSourceInGroup(found);
        remove_empty(found);
    }
    const uint32_t forgotten = before - size();

    if (forgotten > 0 && told_of_forgetting_) {
        told_of_forgetting_(group);
    }
    return forgotten;
}

uint32_t SaCache::remove_if(const std::function<bool(const SaEntry &)> &condition)
{
    uint32_t removed = 0;
    Cursor cursor;
    SaEntry *found;
    do {
        found = nullptr;
        visit(&cursor, [&](const SaEntry &entry) {
            found = condition(entry) ? const_cast<SaEntry *>(&entry) : nullptr;
            return found == nullptr;
        });
        if (found != nullptr) {
            remove(found);
            ++removed;
        }
    } while (found != nullptr);
    return removed;
}

bool SaCache::visit(Cursor *cursor, const std::function<bool(const SaEntry &)> &visitor) const
{
    return walk(table_, cursor, MTABLE_WALK_ALL, visitor) != MCAST_WALK_AGAIN;
}

void SaCache::visit_group(Ipv4 group, const std::function<bool(const SaEntry &)> &visitor) const
{
    Cursor cursor;
    cursor.group = to_record(group);
    walk(table_, &cursor, MTABLE_WALK_GROUP, visitor);
}

} // namespace msdpd
