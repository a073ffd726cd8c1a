/*
 * Configuration text to checked values. A ConfigDocument is the parsed file, a ConfigTable reads typed values
 * out of one of its tables. Whatever is wrong ends the reading with a ConfigError that names file, line and
 * column and says what is allowed there:
 *
 *     ConfigDocument document(path, text);
 *     ConfigTable root = document.root();
 *     for (ConfigTable &acl : root.tables("acl")) {
 *         int64_t number = acl.integer("number", 2000, 3999);
 *         ...
 *         acl.finish();                    a key that nobody asked for is an error
 *     }
 *
 * Nothing here keeps state; a document belongs to one thread at a time.
 */
#ifndef HOST_CONFIG_CONFIG_READER_H
#define HOST_CONFIG_CONFIG_READER_H

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <toml++/toml.h>
#include <tuple>
#include <vector>

namespace host
{

// Where something stands in the file, counted from 1; line 0 when it stands nowhere.
struct ConfigPosition {
    uint32_t line = 0;
    uint32_t column = 0;
};

// what() is one printable line, "file:line:column: text".
class ConfigError : public std::runtime_error
{
public:
    ConfigError(std::string_view file, ConfigPosition at, std::string_view text);

    ConfigPosition position() const
    {
        return at_;
    }

private:
    ConfigPosition at_;
};

// One string of a list.
struct ConfigString {
    std::string text;
    ConfigPosition at;
};

// The text in quotes, as errors show what was found.
std::string quoted(std::string_view text);

// A table of a document, which it must not outlive. The functions for values throw ConfigError when the value
// is not of the type and range asked for; those not called optional_ also when it is absent.
class ConfigTable
{
public:
    // Keys of tables, each with the place where its table begins.
    using Keys = std::set<std::tuple<uint32_t, uint32_t, std::string>>;

    // An absent table (nullptr) reads like an empty one. Of the keys that are forgiven none is missed: the least that it
    // may be is given in its place.
    ConfigTable(const std::string *file, const toml::table *table, std::string label, const Keys *forgiven);

    // Whether the file holds the table.
    bool present() const
    {
        return table_ != nullptr;
    }
    ConfigPosition position() const;

    bool has(std::string_view key);
    bool is_string(std::string_view key);

    // Numbers outside low to high are refused.
    int64_t integer(std::string_view key, int64_t low, int64_t high);
    std::optional<int64_t> optional_integer(std::string_view key, int64_t low, int64_t high);

    std::string string(std::string_view key);
    std::optional<std::string> optional_string(std::string_view key);

    // The position of the string in words.
    size_t choice(std::string_view key, std::initializer_list<std::string_view> words);

    std::optional<bool> optional_boolean(std::string_view key);

    // A list of strings, of numbers; empty when absent.
    std::vector<ConfigString> strings(std::string_view key);
    std::vector<int64_t> integers(std::string_view key, int64_t low, int64_t high);

    // [key] inside this table, absent or not.
    ConfigTable table(std::string_view key);

    // [[key]] inside this table, in the order of the file; none when absent.
    std::vector<ConfigTable> tables(std::string_view key);

    // Throws an error at the value of the key, or at the table when it has no such key.
    [[noreturn]] void fail(std::string_view key, const std::string &text) const;
    // Throws an error at a position that came from this file.
    [[noreturn]] void fail_at(ConfigPosition at, const std::string &text) const;

    // Marks a key as allowed that others read.
    void allow(std::string_view key);

    // Throws when the table holds a key that was neither asked for nor allowed.
    void finish() const;

private:
    const toml::node *find(std::string_view key);
    const toml::node *require(std::string_view key);
    bool is_forgiven(std::string_view key) const;
    [[noreturn]] void wrong_type(std::string_view key, const toml::node &node,
                                 const std::string &wanted) const;
    int64_t number(std::string_view key, const toml::node &node, int64_t low, int64_t high) const;
    std::string inner_label(std::string_view key) const;

    const std::string *file_;
    const toml::table *table_;
    std::string label_;
    const Keys *forgiven_;
    std::vector<std::string> allowed_;
};

// A parsed file. name is what errors call it.
class ConfigDocument
{
public:
    // Throws ConfigError for text that is not TOML, too long or nested too deep.
    ConfigDocument(std::string_view name, std::string_view text);
    ConfigDocument(const ConfigDocument &) = delete;
    ConfigDocument &operator=(const ConfigDocument &) = delete;

    ConfigTable root() const;

    // Takes what is at the position out of the document: the value of a key, which is forgiven from then on, or a
    // table. False when nothing begins there. No ConfigTable made before may be used any more.
    bool remove(ConfigPosition at);

    // Whether remove took something out of the table that begins there.
    bool is_mutilated(ConfigPosition table) const;

private:
    std::string name_;
    toml::table table_;
    ConfigTable::Keys forgiven_;
};

} // namespace host

#endif
