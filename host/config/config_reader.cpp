/*
 * From TOML to checked values. An operator's mistake must end the reading with one line that says where it
 * is, what was found and what is allowed; and a daemon that reads its configuration again must be able to
 * refuse the new text and keep the old. Both follow from two rules:
 *
 *   - Every step throws ConfigError; nothing is printed and nothing is kept. Whoever reads collects values
 *     into something that is not in use yet, and exchanges it once everything was read.
 *   - A table remembers each key that was asked for, also when it was absent. finish compares them with the
 *     keys that the file has, so a misspelt key is found without a list of keys beside the code that reads
 *     them.
 *
 *     root ""  ── tables("acl") ──► [[acl]]  ── tables("rule") ──► [[acl.rule]]
 *      allowed_: acl                 allowed_: number, family, ...   allowed_: id, action, ...
 *      finish()                      finish()                        finish()
 *
 * A ConfigTable is a view: it points at the file's name and at a table of the parser's tree, and both belong
 * to the ConfigDocument. An absent table is a view of nothing, so that optional keys, defaults and finish
 * work on it as on an empty one; its position is line 0, which an error leaves out.
 *
 * Text from the file appears in errors quoted, shortened and without control characters, because an error
 * becomes one line of a log.
 */
#include "host/config/config_reader.h"

#include <algorithm>

#include "host/config/config_text.h"

namespace host
{
namespace
{

constexpr size_t LONGEST_QUOTE = 80;

ConfigPosition position_of(const toml::source_region &source)
{
    return {source.begin.line, source.begin.column};
}

// An error is one line of a log, whatever the file holds.
std::string printable(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; },
        '?');
    return text;
}

std::string located(std::string_view file, ConfigPosition at, std::string_view text)
{
    std::string line(file);
    if (at.line != 0) {
        line += ':' + std::to_string(at.line) + ':' + std::to_string(at.column);
    }
    return printable(line + ": " + std::string(text));
}

const char *type_name(const toml::node &node)
{
    switch (node.type()) {
    case toml::node_type::table:
        return "a table";
    case toml::node_type::array:
        return "a list";
    case toml::node_type::string:
        return "a string";
    case toml::node_type::integer:
        return "an integer";
    case toml::node_type::floating_point:
        return "a number with a fraction";
    case toml::node_type::boolean:
        return "a truth value";
    default:
        return "a date or time";
    }
}

template <typename Words> std::string joined(const Words &words)
{
    std::string text;
    for (const auto &word : words) {
        text += (text.empty() ? "" : ", ") + std::string(word);
    }
    return text;
}

std::string range_text(int64_t low, int64_t high)
{
    return std::to_string(low) + " to " + std::to_string(high);
}

toml::table parse(std::string_view name, std::string_view text)
{
    check_config_text(name, text);
    try {
        return toml::parse(text, name);
    } catch (const toml::parse_error &error) {
        throw ConfigError(name, position_of(error.source()), error.description());
    }
}

} // namespace

ConfigError::ConfigError(std::string_view file, ConfigPosition at, std::string_view text)
    : std::runtime_error(located(file, at, text)), at_(at)
{
}

std::string quoted(std::string_view text)
{
    const bool whole = text.size() <= LONGEST_QUOTE;
    return '"' + std::string(text.substr(0, LONGEST_QUOTE)) + (whole ? "\"" : "...\"");
}

ConfigDocument::ConfigDocument(std::string_view name, std::string_view text)
    : name_(name), table_(parse(name, text))
{
}

ConfigTable ConfigDocument::root() const
{
    return {&name_, &table_, "", &forgiven_};
}

ConfigTable::ConfigTable(const std::string *file, const toml::table *table, std::string label,
                         const Keys *forgiven)
    : file_(file), table_(table), label_(std::move(label)), forgiven_(forgiven)
{
}

ConfigPosition ConfigTable::position() const
{
    return table_ == nullptr ? ConfigPosition{} : position_of(table_->source());
}

void ConfigTable::allow(std::string_view key)
{
    if (std::find(allowed_.begin(), allowed_.end(), key) == allowed_.end()) {
        allowed_.emplace_back(key);
    }
}

const toml::node *ConfigTable::find(std::string_view key)
{
    allow(key);
    return table_ == nullptr ? nullptr : table_->get(key);
}

bool ConfigTable::is_forgiven(std::string_view key) const
{
    const ConfigPosition at = position();
    return table_ != nullptr && forgiven_->contains({at.line, at.column, std::string(key)});
}

// nullptr for one that is forgiven.
const toml::node *ConfigTable::require(std::string_view key)
{
    const toml::node *node = find(key);
    if (node == nullptr && !is_forgiven(key)) {
        fail_at(position(), label_ + " lacks the key " + std::string(key));
    }
    return node;
}

bool ConfigTable::has(std::string_view key)
{
    return find(key) != nullptr;
}

bool ConfigTable::is_string(std::string_view key)
{
    const toml::node *node = find(key);
    return node != nullptr && node->is_string();
}

void ConfigTable::fail_at(ConfigPosition at, const std::string &text) const
{
    throw ConfigError(*file_, at, text);
}

void ConfigTable::fail(std::string_view key, const std::string &text) const
{
    const toml::node *node = table_ == nullptr ? nullptr : table_->get(key);
    fail_at(node == nullptr ? position() : position_of(node->source()), text);
}

