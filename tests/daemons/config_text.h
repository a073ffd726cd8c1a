// A daemon's table of the configuration file, read from text.
#ifndef TESTS_DAEMONS_CONFIG_TEXT_H
#define TESTS_DAEMONS_CONFIG_TEXT_H

#include <string>

#include "daemons/common/config_file.h"

namespace config_text
{

// What read makes of the table of that name in a file "file"; throws what read and the reader throw.
template <typename Read> auto read(const char *name, const std::string &text, Read read)
{
    const host::ConfigDocument document("file", text);
    mcastd::ConfigTable root = document.root();
    mcastd::ConfigTable table = root.table(name);
    auto config = read(table);
    table.finish();
    return config;
}

// The error, empty when the text was taken.
template <typename Read> std::string error_of(const char *name, const std::string &text, Read read)
{
    try {
        config_text::read(name, text, read);
        return "";
    } catch (const mcastd::ConfigError &error) {
        return error.what();
    }
}

} // namespace config_text

#endif
