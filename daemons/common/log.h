/*
 * Diagnostics of the daemons: one line a message on standard error, "name: level: text". The level is
 * process-wide; a message below it costs one comparison.
 */
#ifndef DAEMONS_COMMON_LOG_H
#define DAEMONS_COMMON_LOG_H

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

// printf-like; no newline at the end of format. errno is kept, so that a message can precede its use.
void log_error(const char *format, ...) __attribute__((format(printf, 1, 2)));
void log_warning(const char *format, ...) __attribute__((format(printf, 1, 2)));
void log_info(const char *format, ...) __attribute__((format(printf, 1, 2)));
void log_debug(const char *format, ...) __attribute__((format(printf, 1, 2)));

} // namespace mcastd

#endif
