#include "daemons/mribd/routers.h"

#include <algorithm>
#include <utility>

namespace mribd
{

void RouterCounters::add(const Router &router)
{
    const ForwardingCounters &more = router.forwarding().counters();
    forwarding.upcalls += more.upcalls;
    forwarding.stray_upcalls += more.stray_upcalls;
    forwarding.wrong_interface += more.wrong_interface;
    forwarding.no_route += more.no_route;
    forwarding.refused_by_limit += more.refused_by_limit;
    forwarding.refused_by_memory += more.refused_by_memory;
    forwarding.kernel_failures += more.kernel_failures;
    forwarding.displaced += more.displaced;
    forwarding.expired += more.expired;
    forwarding.ended += more.ended;
    forwarding.given_way += more.given_way;
    forwarding.taken_up += more.taken_up;
    forwarding.unanswered += more.unanswered;
    forwarding.not_awaited += more.not_awaited;
    upcalls_lost += router.kernel().lost_upcalls();
    vifs_failed += router.vifs().failures();
    vifs_refused += router.vifs().refusals();
    trees_refused += router.trees().refused();
}

Routers::Routers(Router &common)
{
    add(common);
}

Routers::~Routers()
{
    for (const auto &[vrf_index, router] : routers_) {
        router->on_designated_router(nullptr);
    }
}

Router *Routers::find(uint16_t vrf_index) const
{
    const auto found = routers_.find(vrf_index);
    return found == routers_.end() ? nullptr : found->second;
}

void Routers::add(Router &router)
{
    routers_[router.vrf_index()] = &router;
    router.on_designated_router([this] { tell_designated_router(); });
    router.set_pim_listener(pim_listener_);
}

void Routers::remove(uint16_t vrf_index)
{
    if (Router *router = find(vrf_index)) {
        router->on_designated_router(nullptr);
        if (pim_listener_ != nullptr) {
            pim_listener_->tell_instance(*router, false);
            router->set_pim_listener(nullptr);
        }
        gone_.add(*router);
        routers_.erase(vrf_index);
        tell_designated_router();
    }
}

RouterCounters Routers::counters() const
{
    RouterCounters all = gone_;
    for (const auto &[vrf_index, router] : routers_) {
        all.add(*router);
    }
    return all;
}

void Routers::on_designated_router(std::function<void()> told)
{
    designated_router_told_ = std::move(told);
}

void Routers::tell_designated_router() const
{
    if (designated_router_told_) {
        designated_router_told_();
    }
}

std::set<InterfaceKey> Routers::designated_interfaces() const
{
    std::set<InterfaceKey> result;
    for (const auto &[vrf_index, router] : routers_) {
        for (const uint32_t if_index : router->designated_interfaces()) {
            result.insert({vrf_index, if_index});
        }
    }
    return result;
}

std::set<InterfaceKey> Routers::pim_interfaces() const
{
    std::set<InterfaceKey> result;
    for (const auto &[vrf_index, router] : routers_) {
        for (const uint32_t if_index : router->pim().interfaces()) {
            result.insert({vrf_index, if_index});
        }
    }
    return result;
}

void Routers::set_pim_listener(PimListener *listener)
{
    pim_listener_ = listener;
    for (const auto &[vrf_index, router] : routers_) {
        router->set_pim_listener(listener);
    }
}

bool Routers::awaits_answers() const
{
    return std::any_of(routers_.begin(), routers_.end(),
                       [](const auto &entry) { return entry.second->forwarding().awaits_answers(); });
}

void Routers::pass_answer_tick() const
{
    for (const auto &[vrf_index, router] : routers_) {
        router->pass_answer_tick();
    }
}

void Routers::end_pim_report()
{
    for (const auto &[vrf_index, router] : routers_) {
        router->end_pim_report();
    }
}

void Routers::lose_client(ClientId client)
{
    for (const auto &[vrf_index, router] : routers_) {
        router->lose_client(client);
    }
}

} // namespace mribd
