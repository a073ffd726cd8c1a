#include "tests/simulation/network/host.h"

#include <algorithm>

namespace sim
{
namespace
{

constexpr Ns UNSOLICITED_INTERVAL = SECOND; // of version 3
constexpr Ns OLD_UNSOLICITED_INTERVAL = 10 * SECOND;
constexpr Ns OLDER_QUERIER_PRESENT = 260 * SECOND; // robustness times query interval, and the response time
constexpr Ns PAST = 60 * SECOND;                   // for how long it is known what was wanted before
constexpr size_t RECORDS_IN_A_REPORT = 40;

std::set<Address> difference(const std::set<Address> &from, const std::set<Address> &without)
{
    std::set<Address> result;
    std::set_difference(from.begin(), from.end(), without.begin(), without.end(),
                        std::inserter(result, result.end()));
    return result;
}

} // namespace

Host::Host(Kernel &kernel, Link &link, std::string its_name, uint64_t number, const Addresses &addresses,
           unsigned its_version)
    : name(std::move(its_name)), version(its_version), kernel_(kernel), link_(link), number_(number),
      addresses_(addresses)
{
    link.hosts.push_back(this);
}

unsigned Host::spoken(int family) const
{
    const auto older = older_querier_.find(family);
    const bool counts = older != older_querier_.end() && older->second.second > kernel_.clock.now();
    const unsigned oldest = family == AF_INET ? 1 : 2;
    return std::max(oldest, counts ? std::min(version, older->second.first) : version);
}

bool Host::wants(const Address &source, const Address &group) const
{
    const auto found = wants_.find(group);
    return found != wants_.end() && found->second.wants(source);
}

Ns Host::changed(const Address &group) const
{
    const auto found = changed_.find(group);
    return found == changed_.end() ? 0 : found->second;
}

Ns Host::wanted_since(const Address &source, const Address &group) const
{
    if (!wants(source, group)) {
        return NEVER;
    }
    const auto past = before_.find(group);
    if (past != before_.end()) {
        for (auto each = past->second.rbegin(); each != past->second.rend(); ++each) {
            if (!each->second.wants(source)) {
                return each->first;
            }
        }
    }
    return 0;
}

Ns Host::reported(const Address &group) const
{
    const auto found = reported_.find(group);
    return found == reported_.end() ? 0 : found->second;
}

void Host::say(const Address &group, Bytes packet)
{
    if (!is_silent) {
        reported_[group] = kernel_.clock.now();
        link_.send(*this, std::move(packet));
    }
}

bool Host::was_reported_since(const Address &group, Ns when) const
{
    const auto found = heard_.find(group);
    return found != heard_.end() && found->second >= when;
}

void Host::say_again(Ns within, const Address &group, const Bytes &packet)
{
    say(group, packet);
    kernel_.clock.after(draw(within), [this, group, packet, when = changed(group)] {
        // Else something newer was said.
        if (changed(group) == when && !(spoken(group.family) < 3 && was_reported_since(group, when))) {
            say(group, packet);
        }
    });
}

void Host::listen(const Address &group, const Filter &filter)
{
    const Filter before = wants_.contains(group) ? wants_[group] : Filter{};
    if (before == filter) {
        return;
    }
    const Ns now = kernel_.clock.now();
    auto &past = before_[group];
    std::erase_if(past, [now](const auto &each) { return now - each.first > PAST; });
    past.emplace_back(now, before);
    changed_[group] = now;
    if (filter.is_nothing()) {
        wants_.erase(group);
    } else {
        wants_[group] = filter;
    }
    report_change(group, before, filter);
}

void Host::vanish()
{
    for (const auto &[group, filter] : wants_) {
        changed_[group] = kernel_.clock.now();
    }
    wants_.clear();
}

void Host::report_change(const Address &group, const Filter &before, const Filter &after)
{
    const Address &from = address(group.family);
    const unsigned speaks = spoken(group.family);
    if (speaks < 3) {
        if (!after.is_nothing()) {
            say_again(OLD_UNSOLICITED_INTERVAL, group, old_report_packet(from, group, speaks));
        } else if (speaks == 2 && !was_reported_since(group, reported(group))) {
            say(group, leave_packet(from, group));
        }
        return;
    }
    std::vector<Record> records;
    if (before.exclude != after.exclude) {
        records.push_back(
            {after.exclude ? RecordType::ToExclude : RecordType::ToInclude, group, after.sources});
    } else {
        const auto more = difference(after.sources, before.sources);
        const auto fewer = difference(before.sources, after.sources);
        const auto &allowed = after.exclude ? fewer : more;
        const auto &blocked = after.exclude ? more : fewer;
        if (!allowed.empty()) {
            records.push_back({RecordType::Allow, group, allowed});
        }
        if (!blocked.empty()) {
            records.push_back({RecordType::Block, group, blocked});
        }
    }
    say_again(UNSOLICITED_INTERVAL, group, report_packet(from, records));
}

void Host::hear(const Packet &packet)
{
    if (const auto query = read_query(packet.bytes)) {
        hear_query(packet.family, *query);
    } else if (const auto group = read_old_report(packet.bytes)) {
        heard_[*group] = kernel_.clock.now();
    }
}

void Host::hear_query(int family, const Query &query)
{
    const Ns now = kernel_.clock.now();
    if (query.version < 3) {
        older_querier_[family] = {query.version, now + OLDER_QUERIER_PRESENT};
    }
    const auto concerns = [&](const auto &wish) {
        return wish.first.family == family && (query.group.family == AF_UNSPEC || query.group == wish.first);
    };
    if (std::any_of(wants_.begin(), wants_.end(), concerns)) {
        kernel_.clock.after(draw(std::max(query.response_time, MILLISECOND)),
                            [this, family, query, now] { answer(family, query, now); });
    }
}

void Host::answer(int family, const Query &query, Ns asked)
{
    if (spoken(family) < 3) {
        answer_old(family, query, asked);
        return;
    }
    std::vector<Record> records;
    const auto send = [&] {
        if (!records.empty()) {
            say(records.front().group, report_packet(address(family), records));
            records.clear();
        }
    };
    for (const auto &[group, filter] : wants_) {
        if (group.family != family || (query.group.family != AF_UNSPEC && query.group != group)) {
            continue;
        }
        reported_[group] = kernel_.clock.now();
        if (query.sources.empty()) {
            records.push_back(
                {filter.exclude ? RecordType::IsExclude : RecordType::IsInclude, group, filter.sources});
        } else {
            std::set<Address> wanted;
            for (const Address &source : query.sources) {
                if (filter.wants(source)) {
                    wanted.insert(source);
                }
            }
            if (!wanted.empty()) {
                records.push_back({RecordType::IsInclude, group, wanted});
            }
        }
        if (records.size() == RECORDS_IN_A_REPORT) {
            send();
        }
    }
    send();
}

void Host::answer_old(int family, const Query &query, Ns asked)
{
    for (const auto &[group, filter] : wants_) {
        const bool is_meant =
            group.family == family && (query.group.family == AF_UNSPEC || query.group == group);
        if (is_meant && !was_reported_since(group, asked)) {
            say(group, old_report_packet(address(family), group, spoken(family)));
        }
    }
}

} // namespace sim
