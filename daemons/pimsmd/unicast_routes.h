/*
 * The unicast routes as this daemon asks for them: the kernel's, or in tests scripted ones.
 */
#ifndef DAEMONS_PIMSMD_UNICAST_ROUTES_H
#define DAEMONS_PIMSMD_UNICAST_ROUTES_H

#include <cstdint>
#include <optional>

#include "daemons/pimsmd/address.h"

namespace pimsmd
{

struct UnicastRoute {
    uint32_t if_index = 0;
    bool local = false;     // the address is this machine's own
    bool connected = false; // the address is on the link
    Address next_hop{};     // the address itself when it is connected
    Address source{};       // from which the kernel would send; unspecified when it names none
    uint32_t preference = 0;
    uint32_t metric = 0;
};

class UnicastRoutes
{
public:
    // Nothing when there is no way, or it cannot be found out now.
    virtual std::optional<UnicastRoute> look_up(const Address &address) = 0;

protected:
    ~UnicastRoutes() = default;
};

} // namespace pimsmd

#endif
