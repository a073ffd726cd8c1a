/*
 * The kernel's rules that lead the packets of interfaces to the multicast tables of one family's instances. They
 * outlive the process and know interfaces by name: one that is left over leads packets to a table in which nobody
 * forwards any more. So what the kernel or a want of descriptors or memory keeps from being removed is remembered here,
 * longer than the instance that it was for, until it is gone.
 */
#ifndef DAEMONS_MRIBD_TABLE_RULES_H
#define DAEMONS_MRIBD_TABLE_RULES_H

#include <cstdint>
#include <set>
#include <string>
#include <utility>

namespace mribd
{

class TableRules
{
public:
    explicit TableRules(uint8_t family) : family_(family)
    {
    }
    // Tries a last time.
    ~TableRules();
    TableRules(const TableRules &) = delete;
    TableRules &operator=(const TableRules &) = delete;

    uint8_t family() const
    {
        return family_;
    }

    // Removes what an earlier process left. When that fails it is done before the first rule is made.
    void begin();

    // Leads the interface's packets to the table, above 0, and to no other one. 0 or an errno value.
    int lead(const std::string &if_name, uint32_t table);

    // Unless another table has the interface by now it is led nowhere; if not at once, then when it can be done.
    void lead_no_more(const std::string &if_name, uint32_t table);

    // Whether there are rules that could not be removed.
    bool has_left() const
    {
        return !left_.empty() || (has_begun_ && !is_clean_);
    }
    void remove_left();

private:
    using Rule = std::pair<std::string, uint32_t>; // interface, table

    bool clean();
    void leave(const Rule &rule);

    const uint8_t family_;
    bool has_begun_ = false;
    bool is_clean_ = false; // nothing of an earlier process is there
    std::set<Rule> made_;
    std::set<Rule> left_; // to be removed
};

} // namespace mribd

#endif
