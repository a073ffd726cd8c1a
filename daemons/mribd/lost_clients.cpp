#include "daemons/mribd/lost_clients.h"

#include "daemons/common/log.h"
#include "daemons/mribd/address.h"

namespace mribd
{

LostClients::LostClients(Router &router, MCAST_TMR_S *timers, uint32_t hold_s)
    : router_(router), timers_(timers), hold_s_(hold_s)
{
    if (hold_s_ != 0) {
        router_.keep_lost_clients([this](ClientId client) { keep(client); },
                                  [this](ClientId client) { let_go(client); });
    }
}

LostClients::~LostClients()
{
    router_.keep_lost_clients(nullptr);
    for (auto &[client, lost] : lost_) {
        mcastd::timer_stop(timers_, lost.timer);
    }
}

void LostClients::keep(ClientId client)
{
    while (lost_.size() >= MOST) {
        end(lost_.begin()->first);
    }
    Lost &lost = lost_[client];
    lost.owner = this;
    lost.client = client;
    const auto due = [](void *owner) {
        const Lost &ended = *static_cast<Lost *>(owner);
        ended.owner->end(ended.client);
    };
    if (!mcastd::timer_try_start(timers_, lost.timer, hold_s_ * 1000, due, &lost)) {
        end(client); // what could never end is not kept
        return;
    }
    mcastd::log_info("%s: what client %u wanted is kept for %u s", instance_name(router_.key()).c_str(),
                     client, hold_s_);
}

void LostClients::let_go(ClientId client)
{
    const auto found = lost_.find(client);
    if (found != lost_.end()) {
        mcastd::timer_stop(timers_, found->second.timer);
        lost_.erase(found);
        mcastd::log_info("%s: dropping unconfirmed memberships of lost client %u",
                         instance_name(router_.key()).c_str(), client);
    }
}

void LostClients::end(ClientId client)
{
    let_go(client);
    router_.drop_client(client);
}

} // namespace mribd
