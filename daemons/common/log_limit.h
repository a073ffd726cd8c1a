/*
 * How often one message may be said. What a stranger can cause again and again would otherwise fill the log,
 * so that each message, which its format's address tells from others, has an allowance a minute; what is over
 * it is counted, and when the minute is over one line tells how many there were and what the first of them
 * said. The formats are therefore literals. Texts of messages of level debug, which somebody asked for, have
 * no limit.
 *
 *     LOG_MINUTE_MAX lines     one minute     "212 more in 60 s like: ..."
 *     |------------------------|--------------|
 *      said                     counted        the next line begins a minute of its own
 */
#ifndef DAEMONS_COMMON_LOG_LIMIT_H
#define DAEMONS_COMMON_LOG_LIMIT_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "daemons/common/log.h"

namespace mcastd
{

constexpr uint32_t LOG_PERIOD_S = 60;
// Lines that a message may have in a period: of level error and warning, and of level info.
constexpr uint32_t LOG_WARNINGS_PER_PERIOD = 20;
constexpr uint32_t LOG_INFOS_PER_PERIOD = 100;
// Messages that have an allowance of their own; all others share one.
constexpr size_t LOG_SITES = 512;

class LogLimits
{
public:
    // A message whose lines are held back.
    struct Site {
        const char *format = nullptr;
        LogLevel level{};
        uint32_t begin_s = 0;
        uint32_t said = 0;
        uint64_t held = 0;
        char first_held[160]{};
    };

    // The site of a line that may not be said now, which is counted there; NULL for one that may.
    Site *hold(const char *format, LogLevel level, uint32_t now_s);

    // The next site whose minute is over, or with all the next, that holds lines. They count as told
    // afterwards; the text stays until the next call of hold. NULL when there is none.
    const Site *next_to_tell(uint32_t now_s, bool all, uint64_t *held);

    bool holds_any() const
    {
        return holding_ != 0;
    }

    // Lines held back since the start.
    uint64_t held() const
    {
        return held_;
    }

private:
    Site &find(const char *format);

    std::array<Site, LOG_SITES> sites_;
    Site others_;
    size_t holding_ = 0; // sites with lines to tell of
    uint64_t held_ = 0;
};

} // namespace mcastd

#endif
