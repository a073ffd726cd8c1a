/*
 * The local sources where PIM runs: those that are registered with this router as their rendezvous point, in place of those on
 * its own links, of which the one at the rendezvous point hears in Registers. What PIM said of them outlives its connection as
 * long as PIM counts as running, and its next full report drops what it leaves out.
 */
#include <algorithm>

#include "daemons/mribd/msdp_exchange.h"

namespace mribd
{

// The note of sources registered with that one; 0 when there is no room for it.
uint8_t MsdpExchange::note_of_rp(uint32_t rp_be)
{
    const auto known = std::find(registered_rps_.begin(), registered_rps_.end(), rp_be);
    if (known == registered_rps_.end() && registered_rps_.size() >= MOST_REGISTERED_RPS) {
        return 0;
    }
    const auto at = known - registered_rps_.begin();
    if (known == registered_rps_.end()) {
        registered_rps_.push_back(rp_be);
    }
    return static_cast<uint8_t>(at + 1);
}

MsdpExchange::Result MsdpExchange::set_registered(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source,
                                                  uint32_t rp_be, bool present)
{
    const auto known = registered_.note_of(group, source);
    if (!present) {
        if (known && registered_.erase(group, source) && pim_runs_ && local_.erase(group, source)) {
            tell_local(group, source, *known, false);
        }
        return Result::Done;
    }
    const uint8_t note = note_of_rp(rp_be);
    if (note == 0 || (!known && registered_.size() >= remote_limit_)) {
        ++refused_;
        return Result::Refused;
    }
    if (known && *known != note && pim_runs_ && local_.erase(group, source)) {
        tell_local(group, source, *known, false);
    }
    if (registered_.set(group, source, note) == SgTable::Result::NoMemory) {
        ++refused_;
        return Result::NoMemory;
    }
    if (pim_runs_) {
        const SgTable::Result result = local_.set(group, source, note);
        lacks_local_ |= result == SgTable::Result::NoMemory;
        if (result == SgTable::Result::Added) {
            tell_local(group, source, note, true);
        }
    }
    return Result::Done;
}

void MsdpExchange::begin_registered()
{
    registered_.mark_stale();
}

void MsdpExchange::end_registered()
{
    registered_.sweep();
}

// Those of which local_ does not know.
void MsdpExchange::take_registered()
{
    SgTable::Cursor cursor;
    registered_.visit(&cursor, [this](const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, uint8_t note) {
        const SgTable::Result result = local_.set(group, source, note);
        lacks_local_ |= result == SgTable::Result::NoMemory;
        if (result == SgTable::Result::Added) {
            tell_local(group, source, note, true);
        }
        return true;
    });
}

void MsdpExchange::follow_pim()
{
    if (router_.pim().runs() == pim_runs_) {
        return;
    }
    tell_all(false);
    local_.clear();
    pim_runs_ = !pim_runs_;
    if (!pim_runs_) {
        registered_.clear();
        registered_rps_.clear();
    }
    take_all_local();
}

} // namespace mribd
