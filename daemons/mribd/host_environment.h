/*
 * The environment as the host platform sees it.
 */
#ifndef DAEMONS_MRIBD_HOST_ENVIRONMENT_H
#define DAEMONS_MRIBD_HOST_ENVIRONMENT_H

#include <functional>

#include "daemons/mribd/environment.h"
#include "mcasthost/link.h"
#include "mcasthost/route.h"

namespace mribd
{

class HostEnvironment final : public Environment
{
public:
    // What happened around; called from the event loop.
    struct Events {
        std::function<void()> links_changed; // flags, addresses or instance, or there is a new one
        std::function<void(uint32_t if_index)> link_renamed;
        std::function<void(uint32_t if_index)> link_removed;
        // Routes of the family (0: both) under the prefix may have changed.
        std::function<void(uint8_t family, const uint8_t *prefix, unsigned length)> routes_changed;
    };

    HostEnvironment() = default;
    ~HostEnvironment() override;
    HostEnvironment(const HostEnvironment &) = delete;
    HostEnvironment &operator=(const HostEnvironment &) = delete;

    // To be called every round: tells again what there was no memory to tell.
    void settle();

    // Follows links and routes from the event loop. Failures are logged. Links present at the start are not
    // reported.
    bool open(int loop, Events events);

    std::vector<uint32_t> multicast_interfaces(uint16_t vrf_index) const override;
    std::optional<uint16_t> instance_of(uint32_t if_index) const override;
    std::string interface_name(uint32_t if_index) const override;
    uint32_t interface_index(const std::string &name) const override;
    bool is_on_link(uint32_t if_index, const MCAST_ADDR_S &source) const override;
    std::string obstacle(uint8_t family, uint32_t if_index) const override;
    Route route_to(uint16_t vrf_index, const MCAST_ADDR_S &source) const override;

    // The VRF device that is the instance; zeros when there is none.
    struct Device {
        uint32_t if_index = 0;
        uint32_t table = 0; // of its routes, and of its multicast
    };
    Device device_of(uint16_t vrf_index) const;

private:
    static void link_event(HOST_LINK_TABLE table, const HOST_LINK_EVENT_S *event, void *context);
    static void route_event(const HOST_ROUTE_CHANGE_S *change, void *context);
    void take_link_event(const HOST_LINK_EVENT_S &event) const;
    uint32_t owner_of(uint16_t vrf_index, const MCAST_ADDR_S &address) const;
    Route best_route_on(uint16_t vrf_index, const MCAST_ADDR_S &source) const;

    Events events_;
    HOST_LINK_TABLE links_ = nullptr;
    HOST_ROUTE_LOOKUP lookup_ = nullptr;
    HOST_ROUTE_WATCH watch_ = nullptr;
    bool missed_links_ = false; // a change of interfaces was not told
};

} // namespace mribd

#endif
