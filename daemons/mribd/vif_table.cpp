#include "daemons/mribd/vif_table.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "daemons/common/log.h"
#include "daemons/common/pim_records.h"
#include "daemons/mribd/address.h"

namespace mribd
{

using mcastd::PIM_REGISTER_INTERFACE;

VifTable::VifTable(const MRIB_GMP_VRF_KEY_S &key, KernelTable &kernel, const Environment &environment,
                   RegisterNumbers *registers)
    : key_(key), kernel_(kernel), environment_(environment), registers_(registers)
{
}

VifTable::~VifTable()
{
    for (unsigned vif = 0; vif < MAX_VIFS; ++vif) {
        free_number(vif);
    }
}

// What the number meant it means no longer.
void VifTable::free_number(unsigned vif)
{
    if (registers_ != nullptr && if_indexes_[vif] == PIM_REGISTER_INTERFACE) {
        registers_->taken &= ~(1u << vif);
    }
    if_indexes_[vif] = 0;
}

// The numbers that other tables' register interfaces have.
uint32_t VifTable::other_registers() const
{
    const int own = find(PIM_REGISTER_INTERFACE);
    return registers_ == nullptr ? 0 : registers_->taken & ~(own < 0 ? 0 : 1u << own);
}

// One for the register interface, rather one that is free here; -1 when others have all.
int VifTable::number_for_register() const
{
    int occupied = -1;
    for (int vif = MAX_VIFS - 1; vif >= 0; --vif) {
        if ((other_registers() >> vif & 1) != 0) {
            continue;
        }
        if (if_indexes_[static_cast<size_t>(vif)] == 0) {
            return vif;
        }
        occupied = occupied < 0 ? vif : occupied;
    }
    return occupied;
}

int VifTable::find(uint32_t if_index) const
{
    const auto found = std::find(if_indexes_.begin(), if_indexes_.end(), if_index);
    return if_index == 0 || found == if_indexes_.end() ? -1 : static_cast<int>(found - if_indexes_.begin());
}

uint32_t VifTable::if_index(unsigned vif) const
{
    return vif < MAX_VIFS ? if_indexes_[vif] : 0;
}

unsigned VifTable::count() const
{
    return MAX_VIFS - static_cast<unsigned>(std::count(if_indexes_.begin(), if_indexes_.end(), 0u));
}

bool VifTable::add(uint32_t if_index)
{
    const bool is_register = if_index == PIM_REGISTER_INTERFACE;
    const auto free = std::find(if_indexes_.begin(), if_indexes_.end(), 0u);
    const int number = is_register ? number_for_register() : static_cast<int>(free - if_indexes_.begin());
    const unsigned vif = static_cast<unsigned>(number);
    const int error = number < 0 ? EADDRNOTAVAIL : kernel_.add_vif(vif, if_index);
    const auto known = std::find(failed_.begin(), failed_.end(), if_index);
    if (error != 0) {
        ++failures_;
        if (known == failed_.end()) {
            failed_.push_back(if_index);
            mcastd::log_warning(
                "%s: no virtual interface for %s: %s; it neither receives nor sends routed multicast",
                instance_name(key_).c_str(), environment_.interface_name(if_index).c_str(),
                error == ERANGE ? "its interface index is above 65535" : std::strerror(error));
        }
        return false;
    }
    if (known != failed_.end()) {
        failed_.erase(known);
    }
    if_indexes_[vif] = if_index;
    if (is_register && registers_ != nullptr) {
        registers_->taken |= 1u << vif;
    }
    mcastd::log_info("%s: virtual interface %u is %s", instance_name(key_).c_str(), vif,
                     environment_.interface_name(if_index).c_str());
    const std::string obstacle = environment_.obstacle(key_.family, if_index);
    if (!obstacle.empty()) {
        mcastd::log_warning("%s: %s routes no multicast: %s", instance_name(key_).c_str(),
                            environment_.interface_name(if_index).c_str(), obstacle.c_str());
    }
    return true;
}

void VifTable::note_refused(const std::vector<uint32_t> &wanted)
{
    const size_t refused = wanted.size() > MAX_VIFS ? wanted.size() - MAX_VIFS : 0;
    if (refused > refused_) {
        refusals_ += refused - refused_;
        std::string names;
        for (size_t i = MAX_VIFS; i < wanted.size() && i < MAX_VIFS + 8; ++i) {
            names += " " + environment_.interface_name(wanted[i]);
        }
        mcastd::log_warning(
            "%s: the kernel's limit of %u virtual interfaces is reached; %zu interfaces go without:%s%s",
            instance_name(key_).c_str(), MAX_VIFS, refused, names.c_str(), refused > 8 ? " ..." : "");
    }
    refused_ = refused;
}

// Gives up what is not wanted any more, and the number that the register interface is to have.
uint32_t VifTable::leave_unwanted(const std::vector<uint32_t> &wanted,
                                  const std::function<void(uint32_t)> &vacate)
{
    const auto end = wanted.begin() + static_cast<ptrdiff_t>(std::min<size_t>(wanted.size(), MAX_VIFS));
    uint32_t leaving = 0;
    for (unsigned vif = 0; vif < MAX_VIFS; ++vif) {
        if (if_indexes_[vif] != 0 && std::find(wanted.begin(), end, if_indexes_[vif]) == end) {
            mcastd::log_info("%s: virtual interface %u, %s, is no longer needed", instance_name(key_).c_str(),
                             vif, environment_.interface_name(if_indexes_[vif]).c_str());
            free_number(vif);
            leaving |= 1u << vif;
        }
    }
    const bool lacks_register =
        std::find(wanted.begin(), end, PIM_REGISTER_INTERFACE) != end && find(PIM_REGISTER_INTERFACE) < 0;
    const int number = lacks_register ? number_for_register() : -1;
    if (number >= 0 && if_indexes_[static_cast<size_t>(number)] != 0) {
        free_number(static_cast<unsigned>(number)); // its interface gets another one
        leaving |= 1u << number;
    }
    if (leaving != 0) {
        vacate(leaving);
        for (unsigned vif = 0; vif < MAX_VIFS; ++vif) {
            if ((leaving >> vif & 1) != 0) {
                kernel_.delete_vif(vif); // an interface that is gone took its virtual interface along
            }
        }
    }
    return leaving;
}

bool VifTable::refresh(const std::vector<uint32_t> &wanted, const std::function<void(uint32_t)> &vacate)
{
    note_refused(wanted);
    const auto end = wanted.begin() + static_cast<ptrdiff_t>(std::min<size_t>(wanted.size(), MAX_VIFS));
    bool changed = leave_unwanted(wanted, vacate) != 0;
    incomplete_ = false;
    // The register interface first: others take any number.
    if (std::find(wanted.begin(), end, PIM_REGISTER_INTERFACE) != end && find(PIM_REGISTER_INTERFACE) < 0) {
        incomplete_ = !add(PIM_REGISTER_INTERFACE);
        changed |= !incomplete_;
    }
    for (auto if_index = wanted.begin(); if_index != end; ++if_index) {
        if (find(*if_index) < 0 && *if_index != PIM_REGISTER_INTERFACE) {
            const bool added = add(*if_index);
            changed |= added;
            incomplete_ |= !added;
        }
    }
    return changed;
}

bool VifTable::forget(uint32_t if_index, const std::function<void(uint32_t)> &vacate)
{
    std::erase(failed_, if_index);
    const int vif = find(if_index);
    if (vif < 0) {
        return false;
    }
    free_number(static_cast<unsigned>(vif));
    vacate(1u << vif);
    kernel_.delete_vif(static_cast<unsigned>(vif));
    return true;
}

void VifTable::clear()
{
    for (unsigned vif = 0; vif < MAX_VIFS; ++vif) {
        if (if_indexes_[vif] != 0) {
            kernel_.delete_vif(vif);
            free_number(vif);
        }
    }
}

} // namespace mribd
