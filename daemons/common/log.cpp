#include "daemons/common/log.h"

#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "daemons/common/log_limit.h"
#include "daemons/common/log_output.h"

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

LogLimits g_limits;
uint32_t g_told_s = 0; // when lines that were held back were last looked for

uint32_t now_s()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<uint32_t>(now.tv_sec);
}

// Writes a line that the limits allow.
void write_line(LogLevel level, const char *format, va_list arguments)
{
    char line[LOG_LINE_MAX];
    int used =
        std::snprintf(line, sizeof(line), "%s: %s: ", g_log.name, LEVEL_NAMES[static_cast<int>(level)]);
    const int room = static_cast<int>(sizeof(line)) - used - 1;
    const int text = std::vsnprintf(line + used, static_cast<size_t>(room), format, arguments);
    used += text < 0 ? 0 : (text < room ? text : room - 1);
    line[used++] = '\n';
    log_output_line(line, static_cast<size_t>(used));
}

__attribute__((format(printf, 2, 3))) void say(LogLevel level, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    write_line(level, format, arguments);
    va_end(arguments);
}

void tell_of_held(bool all)
{
    uint64_t held = 0;
    g_told_s = now_s();
    while (const LogLimits::Site *const site = g_limits.next_to_tell(g_told_s, all, &held)) {
        say(site->level, "%" PRIu64 " more in %u s like: %s", held, LOG_PERIOD_S, site->first_held);
    }
}

void print(LogLevel level, const char *format, va_list arguments)
{
    if (!log_enabled(level)) {
        return;
    }
    const int saved_errno = errno;
    const uint32_t now = now_s();
    if (g_limits.holds_any() && now != g_told_s) { // a program without an event loop has no other occasion
        tell_of_held(false);
    }
    LogLimits::Site *const held = level == LogLevel::Debug ? nullptr : g_limits.hold(format, level, now);
    if (held == nullptr) {
        write_line(level, format, arguments);
    } else if (held->held == 1) {
        std::vsnprintf(held->first_held, sizeof(held->first_held), format, arguments);
    }
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
    log_output_prepare();
}

const char *log_name()
{
    return g_log.name;
}

int log_tend()
{
    if (g_limits.holds_any()) {
        tell_of_held(false);
    }
    return log_output_flush() || g_limits.holds_any() ? 1000 : -1;
}

void log_close()
{
    tell_of_held(true);
    log_output_flush();
}

uint64_t log_lines_held_back()
{
    return g_limits.held();
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
