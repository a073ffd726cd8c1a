#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

#include "daemons/common/log.h"
#include "daemons/common/log_limit.h"
#include "daemons/common/log_output.h"
#include "daemons/common/nonblocking_output.h"
#include "tests/daemons/descriptor_shortage.h"

using namespace mcastd;

// The log's clock is ahead by so many seconds. This definition comes before libc's; nothing else reads the coarse clock.
static time_t g_ahead_s = 0;

extern "C" int clock_gettime(clockid_t clock, timespec *now) noexcept
{
    const long result = syscall(SYS_clock_gettime, clock, now);
    now->tv_sec += clock == CLOCK_MONOTONIC_COARSE ? g_ahead_s : 0;
    return static_cast<int>(result);
}

// How long somebody was ready to wait for room.
static int g_longest_wait_ms = 0;

extern "C" int poll(pollfd *descriptors, nfds_t count, int timeout_ms)
{
    g_longest_wait_ms = std::max(g_longest_wait_ms, timeout_ms);
    return static_cast<int>(syscall(SYS_poll, descriptors, count, timeout_ms));
}

namespace
{

const char FIRST[] = "first %u";
const char SECOND[] = "second %u";

unsigned said_of(LogLimits &limits, const char *format, LogLevel level, uint32_t now_s, unsigned lines)
{
    unsigned said = 0;
    for (unsigned i = 0; i < lines; ++i) {
        said += limits.hold(format, level, now_s) == nullptr ? 1 : 0;
    }
    return said;
}

TEST(LogLimits, EachMessageHasItsOwnAllowance)
{
    LogLimits limits;
    EXPECT_EQ(said_of(limits, FIRST, LogLevel::Warning, 100, 1000), LOG_WARNINGS_PER_PERIOD);
    EXPECT_EQ(said_of(limits, SECOND, LogLevel::Info, 100, 1000), LOG_INFOS_PER_PERIOD);
    EXPECT_EQ(limits.held(), 2000 - LOG_WARNINGS_PER_PERIOD - LOG_INFOS_PER_PERIOD);
}

TEST(LogLimits, WhatWasHeldIsToldOnceItsMinuteIsOver)
{
    LogLimits limits;
    uint64_t held = 0;
    said_of(limits, FIRST, LogLevel::Warning, 100, LOG_WARNINGS_PER_PERIOD);
    LogLimits::Site *const site = limits.hold(FIRST, LogLevel::Warning, 101);
    ASSERT_NE(site, nullptr);
    std::strcpy(site->first_held, "first 20");
    EXPECT_EQ(limits.hold(FIRST, LogLevel::Warning, 102), site);
    EXPECT_EQ(limits.next_to_tell(100 + LOG_PERIOD_S - 1, false, &held), nullptr);
    ASSERT_EQ(limits.next_to_tell(100 + LOG_PERIOD_S, false, &held), site);
    EXPECT_EQ(held, 2u);
    EXPECT_STREQ(site->first_held, "first 20");
    EXPECT_FALSE(limits.holds_any());
    EXPECT_EQ(limits.next_to_tell(100 + LOG_PERIOD_S, false, &held), nullptr);
    EXPECT_EQ(said_of(limits, FIRST, LogLevel::Warning, 100 + LOG_PERIOD_S, 1000), LOG_WARNINGS_PER_PERIOD);
}

TEST(LogLimits, AtTheEndEverythingIsTold)
{
    LogLimits limits;
    uint64_t held = 0;
    said_of(limits, FIRST, LogLevel::Warning, 100, 1000);
    EXPECT_NE(limits.next_to_tell(100, true, &held), nullptr);
    EXPECT_EQ(held, 1000 - LOG_WARNINGS_PER_PERIOD);
}

TEST(LogLimits, MoreMessagesThanPlacesShareOneAllowance)
{
    LogLimits limits;
    const std::vector<char> texts(LOG_SITES + LOG_WARNINGS_PER_PERIOD + 5);
    unsigned said = 0;
    for (const char &text : texts) {
        said += said_of(limits, &text, LogLevel::Warning, 100, 1);
    }
    EXPECT_EQ(said, LOG_SITES + LOG_WARNINGS_PER_PERIOD);
}

TEST(Log, LinesThatWereHeldBackAreToldWhenTheirMinuteIsOver)
{
    log_open("test", LogLevel::Info);
    testing::internal::CaptureStderr();
    for (unsigned i = 0; i < LOG_WARNINGS_PER_PERIOD + 5; ++i) {
        log_warning("often %u", i);
    }
    EXPECT_EQ(log_tend(), 1000) << "it is to be called again";
    g_ahead_s += LOG_PERIOD_S;
    EXPECT_EQ(log_tend(), -1) << "nothing is left";
    EXPECT_NE(testing::internal::GetCapturedStderr().find("5 more in 60 s like: often 20\n"),
              std::string::npos);
}

// Standard error is a pipe or a socket of the test for as long as it lives.
class Reader
{
public:
    explicit Reader(bool socket) : standard_error_(dup(STDERR_FILENO))
    {
        int ends[2];
        const int made = socket ? socketpair(AF_UNIX, SOCK_STREAM, 0, ends) : pipe(ends);
        EXPECT_EQ(made, 0);
        reading_ = ends[0];
        dup2(ends[1], STDERR_FILENO);
        close(ends[1]);
        fcntl(reading_, F_SETFL, O_NONBLOCK);
    }
    ~Reader()
    {
        dup2(standard_error_, STDERR_FILENO);
        close(standard_error_);
        close(reading_);
        log_output_flush();
    }
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    std::string take()
    {
        std::string text;
        char bytes[4096];
        ssize_t size;
        while ((size = read(reading_, bytes, sizeof(bytes))) > 0) {
            text.append(bytes, static_cast<size_t>(size));
        }
        return text;
    }

private:
    int standard_error_;
    int reading_ = -1;
};

std::string line_of(unsigned number)
{
    return "line " + std::to_string(number) + " " + std::string(100, '.') + "\n";
}

class LogReader : public testing::TestWithParam<bool>
{
};

TEST_P(LogReader, ThatStallsStopsNobodyAndIsToldOfTheGap)
{
    constexpr unsigned LINES = 100000;
    const uint64_t lost_before = log_lines_lost();
    Reader reader(GetParam());
    for (unsigned i = 0; i < LINES; ++i) {
        const std::string line = line_of(i);
        log_output_line(line.data(), line.size());
    }
    const uint64_t lost = log_lines_lost() - lost_before;
    EXPECT_GT(lost, LINES / 2);
    std::string text = reader.take();
    while (log_output_flush()) {
        text += reader.take();
    }
    text += reader.take();
    std::istringstream lines(text);
    unsigned read = 0;
    for (std::string line; std::getline(lines, line) && line + "\n" == line_of(read);) {
        ++read;
    }
    EXPECT_EQ(read + lost, LINES);
    EXPECT_NE(text.find(": warning: " + std::to_string(lost) + " lines are missing here"), text.npos);
}

INSTANTIATE_TEST_SUITE_P(Kinds, LogReader, testing::Bool());

TEST(LogOutput, TextWithoutAnEndOfLineIsWrittenAsItIs)
{
    Reader reader(false);
    const std::string line = line_of(0);
    while (!log_output_flush()) {
        log_output_line(line.data(), line.size());
    }
    log_output_line("no end", 6);
    std::string text;
    do {
        text += reader.take();
    } while (log_output_flush());
    text += reader.take();
    EXPECT_TRUE(text.ends_with(line + "no end"));
}

TEST(LogOutput, ReaderThatIsGoneStopsNobody)
{
    signal(SIGPIPE, SIG_IGN);
    const uint64_t lost_before = log_lines_lost();
    const int standard_error = dup(STDERR_FILENO);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    dup2(ends[1], STDERR_FILENO);
    close(ends[1]);
    close(ends[0]);
    const std::string line = line_of(0);
    log_output_line(line.data(), line.size());
    EXPECT_FALSE(log_output_flush());
    EXPECT_EQ(log_lines_lost(), lost_before + 1);
    dup2(standard_error, STDERR_FILENO);
    close(standard_error);
}

TEST(NonblockingOutput, LeavesTheSharedDescriptorAsItIs)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    NonblockingOutput output(ends[1]);
    const std::vector<char> bytes(4096);
    while (output.write_some(bytes.data(), bytes.size()) > 0) {
    }
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(fcntl(ends[1], F_GETFL) & O_NONBLOCK, 0);
    close(ends[0]);
    close(ends[1]);
}

