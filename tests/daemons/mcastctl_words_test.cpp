/*
 * What is answered to a command line that is wrong.
 */
#include <gtest/gtest.h>

#include "daemons/mcastctl/command.h"
#include "mcast/argument_check.h"

namespace
{

class McastctlWords : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(MC_CommonRcInit(), MCAST_OK);
    }
    void TearDown() override
    {
        MC_CommonRcExit();
    }

    // The first line on standard error for a command line that is refused.
    static std::string answer(std::vector<const char *> words)
    {
        words.insert(words.begin(), "mcastctl");
        testing::internal::CaptureStderr();
        EXPECT_EQ(mcastctl::run_command_line(static_cast<int>(words.size()), words.data()),
                  mcastctl::EXIT_USAGE);
        const std::string text = testing::internal::GetCapturedStderr();
        return text.substr(0, text.find('\n'));
    }
};

TEST_F(McastctlWords, AMisspeltOneIsAnsweredWithTheNearest)
{
    const std::pair<std::vector<const char *>, const char *> rows[] = {
        {{"shwo", "groups"}, "; did you mean show?"},
        {{"show", "grops"}, "; did you mean groups?"},
        {{"show", "msdp-caches"}, "; did you mean msdp-cache?"},
        {{"show", "groups", "--famliy", "ipv4"}, "; did you mean --family?"},
        {{"set", "query-intreval", "10"}, "; did you mean query-interval?"},
        {{"clear", "user"}, "; did you mean users?"},
        {{"debug", "on", "pakcet"}, "; did you mean packet?"},
        {{"debug", "on", "packet", "--daemon", "gmpt"}, "; did you mean gmpd?"},
        {{"watch", "bondaries"}, "; did you mean boundaries?"},
    };
    for (const auto &[words, end] : rows) {
        EXPECT_TRUE(answer(words).ends_with(end)) << answer(words);
    }
    EXPECT_EQ(answer({"show", "weather"}), "The following argument was not expected: weather");
}

TEST_F(McastctlWords, AMissingOneIsSaid)
{
    EXPECT_EQ(answer({}), "mcastctl: an argument is missing");
    EXPECT_EQ(answer({"show"}), "show: an argument is missing");
}

} // namespace
