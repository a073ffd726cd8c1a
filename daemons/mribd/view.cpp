#include "daemons/mribd/view.h"

#include <iterator>

namespace mribd
{
namespace
{

// Without the ranges that lie within others: a client that adds or removes a range drops all within it. In
// order, what holds a range comes before it.
std::set<Prefix> widest_of(uint8_t family, const std::vector<Prefix> &ranges)
{
    std::set<Prefix> result;
    for (const Prefix &range : std::set<Prefix>(ranges.begin(), ranges.end())) {
        if (range.address.family == family && !any_covers(result, range)) {
            result.insert(result.end(), range);
        }
    }
    return result;
}

} // namespace

bool any_covers(const std::set<Prefix> &ranges, const Prefix &other)
{
    // Whatever lies in order between a range and another one that it holds, it holds as well.
    const auto after = ranges.upper_bound(other);
    return after != ranges.begin() && std::prev(after)->covers(other);
}

View make_view(uint8_t family, const Config &config, const std::set<InterfaceKey> &elected,
               const Environment &environment, const std::set<InterfaceKey> &pim)
{
    View view;
    view.busy = config.busy[family_row(family)];
    view.instances[PUBLIC_INSTANCE] = {};
    for (const auto &[vrf_index, instance] : config.instances) {
        view.instances[vrf_index] = {instance.enabled, instance.ssm_acl[family_row(family)]};
    }
    const auto is_enabled = [&view](uint16_t vrf_index) {
        const auto found = view.instances.find(vrf_index);
        return found != view.instances.end() && found->second.enabled;
    };
    for (const InterfaceKey &key : elected) {
        if (is_enabled(key.vrf_index)) {
            view.designated.insert(key);
        }
    }
    for (const InterfaceConfig &interface : config.interfaces) {
        const uint32_t if_index = environment.interface_index(interface.name);
        const auto vrf_index =
            interface.vrf_index || if_index == 0 ? interface.vrf_index : environment.instance_of(if_index);
        if (if_index == 0 || !vrf_index || !is_enabled(*vrf_index)) {
            continue;
        }
        const InterfaceKey key{*vrf_index, if_index};
        const bool is_configured = !pim.contains(key);
        if (is_configured && interface.designated == true) {
            view.designated.insert(key);
        } else if (is_configured && interface.designated == false) {
            view.designated.erase(key);
        }
        const uint8_t scope = family == MCAST_FAMILY_IPV6 ? interface.scope_boundary : uint8_t{0};
        const auto ranges = widest_of(family, interface.boundaries);
        if (!ranges.empty() || scope != 0) {
            view.boundaries[key] = {ranges, scope};
        }
    }
    return view;
}

} // namespace mribd