TEST(NonblockingOutput, OfAPipeIsItsOwn)
{
    int ends[2];
    char byte;
    ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
    {
        NonblockingOutput output(ends[1]);
        output.prepare();
        EXPECT_NE(output.descriptor(), ends[1]);
        close(ends[1]);
        EXPECT_LT(read(ends[0], &byte, 1), 0) << "not the end: it has the pipe open";
    }
    EXPECT_EQ(read(ends[0], &byte, 1), 0);
    close(ends[0]);
}

TEST(NonblockingOutput, WithoutADescriptorOfItsOwnAsksForRoom)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    NonblockingOutput output(ends[1]);
    {
        const Shortage shortage;
        output.prepare();
    }
    EXPECT_EQ(output.descriptor(), ends[1]);
    const std::vector<char> bytes(4096);
    g_longest_wait_ms = 0;
    do {
        errno = 0;
    } while (output.write_some(bytes.data(), bytes.size()) > 0);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(g_longest_wait_ms, 0);
    close(ends[0]);
    close(ends[1]);
}

TEST(Log, HoldsBackWhatIsSaidTooOften)
{
    log_open("daemon", LogLevel::Info); // whatever level another test has left
    testing::internal::CaptureStderr();
    for (unsigned i = 0; i < 1000; ++i) {
        log_warning("too often, time %u", i);
    }
    log_close();
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_NE(text.find(": warning: 980 more in 60 s like: too often, time 20\n"), text.npos) << text;
    EXPECT_EQ(text.find("time 21"), text.npos);
    EXPECT_GE(log_lines_held_back(), 980u);
}

} // namespace
