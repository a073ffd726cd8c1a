/*
 * One table of the kernel's multicast forwarding through a multicast routing socket, IPv4 or IPv6. Closing
 * the socket makes the kernel forget all that was set through it.
 */
#ifndef DAEMONS_MRIBD_KERNEL_MROUTE_H
#define DAEMONS_MRIBD_KERNEL_MROUTE_H

#include <array>
#include <deque>
#include <functional>
#include <string>

#include "daemons/mribd/kernel_table.h"
#include "daemons/mribd/table_rules.h"
#include "daemons/mribd/upcall.h"

namespace mribd
{

struct FamilyCalls;

class KernelMroute final : public KernelTable
{
public:
    enum class OpenResult {
        Ready,
        NotSupported, // the kernel has no multicast routing for the family, or but one table
        Failed
    };

    // table 0: the one that the kernel uses unless a rule says otherwise. Of another table every virtual
    // interface has a rule that leads its interface's packets there, while it exists. The family is that of the rules,
    // which must outlive this.
    explicit KernelMroute(TableRules &rules, uint32_t table = 0);
    ~KernelMroute() override;
    KernelMroute(const KernelMroute &) = delete;
    KernelMroute &operator=(const KernelMroute &) = delete;

    // Becomes the table's multicast router in the namespace. Unless Ready, *reason says what is wrong and
    // what to do about it.
    OpenResult open(std::string *reason);

    // Withdraws everything and gives the role back. Safe when not open.
    void shut();

    uint32_t table() const override
    {
        return table_;
    }
    bool is_open() const override
    {
        return fd_ >= 0;
    }

    // Has the next open take another table. Only while not open.
    void choose_table(uint32_t table)
    {
        table_ = table;
    }

    int descriptor() const
    {
        return fd_;
    }

    // Reads at most limit messages and keeps the upcalls among them for serve. The oldest are given up beyond
    // some ten thousand; the kernel repeats them.
    void receive(unsigned limit);

    // Hands over at most limit upcalls, the newest first. Whether there are more.
    bool serve(unsigned limit, const std::function<void(const Upcall &)> &take);

    // Upcalls given up, and dropped by the kernel because the receive buffer was full.
    uint64_t lost_upcalls() const override;

    int add_vif(unsigned vif, uint32_t if_index) override;
    int delete_vif(unsigned vif) override;
    int set_entry(const MCAST_ADDR_S &source, const MCAST_ADDR_S &group, unsigned parent,
                  uint32_t outgoing) override;
    int delete_entry(const MCAST_ADDR_S &source, const MCAST_ADDR_S &group) override;
    std::optional<EntryCounters> counters(const MCAST_ADDR_S &source, const MCAST_ADDR_S &group) override;

private:
    OpenResult open_failed(const char *step, int error, std::string *reason);
    void prepare_receiving();
    int lead(unsigned vif, uint32_t if_index);
    int lead(unsigned vif, const std::string &name);
    void lead_no_more(unsigned vif);
    int switch_pim(bool on);

    const FamilyCalls &calls_;
    TableRules &rules_;
    uint32_t table_;
    int fd_ = -1;
    int register_vif_ = -1;
    std::array<std::string, MAX_VIFS> led_; // by virtual interface, the interface that has a rule
    std::deque<Upcall> waiting_;            // oldest first
    uint64_t given_up_ = 0;
};

} // namespace mribd

#endif
