// Which formats and arguments of a log line fit each other; the compiler refuses all others.
#include <gtest/gtest.h>
#include <string>

#include "daemons/common/line_format.h"

using mcastd::line_format_fits;
using mcastd::LineArgument;

namespace
{

TEST(LineFormat, TakesNoMoreThanTheLibraryFormats)
{
    EXPECT_TRUE(line_format_fits(std::string(MCAST_FORMAT_MAX, 'a'), nullptr, 0));
    EXPECT_FALSE(line_format_fits(std::string(MCAST_FORMAT_MAX + 1, 'a'), nullptr, 0));
}

TEST(LineFormat, ConversionsTakeTheirArgumentsInOrder)
{
    const LineArgument both[] = {LineArgument::Text, LineArgument::Address};
    EXPECT_TRUE(line_format_fits("%%", nullptr, 0));
    EXPECT_FALSE(line_format_fits("%", nullptr, 0));
    EXPECT_FALSE(line_format_fits("%s", nullptr, 0));
    EXPECT_FALSE(line_format_fits("text", both, 1));
    EXPECT_TRUE(line_format_fits("100 %% of %-5s", both, 1));
    EXPECT_FALSE(line_format_fits("%s %s", both, 2));
}

} // namespace
