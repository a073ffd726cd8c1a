#include "daemons/pimsmd/rpf.h"

namespace pimsmd
{

const std::optional<UnicastRoute> &Rpf::look_up(const Address &address)
{
    const auto found = known_.find(address);
    if (found != known_.end()) {
        return found->second;
    }
    if (known_.size() >= MOST_KNOWN_ROUTES) {
        known_.clear(); // next hops stay: entries were made by them
    }
    const auto made = known_.emplace(address, routes_.look_up(address)).first;

    if (made->second && !made->second->local) {
        next_hops_.insert({made->second->if_index, made->second->next_hop});
    }
    return made->second;
}

} // namespace pimsmd
