/*
 * Every report can make entries, and nothing stops a host from sending reports under many addresses. So the sum is
 * bounded, and within it each link has a share:
 *
 *      all entries   ├──── link 1 ────┤ g ├ g ┤ g ┤   free   │
 *                     uses more than g   ▲ guaranteed, used or not
 *
 * An interface may have entries up to its guarantee g whatever the others hold. Beyond that it takes from what is
 * free, which is the total less, for each interface, the greater of its use and g. Half of the total is guaranteed,
 * in equal parts. One host has a limit of its own, so that the link's others find room beside it.
 *
 * A group takes 662 bytes and a source 232, with tables, timer and the allocator's overhead. They are counted with what
 * comes with them: the hosts that made them, older hosts' timers, and in the union of a link's users once more.
 */
#include "daemons/gmpd/limits.h"

#include <algorithm>

#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "daemons/gmpd/group_state.h"
#include "daemons/gmpd/process.h"

namespace gmpd
{
namespace
{

constexpr uint64_t GROUP_BYTES = 1024;
constexpr uint64_t SOURCE_BYTES = 512;

uint64_t committed_for(const ProcessUse &use, uint32_t entries)
{
    return std::max(entries, use.guarantee);
}

void refresh(Process &process)
{
    ProcessUse &use = process.use;
    if (!use.stale) {
        return;
    }
    const auto interfaces = static_cast<uint32_t>(std::max<size_t>(process.interfaces.size(), 1));

    use.stale = false;
    use.guarantee =
        std::min(process.config.max_interface_entries, process.config.max_entries / 2 / interfaces);
    use.committed = 0;
    for (const auto &[index, interface] : process.interfaces) {
        use.committed += committed_for(use, interface->use.entries);
    }
}

void change_entries(Process &process, LinkUse &link, uint32_t entries)
{
    // A stale sum is computed anew before it is asked, when no interface is about to go.
    if (!process.use.stale) {
        process.use.committed +=
            committed_for(process.use, entries) - committed_for(process.use, link.entries);
    }
    link.entries = entries;
}

const HostUse *use_of_reporter(const Memberships &memberships)
{
    if (memberships.of_user()) {
        return &memberships.user_use;
    }
    const auto &hosts = memberships.link.use.hosts;
    const auto found = memberships.reporter != nullptr ? hosts.find(*memberships.reporter) : hosts.end();

    return found != hosts.end() ? &found->second : nullptr;
}

// The limit that an entry more would break, or NO_DROP.
Count entry_refused(const Memberships &memberships, uint64_t bytes)
{
    Process &process = *memberships.link.process;
    const Config &config = process.config;
    const uint32_t entries = memberships.link.use.entries;
    const HostUse *host = use_of_reporter(memberships);
    refresh(process);
    if (host != nullptr && host->entries >= config.max_host_entries) {
        return Count::HostLimit;
    }
    if (entries >= config.max_interface_entries) {
        return Count::InterfaceLimit;
    }
    if ((entries >= process.use.guarantee && process.use.committed >= config.max_entries) ||
        process.use.bytes + bytes > uint64_t{config.max_memory_mib} << 20) {
        return Count::TotalLimit;
    }
    return mcastd::memory_permits(bytes) ? NO_DROP : Count::NoMemory;
}

HostUse *count_entry(Memberships &memberships, uint64_t bytes)
{
    Process &process = *memberships.link.process;
    LinkUse &link = memberships.link.use;
    HostUse *host = nullptr;
    if (memberships.of_user()) {
        host = &memberships.user_use;
    } else if (memberships.reporter != nullptr) {
        host =
            &link.hosts.try_emplace(*memberships.reporter, HostUse{*memberships.reporter, 0}).first->second;
    }
    if (host != nullptr) {
        ++host->entries;
    }
    change_entries(process, link, link.entries + 1);
    process.use.bytes += bytes;
    ++process.use.entries;
    return host;
}

void uncount_entry(Memberships &memberships, HostUse *host, uint64_t bytes)
{
    Process &process = *memberships.link.process;
    LinkUse &link = memberships.link.use;
    change_entries(process, link, link.entries - 1);
    process.use.bytes -= bytes;
    --process.use.entries;
    if (host != nullptr && --host->entries == 0 && !memberships.of_user()) {
        link.hosts.erase(Address(host->host));
    }
}

} // namespace

Count group_refused(const Memberships &memberships, const Address &group)
{
    const Interface &link = memberships.link;
    const uint32_t limit = link.process->config.max_groups;
    // The limit holds for each user, and for the link's users together.
    if (MRT_CountTable(memberships.groups) >= limit ||
        (memberships.of_user() && !link.users_union->has_group(group) &&
         link.users_union->group_count() >= limit)) {
        return Count::GroupLimit;
    }
    return entry_refused(memberships, GROUP_BYTES);
}

Count source_refused(const GroupState &group)
{
    if (MRT_CountTable(group.entry->sources) >= group.memberships->link.process->config.max_sources) {
        return Count::SourceLimit;
    }
    return entry_refused(*group.memberships, SOURCE_BYTES);
}

void count_group(GroupState &group)
{
    group.maker = count_entry(*group.memberships, GROUP_BYTES);
}

void count_source(SourceState &source)
{
    source.maker = count_entry(*source.group->memberships, SOURCE_BYTES);
}

void uncount_group(GroupState &group)
{
    uncount_entry(*group.memberships, group.maker, GROUP_BYTES);
}

void uncount_source(SourceState &source)
{
    uncount_entry(*source.group->memberships, source.maker, SOURCE_BYTES);
}

void warn_group_limit(Memberships &memberships)
{
    const uint32_t used = MRT_CountTable(memberships.groups);
    const uint32_t limit = memberships.link.process->config.max_groups;
    if (memberships.group_limit_watch.take(used, limit)) {
        mcastd::log_warning("%s: %u groups, the limit is %u (--max-groups); is that what the hosts want?",
                            memberships.name().c_str(), used, limit);
    }
}

void warn_source_limit(GroupState &group)
{
    const uint32_t used = MRT_CountTable(group.entry->sources);
    const uint32_t limit = group.memberships->link.process->config.max_sources;
    if (group.source_limit_watch.take(used, limit)) {
        mcastd::log_warning("%s: group %s has %u sources, the limit is %u (--max-sources); is that what the "
                            "hosts want?",
                            group.memberships->name().c_str(), to_text(*group.entry->address).c_str(), used,
                            limit);
    }
}

} // namespace gmpd
