#include "daemons/mribd/member_budget.h"

#include "daemons/common/log.h"

namespace mribd
{
namespace
{

bool is_near(size_t taken, size_t limit)
{
    return taken >= limit - limit / 10;
}

} // namespace

MemberBudget::MemberBudget(size_t total) : total_(total)
{
}

bool MemberBudget::take(ClientId client, size_t on_interface)
{
    const auto found = clients_.find(client);
    const size_t of_client = found == clients_.end() ? 0 : found->second;
    if (taken_ >= total_ || of_client >= client_limit() || on_interface >= interface_limit()) {
        ++refused_;
        if (!reported_) {
            reported_ = true;
            mcastd::log_warning(
                "memberships are refused: %zu of %zu are kept, %zu of client %u (at most %zu), "
                "%zu of the interface (at most %zu); see option --max-members",
                taken_, total_, of_client, client, client_limit(), on_interface, interface_limit());
        }
        return false;
    }
    ++(found == clients_.end() ? clients_[client] : found->second);
    ++taken_;
    return true;
}

void MemberBudget::give(ClientId client)
{
    const auto found = clients_.find(client);
    if (--found->second == 0) {
        clients_.erase(found);
    }
    --taken_;
    reported_ = reported_ && taken_ >= total_ / 4; // said again after it was far
}

bool MemberBudget::has_room(ClientId client, size_t on_interface) const
{
    const auto found = clients_.find(client);
    const size_t of_client = found == clients_.end() ? 0 : found->second;
    return !is_near(taken_, total_) && !is_near(of_client, client_limit()) &&
           !is_near(on_interface, interface_limit());
}

} // namespace mribd
