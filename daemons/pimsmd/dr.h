/*
 * The designated router of a link (RFC 7761, section 4.3.2): the router with the highest priority, among equals that with
 * the highest address. When one router of the link says no priority, priorities count for nobody.
 */
#ifndef DAEMONS_PIMSMD_DR_H
#define DAEMONS_PIMSMD_DR_H

#include <cstdint>
#include <optional>

#include "daemons/pimsmd/address.h"

namespace pimsmd
{

// Offered every router of a link in any order, this one included, it knows the winner.
class DrElection
{
public:
    // A router with its primary address and its priority, nothing when it says none.
    void offer(const Address &address, std::optional<uint32_t> priority)
    {
        if (!by_address_ || address_less(*by_address_, address)) {
            by_address_ = address;
        }
        if (!priority) {
            priorities_count_ = false;
        } else if (!by_priority_ || highest_ < *priority ||
                   (highest_ == *priority && address_less(*by_priority_, address))) {
            by_priority_ = address;
            highest_ = *priority;
        }
    }

    // The designated router's address; nothing when nobody was offered.
    std::optional<Address> winner() const
    {
        return priorities_count_ ? by_priority_ : by_address_;
    }

private:
    bool priorities_count_ = true;
    uint32_t highest_ = 0;
    std::optional<Address> by_address_;
    std::optional<Address> by_priority_;
};

} // namespace pimsmd

#endif
