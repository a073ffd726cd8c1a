#include "daemons/mribd/sg_table.h"

#include <cstring>
#include <new>

#include "daemons/common/memory.h"
#include "daemons/mribd/address.h"

namespace mribd
{

// Exists only while it has a source.
struct SgTable::Group {
    MTABLE_GROUP_S head; // first: the table knows the records by it
    uint32_t source_count;
};

struct SgTable::Source {
    MTABLE_SOURCE_S head;
    uint8_t note;
    bool stale;
};

namespace
{

// What a pair takes in a group of its own, roughly.
constexpr size_t PAIR_BYTES = 256;

struct Visit {
    const std::function<uint32_t(MTABLE_GROUP_S *, MTABLE_SOURCE_S *)> &visitor;

    static uint32_t call(MTABLE_GROUP_S *group, MTABLE_SOURCE_S *source, void *visit)
    {
        return static_cast<Visit *>(visit)->visitor(group, source);
    }
};

uint32_t walk(const MTABLE_S &table, MTABLE_WALK_S *position,
              const std::function<uint32_t(MTABLE_GROUP_S *, MTABLE_SOURCE_S *)> &visitor)
{
    Visit visit{visitor};
    return MTable_Walk(&table, position, nullptr, nullptr, Visit::call, &visit);
}

} // namespace

SgTable::Cursor::Cursor() : group(any_address(MCAST_FAMILY_IPV4)), source(group)
{
}

SgTable::SgTable()
{
    const auto release = [](void *record) { delete static_cast<Group *>(record); };
    if (MTable_Init(&table_, release) != MCAST_OK) {
        throw std::bad_alloc();
    }
}

SgTable::~SgTable()
{
    MTable_Fini(&table_);
}

SgTable::Group *SgTable::find_group(const MCAST_ADDR_S &group) const
{
    return reinterpret_cast<Group *>(MTable_SearchGroup(&table_, &group));
}

SgTable::Result SgTable::set(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, uint8_t note)
{
    Group *owner = find_group(group);
    if (owner != nullptr) {
        if (MTABLE_SOURCE_S *known = MTable_SearchSourceInGroup(&owner->head, &source)) {
            auto *record = reinterpret_cast<Source *>(known);
            record->stale = false;
            record->note = note;
            return Result::Known;
        }
    }
    if (!mcastd::memory_permits(PAIR_BYTES)) {
        return Result::NoMemory;
    }
    if (owner == nullptr) {
        owner = new (std::nothrow) Group{};
        const auto release = [](void *record) { delete static_cast<Source *>(record); };
        if (owner == nullptr || MTable_InitGroup(&owner->head, &group, release) != MCAST_OK ||
            MTable_InsertGroup(&table_, &owner->head) != MCAST_OK) {
            delete owner;
            return Result::NoMemory;
        }
    }
    auto *record = new (std::nothrow) Source{};
    if (record == nullptr) {
        if (owner->source_count == 0) {
            MTable_RemoveGroup(&table_, &owner->head);
            MTable_FiniGroup(&owner->head);
            delete owner;
        }
        return Result::NoMemory;
    }
    record->head.address = source;
    record->note = note;
    MTable_InsertSource(&owner->head, &record->head); // cannot fail: it is not there
    ++owner->source_count;
    ++size_;
    return Result::Added;
}

void SgTable::erase(Group *group, Source *source)
{
    MTable_RemoveSource(&group->head, &source->head);
    delete source;
    --size_;
    if (--group->source_count == 0) {
        MTable_RemoveGroup(&table_, &group->head);
        MTable_FiniGroup(&group->head);
        delete group;
    }
}

bool SgTable::erase(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source)
{
    MTABLE_SOURCE_S *found = MTable_SearchSource(&table_, &group, &source);
    if (found == nullptr) {
        return false;
    }
    erase(reinterpret_cast<Group *>(found->group), reinterpret_cast<Source *>(found));
    return true;
}

uint32_t SgTable::erase_if(const std::function<bool(const Source &)> &matches, const MCAST_ADDR_S *only_group)
{
    const uint32_t before = size_;
    Cursor cursor;
    if (only_group != nullptr) {
        cursor.group = *only_group;
    }
    const uint64_t mode = only_group == nullptr ? MTABLE_WALK_ALL : MTABLE_WALK_GROUP;
    MTABLE_WALK_S position{&cursor.group, &cursor.source, mode};
    walk(table_, &position, [&](MTABLE_GROUP_S *group, MTABLE_SOURCE_S *source) {
        auto *record = reinterpret_cast<Source *>(source);
        if (matches(*record)) {
            const MCAST_ADDR_S of_group = group->address;
            const MCAST_ADDR_S of_source = source->address;
            const uint8_t note = record->note;
            erase(reinterpret_cast<Group *>(group), record);
            if (erased_) {
                erased_(of_group, of_source, note);
            }
        }
        return MCAST_OK;
    });
    return before - size_;
}

uint32_t SgTable::erase_matching(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source)
{
    const auto matches = [&source](const Source &record) {
        return is_unspecified(source) ||
               std::memcmp(record.head.address.address, source.address, sizeof(source.address)) == 0;
    };
    return erase_if(matches, is_unspecified(group) ? nullptr : &group);
}

void SgTable::clear()
{
    MTable_FreeAll(&table_);
    size_ = 0;
}

bool SgTable::contains(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) const
{
    return MTable_SearchSource(&table_, &group, &source) != nullptr;
}

std::optional<uint8_t> SgTable::note_of(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) const
{
    const MTABLE_SOURCE_S *found = MTable_SearchSource(&table_, &group, &source);
    return found == nullptr ? std::nullopt : std::optional(reinterpret_cast<const Source *>(found)->note);
}

void SgTable::mark_stale()
{
    Cursor cursor;
    MTABLE_WALK_S position{&cursor.group, &cursor.source, MTABLE_WALK_ALL};
    walk(table_, &position, [](MTABLE_GROUP_S *, MTABLE_SOURCE_S *source) {
        reinterpret_cast<Source *>(source)->stale = true;
        return MCAST_OK;
    });
}

uint32_t SgTable::sweep()
{
    return erase_if([](const Source &source) { return source.stale; }, nullptr);
}

bool SgTable::visit(
    Cursor *cursor,
    const std::function<bool(const MCAST_ADDR_S &, const MCAST_ADDR_S &, uint8_t)> &visitor) const
{
    MTABLE_WALK_S position{&cursor->group, &cursor->source, MTABLE_WALK_ALL};
    const uint32_t result = walk(table_, &position, [&](MTABLE_GROUP_S *group, MTABLE_SOURCE_S *source) {
        const bool taken = visitor(group->address, source->address, reinterpret_cast<Source *>(source)->note);
        return taken ? MCAST_OK : MCAST_WALK_AGAIN;
    });
    return result != MCAST_WALK_AGAIN;
}

} // namespace mribd
