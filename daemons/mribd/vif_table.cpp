#include "daemons/mribd/vif_table.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "daemons/common/log.h"
#include "daemons/mribd/address.h"

namespace mribd
{

VifTable::VifTable(const MRIB_GMP_VRF_KEY_S &key, KernelTable &kernel, const Environment &environment)
    : key_(key), kernel_(kernel), environment_(environment)
{
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
    const auto free = std::find(if_indexes_.begin(), if_indexes_.end(), 0u);
    const unsigned vif = static_cast<unsigned>(free - if_indexes_.begin());
    const int error = kernel_.add_vif(vif, if_index);
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
    *free = if_index;
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

bool VifTable::refresh(const std::vector<uint32_t> &wanted, const std::function<void(uint32_t)> &vacate)
{
    note_refused(wanted);
    const auto end = wanted.begin() + static_cast<ptrdiff_t>(std::min<size_t>(wanted.size(), MAX_VIFS));
    uint32_t leaving = 0;
    for (unsigned vif = 0; vif < MAX_VIFS; ++vif) {
        if (if_indexes_[vif] != 0 && std::find(wanted.begin(), end, if_indexes_[vif]) == end) {
            mcastd::log_info("%s: virtual interface %u, %s, is no longer needed", instance_name(key_).c_str(),
                             vif, environment_.interface_name(if_indexes_[vif]).c_str());
            if_indexes_[vif] = 0;
            leaving |= 1u << vif;
        }
    }
    if (leaving != 0) {
        vacate(leaving);
        for (unsigned vif = 0; vif < MAX_VIFS; ++vif) {
            if ((leaving >> vif & 1) != 0) {
                kernel_.delete_vif(vif); // an interface that is gone took its virtual interface along
            }
        }
    }
    bool changed = leaving != 0;
    incomplete_ = false;
    for (auto if_index = wanted.begin(); if_index != end; ++if_index) {
        if (find(*if_index) < 0) {
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
    if_indexes_[static_cast<size_t>(vif)] = 0;
    vacate(1u << vif);
    kernel_.delete_vif(static_cast<unsigned>(vif));
    return true;
}

void VifTable::clear()
{
    for (unsigned vif = 0; vif < MAX_VIFS; ++vif) {
        if (if_indexes_[vif] != 0) {
            kernel_.delete_vif(vif);
            if_indexes_[vif] = 0;
        }
    }
}

} // namespace mribd
