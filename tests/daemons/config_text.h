// A daemon's table of the configuration file, read from text.
#ifndef TESTS_DAEMONS_CONFIG_TEXT_H
#define TESTS_DAEMONS_CONFIG_TEXT_H

#include <string>

#include "daemons/common/config_file.h"

namespace config_text
{

// Reads the table of that name in a file "file".
template <typename Config> class Table
{
public:
    Table(const char *name, Config (*reader)(mcastd::ConfigTable &table)) : name_(name), reader_(reader)
    {
    }

    // Throws what the reader throws.
    Config read(const std::string &text) const
    {
        const host::ConfigDocument document("file", text);
        mcastd::ConfigTable root = document.root();
        mcastd::ConfigTable table = root.table(name_);
        Config config = reader_(table);
        table.finish();
        return config;
    }

    // The error, empty when the text was taken.
    std::string error_of(const std::string &text) const
    {
        try {
            read(text);
            return "";
        } catch (const mcastd::ConfigError &error) {
            return error.what();
        }
    }

private:
    const char *name_;
    Config (*reader_)(mcastd::ConfigTable &table);
};

} // namespace config_text

#endif
