#include "node_table.h"

#include <algorithm>
#include <optional>

namespace host
{
namespace
{

// Positions in the list of roles.
constexpr size_t MASTER = 0;
constexpr size_t STANDBY = 1;

// The roles that exactly one node has.
struct Chosen {
    std::optional<uint16_t> master;
    std::optional<uint16_t> self;
};

void choose(ConfigTable &table, const char *key, const char *what, uint16_t id,
            std::optional<uint16_t> *chosen)
{
    if (chosen->has_value()) {
        table.fail(key, "node " + std::to_string(**chosen) + " is " + what + " already; allowed: one node");
    }
    *chosen = id;
}

Node read_node(ConfigTable &table, Chosen *chosen)
{
    const auto id = static_cast<uint16_t>(table.integer("id", 0, UINT16_MAX));
    const size_t role = table.choice("role", {"master", "standby", "member"});
    const bool up = table.optional_boolean("up").value_or(true);
    if (role == MASTER) {
        choose(table, "role", "the master", id, &chosen->master);
    }
    if (table.optional_boolean("self").value_or(false)) {
        choose(table, "self", "this machine", id, &chosen->self);
        if (!up) {
            table.fail("up", "this machine is down; allowed: true for the node that is this machine");
        }
    }
    table.finish();
    return {id, up, role == STANDBY};
}

} // namespace

NodeTable read_nodes(ConfigTable &root)
{
    std::vector<ConfigTable> tables = root.tables("node");
    std::vector<Node> nodes;
    Chosen chosen;
    if (tables.empty()) {
        return {};
    }
    for (ConfigTable &table : tables) {
        const Node node = read_node(table, &chosen);
        if (std::any_of(nodes.begin(), nodes.end(), [&](const Node &other) { return other.id == node.id; })) {
            table.fail("id",
                       "there is another node " + std::to_string(node.id) + "; allowed: an id of its own");
        }
        nodes.push_back(node);
    }
    if (!chosen.master.has_value()) {
        root.fail_at(tables[0].position(),
                     "no node is the master; allowed: one [[node]] with role = \"master\"");
    }
    if (!chosen.self.has_value()) {
        root.fail_at(tables[0].position(), "no node is this machine; allowed: one [[node]] with self = true");
    }
    return {std::move(nodes), *chosen.self, *chosen.master};
}

} // namespace host
