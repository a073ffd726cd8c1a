/*
 * The trace lines that a piece of a test prints.
 */
#ifndef TESTS_DAEMONS_TRACE_CAPTURE_H
#define TESTS_DAEMONS_TRACE_CAPTURE_H

#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "daemons/common/trace.h"

namespace daemon_test
{

// Traces one category, or "all", for as long as it lives.
class Tracing
{
public:
    explicit Tracing(const char *category)
    {
        std::string error;
        EXPECT_TRUE(mcastd::trace_switch(category, true, &error)) << error;
    }
    ~Tracing()
    {
        std::string error;
        mcastd::trace_switch("all", false, &error);
    }
    Tracing(const Tracing &) = delete;
    Tracing &operator=(const Tracing &) = delete;
};

// Runs the piece and gives the texts of its trace lines, without what stands in front of each.
template <typename Piece> std::vector<std::string> traced(const Piece &piece)
{
    constexpr std::string_view MARK = ": trace: ";
    testing::internal::CaptureStderr();
    piece();
    std::istringstream lines(testing::internal::GetCapturedStderr());
    std::vector<std::string> result;
    for (std::string line; std::getline(lines, line);) {
        const size_t at = line.find(MARK);
        if (at != std::string::npos) {
            result.push_back(line.substr(at + MARK.size()));
        }
    }
    return result;
}

} // namespace daemon_test

#endif
