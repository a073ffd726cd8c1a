#include "host/config/config_check.h"

namespace host
{
namespace
{

struct Removed {
    ConfigPosition from; // the table that had it
    std::string key;     // empty for an element of a list
};

bool same(ConfigPosition left, ConfigPosition right)
{
    return left.line == right.line && left.column == right.column;
}

ConfigPosition begin_of(const toml::source_region &source)
{
    return {source.begin.line, source.begin.column};
}

std::optional<Removed> remove_from(toml::table &table, ConfigPosition at);

// The innermost first: a list of tables begins where its first table does.
std::optional<Removed> remove_inside(toml::node &node, ConfigPosition at)
{
    if (toml::table *const table = node.as_table()) {
        return remove_from(*table, at);
    }
    toml::array *const list = node.as_array();
    for (size_t i = 0; list != nullptr && i < list->size(); ++i) {
        if (auto removed = remove_inside((*list)[i], at)) {
            return removed;
        }
        if (same(begin_of((*list)[i].source()), at)) {
            list->erase(list->cbegin() + static_cast<ptrdiff_t>(i));
            return Removed{{}, ""};
        }
    }
    return std::nullopt;
}

std::optional<Removed> remove_from(toml::table &table, ConfigPosition at)
{
    for (auto &&[key, value] : table) {
        if (auto removed = remove_inside(value, at)) {
            return removed;
        }
        if (same(begin_of(value.source()), at) || same(begin_of(key.source()), at)) {
            Removed removed{begin_of(table.source()), std::string(key.str())};
            table.erase(removed.key);
            return removed;
        }
    }
    return std::nullopt;
}

} // namespace

bool ConfigDocument::remove(ConfigPosition at)
{
    const auto removed = remove_from(table_, at);
    if (removed && !removed->key.empty()) {
        forgiven_.emplace(removed->from.line, removed->from.column, removed->key);
    }
    return removed.has_value();
}

bool ConfigDocument::is_mutilated(ConfigPosition table) const
{
    const auto first = forgiven_.lower_bound({table.line, table.column, ""});
    return first != forgiven_.end() && std::get<0>(*first) == table.line &&
           std::get<1>(*first) == table.column;
}

void check_document(ConfigDocument &document, const std::function<void(ConfigTable &root)> &read,
                    const std::function<void(const ConfigError &)> &tell)
{
    for (unsigned told = 0; told < MOST_CONFIG_ERRORS;) {
        try {
            ConfigTable root = document.root();
            read(root);
            return;
        } catch (const ConfigError &error) {
            // Of the table as a whole it is told no more than what is wrong in it.
            if (!document.is_mutilated(error.position())) {
                tell(error);
                ++told;
            }
            if (!document.remove(error.position())) {
                return; // nowhere in the file: it would come again
            }
        }
    }
}

} // namespace host
