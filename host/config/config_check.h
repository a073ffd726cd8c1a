/*
 * Every error of a document, where a reader tells its first one. What the reader complained of is taken out of the document,
 * and it reads again, until it is content:
 *
 *     address = "10.0.0.300"  ──► told, taken out and forgiven: it reads like an empty text. If the reader minds that, too, the
 *     grups = []              ──► table is taken out without a word
 */
#ifndef HOST_CONFIG_CONFIG_CHECK_H
#define HOST_CONFIG_CONFIG_CHECK_H

#include <functional>

#include "host/config/config_reader.h"

namespace host
{

// After so many errors the rest is not looked for: each costs a reading of the file.
constexpr unsigned MOST_CONFIG_ERRORS = 100;

// Reads until read, which gets the root and throws its first error, throws none or MOST_CONFIG_ERRORS were told. The
// document has lost what was wrong afterwards. Errors that read throws and that are no ConfigError pass through.
void check_document(ConfigDocument &document, const std::function<void(ConfigTable &root)> &read,
                    const std::function<void(const ConfigError &)> &tell);

} // namespace host

#endif
