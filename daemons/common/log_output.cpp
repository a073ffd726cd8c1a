#include "daemons/common/log_output.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <unistd.h>
#include <utility>

#include "daemons/common/log.h"
#include "daemons/common/nonblocking_output.h"

namespace mcastd
{
namespace
{

struct Waiting {
    char bytes[LOG_BUFFER_SIZE];
    size_t begin = 0;
    size_t end = 0;
    uint64_t lost = 0;
    uint64_t told_lost = 0; // of them those that a line has told of

    bool empty() const
    {
        return begin == end;
    }
};

Waiting g_waiting;
NonblockingOutput g_output(STDERR_FILENO);

bool keep(const char *line, size_t size)
{
    Waiting &waiting = g_waiting;
    if (waiting.end + size > sizeof(waiting.bytes)) {
        std::memmove(waiting.bytes, waiting.bytes + waiting.begin, waiting.end - waiting.begin);
        waiting.end -= std::exchange(waiting.begin, 0);
    }
    if (waiting.end + size > sizeof(waiting.bytes)) {
        return false;
    }
    std::memcpy(waiting.bytes + waiting.end, line, size);
    waiting.end += size;
    return true;
}

// Puts the line that tells of a gap where the gap is, if the line that follows it finds room too. Whether none
// is left untold.
bool tell_of_gap(size_t next_size)
{
    const uint64_t gap = g_waiting.lost - g_waiting.told_lost;
    if (gap == 0) {
        return true;
    }
    char line[128];
    const int size = std::snprintf(
        line, sizeof(line), "%s: warning: %" PRIu64 " lines are missing here: they were not read in time\n",
        log_name(), gap);
    const size_t used = g_waiting.end - g_waiting.begin;
    if (used + sizeof(line) + next_size > sizeof(g_waiting.bytes)) {
        return false;
    }
    keep(line, std::min(static_cast<size_t>(size), sizeof(line) - 1));
    g_waiting.told_lost = g_waiting.lost;
    return true;
}

// Writes line by line, which a pipe takes whole or not at all: the lines of several daemons never mix.
void write_waiting()
{
    Waiting &waiting = g_waiting;
    while (!waiting.empty()) {
        const char *start = waiting.bytes + waiting.begin;
        const auto *newline =
            static_cast<const char *>(std::memchr(start, '\n', waiting.end - waiting.begin));
        const size_t size =
            newline != nullptr ? static_cast<size_t>(newline - start) + 1 : waiting.end - waiting.begin;
        const ssize_t written = g_output.write_some(start, size);
        if (written > 0) {
            waiting.begin += static_cast<size_t>(written);
        } else if (errno == EAGAIN) {
            return;
        } else if (errno != EINTR) {
            waiting.begin += size; // the reader is gone
            ++waiting.lost;
            ++waiting.told_lost;
        }
    }
}

} // namespace

void log_output_prepare()
{
    g_output.prepare();
}

void log_output_line(const char *line, size_t size)
{
    const int saved_errno = errno;
    write_waiting();
    if (!tell_of_gap(size) || !keep(line, size)) {
        ++g_waiting.lost;
    }
    write_waiting();
    errno = saved_errno;
}

bool log_output_flush()
{
    write_waiting();
    if (g_waiting.empty() && g_waiting.lost != g_waiting.told_lost) {
        tell_of_gap(0);
        write_waiting();
    }
    return !g_waiting.empty();
}

uint64_t log_lines_lost()
{
    return g_waiting.lost;
}

} // namespace mcastd
