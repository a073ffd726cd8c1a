#include "daemons/gmpd/config.h"

#include <net/if.h>

namespace gmpd
{
namespace
{

using mcastd::ConfigString;
using mcastd::ConfigTable;

Address read_querier(const ConfigTable &interface, const ConfigString &text)
{
    const auto address = mcastd::parse_address(text.text.c_str());
    if (!address || is_unspecified(*address) || is_multicast(*address)) {
        interface.fail_at(text.at,
                          "queriers has " + host::quoted(text.text) + "; allowed: unicast addresses");
    }
    return *address;
}

} // namespace

PermittedQueriers read_config_table(ConfigTable &table)
{
    PermittedQueriers permitted;

    for (ConfigTable &interface : table.tables("interface")) {
        const std::string name = interface.string("name");

        if (name.empty() || name.size() >= IF_NAMESIZE || permitted.count(name) != 0) {
            interface.fail("name",
                           "name is " + host::quoted(name) + "; allowed: an interface's name, each once");
        }
        std::vector<Address> &queriers = permitted[name];

        for (const ConfigString &text : interface.strings("queriers")) {
            queriers.push_back(read_querier(interface, text));
        }
        interface.finish();
    }
    return permitted;
}

} // namespace gmpd
