#include "daemons/mcastctl/daemon_list.h"

#include <array>
#include <string_view>

#include "daemons/common/services.h"
#include "mcast/common.h"

namespace mcastctl
{
namespace
{

constexpr size_t COUNT = std::size(mcastd::ROUTER_DAEMONS);

constexpr std::array<DaemonInfo, COUNT> all_daemons()
{
    std::array<DaemonInfo, COUNT> result{};
    for (size_t i = 0; i < COUNT; ++i) {
        const mcastd::RouterDaemon &daemon = mcastd::ROUTER_DAEMONS[i];
        result[i] = {daemon.name, daemon.family, {daemon.service, daemon.control_port, 0}};
    }
    return result;
}

constexpr std::array<DaemonInfo, COUNT> DAEMONS = all_daemons();

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
