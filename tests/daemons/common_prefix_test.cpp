#include <gtest/gtest.h>

#include "daemons/common/address.h"
#include "daemons/common/prefix.h"

using mcastd::parse_address;
using mcastd::Prefix;

namespace
{

std::string text_of(const std::string &prefix)
{
    const auto parsed = Prefix::parse(prefix);
    return parsed ? parsed->text() : "none";
}

TEST(Prefix, TextIsReadWholeOrNotAtAll)
{
    EXPECT_EQ(text_of("239.255.255.255/12"), "239.240.0.0/12");
    EXPECT_EQ(text_of("ff15:8000::1/17"), "ff15:8000::/17");
    EXPECT_EQ(text_of("0.0.0.0/0"), "0.0.0.0/0");
    for (const char *wrong :
         {"", "/", "239.1.1.1", "239.1.1.1/", "239.1.1.1/-1", "239.1.1.1/33", "ff00::/129", "239.1.1.1/8x",
          "239.1.1/8", " 239.0.0.0/8", "239.0.0.0/256", "/8"}) {
        EXPECT_EQ(text_of(wrong), "none") << wrong;
    }
    EXPECT_EQ(text_of(std::string("239.0.0.0\0/8", 12)), "none");
}

TEST(Prefix, CoversWhatLiesWithinIt)
{
    const auto covers = [](const char *one, const char *other) {
        return Prefix::parse(one)->covers(*Prefix::parse(other));
    };
    EXPECT_TRUE(covers("239.0.0.0/8", "239.255.0.0/16"));
    EXPECT_TRUE(covers("239.0.0.0/8", "239.0.0.0/8"));
    EXPECT_FALSE(covers("239.255.0.0/16", "239.0.0.0/8"));
    EXPECT_FALSE(covers("239.128.0.0/9", "239.0.0.0/9"));
    EXPECT_TRUE(covers("ff15:8000::/17", "ff15:8001::/32"));
    EXPECT_FALSE(covers("224.0.0.0/4", "e000::/16"));
}

TEST(Prefix, CoversTheAddressesInIt)
{
    const auto covers = [](const char *prefix, const char *address) {
        return Prefix::parse(prefix)->covers(*parse_address(address));
    };
    EXPECT_TRUE(covers("10.1.128.0/17", "10.1.255.255"));
    EXPECT_FALSE(covers("10.1.128.0/17", "10.1.127.255"));
    EXPECT_TRUE(covers("10.1.1.1/32", "10.1.1.1"));
    EXPECT_FALSE(covers("10.1.1.1/32", "10.1.1.0"));
    EXPECT_TRUE(covers("0.0.0.0/0", "255.255.255.255"));
    EXPECT_TRUE(covers("2001:db8::/128", "2001:db8::"));
    EXPECT_FALSE(covers("2001:db8::/128", "2001:db8::1"));
    EXPECT_FALSE(covers("::/0", "0.0.0.0"));
    EXPECT_FALSE(covers("0.0.0.0/0", "::"));
}

TEST(Prefix, OfAnAddressLosesTheBitsBeyondTheLength)
{
    const auto text = [](const char *address, uint8_t length) {
        return Prefix::of(*parse_address(address), length).text();
    };
    EXPECT_EQ(text("10.1.255.255", 17), "10.1.128.0/17");
    EXPECT_EQ(text("10.1.1.1", 32), "10.1.1.1/32");
    EXPECT_EQ(text("10.1.1.1", 0), "0.0.0.0/0");
    EXPECT_EQ(text("2001:db8::ffff", 127), "2001:db8::fffe/127");
}

TEST(Prefix, AreOrderedByAddressAndThenByLength)
{
    EXPECT_LT(*Prefix::parse("10.0.0.0/8"), *Prefix::parse("10.0.0.0/9"));
    EXPECT_FALSE(*Prefix::parse("10.0.0.0/9") < *Prefix::parse("10.0.0.0/8"));
    EXPECT_LT(*Prefix::parse("10.0.0.0/9"), *Prefix::parse("11.0.0.0/8"));
    EXPECT_FALSE(*Prefix::parse("10.0.0.0/8") < *Prefix::parse("10.0.0.0/8"));
}

} // namespace
