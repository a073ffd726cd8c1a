/*
 * The ways to sources and RPs, remembered until routes change.
 */
#ifndef DAEMONS_PIMSMD_RPF_H
#define DAEMONS_PIMSMD_RPF_H

#include <map>
#include <set>
#include <utility>

#include "daemons/pimsmd/rp_table.h"
#include "daemons/pimsmd/unicast_routes.h"

namespace pimsmd
{

// Addresses whose routes are remembered; sources come from outside, beyond it memory starts over.
constexpr size_t MOST_KNOWN_ROUTES = 65536;

class Rpf
{
public:
    // routes outlives it.
    explicit Rpf(UnicastRoutes &routes) : routes_(routes)
    {
    }

    // Nothing when there is no way.
    const std::optional<UnicastRoute> &look_up(const Address &address);

    // Whether one of the ways leads over the address on the interface.
    bool leads_over(uint32_t if_index, const Address &address) const
    {
        return next_hops_.contains({if_index, address});
    }

    // The address after this one, or the first for NULL, of which something is known.
    std::optional<Address> next_known(const Address *after) const
    {
        const auto found = after != nullptr ? known_.upper_bound(*after) : known_.begin();
        return found != known_.end() ? std::optional(found->first) : std::nullopt;
    }

    // Every answer is to be asked again.
    void forget()
    {
        known_.clear();
        next_hops_.clear();
    }

private:
    using Hop = std::pair<uint32_t, Address>;
    struct HopLess {
        bool operator()(const Hop &first, const Hop &second) const
        {
            return first.first != second.first ? first.first < second.first
                                               : address_less(first.second, second.second);
        }
    };

    UnicastRoutes &routes_;
    std::map<Address, std::optional<UnicastRoute>, AddressLess> known_;
    std::set<Hop, HopLess> next_hops_;
};

} // namespace pimsmd

#endif
