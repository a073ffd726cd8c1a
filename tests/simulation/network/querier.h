/*
 * Another router of a link that asks the hosts and forwards nothing. It takes part in the election: it asks until it
 * hears a lower address ask, and again when that one has been silent for long.
 */
#ifndef TESTS_SIMULATION_NETWORK_QUERIER_H
#define TESTS_SIMULATION_NETWORK_QUERIER_H

#include <map>

#include "tests/simulation/network/host.h"

namespace sim
{

class Querier
{
public:
    // Of both families; asks in the version, in MLD's twin of it for IPv6.
    Querier(Kernel &kernel, Link &link, std::string name, const Host::Addresses &addresses, unsigned version);
    Querier(const Querier &) = delete;
    Querier &operator=(const Querier &) = delete;

    const std::string name;
    const unsigned version;

    void switch_on(bool on);
    bool is_on() const
    {
        return on_;
    }
    const Address &address(int family) const
    {
        return family == AF_INET ? addresses_.ipv4 : addresses_.ipv6;
    }

    void hear(const Packet &packet);

private:
    void ask(int family, uint64_t turn);

    Kernel &kernel_;
    Link &link_;
    Host::Addresses addresses_;
    bool on_ = false;
    uint64_t turn_ = 0;              // how often it was switched
    std::map<int, Ns> silent_until_; // by family: until when a lower address counts
};

} // namespace sim

#endif
