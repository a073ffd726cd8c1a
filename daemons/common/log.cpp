#include "daemons/common/log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <unistd.h>

namespace mcastd
{
namespace
{

struct LogState {
    const char *name = "daemon";
    LogLevel level = LogLevel::Info;
};

LogState g_log;

constexpr const char *LEVEL_NAMES[] = {"error", "warning", "info", "debug"};

// One write per line, so that the lines of several daemons on one terminal never mix.
void print(LogLevel level, const char *format, va_list arguments)
{
    if (!log_enabled(level)) {
        return;
    }
    const int saved_errno = errno;
    char line[1024];
    int used =
        std::snprintf(line, sizeof(line), "%s: %s: ", g_log.name, LEVEL_NAMES[static_cast<int>(level)]);
    const int room = static_cast<int>(sizeof(line)) - used - 1;
    const int text = std::vsnprintf(line + used, static_cast<size_t>(room), format, arguments);
    used += text < 0 ? 0 : (text < room ? text : room - 1);
    line[used++] = '\n';
    const ssize_t written = write(STDERR_FILENO, line, static_cast<size_t>(used));
    static_cast<void>(written);
    errno = saved_errno;
}

} // namespace

std::optional<LogLevel> log_level_from_name(std::string_view name)
{
    for (int level = 0; level < 4; ++level) {
        if (name == LEVEL_NAMES[level]) {
            return static_cast<LogLevel>(level);
        }
    }
    return std::nullopt;
}

void log_open(const char *name, LogLevel level)
{
    g_log.name = name;
    g_log.level = level;
}

const char *log_name()
{
    return g_log.name;
}

bool log_enabled(LogLevel level)
{
    return level <= g_log.level;
}

void log_error(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    print(LogLevel::Error, format, arguments);
    va_end(arguments);
}

void log_warning(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    print(LogLevel::Warning, format, arguments);
    va_end(arguments);
}

void log_info(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    print(LogLevel::Info, format, arguments);
    va_end(arguments);
}

void log_debug(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    print(LogLevel::Debug, format, arguments);
    va_end(arguments);
}

} // namespace mcastd