void ConfigTable::wrong_type(std::string_view key, const toml::node &node, const std::string &wanted) const
{
    fail_at(position_of(node.source()), std::string(key) + " is " + type_name(node) + "; allowed: " + wanted);
}

int64_t ConfigTable::number(std::string_view key, const toml::node &node, int64_t low, int64_t high) const
{
    const toml::value<int64_t> *value = node.as_integer();
    if (value == nullptr) {
        wrong_type(key, node, "an integer, " + range_text(low, high));
    }
    if (value->get() < low || value->get() > high) {
        fail_at(position_of(node.source()), std::string(key) + " is " + std::to_string(value->get()) +
                                                "; allowed: " + range_text(low, high));
    }
    return value->get();
}

int64_t ConfigTable::integer(std::string_view key, int64_t low, int64_t high)
{
    const toml::node *node = require(key);
    return node == nullptr ? low : number(key, *node, low, high);
}

std::optional<int64_t> ConfigTable::optional_integer(std::string_view key, int64_t low, int64_t high)
{
    const toml::node *node = find(key);
    return node == nullptr ? std::nullopt : std::optional(number(key, *node, low, high));
}

std::string ConfigTable::string(std::string_view key)
{
    const toml::node *node = require(key);
    if (node == nullptr) {
        return "";
    }
    if (!node->is_string()) {
        wrong_type(key, *node, "a string");
    }
    return node->as_string()->get();
}

std::optional<std::string> ConfigTable::optional_string(std::string_view key)
{
    return has(key) ? std::optional(string(key)) : std::nullopt;
}

size_t ConfigTable::choice(std::string_view key, std::initializer_list<std::string_view> words)
{
    const std::string found = string(key);
    if (found.empty() && is_forgiven(key)) {
        return 0;
    }
    const auto word = std::find(words.begin(), words.end(), found);
    if (word == words.end()) {
        fail(key, std::string(key) + " is " + quoted(found) + "; allowed: " + joined(words));
    }
    return static_cast<size_t>(word - words.begin());
}

std::optional<bool> ConfigTable::optional_boolean(std::string_view key)
{
    const toml::node *node = find(key);
    if (node == nullptr) {
        return std::nullopt;
    }
    if (!node->is_boolean()) {
        wrong_type(key, *node, "true, false");
    }
    return node->as_boolean()->get();
}

std::vector<ConfigString> ConfigTable::strings(std::string_view key)
{
    std::vector<ConfigString> result;
    const toml::node *node = find(key);
    if (node == nullptr) {
        return result;
    }
    if (!node->is_array()) {
        wrong_type(key, *node, "a list of strings");
    }
    for (const toml::node &each : *node->as_array()) {
        if (!each.is_string()) {
            wrong_type("in " + std::string(key) + " there", each, "strings");
        }
        result.push_back({each.as_string()->get(), position_of(each.source())});
    }
    return result;
}

std::vector<int64_t> ConfigTable::integers(std::string_view key, int64_t low, int64_t high)
{
    std::vector<int64_t> result;
    const toml::node *node = find(key);
    if (node == nullptr) {
        return result;
    }
    if (!node->is_array()) {
        wrong_type(key, *node, "a list of integers, " + range_text(low, high));
    }
    for (const toml::node &each : *node->as_array()) {
        result.push_back(number("in " + std::string(key) + " there", each, low, high));
    }
    return result;
}

std::string ConfigTable::inner_label(std::string_view key) const
{
    // "[[acl]]" becomes "acl.rule"; the root has no name of its own.
    const size_t first = label_.find_first_not_of('[');
    const size_t last = label_.find_last_not_of(']');
    const std::string own = first == std::string::npos ? "" : label_.substr(first, last - first + 1) + '.';
    return own + std::string(key);
}

ConfigTable ConfigTable::table(std::string_view key)
{
    const toml::node *node = find(key);
    if (node != nullptr && !node->is_table()) {
        wrong_type(key, *node, "a table, [" + inner_label(key) + "]");
    }
    return {file_, node == nullptr ? nullptr : node->as_table(), '[' + inner_label(key) + ']', forgiven_};
}

std::vector<ConfigTable> ConfigTable::tables(std::string_view key)
{
    std::vector<ConfigTable> result;
    const std::string label = "[[" + inner_label(key) + "]]";
    const toml::node *node = find(key);
    if (node == nullptr) {
        return result;
    }
    if (!node->is_array()) {
        wrong_type(key, *node, "tables, each under " + label);
    }
    for (const toml::node &each : *node->as_array()) {
        if (!each.is_table()) {
            wrong_type("in " + std::string(key) + " there", each, "tables, each under " + label);
        }
        result.emplace_back(file_, each.as_table(), label, forgiven_);
    }
    return result;
}

void ConfigTable::finish() const
{
    if (table_ == nullptr) {
        return;
    }
    for (const auto &[key, value] : *table_) {
        if (std::find(allowed_.begin(), allowed_.end(), key.str()) == allowed_.end()) {
            fail_at(position_of(key.source()), "unknown key " + quoted(key.str()) +
                                                   (label_.empty() ? "" : " in " + label_) +
                                                   "; allowed: " + joined(allowed_));
        }
    }
}

} // namespace host
