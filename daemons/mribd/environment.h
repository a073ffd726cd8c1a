/*
 * What mribd asks about the machine around it: interfaces and unicast routes. HostEnvironment answers from
 * the host platform; tests put a table in its place.
 */
#ifndef DAEMONS_MRIBD_ENVIRONMENT_H
#define DAEMONS_MRIBD_ENVIRONMENT_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "mcast/common.h"

namespace mribd
{

class Environment
{
public:
    virtual ~Environment() = default;

    // Interfaces of the instance that can carry multicast now: up, multicast capable, not the loopback.
    // Ascending.
    virtual std::vector<uint32_t> multicast_interfaces(uint16_t vrf_index) const = 0;

    // The instance that the interface belongs to; nothing when it belongs to none.
    virtual std::optional<uint16_t> instance_of(uint32_t if_index) const = 0;

    // The interface's name, or its index as the library writes it when there is no such interface.
    virtual std::string interface_name(uint32_t if_index) const = 0;

    // The interface of the name, 0 when there is none.
    virtual uint32_t interface_index(const std::string &name) const = 0;

    // Whether the source is on the link of the interface by one of the interface's subnets.
    virtual bool is_on_link(uint32_t if_index, const MCAST_ADDR_S &source) const = 0;

    struct Route {
        uint32_t if_index = 0;   // 0: there is no route
        bool is_own = false;     // the address is the router's own; if_index is the interface that has it
        bool is_unknown = false; // whether there is one cannot be found out now, later perhaps
    };

    // What keeps the interface, or PIM_REGISTER_INTERFACE, from routing multicast of the family, with the sysctl to change;
    // empty when nothing does.
    virtual std::string obstacle(uint8_t family, uint32_t if_index) const = 0;

    // The instance's unicast route to the source; it leaves by an interface of the instance.
    virtual Route route_to(uint16_t vrf_index, const MCAST_ADDR_S &source) const = 0;
};

} // namespace mribd

#endif
