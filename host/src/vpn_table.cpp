#include "vpn_table.h"

#include <algorithm>
#include <net/if.h>

#include "platform/vpn.h"

namespace host
{
namespace
{

constexpr int64_t FIRST_INDEX = 1;
constexpr int64_t LAST_INDEX = UINT16_MAX;

// Printable ASCII without spaces, so that a name stays one word in any output.
bool is_word(const std::string &text, size_t longest)
{
    return !text.empty() && text.size() <= longest &&
           std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < '\x7f'; });
}

bool is_interface_name(const std::string &text)
{
    return is_word(text, IF_NAMESIZE - 1) && text.find('/') == std::string::npos && text != "." &&
           text != "..";
}

std::string read_name(ConfigTable &table)
{
    std::string name = table.string("name");
    if (!is_word(name, L3VPN_NAME_SIZE - 1)) {
        table.fail("name", "name is " + quoted(name) + "; allowed: 1 to " +
                               std::to_string(L3VPN_NAME_SIZE - 1) +
                               " printable ASCII characters without spaces");
    }
    return name;
}

void read_interfaces(ConfigTable &table, uint16_t index, VpnTable *vpns)
{
    for (const ConfigString &interface : table.strings("interfaces")) {
        if (!is_interface_name(interface.text)) {
            table.fail_at(interface.at, quoted(interface.text) + " is no interface name; allowed: 1 to " +
                                            std::to_string(IF_NAMESIZE - 1) +
                                            " printable ASCII characters without spaces and slashes");
        }
        const auto [place, fresh] = vpns->interfaces.try_emplace(interface.text, index);
        if (!fresh) {
            table.fail_at(interface.at, "interface " + interface.text + " is already in instance " +
                                            vpns->names.at(place->second) +
                                            "; allowed: one instance an interface, and once");
        }
    }
}

} // namespace

VpnTable read_vpns(ConfigTable &root)
{
    VpnTable vpns;
    for (ConfigTable &table : root.tables("vpn")) {
        const std::string name = read_name(table);
        const auto index = static_cast<uint16_t>(table.integer("index", FIRST_INDEX, LAST_INDEX));
        if (!vpns.indexes.try_emplace(name, index).second) {
            table.fail("name", "there is another instance named " + name + "; allowed: a name of its own");
        }
        const auto [place, fresh] = vpns.names.try_emplace(index, name);
        if (!fresh) {
            table.fail("index", "index " + std::to_string(index) + " is instance " + place->second +
                                    "'s; allowed: an index of its own");
        }
        read_interfaces(table, index, &vpns);
        table.finish();
    }
    return vpns;
}

} // namespace host
