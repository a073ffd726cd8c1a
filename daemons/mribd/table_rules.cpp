#include "daemons/mribd/table_rules.h"

#include <cerrno>
#include <cstring>
#include <new>

#include "daemons/common/log.h"
#include "daemons/mribd/address.h"
#include "mcasthost/multicast_rule.h"

namespace mribd
{

TableRules::~TableRules()
{
    if (has_left()) {
        remove_left();
    }
}

void TableRules::begin()
{
    has_begun_ = true;
    if (!clean()) {
        mcastd::log_warning("%s: cannot clear the rules that an earlier mribd may have left: %s; tried again",
                            family_name(family_), std::strerror(errno));
    }
}

// As long as it fails no rule is made, so that all there are may go.
bool TableRules::clean()
{
    // A kernel without rules for the family has none to clear.
    is_clean_ = is_clean_ || HOST_MulticastRuleClear(family_, nullptr, 0) == 0 || errno == EAFNOSUPPORT;
    return is_clean_;
}

int TableRules::lead(const std::string &if_name, uint32_t table)
{
    if (!clean()) {
        return errno;
    }
    Rule rule(if_name, table);
    try {
        made_.insert(rule); // here, so that nothing that is needed later can fail
    } catch (const std::bad_alloc &) {
        return ENOMEM;
    }
    if (HOST_MulticastRuleSet(family_, if_name.c_str(), table) != 0) {
        const int error = errno;
        leave(rule); // half of it may be there
        return error;
    }
    // They went before it came.
    std::erase_if(left_, [&if_name](const Rule &left) { return left.first == if_name; });
    return 0;
}

void TableRules::lead_no_more(const std::string &if_name, uint32_t table)
{
    const Rule rule(if_name, table);
    if (HOST_MulticastRuleClear(family_, if_name.c_str(), table) == 0) {
        made_.erase(rule);
        return;
    }
    mcastd::log_warning("%s: cannot remove the rules that lead packets of %s to table %u: %s; tried again",
                        family_name(family_), if_name.c_str(), table, std::strerror(errno));
    leave(rule);
}

// Needs no memory.
void TableRules::leave(const Rule &rule)
{
    left_.insert(made_.extract(rule));
}

void TableRules::remove_left()
{
    clean();
    std::erase_if(left_, [this](const Rule &rule) {
        return HOST_MulticastRuleClear(family_, rule.first.c_str(), rule.second) == 0;
    });
}

} // namespace mribd
