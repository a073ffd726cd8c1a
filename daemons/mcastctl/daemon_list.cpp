#include "daemons/mcastctl/daemon_list.h"

#include <string_view>

#include "daemons/common/services.h"
#include "mcast/common.h"

namespace mcastctl
{
namespace
{

constexpr DaemonInfo DAEMONS[] = {
    {"gmpd", MCAST_FAMILY_IPV4, {mcastd::SERVICE_GMPD_IPV4, mcastd::CONTROL_PORT_GMPD_IPV4, 0}},
    {"gmpd", MCAST_FAMILY_IPV6, {mcastd::SERVICE_GMPD_IPV6, mcastd::CONTROL_PORT_GMPD_IPV6, 0}},
    {"mribd", 0, {mcastd::SERVICE_MRIBD, mcastd::CONTROL_PORT_MRIBD, 0}},
    {"msdpd", MCAST_FAMILY_IPV4, {mcastd::SERVICE_MSDPD, mcastd::CONTROL_PORT_MSDPD, 0}},
};

} // namespace

std::span<const DaemonInfo> daemon_list()
{
    return DAEMONS;
}

std::vector<const DaemonInfo *> daemons_named(const char *name, uint16_t family)
{
    std::vector<const DaemonInfo *> result;
    for (const DaemonInfo &daemon : DAEMONS) {
        if ((name == nullptr || std::string_view(name) == daemon.name) &&
            (family == 0 || daemon.family == 0 || daemon.family == family)) {
            result.push_back(&daemon);
        }
    }
    return result;
}

std::string daemon_title(const DaemonInfo &daemon)
{
    const std::string name = daemon.name;
    return daemon.family == 0 ? name : name + (daemon.family == MCAST_FAMILY_IPV4 ? " (IPv4)" : " (IPv6)");
}

} // namespace mcastctl
