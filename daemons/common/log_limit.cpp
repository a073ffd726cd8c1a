#include "daemons/common/log_limit.h"

#include <utility>

namespace mcastd
{

// Open addressing: a message is where its address says or behind it, and none is ever taken out.
LogLimits::Site &LogLimits::find(const char *format)
{
    const size_t start = reinterpret_cast<uintptr_t>(format) * 0x9E3779B97F4A7C15u >> 32;
    for (size_t i = 0; i < LOG_SITES; ++i) {
        Site &site = sites_[(start + i) % LOG_SITES];
        if (site.format == nullptr) {
            site.format = format;
        }
        if (site.format == format) {
            return site;
        }
    }
    return others_;
}

LogLimits::Site *LogLimits::hold(const char *format, LogLevel level, uint32_t now_s)
{
    Site &site = find(format);
    site.level = level;
    if (site.held == 0 && (site.said == 0 || now_s - site.begin_s >= LOG_PERIOD_S)) {
        site.begin_s = now_s;
        site.said = 0;
    }
    const uint32_t allowance = level == LogLevel::Info ? LOG_INFOS_PER_PERIOD : LOG_WARNINGS_PER_PERIOD;
    if (site.said < allowance) {
        ++site.said;
        return nullptr;
    }
    holding_ += site.held++ == 0 ? 1 : 0;
    ++held_;
    return &site;
}

const LogLimits::Site *LogLimits::next_to_tell(uint32_t now_s, bool all, uint64_t *held)
{
    const auto due = [&](const Site &site) {
        return site.held != 0 && (all || now_s - site.begin_s >= LOG_PERIOD_S);
    };
    for (size_t i = 0; holding_ != 0 && i <= LOG_SITES; ++i) {
        Site &site = i < LOG_SITES ? sites_[i] : others_;
        if (due(site)) {
            *held = std::exchange(site.held, 0);
            site.said = 0;
            --holding_;
            return &site;
        }
    }
    return nullptr;
}

} // namespace mcastd
