/*
 * The kernel's virtual interfaces of one instance: at most 32, given to the interfaces that need one most.
 */
#ifndef DAEMONS_MRIBD_VIF_TABLE_H
#define DAEMONS_MRIBD_VIF_TABLE_H

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "daemons/mribd/environment.h"
#include "daemons/mribd/kernel_table.h"

namespace mribd
{

// The numbers of the register interfaces of one family's instances, as bits. Reports of packets on their way there name, of
// IPv6, the number and not the table, so that no two have the same one.
struct RegisterNumbers {
    uint32_t taken = 0;
};

class VifTable
{
public:
    // registers outlives the table; NULL: it is the only one.
    VifTable(const MRIB_GMP_VRF_KEY_S &key, KernelTable &kernel, const Environment &environment,
             RegisterNumbers *registers = nullptr);
    ~VifTable();
    VifTable(const VifTable &) = delete;
    VifTable &operator=(const VifTable &) = delete;

    // The virtual interface of the interface, -1 when it has none.
    int find(uint32_t if_index) const;

    // The interface behind the virtual interface, 0 when there is none.
    uint32_t if_index(unsigned vif) const;

    // Whether the kernel refused one that the last refresh wanted.
    bool is_incomplete() const
    {
        return incomplete_;
    }

    // Makes the table hold the wanted interfaces, PIM_REGISTER_INTERFACE may be one, the most important first; those beyond the limit go
    // without, which is counted and logged. Before virtual interfaces are deleted, vacate is called with
    // their bits; from then on find does not know them, and afterwards no entry may use them. Returns whether
    // anything changed.
    bool refresh(const std::vector<uint32_t> &wanted, const std::function<void(uint32_t bits)> &vacate);

    // The interface is gone and the kernel has dropped its virtual interface with it. As refresh otherwise.
    bool forget(uint32_t if_index, const std::function<void(uint32_t bits)> &vacate);

    // Deletes all, without vacate.
    void clear();

    unsigned count() const;

    // Interfaces that go without because the table is full, as of the last refresh.
    size_t refused() const
    {
        return refused_;
    }

    // Times that an interface was refused, and that the kernel failed to make one.
    uint64_t refusals() const
    {
        return refusals_;
    }
    uint64_t failures() const
    {
        return failures_;
    }

private:
    uint32_t other_registers() const;
    int number_for_register() const;
    bool add(uint32_t if_index);
    void free_number(unsigned vif);
    uint32_t leave_unwanted(const std::vector<uint32_t> &wanted,
                            const std::function<void(uint32_t bits)> &vacate);
    void note_refused(const std::vector<uint32_t> &wanted);

    MRIB_GMP_VRF_KEY_S key_;
    KernelTable &kernel_;
    const Environment &environment_;
    std::array<uint32_t, MAX_VIFS> if_indexes_{};
    RegisterNumbers *registers_;
    std::vector<uint32_t> failed_; // reported already
    size_t refused_ = 0;
    bool incomplete_ = false;
    uint64_t refusals_ = 0;
    uint64_t failures_ = 0;
};

} // namespace mribd

#endif
