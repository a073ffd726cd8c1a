/*
 * "show TABLE": one list says which tables there are, whose they are and by what they can be narrowed.
 */
#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "daemons/mcastctl/arguments.h"
#include "daemons/mcastctl/command.h"
#include "daemons/mcastctl/output.h"
#include "daemons/mcastctl/text.h"

namespace mcastctl
{
namespace
{

using mcastd::ControlField;
using mcastd::ControlFields;
using mcastd::ControlSchema;
using mcastd::FieldType;

struct ShowTable {
    const ControlSchema &schema;
    const char *daemon; // NULL: every one
    // Whether the rows of several daemons are put in the order of their interfaces, or follow each other.
    bool merged;
    const char *help; // NULL: the library's text
    Help argument_help = Help::MulticastModule;
};

constexpr ShowTable TABLES[] = {
    {mcastd::GROUP_TABLE, "gmpd", false, "Groups with members, by interface"},
    {mcastd::SOURCE_TABLE, "gmpd", false, "Sources of the groups, by interface and group"},
    {mcastd::INTERFACE_TABLE, "gmpd", true, "Interfaces on which IGMP and MLD run"},
    {mcastd::QUERIER_TABLE, "gmpd", true, "Queriers and the values in force"},
    {mcastd::USER_TABLE, "gmpd", false, "Authenticated users, by the interface made for each"},
    {mcastd::USER_RIGHT_TABLE, "gmpd", false, "What authenticated users may join"},
    {mcastd::USER_MESSAGE_TABLE, "gmpd", false, "Messages of authentication agents, by user"},
    {mcastd::USER_STATISTICS_TABLE, "gmpd", false, "Messages of authentication agents, by kind of user"},
    {mcastd::ROUTE_TABLE, "mribd", false, nullptr, Help::ForwardingTable},
    {mcastd::MEMBER_TABLE, "mribd", false, "Members that the clients report, by group and source"},
    {mcastd::VIF_TABLE, "mribd", false, "Virtual interfaces of the kernel"},
    {mcastd::CLIENT_TABLE, "mribd", false, "Daemons connected to mribd"},
    {mcastd::MSDP_PEER_TABLE, "msdpd", false, "MSDP peers and their state"},
    {mcastd::MSDP_CACHE_TABLE, "msdpd", false, "Sources that MSDP peers announce, by group and source"},
    {mcastd::MSDP_RPF_TABLE, "msdpd", false, "From which peer each originator's announcements are accepted"},
    {mcastd::MSDP_COUNTER_TABLE, "msdpd", false, "Counters of the MSDP peers"},
    {mcastd::PIM_INTERFACE_TABLE, "pimsmd", true,
     "Interfaces on which PIM runs, and their designated routers"},
    {mcastd::PIM_NEIGHBOR_TABLE, "pimsmd", false, "PIM routers on the links"},
    {mcastd::PIM_JOIN_TABLE, "pimsmd", false, "What routers and hosts behind each interface want"},
    {mcastd::PIM_TREE_TABLE, "pimsmd", false,
     "Groups and sources: who is asked for them, and where packets go"},
    {mcastd::PIM_ASSERT_TABLE, "pimsmd", false, "Links with several routers: which of them forwards"},
    {mcastd::RP_TABLE, "pimsmd", false, "Rendezvous points by the groups that they serve"},
    {mcastd::BSR_TABLE, "pimsmd", false, "The router that tells all others the rendezvous points"},
    {mcastd::RPF_TABLE, "pimsmd", false,
     "Ways to sources and rendezvous points; --source asks for any address"},
    {mcastd::COUNTER_TABLE, nullptr, false, nullptr, Help::Statistics},
    {mcastd::DEBUG_TABLE, nullptr, false, "What the daemons trace"},
};

// What was typed for one table.
struct ShowOptions {
    Filter filter;
    bool as_json = false;
    bool all = false; // counters that are zero, too
};

// The value that the filter wants in the column; None when any will do.
ControlField wanted_in(const Filter &filter, std::string_view column)
{
    if (column == "instance" && filter.instance) {
        return ControlField::number(*filter.instance);
    }
    if (column == "interface" && filter.if_index) {
        return ControlField::interface(*filter.if_index);
    }
    if (column == "upstream" && filter.incoming) {
        return ControlField::interface(*filter.incoming);
    }
    if (column == "group" && filter.group) {
        return ControlField::address(*filter.group);
    }
    if (column == "source" && filter.source) {
        return ControlField::address(*filter.source);
    }
    if (column == "family" && filter.family != 0) {
        return ControlField::family(filter.family);
    }
    return {};
}

// The first fields of the key as far as the filter gives them: where the rows that it passes begin.
ControlFields start_key(const ControlSchema &schema, const Filter &filter)
{
    ControlFields key;
    for (size_t i = 0; i < schema.key_size; ++i) {
        ControlField field = wanted_in(filter, schema.columns[i].name);
        if (field.is(FieldType::None)) {
            break;
        }
        key.push_back(std::move(field));
    }
    return key;
}

bool passes(const ControlSchema &schema, const ShowOptions &options, const ControlFields &row)
{
    for (size_t i = 0; i < row.size(); ++i) {
        const ControlField wanted = wanted_in(options.filter, schema.columns[i].name);
        if (!wanted.is(FieldType::None) && !(row[i] == wanted)) {
            return false;
        }
        if (row[i].is(FieldType::Address) && options.filter.family != 0 &&
            row[i].as_address().family != options.filter.family) {
            return false;
        }
        if (row[i].is(FieldType::Interfaces) && options.filter.outgoing) {
            const auto &list = row[i].as_interfaces();
            if (std::find(list.begin(), list.end(), *options.filter.outgoing) == list.end()) {
                return false;
            }
        }
        if (&schema == &mcastd::COUNTER_TABLE && row[i].is(FieldType::Counter) && !options.all &&
            row[i].as_number() == 0) {
            return false;
        }
    }
    return true;
}

int show(const ShowTable &table, const ShowOptions &options)
{
    const ControlSchema &schema = table.schema;
    const Daemons daemons = daemons_named(table.daemon, options.filter.family);
    Output output(schema, options.as_json, table.daemon == nullptr);
    const ControlFields key = start_key(schema, options.filter);
    const RowVisitor visitor = [&](const DaemonInfo &daemon, const ControlFields &row) {
        // Beyond the rows with the key no other follows.
        if (mcastd::compare_keys(row, key, key.size()) > 0) {
            return false;
        }
        if (passes(schema, options, row)) {
            output.add(daemon, row);
        }
        return true;
    };
    const auto read = key.size() == schema.key_size ? get_row : (table.merged ? walk_merged : walk_in_turn);
    const Outcome outcome = read(daemons, schema, key, visitor);
    const bool written = output.finish();
    const int code = report(daemons, outcome);
    return written ? code : EXIT_FAILED;
}

void add_options(CLI::App &command, const ControlSchema &schema, ShowOptions &options)
{
    Filter &filter = options.filter;
    command.add_flag("--json", options.as_json, "Print a JSON list of objects");
    add_family(command, &filter.family);
    if (has_column(schema, "instance")) {
        add_instance(command, &filter.instance);
    }
    if (has_column(schema, "interface")) {
        add_interface(command, "--interface", help_text(Help::SpecifyInterface), &filter.if_index);
    }
    if (has_column(schema, "group")) {
        add_group(command, &filter.group);
    }
    if (has_column(schema, "source")) {
        add_source(command, &filter.source);
    }
    if (has_column(schema, "upstream")) {
        add_interface(command, "--incoming", help_text(Help::IncomingInterface), &filter.incoming);
    }
    if (has_column(schema, "outgoing")) {
        add_interface(command, "--outgoing", help_text(Help::OutgoingInterface), &filter.outgoing);
    }
    if (&schema == &mcastd::COUNTER_TABLE) {
        command.add_flag("--all", options.all, "Show counters that are zero, too");
    }
}

} // namespace

void add_show_commands(const CommandLine &line)
{
    for (const ShowTable &table : TABLES) {
        const char *help = table.help != nullptr ? table.help : help_text(table.argument_help);
        CLI::App &command = *line.show.add_subcommand(table.schema.name, help);
        const auto options = std::make_shared<ShowOptions>();
        add_options(command, table.schema, *options);
        on_command(line, command, [&table, options] { return show(table, *options); });
    }
}

} // namespace mcastctl
