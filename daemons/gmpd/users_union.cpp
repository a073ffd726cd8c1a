/*
 * Each group counts the users that want any source, each of its sources the users that joined it and those
 * that blocked it:
 *
 *      any source is joined      a user wants any source
 *      a source is joined        a user joined it
 *      a source is blocked       every user that wants any source blocked it, and none joined it
 *
 * Steps are counted as they come and told together, because in between the counts say what nobody meant: a
 * user about to join all sources but one blocks that one first, and for a moment it would be blocked for a
 * user that wants it.
 */
#include "daemons/gmpd/users_union.h"

#include <memory>

#include "daemons/common/memory.h"
#include "daemons/gmpd/group_state.h"
#include "daemons/gmpd/process.h"

namespace gmpd
{
namespace
{

// Hangs on its MRT_GROUP_S.
struct GroupShare {
    uint32_t any_users = 0;
    bool told_any = false;
};

// Hangs on its MRT_SOURCE_S.
struct SourceShare {
    uint32_t joined_users = 0;
    uint32_t blocked_users = 0;
    bool told_joined = false;
    bool told_blocked = false;
};

template <typename Share> void release(void **user_data)
{
    delete static_cast<Share *>(*user_data);
}

GroupShare &share_of(const MRT_GROUP_S *entry)
{
    return *static_cast<GroupShare *>(entry->user_data);
}

SourceShare &share_of(const MRT_SOURCE_S *entry)
{
    return *static_cast<SourceShare *>(entry->user_data);
}

MRT_GROUP_S *find_entry(MRT_TABLE_S *groups, const Address &group)
{
    return static_cast<MRT_GROUP_S *>(MRT_Locate(groups, &group));
}

MRT_GROUP_S *ensure_entry(MRT_TABLE_S *groups, const Address &group)
{
    MRT_GROUP_S *entry = find_entry(groups, group);
    if (entry == nullptr) {
        auto share = std::make_unique<GroupShare>();
        entry = mcastd::must_have(
            [&] { return MRT_CreateGroupMask(groups, &group, address_bits(group.family)); });
        entry->user_data = share.release();
    }
    return entry;
}

MRT_SOURCE_S *ensure_entry(MRT_GROUP_S *group, const Address &source)
{
    auto *entry = static_cast<MRT_SOURCE_S *>(MRT_Locate(group->sources, &source));
    if (entry == nullptr) {
        auto share = std::make_unique<SourceShare>();
        entry = mcastd::must_have(
            [&] { return MRT_CreateSourceMask(group, &source, address_bits(source.family)); });
        entry->user_data = share.release();
    }
    return entry;
}

bool wants_block(const GroupShare &group, const SourceShare &source)
{
    return group.any_users > 0 && source.blocked_users >= group.any_users && source.joined_users == 0;
}

// Brings told to wanted when that is the direction asked for. True when the MRIB is to hear of it.
bool turns(bool &told, bool wanted, bool direction)
{
    if (told == wanted || wanted != direction) {
        return false;
    }
    told = wanted;
    return true;
}

// One direction of a group's sources: what adds, or what takes away.
void tell_sources(Interface &link, MRT_GROUP_S *group, bool direction)
{
    MribSink &mrib = *link.process->mrib;

    for_each_entry<MRT_SOURCE_S>(group->sources, [&](MRT_SOURCE_S *entry) {
        SourceShare &source = share_of(entry);

        if (turns(source.told_joined, source.joined_users > 0, direction)) {
            mrib.tell_member(link, *group->address, entry->address, direction, false);
        }
        if (turns(source.told_blocked, wants_block(share_of(group), source), direction)) {
            mrib.tell_member(link, *group->address, entry->address, direction, true);
        }
    });
}

void remove_unused(MRT_GROUP_S *group)
{
    for_each_entry<MRT_SOURCE_S>(group->sources, [](MRT_SOURCE_S *entry) {
        if (share_of(entry).joined_users == 0 && share_of(entry).blocked_users == 0) {
            MRT_DeleteSource(entry);
        }
    });
    if (share_of(group).any_users == 0 && MRT_CountTable(group->sources) == 0) {
        MRT_DeleteGroup(group);
    }
}

} // namespace

UsersUnion::UsersUnion(Interface &link)
    : link_(link), groups_(mcastd::must_have([&link] {
          return MRT_CreateTable(link.process->config.family, link.name.c_str(), release<GroupShare>,
                                 release<SourceShare>);
      }))
{
}

UsersUnion::~UsersUnion()
{
    MRT_DestroyTable(groups_);
}

void UsersUnion::note(const Address &group, const Address *source, bool join, bool blocked)
{
    MRT_GROUP_S *entry = ensure_entry(groups_, group);
    const uint32_t step = join ? 1 : UINT32_MAX; // one more or, modulo its range, one less

    if (source == nullptr) {
        share_of(entry).any_users += step;
        return;
    }
    SourceShare &share = share_of(ensure_entry(entry, *source));

    (blocked ? share.blocked_users : share.joined_users) += step;
}

void UsersUnion::settle(const Address &address)
{
    MRT_GROUP_S *group = find_entry(groups_, address);

    if (group == nullptr) {
        return;
    }
    GroupShare &share = share_of(group);
    const bool any = share.any_users > 0;

    tell_sources(link_, group, true);
    if (share.told_any != any) {
        share.told_any = any;
        link_.process->mrib->tell_member(link_, *group->address, nullptr, any, false);
    }
    tell_sources(link_, group, false);
    remove_unused(group);
}

void UsersUnion::clear()
{
    MRT_ClearTable(groups_);
}

void UsersUnion::tell_everything()
{
    for_each_entry<MRT_GROUP_S>(groups_, [this](MRT_GROUP_S *group) {
        share_of(group).told_any = false;
        for_each_entry<MRT_SOURCE_S>(group->sources, [](MRT_SOURCE_S *source) {
            share_of(source).told_joined = false;
            share_of(source).told_blocked = false;
        });
        settle(Address(*group->address));
    });
}

bool UsersUnion::wants_any_source(const MRT_GROUP_S *group)
{
    return share_of(group).told_any;
}

bool UsersUnion::wants_source(const MRT_SOURCE_S *source)
{
    return !share_of(source).told_blocked;
}

bool UsersUnion::has_group(const Address &group) const
{
    return find_entry(groups_, group) != nullptr;
}

uint32_t UsersUnion::group_count() const
{
    return MRT_CountTable(groups_);
}

} // namespace gmpd
