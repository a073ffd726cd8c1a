#include <cstring>
#include <gtest/gtest.h>
#include <random>

#include "mcast/event.h"
#include "support/scripted_random.h"

namespace
{

class BoundedRandom : public testing::Test
{
protected:
    void SetUp() override
    {
        scripted::random_bytes = [this](uint8_t *buffer, int length) {
            ++draws_;
            EXPECT_EQ(length, 4);
            std::memcpy(buffer, &drawn_, sizeof(drawn_));
            return 1;
        };
    }

    void TearDown() override
    {
        scripted::random_bytes = nullptr;
    }

    uint32_t Rand(uint32_t bound, uint32_t drawn)
    {
        drawn_ = drawn;
        return MCAST_Rand(bound);
    }

    uint32_t drawn_ = 0;
    int draws_ = 0;
};

TEST_F(BoundedRandom, OfBoundZeroIsZeroWithoutADraw)
{
    EXPECT_EQ(Rand(0, 0xffffffff), 0u);
    EXPECT_EQ(draws_, 0);
}

TEST_F(BoundedRandom, DrawsOnce)
{
    Rand(10, 5);
    EXPECT_EQ(draws_, 1);
}

TEST_F(BoundedRandom, IsTheDrawScaledByTruncatingDivisions)
{
    const struct {
        uint32_t bound;
        uint32_t drawn;
        uint32_t expected;
    } rows[] = {
        {1, 0, 0},
        {1, 0xfffffffe, 0},
        {1, 0xffffffff, 1},
        {10, 0xffffffff, 10},
        {10, 429496728, 0},
        {10, 429496729, 1},
        {10, 0x80000000, 5},
        {255, 0xffffffff, 255},
        {1000, 0xffffffff, 1000},
        {0x7fffffff, 0xffffffff, 0x7fffffff},
        {0x7fffffff, 7, 3},
        {0x60000000, 0xffffffff, 0x7fffffff},
        {0x80000000, 0x12345678, 0x12345678},
        {0x80000000, 0xffffffff, 0xffffffff},
        {0xffffffff, 0xffffffff, 0xffffffff},
        {0xffffffff, 1, 1},
    };

    for (const auto &row : rows) {
        EXPECT_EQ(Rand(row.bound, row.drawn), row.expected) << row.bound << " " << row.drawn;
    }
}

TEST_F(BoundedRandom, NeverExceedsASmallBound)
{
    std::mt19937 random(5);
    for (int i = 0; i < 20000; ++i) {
        EXPECT_LE(Rand(10, static_cast<uint32_t>(random())), 10u);
        EXPECT_LE(Rand(1, static_cast<uint32_t>(random())), 1u);
    }
}

TEST_F(BoundedRandom, IsZeroWhenTheDrawFails)
{
    scripted::random_bytes = [](uint8_t *, int) { return 0; };
    EXPECT_EQ(MCAST_Rand(0xffffffff), 0u);
}

} // namespace
