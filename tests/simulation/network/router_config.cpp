#include "tests/simulation/network/router_config.h"

#include <algorithm>
#include <cstdlib>

namespace sim
{
namespace
{

bool contains(const RouterConfig::Prefixes &prefixes, const Address &group)
{
    return std::any_of(prefixes.begin(), prefixes.end(), [&group](const std::string &prefix) {
        const size_t slash = prefix.find('/');
        const auto length = static_cast<unsigned>(strtoul(prefix.c_str() + slash + 1, nullptr, 10));
        return shares_prefix(address_from(prefix.substr(0, slash)), group, length);
    });
}

std::string quoted(const std::string &text)
{
    return "\"" + text + "\"";
}

template <typename Texts> std::string list_of(const Texts &texts)
{
    std::string list;
    for (const std::string &text : texts) {
        list += (list.empty() ? "" : ", ") + quoted(text);
    }
    return "[" + list + "]";
}

// The list of the family: the denied groups, then everything else.
std::string group_list(bool ipv4, const RouterConfig::Prefixes &denied)
{
    std::string text = "[[acl]]\nnumber = " + std::to_string(GROUP_LIST) +
                       "\nfamily = " + quoted(ipv4 ? "ipv4" : "ipv6") + "\n";
    unsigned id = 0;
    for (const std::string &prefix : denied) {
        if ((prefix.find(':') == std::string::npos) == ipv4) {
            text += "[[acl.rule]]\nid = " + std::to_string(++id) +
                    "\naction = \"deny\"\nsource = " + quoted(prefix) + "\n";
        }
    }
    return text + "[[acl.rule]]\nid = 65535\naction = \"permit\"\n";
}

} // namespace

std::string RouterConfig::text() const
{
    std::string text = group_list(true, denied) + group_list(false, denied);
    for (const auto &[index, instance] : instances) {
        text += "[[vpn]]\nname = " + quoted(instance.name) + "\nindex = " + std::to_string(index) +
                "\ninterfaces = " + list_of(instance.interfaces) + "\n";
    }
    std::set<uint16_t> told = {0};
    for (const auto &[index, instance] : instances) {
        told.insert(index);
    }
    for (const uint16_t index : told) {
        text += "[[mribd.instance]]\nvrf = " + std::to_string(index) +
                "\nenabled = " + (disabled.contains(index) ? "false" : "true") + "\n" +
                (index == 0 && !rendezvous.empty() ? "rp = " + quoted(rendezvous) + "\n" : "");
    }
    for (const auto &[address, own] : peers) {
        text += "[[msdpd.peer]]\naddress = " + quoted(address) + "\nlocal_address = " + quoted(own) + "\n";
    }
    std::set<std::string> interfaces = undesignated;
    for (const auto &[interface, prefixes] : boundaries) {
        interfaces.insert(interface);
    }
    for (const std::string &interface : interfaces) {
        text += "[[mribd.interface]]\nname = " + quoted(interface) + "\n";
        text += undesignated.contains(interface) ? "dr = false\n" : "";
        if (const auto found = boundaries.find(interface); found != boundaries.end()) {
            text += "boundaries = " + list_of(found->second) + "\n";
        }
    }
    return text;
}

bool RouterConfig::permits(Machine &machine, const Interface &interface, const Address &group) const
{
    const auto instance = instance_of(machine, interface);
    const auto found =
        instance && disabled.contains(*instance) ? boundaries.end() : boundaries.find(interface.name);
    return !contains(denied, group) && (found == boundaries.end() || !contains(found->second, group));
}

std::optional<uint16_t> RouterConfig::instance_of(Machine &machine, const Interface &interface) const
{
    const Interface *device = interface.master == 0 ? nullptr : machine.find(interface.master);
    for (const auto &[index, instance] : instances) {
        if (device != nullptr ? instance.name == device->name
                              : instance.interfaces.contains(interface.name)) {
            return index;
        }
    }
    return device == nullptr ? std::optional<uint16_t>(0) : std::nullopt;
}

bool RouterConfig::serves(Machine &machine, const Interface &interface) const
{
    const auto instance = instance_of(machine, interface);
    return instance && !disabled.contains(*instance) && !undesignated.contains(interface.name);
}

} // namespace sim
