#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "mcast/format.h"
#include "support/scripted_resource.h"

namespace
{

template <size_t size> struct Buffer {
    char text[size];
    char mark[8];

    Buffer()
    {
        std::memset(this, 0x5a, sizeof(*this));
    }
    ~Buffer()
    {
        for (char each : mark) {
            EXPECT_EQ(each, 0x5a) << "written past the end";
        }
    }
};

std::string Time(uint32_t seconds)
{
    Buffer<20> buffer;
    MCAST_ConvertTimeToString(seconds, buffer.text);
    return buffer.text;
}

TEST(TimeString, ShowsHoursUpToADayThenDaysThenWeeks)
{
    EXPECT_EQ(Time(0), "00:00:00");
    EXPECT_EQ(Time(59), "00:00:59");
    EXPECT_EQ(Time(3599), "00:59:59");
    EXPECT_EQ(Time(3600), "01:00:00");
    EXPECT_EQ(Time(86399), "23:59:59");
    EXPECT_EQ(Time(86400), "24:00:00");
    EXPECT_EQ(Time(86401), "1d:00h");
    EXPECT_EQ(Time(93600), "1d:02h");
    EXPECT_EQ(Time(604799), "6d:23h");
    EXPECT_EQ(Time(604800), "7d:00h");
    EXPECT_EQ(Time(604801), "1w:0d");
    EXPECT_EQ(Time(2 * 604800 + 3 * 86400), "2w:3d");
    EXPECT_EQ(Time(0xffffffff), "7101w:3d");
    MCAST_ConvertTimeToString(5, nullptr);
}

TEST(InstanceString, NamesFamilyAndInstance)
{
    Buffer<41> buffer;
    const std::string longest(31, 'v');
    MRIB_GMP_VRF_KEY_S ipv4 = {2, 0};
    MRIB_GMP_VRF_KEY_S ipv6 = {10, 0};
    EXPECT_EQ(MCAST_GetInstStr(&ipv4, nullptr, buffer.text), 0u);
    EXPECT_STREQ(buffer.text, "");
    EXPECT_EQ(MCAST_GetInstStr(&ipv6, nullptr, buffer.text), 6u);
    EXPECT_STREQ(buffer.text, "IPv6: ");
    ipv4.vrf_index = 7;
    ipv6.vrf_index = 0x100;
    EXPECT_EQ(MCAST_GetInstStr(&ipv4, "red", buffer.text), 7u);
    EXPECT_STREQ(buffer.text, "(red): ");
    EXPECT_EQ(MCAST_GetInstStr(&ipv6, "red", buffer.text), 12u);
    EXPECT_STREQ(buffer.text, "IPv6 (red): ");
    ipv4.family = 99;
    EXPECT_EQ(MCAST_GetInstStr(&ipv4, "red", buffer.text), 7u);
    EXPECT_EQ(MCAST_GetInstStr(&ipv6, longest.c_str(), buffer.text), 40u);
    EXPECT_EQ(buffer.text, "IPv6 (" + longest + "): ");
    EXPECT_EQ(MCAST_GetInstStr(&ipv6, (longest + "xyz").c_str(), buffer.text), 40u);
    EXPECT_EQ(buffer.text, "IPv6 (" + longest + "xyz");
}

class VrfName : public testing::Test
{
protected:
    uint32_t result = 0;
    std::string answer = "red";
    uint16_t asked = 0;

    void SetUp() override
    {
        scripted::vpn_name = [this](uint16_t vrf_index, uint32_t capacity, char *name) {
            EXPECT_EQ(capacity, 32u);
            asked = vrf_index;
            std::strcpy(name, answer.c_str());
            return result;
        };
    }

    void TearDown() override
    {
        scripted::ResetResource();
    }
};

TEST_F(VrfName, IsTheOneOfThePlatformInParentheses)
{
    Buffer<34> buffer;
    EXPECT_EQ(MCAST_GetVrfBracketStr(0xabcd0007, buffer.text), buffer.text);
    EXPECT_STREQ(buffer.text, "(red)");
    EXPECT_EQ(asked, 7u);
    answer = std::string(31, 'v');
    MCAST_GetVrfBracketStr(1, buffer.text);
    EXPECT_EQ(buffer.text, "(" + answer + ")");
}

TEST_F(VrfName, IsEmptyForThePublicInstance)
{
    Buffer<34> bracket;
    Buffer<32> name;
    asked = 99;
    EXPECT_EQ(MCAST_GetVrfBracketStr(0xffff0000, bracket.text), bracket.text);
    EXPECT_STREQ(bracket.text, "");
    result = 5;
    EXPECT_EQ(MCAST_GetVrfNameByVrfIndex(0xffff0000, name.text), 0u);
    EXPECT_STREQ(name.text, "");
    EXPECT_EQ(asked, 99u);
}

TEST_F(VrfName, StaysAsThePlatformLeftItWhenTheLookUpFails)
{
    Buffer<34> bracket;
    Buffer<32> name;
    result = 0x1234;
    answer = "par";
    EXPECT_EQ(MCAST_GetVrfNameByVrfIndex(7, name.text), 0x1234u);
    EXPECT_STREQ(name.text, "par");
    MCAST_GetVrfBracketStr(7, bracket.text);
    EXPECT_STREQ(bracket.text, "(par)");
    scripted::vpn_name = nullptr;
    EXPECT_NE(MCAST_GetVrfNameByVrfIndex(7, name.text), 0u);
    EXPECT_STREQ(name.text, "");
    MCAST_GetVrfBracketStr(7, bracket.text);
    EXPECT_STREQ(bracket.text, "()");
}

TEST_F(VrfName, ComesWithTheResultOfThePlatform)
{
    Buffer<32> name;
    EXPECT_EQ(MCAST_GetVrfNameByVrfIndex(0x10007, name.text), 0u);
    EXPECT_STREQ(name.text, "red");
    EXPECT_EQ(asked, 7u);
}

TEST(Assertion, IsCountedAndReportedAndTheProcessGoesOn)
{
    uint32_t before = g_uiMcastAssertCnt;
    testing::internal::CaptureStdout();
    EXPECT_EQ(MCAST_Assert_X("some/file.c", 42), 46);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "assertion failed, file: some/file.c, line: 42\n");
    EXPECT_EQ(g_uiMcastAssertCnt, before + 1);
}

} // namespace
