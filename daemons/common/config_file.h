/*
 * The configuration file as a daemon reads it: its own table beside the tables of the host platform.
 *
 *     Settings fresh;
 *     std::string error;
 *     if (mcastd::load_config(path, "mribd", [&](mcastd::ConfigTable &table) { fresh.read(table); }, &error))
 *         settings = fresh;
 *     else
 *         mcastd::log_error("%s", error.c_str());
 *
 * A ConfigTable gives typed values and throws ConfigError with file, line and column for the rest.
 */
#ifndef DAEMONS_COMMON_CONFIG_FILE_H
#define DAEMONS_COMMON_CONFIG_FILE_H

#include <cstdint>
#include <functional>
#include <string>

#include "host/config/config_reader.h"

namespace mcastd
{

using host::ConfigError;
using host::ConfigPosition;
using host::ConfigString;
using host::ConfigTable;

// The tables that the configuration file may have beside the host platform's, one for each daemon of the
// router, as HOST_ConfigLoad takes them: NULL follows the last.
const char *const *config_tables();

/*
 * Reads the file once and takes it as a whole or not at all: read gets the table [name], empty when the file
 * has none, and collects its values into something that is not in use yet; then the keys that read did not
 * ask for are refused; then the host platform's tables are checked and exchanged. false with *error set when
 * any of this fails: the host platform's configuration is what it was, and the caller drops what read
 * collected. Errors that read throws, ConfigError and others, become *error.
 */
bool load_config(const char *path, const char *name, const std::function<void(ConfigTable &)> &read,
                 std::string *error);

// Files that load_config refused since the start.
uint64_t config_refusals();

} // namespace mcastd

#endif
