/*
 * The text of a configuration file before it is parsed: whether it may be. The parser keeps its place on the
 * stack, and so does what frees a parsed document, a level of nesting a few frames; what nests deeper than
 * anybody writes is refused here, where nothing recurs.
 */
#ifndef HOST_CONFIG_CONFIG_TEXT_H
#define HOST_CONFIG_CONFIG_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace host
{

// The longest file, bytes.
constexpr size_t CONFIG_FILE_MAX = size_t{16} * 1024 * 1024;

// How deep tables, lists and the parts of a key may nest: [a.b] has two levels, x = { y.z = [1] } four.
constexpr size_t CONFIG_DEPTH_MAX = 32;

// The whole file, an ordinary one of at most CONFIG_FILE_MAX bytes. Never waits: a pipe, a device or a folder
// is refused. Throws ConfigError.
std::string read_config_file(const char *path);

// Throws ConfigError, with the place, when the text is longer or nests deeper than allowed. name is what the
// error calls the file. One pass, no memory; of text that is not TOML it may say either.
void check_config_text(std::string_view name, std::string_view text);

} // namespace host

#endif
