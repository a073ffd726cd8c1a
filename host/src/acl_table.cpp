/*
 * The [[acl]] tables of the configuration as the ACL service asks them: found by family and number, rules in
 * the order of their ids whatever the order of the file. Lists are vectors sorted by number, since they are
 * written once and searched for every question.
 *
 * A basic list (numbers 2000 to 2999) compares one address, an advanced one (3000 to 3999) two. That shows
 * in two places: the group type, by which the library learns which form to ask with, and the slots of a
 * rule, the addresses that it compares at all. A rule without a slot matches everything of its instance.
 *
 * Everything is checked here, with the place in the file: numbers, ids and names used twice, patterns,
 * instances that no [[vpn]] describes. So matching needs no checks and has no errors.
 */
#include "acl_table.h"

#include <algorithm>
#include <map>
#include <set>

#include "platform/acl.h"

namespace host
{
namespace
{

constexpr int64_t ADVANCED_FIRST = 3000;
constexpr int64_t ADVANCED_LAST = 3999;
constexpr int64_t LAST_RULE = UINT16_MAX;
constexpr size_t LONGEST_NAME = 63;

// Any types but those of the single-address lists.
constexpr uint32_t GROUP_TWO_IPV4 = 2;
constexpr uint32_t GROUP_TWO_IPV6 = 7;

// What the rules of a list need to know about it.
struct ListKind {
    AclFamily family;
    bool basic;

    uint32_t group_type() const
    {
        if (family == AclFamily::Ipv4) {
            return basic ? ACL_GROUP_SINGLE_IPV4 : GROUP_TWO_IPV4;
        }
        return basic ? ACL_GROUP_SINGLE_IPV6 : GROUP_TWO_IPV6;
    }
};

AclPattern read_pattern(ConfigTable &table, std::string_view key, AclFamily family)
{
    const std::string text = table.optional_string(key).value_or("any");
    const std::optional<AclPattern> pattern = parse_acl_pattern(family, text);
    if (!pattern) {
        table.fail(key, std::string(key) + " is " + quoted(text) + "; allowed: " + acl_pattern_forms(family));
    }
    return *pattern;
}

uint32_t read_vrf(ConfigTable &table, const VpnTable &vpns)
{
    if (!table.has("vrf")) {
        return AclRule::EVERY_VRF;
    }
    if (table.is_string("vrf")) {
        const std::string name = table.string("vrf");
        const auto place = vpns.indexes.find(name);
        if (place == vpns.indexes.end()) {
            table.fail("vrf", "vrf is " + quoted(name) + "; allowed: the name or index of a [[vpn]], or 0");
        }
        return place->second;
    }
    const int64_t index = table.integer("vrf", 0, UINT16_MAX);
    if (index != 0 && vpns.names.count(static_cast<uint16_t>(index)) == 0) {
        table.fail("vrf",
                   "vrf is " + std::to_string(index) + "; allowed: the name or index of a [[vpn]], or 0");
    }
    return static_cast<uint32_t>(index);
}

AclRule read_rule(ConfigTable &table, ListKind kind, const VpnTable &vpns)
{
    AclRule rule{};
    rule.id = static_cast<uint32_t>(table.integer("id", 0, LAST_RULE));
    rule.action = table.choice("action", {"permit", "deny"}) == 0 ? ACL_ACTION_PERMIT : ACL_ACTION_DENY;
    rule.first = read_pattern(table, "source", kind.family);
    if (!kind.basic) {
        rule.second = read_pattern(table, "destination", kind.family);
    }
    rule.slots = (rule.first.any() ? 0 : ACL_SLOT_FIRST) | (rule.second.any() ? 0 : ACL_SLOT_SECOND);
    rule.vrf = read_vrf(table, vpns);
    table.finish();
    return rule;
}

std::vector<AclRule> read_rules(ConfigTable &list, ListKind kind, const VpnTable &vpns)
{
    std::map<uint32_t, AclRule> ordered;
    for (ConfigTable &table : list.tables("rule")) {
        const AclRule rule = read_rule(table, kind, vpns);
        if (!ordered.try_emplace(rule.id, rule).second) {
            table.fail("id", "the list has another rule " + std::to_string(rule.id) +
                                 "; allowed: an id of its own");
        }
    }
    std::vector<AclRule> rules;
    rules.reserve(ordered.size());
    for (const auto &[id, rule] : ordered) {
        rules.push_back(rule);
    }
    return rules;
}

int64_t read_number(ConfigTable &table)
{
    const int64_t number = table.integer("number", ACL_BASIC_FIRST, ADVANCED_LAST);
    static_assert(ACL_BASIC_LAST + 1 == ADVANCED_FIRST, "both ranges are one");
    return number;
}

// Names are for the reader of the file alone.
void check_name(ConfigTable &table, std::set<std::string> *names)
{
    const std::optional<std::string> name = table.optional_string("name");
    if (!name) {
        return;
    }
    if (name->empty() || name->size() > LONGEST_NAME) {
        table.fail("name", "name has " + std::to_string(name->size()) + " characters; allowed: 1 to " +
                               std::to_string(LONGEST_NAME));
    }
    if (!names->insert(*name).second) {
        table.fail("name",
                   "the family has another list named " + quoted(*name) + "; allowed: a name of its own");
    }
}

std::vector<Acl> in_order(std::map<uint32_t, Acl> &&lists)
{
    std::vector<Acl> result;
    result.reserve(lists.size());
    for (auto &[number, list] : lists) {
        result.push_back(std::move(list));
    }
    return result;
}

} // namespace

const Acl *AclTable::find(uint32_t family_index, uint32_t number) const
{
    if (family_index != ACL_FAMILY_IPV4 && family_index != ACL_FAMILY_IPV6) {
        return nullptr;
    }
    const std::vector<Acl> &lists = family_index == ACL_FAMILY_IPV4 ? ipv4 : ipv6;
    const auto place =
        std::lower_bound(lists.begin(), lists.end(), number,
                         [](const Acl &list, uint32_t wanted) { return list.number < wanted; });
    return place == lists.end() || place->number != number ? nullptr : &*place;
}

AclTable read_acls(ConfigTable &root, const VpnTable &vpns)
{
    std::map<uint32_t, Acl> lists[2];
    std::set<std::string> names[2];
    for (ConfigTable &table : root.tables("acl")) {
        const int64_t number = read_number(table);
        const size_t family = table.choice("family", {"ipv4", "ipv6"});
        const ListKind kind{family == 0 ? AclFamily::Ipv4 : AclFamily::Ipv6, number <= ACL_BASIC_LAST};
        check_name(table, &names[family]);
        Acl list{static_cast<uint32_t>(number), kind.group_type(), read_rules(table, kind, vpns)};
        table.finish();
        if (!lists[family].try_emplace(list.number, std::move(list)).second) {
            table.fail("number", "the family has another list " + std::to_string(number) +
                                     "; allowed: a number of its own");
        }
    }
    return {in_order(std::move(lists[0])), in_order(std::move(lists[1]))};
}

} // namespace host
