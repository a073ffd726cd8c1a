/*
 * Diagnostics of the daemons: one line a message on standard error, "name: level: text". The level is
 * process-wide; a message below it costs one comparison.
 *
 * A line never waits for its reader (log_output.h), and no message can fill the log: each has an allowance a
 * minute, told from others by its format, which therefore is a literal (log_limit.h). Who calls needs not
 * care. A message whose lines must not push out each other's, for instance of two causes, has two formats.
 */
#ifndef DAEMONS_COMMON_LOG_H
#define DAEMONS_COMMON_LOG_H

#include <cstdint>
#include <optional>
#include <string_view>

namespace mcastd
{

enum class LogLevel { Error, Warning, Info, Debug };

// The level named "error", "warning", "info" or "debug"; nothing for any other name.
std::optional<LogLevel> log_level_from_name(std::string_view name);

// Sets the name that opens every line and the least severe level that is printed. name must outlive the
// process's logging, a literal as a rule. Before the first call the name is "daemon" and the level Info.
void log_open(const char *name, LogLevel level);

// The name that log_open set.
const char *log_name();

// Whether a message of this level would be printed; guards work done only for the message.
bool log_enabled(LogLevel level);

// To be called every round of the event loop: writes what waited for its reader and tells of lines that were
// held back. The milliseconds after which it wants to be called again at the latest, -1 for no wish.
int log_tend();

// At the end of the process: tells of everything that was held back and writes what the reader takes.
void log_close();

// Lines held back because their message came too often.
uint64_t log_lines_held_back();

// printf-like; no newline at the end of format. errno is kept, so that a message can precede its use.
void log_error(const char *format, ...) __attribute__((format(printf, 1, 2)));
void log_warning(const char *format, ...) __attribute__((format(printf, 1, 2)));
void log_info(const char *format, ...) __attribute__((format(printf, 1, 2)));
void log_debug(const char *format, ...) __attribute__((format(printf, 1, 2)));

} // namespace mcastd

#endif
