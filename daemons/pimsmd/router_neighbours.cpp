/*
 * Neighbours that come, start again and go, and what that makes of the ways and of what they are asked: who has forgotten
 * everything is told everything, and entries look for another way only when one leads over a neighbour that came or left.
 */
#include "daemons/common/log.h"
#include "daemons/pimsmd/router.h"

namespace pimsmd
{

bool Router::is_neighbour(unsigned number, const Address &address)
{
    const Link *on = link(number);
    return on != nullptr && on->neighbours().find(address) != nullptr;
}

// Ways may lead over the neighbour now.
void Router::rejoin_link(const Link &on, const Neighbour &neighbour)
{
    const uint32_t if_index = on.state().if_index;
    bool leads = rpf_.leads_over(if_index, neighbour.address);
    for (const Address &address : neighbour.addresses) {
        leads = leads || rpf_.leads_over(if_index, address);
    }
    reroute_wanted_ = reroute_wanted_ || leads;
}

void Router::neighbour_came(unsigned number, const Neighbour &neighbour)
{
    newcomer_ = true;
    gone_.erase({number, neighbour.address});
    restarted_.insert({number, neighbour.address}); // what was known of one at this address is over
    rejoin_link(*links_[number], neighbour);
}

void Router::neighbour_restarted(unsigned number, const Neighbour &neighbour)
{
    newcomer_ = true;
    restarted_.insert({number, neighbour.address});
}

void Router::neighbour_left(unsigned number, const Neighbour &neighbour)
{
    restarted_.erase({number, neighbour.address});
    gone_.insert({number, neighbour.address});
    outgoing_.erase({number, neighbour.address});
    reroute_wanted_ = reroute_wanted_ || asked_.contains({number, neighbour.address});
}

void Router::dr_changed(unsigned number)
{
    const Link &on = *links_[number];
    mcastd::log_info("%s: designated router is %s", on.state().name.c_str(),
                     to_text(on.neighbours().dr()).c_str());
    roles_stale_ |= Links{1} << number;
}

} // namespace pimsmd
