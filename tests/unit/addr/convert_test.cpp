#include <arpa/inet.h>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>

#include "mcast/addr.h"
#include "support/addresses.h"

namespace
{

MCAST_ADDR_S Marked()
{
    MCAST_ADDR_S addr;
    std::memset(&addr, 0xa5, sizeof(addr));
    return addr;
}

bool Same(const MCAST_ADDR_S &first, const MCAST_ADDR_S &second)
{
    return std::memcmp(&first, &second, sizeof(first)) == 0;
}

TEST(StrToIp4, GivesTheAddressInHostOrder)
{
    uint32_t out = 0;
    EXPECT_EQ(MCAST_StrToIP4("224.0.1.2", &out), MCAST_OK);
    EXPECT_EQ(out, 0xe0000102u);
    EXPECT_EQ(MCAST_StrToIP4("0.0.0.0", &out), MCAST_OK);
    EXPECT_EQ(out, 0u);
    EXPECT_EQ(MCAST_StrToIP4("255.255.255.255", &out), MCAST_OK);
    EXPECT_EQ(out, 0xffffffffu);
}

TEST(StrToIp4, LeavesTheOutputAloneWhenTheTextIsNoAddress)
{
    for (const char *text : {"", " ", "1", "1.2.3", "1.2.3.4.5", "256.1.1.1", "1.2.3.4 ", " 1.2.3.4",
                             "0x1.2.3.4", "1.2.3.-4", "::1", "default", "1..2.3"}) {
        uint32_t out = 0x12345678;

        EXPECT_EQ(MCAST_StrToIP4(text, &out), MCAST_ERR_GENERAL) << text;
        EXPECT_EQ(out, 0x12345678u) << text;
    }
}

TEST(StrToIp4, FailsForNull)
{
    uint32_t out = 7;
    EXPECT_EQ(MCAST_StrToIP4(nullptr, &out), MCAST_ERR_GENERAL);
    EXPECT_EQ(MCAST_StrToIP4("1.2.3.4", nullptr), MCAST_ERR_GENERAL);
    EXPECT_EQ(out, 7u);
}

TEST(StrToInet6, FillsTheWholeRecord)
{
    for (const char *text : {"::", "::1", "ff0e::1:2", "2001:db8:1:2:3:4:5:6", "::ffff:10.1.2.3"}) {
        MCAST_ADDR_S out = Marked();

        EXPECT_EQ(MCAST_StrToInet6Addr(text, &out), 1) << text;
        EXPECT_TRUE(Same(out, Addr(text))) << text;
    }
}

TEST(StrToInet6, ReportsDefaultAsUnparsedAndStillSetsTheWildcard)
{
    MCAST_ADDR_S out = Marked();
    EXPECT_EQ(MCAST_StrToInet6Addr("default", &out), 0);
    EXPECT_TRUE(Same(out, g_stMcastDefSrcAddr6));
}

TEST(StrToInet6, LeavesTheRecordAloneForAnyOtherText)
{
    for (const char *text :
         {"", "Default", "defaul", "default ", " default", "defaultx", ":", ":::", "1::2::3", "1.2.3.4",
          "2001:db8::g", "fe80::1%eth0", "1:2:3:4:5:6:7:8:9", "12345::"}) {
        MCAST_ADDR_S out = Marked();

        EXPECT_EQ(MCAST_StrToInet6Addr(text, &out), 0) << text;
        EXPECT_TRUE(Same(out, Marked())) << text;
    }
}

TEST(StrToInet6, StopsAtNull)
{
    MCAST_ADDR_S out = Marked();
    EXPECT_EQ(MCAST_StrToInet6Addr(nullptr, &out), 0);
    EXPECT_TRUE(Same(out, Marked()));
    EXPECT_EQ(MCAST_StrToInet6Addr("::1", nullptr), 0);
    EXPECT_EQ(MCAST_StrToInet6Addr("default", nullptr), 0);
}

TEST(Converters, ReadBackWhatTheSystemWrites)
{
    std::mt19937 random(3);
    char text[INET6_ADDRSTRLEN];

    for (int i = 0; i < 5000; ++i) {
        MCAST_ADDR_S six = {MCAST_FAMILY_IPV6, 0, {}};
        MCAST_ADDR_S parsed = Marked();
        uint32_t four = static_cast<uint32_t>(random());
        uint32_t network = htonl(four);
        uint32_t out = 0;

        for (uint8_t &byte : six.address) {
            byte = random() % 3 == 0 ? 0 : static_cast<uint8_t>(random());
        }
        inet_ntop(AF_INET6, six.address, text, sizeof(text));
        EXPECT_EQ(MCAST_StrToInet6Addr(text, &parsed), 1) << text;
        EXPECT_TRUE(Same(parsed, six)) << text;
        inet_ntop(AF_INET, &network, text, sizeof(text));
        EXPECT_EQ(MCAST_StrToIP4(text, &out), MCAST_OK) << text;
        EXPECT_EQ(out, four) << text;
    }
}

TEST(Converters, AgreeWithTheSystemOnDamagedText)
{
    std::mt19937 random(4);
    const char alphabet[] = "0123456789abcdefg:.:. %x-";

    for (int i = 0; i < 20000; ++i) {
        std::string text = i % 2 != 0 ? "2001:db8::1" : "224.1.2.3";
        uint8_t bytes[16];
        MCAST_ADDR_S six = Marked();
        uint32_t four = 0x12345678;

        for (size_t edits = random() % 3 + 1; edits > 0; --edits) {
            text[random() % text.size()] = alphabet[random() % (sizeof(alphabet) - 1)];
        }
        int system6 = inet_pton(AF_INET6, text.c_str(), bytes);

        EXPECT_EQ(MCAST_StrToInet6Addr(text.c_str(), &six), system6) << text;
        EXPECT_EQ(system6 == 1, six.family == MCAST_FAMILY_IPV6) << text;
        int system4 = inet_pton(AF_INET, text.c_str(), bytes);

        EXPECT_EQ(MCAST_StrToIP4(text.c_str(), &four), system4 == 1 ? MCAST_OK : MCAST_ERR_GENERAL) << text;
        EXPECT_TRUE(system4 == 1 || four == 0x12345678) << text;
    }
}

} // namespace
