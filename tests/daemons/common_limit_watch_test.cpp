#include <gtest/gtest.h>
#include <string>

#include "daemons/common/limit_watch.h"

namespace
{

TEST(LimitWatch, WarnsOnceEachTimeThatTheLimitIsNear)
{
    mcastd::LimitWatch<90, 80> watch;
    std::string warned;
    for (const unsigned used : {0u, 89u, 90u, 91u, 100u, 80u, 90u, 79u, 89u, 90u, 100u}) {
        warned += watch.take(used, 100) ? '!' : '.';
    }
    EXPECT_EQ(warned, "..!......!.");
    watch.reset();
    EXPECT_TRUE(watch.take(95, 100));
}

TEST(LimitWatch, CountsBeyondThirtyTwoBits)
{
    mcastd::LimitWatch<95, 90> watch;
    EXPECT_FALSE(watch.take(uint64_t{4000000000} * 94 / 100, 4000000000));
    EXPECT_TRUE(watch.take(uint64_t{4000000000} * 95 / 100, 4000000000));
}

} // namespace
