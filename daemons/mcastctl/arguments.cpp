#include "daemons/mcastctl/arguments.h"

#include <functional>

#include "daemons/common/address.h"
#include "daemons/mcastctl/text.h"
#include "mcast/argument_check.h"
#include "mcast/interface_name.h"

namespace mcastctl
{
namespace
{

using Check = MCAST_STATUS (*)(const char *text);

std::optional<MCAST_ADDR_S> address_from_text(const std::string &text, Check ipv4, Check ipv6)
{
    const auto address = mcastd::parse_address(text);
    const Check check = address && address->family == MCAST_FAMILY_IPV4 ? ipv4 : ipv6;
    return address && check(text.c_str()) == MCAST_OK ? address : std::nullopt;
}

// An option with one argument that set takes; what set throws names the argument.
CLI::Option *add(CLI::App &command, const char *name, const char *help, const char *type,
                 const std::function<void(const std::string &)> &set)
{
    return command.add_option_function<std::string>(name, set, help)->type_name(type);
}

} // namespace

std::optional<MCAST_ADDR_S> group_from_text(const std::string &text)
{
    return address_from_text(text, MCAST_GroupIPCheck, MCAST_GroupIPv6Check);
}

std::optional<MCAST_ADDR_S> source_from_text(const std::string &text)
{
    return address_from_text(text, MCAST_SourceIPCheck, MCAST_SourceIPv6Check_Ext);
}

uint32_t interface_from_text(const std::string &text)
{
    char name[MCAST_IF_NAME_SIZE] = {};
    if (const uint32_t if_index = MCAST_GetIfIndexByIfName(text.c_str(), "", name)) {
        return if_index;
    }
    return MCAST_GetMUANameFromStr(text.c_str(), name) == MCAST_OK
               ? MCAST_GetIfIndexByMUAName(MCAST_FAMILY_IPV4, name)
               : 0;
}

CLI::Option *add_family(CLI::App &command, uint16_t *family)
{
    return add(command, "--family", "Family to show: ipv4 or ipv6; both without it", "FAMILY",
               [family](const std::string &text) {
                   if (text != "ipv4" && text != "ipv6") {
                       throw CLI::ValidationError("--family", text + ": neither ipv4 nor ipv6");
                   }
                   *family = text == "ipv4" ? MCAST_FAMILY_IPV4 : MCAST_FAMILY_IPV6;
               });
}

CLI::Option *add_instance(CLI::App &command, std::optional<uint16_t> *instance)
{
    return command.add_option("--instance", *instance, "Index of the VPN instance; 0 is the public one")
        ->type_name("INDEX");
}

CLI::Option *add_group(CLI::App &command, std::optional<MCAST_ADDR_S> *group)
{
    return add(command, "--group", help_text(Help::SpecifyGroup), "GROUP", [group](const std::string &text) {
        *group = group_from_text(text);
        if (!*group) {
            throw CLI::ValidationError("--group", text + ": not a group that is routed (" +
                                                      help_text(Help::GroupAddress) + ")");
        }
    });
}

CLI::Option *add_source(CLI::App &command, std::optional<MCAST_ADDR_S> *source)
{
    return add(command, "--source", help_text(Help::SpecifySource), "SOURCE",
               [source](const std::string &text) {
                   *source = source_from_text(text);
                   if (!*source) {
                       throw CLI::ValidationError("--source", text + ": not a source (" +
                                                                  help_text(Help::SourceAddress) + ")");
                   }
               });
}

CLI::Option *add_interface(CLI::App &command, const char *name, const char *help,
                           std::optional<uint32_t> *if_index)
{
    return add(command, name, help, "INTERFACE", [name, if_index](const std::string &text) {
        *if_index = interface_from_text(text);
        if (**if_index == 0) {
            throw CLI::ValidationError(name, text + ": no such interface, or several (" +
                                                 help_text(Help::InterfaceName) + ")");
        }
    });
}

} // namespace mcastctl
