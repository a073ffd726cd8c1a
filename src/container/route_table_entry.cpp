/* The route table's entries: made, found instead of made twice, and deleted with what hangs on them. */
#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>

#include "mcast/route_table.h"
#include "probe/probe.h"

namespace
{

using mcast::probe::EntryMade;
using mcast::probe::EntryRemoved;

constexpr size_t kNameSize = 92;
constexpr size_t kAddressTextSize = 46;

bool IsSupported(uint16_t family)
{
    return family == MCAST_FAMILY_IPV4 || family == MCAST_FAMILY_IPV6;
}

/*
 * Whether the address is of the table's family; mixed keys of two lengths would meet in one node and be lost.
 */
bool Fits(const MRT_TABLE_S *table, const MCAST_ADDR_S *address)
{
    return table->tree->maximum_length == (address->family == MCAST_FAMILY_IPV4 ? 32 : 128);
}

MCAST_ADDR_S *CopyAddress(const MCAST_ADDR_S *address)
{
    auto *copy = static_cast<MCAST_ADDR_S *>(malloc(sizeof(MCAST_ADDR_S)));
    if (copy != nullptr) {
        *copy = *address;
    }
    return copy;
}

MRT_TABLE_S *NewSourceTable(const MRT_TABLE_S *owner, const MCAST_ADDR_S *group)
{
    char text[kAddressTextSize];
    char name[kNameSize];
    const char *printed = inet_ntop(group->family, group->address, text, sizeof text);

    snprintf(name, sizeof name, "Sources for Group: %s", printed != nullptr ? printed : "unknown address");
    MRT_TABLE_S *table = MRT_CreateTable(group->family, name, nullptr, owner->source_data_release);

    if (table != nullptr) {
        table->level = MRT_LEVEL_SOURCE;
    }
    return table;
}

/* How groups and sources begin alike. */
using Head = MRT_SOURCE_S;

const Head &HeadOf(const void *entry)
{
    return *static_cast<const Head *>(entry);
}

mcast::probe::Entry KindOf(const MRT_TABLE_S *table)
{
    using mcast::probe::Entry;
    static_assert(static_cast<int>(Entry::kRouteSource) == MRT_LEVEL_SOURCE);
    static_assert(static_cast<int>(Entry::kRouteGroup) == MRT_LEVEL_GROUP);
    return static_cast<Entry>(table->level);
}

/* Links the entry, and says so with a status as every step does that may be refused. */
MCAST_STATUS AddEntry(MRT_TABLE_S *table, void *entry)
{
    if (table == nullptr || entry == nullptr || MRT_RDX_AddNode(table->tree, entry) == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    const Head &head = HeadOf(entry);

    EntryMade(KindOf(table), entry, head.address, head.mask_length, table);
    return MCAST_OK;
}

void ReleaseData(MRT_DATA_RELEASE release, void **user_data)
{
    if (release != nullptr && *user_data != nullptr) {
        release(user_data);
    }
}

/* Gives back a group that no table holds: its sources, then its data, then itself. */
void ReleaseGroup(MRT_GROUP_S *group)
{
    MRT_DestroyTable(group->sources);
    if (group->owner != nullptr) {
        ReleaseData(group->owner->group_data_release, &group->user_data);
    }
    free(group->address);
    free(group);
}

MRT_GROUP_S *NewGroup(MRT_TABLE_S *table, const MCAST_ADDR_S *address, uint32_t length)
{
    auto *group = static_cast<MRT_GROUP_S *>(calloc(1, sizeof(MRT_GROUP_S)));
    if (group == nullptr) {
        return nullptr;
    }
    group->owner = table;
    group->mask_length = static_cast<uint8_t>(length);
    group->address = CopyAddress(address);
    group->sources = NewSourceTable(table, address);
    if (group->address == nullptr || group->sources == nullptr || AddEntry(table, group) != MCAST_OK) {
        ReleaseGroup(group);
        return nullptr;
    }
    return group;
}

void FreeSource(MRT_SOURCE_S *source)
{
    free(source->address);
    free(source);
}

MRT_SOURCE_S *NewSource(MRT_GROUP_S *group, const MCAST_ADDR_S *address, uint32_t length)
{
    auto *source = static_cast<MRT_SOURCE_S *>(calloc(1, sizeof(MRT_SOURCE_S)));
    if (source == nullptr) {
        return nullptr;
    }
    source->group = group;
    source->mask_length = static_cast<uint8_t>(length);
    source->address = CopyAddress(address);
    if (source->address == nullptr || AddEntry(group->sources, source) != MCAST_OK) {
        FreeSource(source);
        return nullptr;
    }
    return source;
}

} // namespace

MRT_GROUP_S *MRT_CreateGroupMask(MRT_TABLE_S *table, const MCAST_ADDR_S *group, uint32_t length)
{
    if (table == nullptr || group == nullptr || !IsSupported(group->family) || !Fits(table, group)) {
        return nullptr;
    }
    auto *entry = static_cast<MRT_GROUP_S *>(MRT_LocateMask(table, group, length));

    return entry != nullptr ? entry : NewGroup(table, group, length);
}

MRT_SOURCE_S *MRT_CreateSourceMask(MRT_GROUP_S *group, const MCAST_ADDR_S *source, uint32_t length)
{
    if (group == nullptr || source == nullptr || !Fits(group->sources, source)) {
        return nullptr;
    }
    auto *entry = static_cast<MRT_SOURCE_S *>(MRT_LocateMask(group->sources, source, length));

    return entry != nullptr ? entry : NewSource(group, source, length);
}

MRT_SOURCE_S *MRT_CreateEntryMask(MRT_TABLE_S *table, const MCAST_ADDR_S *group, uint32_t group_length,
                                  const MCAST_ADDR_S *source, uint32_t source_length)
{
    if (table == nullptr || group == nullptr || source == nullptr || !Fits(table, group)) {
        return nullptr;
    }
    auto *found = static_cast<MRT_GROUP_S *>(MRT_LocateMask(table, group, group_length));
    MRT_GROUP_S *holder = found != nullptr ? found : MRT_CreateGroupMask(table, group, group_length);
    MRT_SOURCE_S *entry = MRT_CreateSourceMask(holder, source, source_length);

    if (entry == nullptr && found == nullptr) {
        MRT_DeleteGroup(holder);
    }
    return entry;
}

void MRT_RemoveNode(MRT_TABLE_S *table, void *entry)
{
    if (table != nullptr && entry != nullptr) {
        MRT_RDX_DeleteNode(table->tree, entry);
        const Head &head = HeadOf(entry);

        EntryRemoved(KindOf(table), entry, head.address, head.mask_length, table);
    }
}

void MRT_DeleteSource(MRT_SOURCE_S *source)
{
    if (source == nullptr) {
        return;
    }
    MRT_TABLE_S *table = source->group->sources;

    MRT_RemoveNode(table, source);
    ReleaseData(table->source_data_release, &source->user_data);
    source->user_data = nullptr;
    FreeSource(source);
}

void MRT_DeleteGroup(MRT_GROUP_S *group)
{
    if (group != nullptr) {
        MRT_RemoveNode(group->owner, group);
        ReleaseGroup(group);
    }
}

void MRT_DeleteSourceGroup(MRT_SOURCE_S *source)
{
    if (source == nullptr) {
        return;
    }
    MRT_GROUP_S *group = source->group;

    MRT_DeleteSource(source);
    if (MRT_CountTable(group->sources) == 0) {
        MRT_DeleteGroup(group);
    }
}
