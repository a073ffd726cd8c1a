/*
 * What comes in, and the entries that it makes. The table has an entry for each group and, in it, for each source; they
 * hold the machines (tree_entry.h).
 *
 *      message, host, packet, route ──► machines of a link ──► words ──► marked ┐
 *                                                                               ▼ settle
 *      outputs, Joins and Prunes upstream, ends of asserts ◄── formulas of olist.h
 *
 * An entry is made by a Join, a Prune(S,G,rpt), a host, an Assert that matters, and goes once nothing of it is left. Only
 * settle removes entries, so that no machine goes while it acts.
 *
 * Limits hold for what others can make: entries in all, for each neighbour the links of entries that it made, and the
 * sources of Registers (tree_register.cpp). What is refused is counted; the neighbour says it again with its next Join.
 */
#include "daemons/pimsmd/tree.h"

#include <algorithm>
#include <new>

#include "daemons/common/log.h"
#include "daemons/common/memory.h"

namespace pimsmd
{
namespace
{

// What an entry takes with a link, roughly.
constexpr size_t ENTRY_BYTES = sizeof(SourceEntry) + sizeof(SourceLink) + 512;

Links bit_of(unsigned link)
{
    return Links{1} << link;
}

void put(Links &links, Links bits, bool on)
{
    links = on ? links | bits : links & ~bits;
}

template <typename Kept> void release(void **user_data)
{
    delete static_cast<Kept *>(*user_data);
    *user_data = nullptr;
}

} // namespace

Trees::Trees(uint16_t family, MsQueue &queue, Surroundings &surroundings, Counters &counters,
             const TreeSettings &settings)
    : family_(family), queue_(queue), surroundings_(surroundings), counters_(counters), settings_(settings),
      table_(mcastd::must_have(
          [&] { return MRT_CreateTable(family, "pim", release<GroupEntry>, release<SourceEntry>); })),
      stops_(settings.register_stops_per_s)
{
}

Trees::~Trees()
{
    MRT_DestroyTable(table_);
}

void Trees::mark(Entry &entry)
{
    if (!entry.marked) {
        marked_.push_back(&entry);
        entry.marked = true;
    }
}

GroupEntry *Trees::group_of(const Address &address) const
{
    const auto *found = static_cast<const MRT_GROUP_S *>(MRT_Locate(table_, &address));
    return found != nullptr ? static_cast<GroupEntry *>(found->user_data) : nullptr;
}

SourceEntry *Trees::source_of(const GroupEntry &group, const Address &address) const
{
    const auto *found = static_cast<const MRT_SOURCE_S *>(MRT_Locate(group.entry->sources, &address));
    return found != nullptr ? static_cast<SourceEntry *>(found->user_data) : nullptr;
}

const GroupEntry *Trees::find(const Address &group) const
{
    return group_of(group);
}

const SourceEntry *Trees::find(const Address &group, const Address &source) const
{
    const GroupEntry *of = group_of(group);
    return of != nullptr ? source_of(*of, source) : nullptr;
}

const GroupEntry *Trees::next_group(const Address *after) const
{
    const auto *found = static_cast<const MRT_GROUP_S *>(MRT_GetNext(table_, after, 0));
    return found != nullptr ? static_cast<const GroupEntry *>(found->user_data) : nullptr;
}

const SourceEntry *Trees::next_source(const GroupEntry &group, const Address *after)
{
    const auto *found = static_cast<const MRT_SOURCE_S *>(MRT_GetNext(group.entry->sources, after, 0));
    return found != nullptr ? static_cast<const SourceEntry *>(found->user_data) : nullptr;
}

const SourceEntry *Trees::find_in(const GroupEntry &group, const Address &source)
{
    const auto *found = static_cast<const MRT_SOURCE_S *>(MRT_Locate(group.entry->sources, &source));
    return found != nullptr ? static_cast<const SourceEntry *>(found->user_data) : nullptr;
}

bool Trees::has_room()
{
    if (entries_ >= settings_.most_entries) {
        ++counters_[Count::EntryLimit];
        return false;
    }
    if (!mcastd::memory_permits(ENTRY_BYTES)) {
        ++counters_[Count::NoMemory];
        return false;
    }
    return true;
}

GroupEntry *Trees::make_group(const Address &address)
{
    GroupEntry *group = group_of(address);
    if (group != nullptr || !has_room()) {
        return group;
    }
    MRT_GROUP_S *made =
        mcastd::must_have([&] { return MRT_CreateGroupMask(table_, &address, address_bits(family_)); });
    group = new (std::nothrow) GroupEntry(*this, made);
    if (group == nullptr) {
        ++counters_[Count::NoMemory];
        MRT_DeleteGroup(made);
        return nullptr;
    }
    made->user_data = group;
    ++entries_;
    if (limit_watch_.take(entries_, settings_.most_entries)) {
        mcastd::log_warning("%u entries of groups and sources, near the limit of %u", entries_,
                            settings_.most_entries);
    }
    group->read_route();
    mark(*group);
    return group;
}

SourceEntry *Trees::make_source(const Address &group_address, const Address &address)
{
    GroupEntry *group = make_group(group_address);
    SourceEntry *source = group != nullptr ? source_of(*group, address) : nullptr;
    if (group == nullptr || source != nullptr || !has_room()) {
        return source;
    }
    MRT_SOURCE_S *made = mcastd::must_have(
        [&] { return MRT_CreateSourceMask(group->entry, &address, address_bits(family_)); });
    source = new (std::nothrow) SourceEntry(*group, made);
    if (source == nullptr) {
        ++counters_[Count::NoMemory];
        MRT_DeleteSource(made);
        return nullptr;
    }
    made->user_data = source;
    ++entries_;
    if (limit_watch_.take(entries_, settings_.most_entries)) {
        mcastd::log_warning("%u entries of groups and sources, near the limit of %u", entries_,
                            settings_.most_entries);
    }
    source->read_route();
    source->to = source->upstream_now();
    source->settle_rpt();
    mark(*source);
    return source;
}

// Counts the link for the neighbour that made it; false when it may make no more.
bool Trees::charge(EntryLink &link, const Address &maker)
{
    uint32_t &count = made_by_[maker];
    if (count >= settings_.most_of_neighbour) {
        ++counters_[Count::JoinLimit];
        return false;
    }
    ++count;
    link.maker = maker;
    return true;
}

void Trees::link_gone(const EntryLink &link)
{
    const auto found = link.maker.family != 0 ? made_by_.find(link.maker) : made_by_.end();
    if (found != made_by_.end() && --found->second == 0) {
        made_by_.erase(found);
    }
}

StarLink *Trees::link_on(GroupEntry &group, unsigned link, const Address &maker)
{
    const auto found = group.links.find(link);
    if (found != group.links.end()) {
        return found->second.get();
    }
    auto made = std::make_unique<StarLink>(group, link);
    return charge(*made, maker) ? group.links.emplace(link, std::move(made)).first->second.get() : nullptr;
}

SourceLink *Trees::link_on(SourceEntry &source, unsigned link, const Address &maker)
{
    const auto found = source.links.find(link);
    if (found != source.links.end()) {
        return found->second.get();
    }
    auto made = std::make_unique<SourceLink>(source, link);
    return charge(*made, maker) ? source.links.emplace(link, std::move(made)).first->second.get() : nullptr;
}

void Trees::set_receivers(unsigned link, const Address &group, const Address &source, bool wanted)
{
    if (is_unspecified(source)) {
        GroupEntry *entry = wanted ? make_group(group) : group_of(group);

        if (entry != nullptr) {
            put(entry->words.receivers, bit_of(link), wanted);
            mark(*entry);
        }
        return;
    }
    GroupEntry *of = group_of(group);
    SourceEntry *entry = wanted          ? make_source(group, source)
                         : of != nullptr ? source_of(*of, source)
                                         : nullptr;

    if (entry != nullptr) {
        put(entry->words.receivers, bit_of(link), wanted);
        mark(*entry);
    }
}

void Trees::set_excluded(unsigned link, const Address &group, const Address &source, bool excluded)
{
    GroupEntry *of = group_of(group);
    SourceEntry *entry = excluded        ? make_source(group, source)
                         : of != nullptr ? source_of(*of, source)
                                         : nullptr;
    if (entry != nullptr) {
        put(entry->words.excluded, bit_of(link), excluded);
        mark(*entry);
    }
}

void Trees::set_dr(unsigned link, bool is_dr)
{
    put(roles_.dr, bit_of(link), is_dr);
    visit_groups([this](GroupEntry &group) {
        mark(group);
        visit_sources(group, [this](SourceEntry &source) { mark(source); });
    });
}

void Trees::routes_changed()
{
    visit_groups([this](GroupEntry &group) {
        group.routes_stale = true;
        mark(group);
        visit_sources(group, [this](SourceEntry &source) {
            source.routes_stale = true;
            mark(source);
        });
    });
}

void Trees::neighbour_restarted(unsigned link, const Address &neighbour)
{
    const auto tell = [&](Entry &entry) {
        if (entry.to.is(link, neighbour)) {
            entry.machine.take(upstream::Event::NeighbourRestarted);
        }
    };
    neighbour_gone(link, neighbour);
    visit_groups([&](GroupEntry &group) {
        tell(group);
        visit_sources(group, tell);
    });
}

// Asserts that it won are over, whether it is gone or knows of nothing any more.
void Trees::neighbour_gone(unsigned link, const Address &neighbour)
{
    const auto tell = [&](auto &entry) {
        auto *on = entry.link_on(link);
        if (on == nullptr) {
            return;
        }
        asserts::Runner &assertion = on->assertion;

        if (assertion.state() == asserts::State::Loser &&
            same_address(assertion.winner().address, neighbour)) {
            assertion.take(asserts::Event::WinnerGone);
        }
    };
    visit_groups([&](GroupEntry &group) {
        tell(group);
        visit_sources(group, tell);
    });
}

void Trees::remove_if_idle(Entry &entry)
{
    if (!entry.is_idle()) {
        return;
    }
    const auto *source = dynamic_cast<SourceEntry *>(&entry);
    const auto &of = source != nullptr ? source->group : dynamic_cast<GroupEntry &>(entry);
    const Address group = of.address();
    const Address address = source != nullptr ? source->address() : any_address(family_);

    if (source != nullptr) {
        registered_ -= source->registered ? 1 : 0;
        MRT_DeleteSource(source->entry);
    } else {
        MRT_DeleteGroup(of.entry);
    }
    --entries_;
    limit_watch_.take(entries_, settings_.most_entries);
    surroundings_.outputs_changed(group, address);
}

// A group that changed marks its sources, which inherit from it. When all is quiet Joins(*,G) go out, which name what the
// sources want pruned; then entries with nothing left go, sources before their groups.
bool Trees::settle(size_t most)
{
    for (; !marked_.empty(); --most) {
        if (most == 0) {
            return true;
        }
        Entry *entry = marked_.front();
        marked_.pop_front();
        entry->marked = false;
        entry->settle();
        settled_.push_back(entry);
    }
    end_settling();
    return false;
}

void Trees::end_settling()
{
    std::vector<GroupEntry *> groups;
    const auto leave_one_of_each = [](auto &entries) {
        std::sort(entries.begin(), entries.end());
        entries.erase(std::unique(entries.begin(), entries.end()), entries.end());
    };
    leave_one_of_each(settled_);
    for (Entry *entry : settled_) {
        auto *source = dynamic_cast<SourceEntry *>(entry);
        groups.push_back(source != nullptr ? &source->group : dynamic_cast<GroupEntry *>(entry));
    }
    leave_one_of_each(groups);
    for (GroupEntry *group : groups) {
        group->flush();
    }
    for (Entry *entry : settled_) {
        if (auto *source = dynamic_cast<SourceEntry *>(entry)) {
            remove_if_idle(*source);
        }
    }
    for (GroupEntry *group : groups) {
        remove_if_idle(*group);
    }
    settled_.clear();
}

} // namespace pimsmd
