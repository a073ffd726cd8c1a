#include "daemons/mribd/lost_clients.h"

#include "daemons/common/log.h"
#include "daemons/mribd/address.h"

namespace mribd
{

LostClients::LostClients(Router &router, uint32_t hold_s) : router_(router), hold_s_(hold_s)
{
}

LostClients::~LostClients()
{
    router_.keep_lost_clients(nullptr);
    for (auto &[client, lost] : lost_) {
        mcastd::timer_stop(manager_, lost.timer);
    }
    MCAST_TMR_Destroy(manager_);
}

bool LostClients::open(TIMER_SERVICE service)
{
    const auto ticked = [](uint64_t parameters[4]) {
        MCAST_TMR_ProcExpires(reinterpret_cast<LostClients *>(parameters[0])->manager_);
    };
    const uint64_t parameters[4] = {reinterpret_cast<uintptr_t>(this)};
    if (hold_s_ == 0) {
        return true;
    }
    manager_ = MCAST_TMR_Create(service, ticked, parameters);
    if (manager_ == nullptr) {
        return false;
    }
    router_.keep_lost_clients([this](ClientId client) { keep(client); });
    return true;
}

void LostClients::keep(ClientId client)
{
    while (lost_.size() >= MOST) {
        end(lost_.begin()->first);
    }
    Lost &lost = lost_[client];
    lost.owner = this;
    lost.client = client;
    mcastd::log_info("%s: what client %u wanted is kept for %u s", instance_name(router_.key()).c_str(),
                     client, hold_s_);
    const auto due = [](void *owner) {
        const Lost &ended = *static_cast<Lost *>(owner);
        ended.owner->end(ended.client);
    };
    mcastd::timer_start(manager_, lost.timer, hold_s_ * 1000, due, &lost);
}

void LostClients::end(ClientId client)
{
    const auto found = lost_.find(client);
    mcastd::timer_stop(manager_, found->second.timer);
    lost_.erase(found);
    mcastd::log_info("%s: what client %u wanted and nobody said again ends",
                     instance_name(router_.key()).c_str(), client);
    router_.drop_client(client);
}

} // namespace mribd
