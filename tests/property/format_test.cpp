/*
 * Formatted lines against the C library: every format that both understand, and the text of addresses.
 */
#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "addr/address_text.h"
#include "support/formatted.h"
#include "support/property.h"

namespace
{

std::string RandomConversion(property::Random &random, const char *letters)
{
    std::string conversion = "%";
    for (uint32_t flags = random.Below(3); flags > 0; --flags) {
        conversion += "-+ #0'"[random.Below(6)];
    }
    if (random.OneIn(2)) {
        conversion += std::to_string(1 + random.Below(random.OneIn(10) ? 2000 : 30));
    }
    if (random.OneIn(3)) {
        conversion += ".";
        if (!random.OneIn(5)) {
            conversion += std::to_string(random.Below(random.OneIn(10) ? 1000 : 25));
        }
    }
    return conversion + letters[random.Below(static_cast<uint32_t>(std::strlen(letters)))];
}

uint32_t RandomValue(property::Random &random)
{
    switch (random.Below(4)) {
    case 0:
        return random.Below(200);
    case 1:
        return 0u - random.Below(200);
    case 2:
        return 1u << random.Below(32);
    default:
        return random.Below(0xffffffff);
    }
}

template <typename Value, typename Wide>
void Compare(const std::string &format, size_t size, Value value, Wide wide, const char *theirs)
{
    std::string expected(size + 1, '\0');
    int length = snprintf(expected.data(), size, theirs, wide);
    Formatted line = FormatInto({}, size, format.c_str(), value);
    size_t stored = size == 0 ? 0 : std::min(size - 1, static_cast<size_t>(length));
    ASSERT_GE(length, 0);
    ASSERT_EQ(line.result, stored) << format << " in " << size;
    ASSERT_EQ(line.text, std::string(expected.c_str())) << format << " in " << size;
}

size_t RandomSize(property::Random &random)
{
    return random.OneIn(3) ? random.Below(40) : 4096;
}

TEST(FormatProperty, IntegersAreAsTheCLibraryPrintsThem)
{
    property::Random random(property::Seed("FormatProperty"));

    for (uint64_t i = property::Operations(200000); i > 0; --i) {
        std::string format = "a" + RandomConversion(random, "diouxXc") + " tail";
        uint32_t value = RandomValue(random);

        if (format.find('c') != std::string::npos) {
            value = 1 + value % 255;
        }
        ASSERT_NO_FATAL_FAILURE(Compare(format, RandomSize(random), value, value, format.c_str()));
    }
}

TEST(FormatProperty, LongIntegersAreAsTheCLibraryPrintsThemWidened)
{
    property::Random random(property::Seed("FormatProperty"));

    for (uint64_t i = property::Operations(100000); i > 0; --i) {
        std::string format = RandomConversion(random, "diouxX");
        int32_t value = static_cast<int32_t>(RandomValue(random));

        format.insert(format.size() - 1, random.OneIn(3) ? "ll" : "l");
        ASSERT_NO_FATAL_FAILURE(
            Compare(format, RandomSize(random), value, static_cast<long>(value), format.c_str()));
    }
}

TEST(FormatProperty, DoublesAreAsTheCLibraryPrintsThem)
{
    property::Random random(property::Seed("FormatProperty"));

    for (uint64_t i = property::Operations(30000); i > 0; --i) {
        std::string format = RandomConversion(random, "efgEG") + "|";
        uint64_t bits = static_cast<uint64_t>(random.Below(0xffffffff)) << 32 | random.Below(0xffffffff);
        double value = 0;

        std::memcpy(&value, &bits, sizeof(value));
        if (random.OneIn(2)) {
            value = static_cast<int32_t>(RandomValue(random)) / 64.0;
        }
        ASSERT_NO_FATAL_FAILURE(Compare(format, RandomSize(random), value, value, format.c_str()));
    }
}

TEST(FormatProperty, StringsAndPointersAreAsTheCLibraryPrintsThem)
{
    property::Random random(property::Seed("FormatProperty"));

    for (uint64_t i = property::Operations(100000); i > 0; --i) {
        std::string format = "<" + RandomConversion(random, "sp") + ">";
        std::string text(random.Below(30), 'x');
        const char *value = random.OneIn(20) ? nullptr : text.c_str();

        ASSERT_NO_FATAL_FAILURE(Compare(format, RandomSize(random), value, value, format.c_str()));
    }
}

TEST(FormatProperty, AddressesAndInterfacesArePrintedAsStrings)
{
    property::Random random(property::Seed("FormatProperty"));

    for (uint64_t i = property::Operations(50000); i > 0; --i) {
        std::string format = RandomConversion(random, "AMNIP");
        std::string theirs = format.substr(0, format.size() - 1) + "s";
        MCAST_ADDR_S addr = {MCAST_FAMILY_IPV4, 0, {}};
        char text[INET6_ADDRSTRLEN];

        if (std::strchr("IP", format.back()) != nullptr) {
            uint32_t index = 0xC0000000 | random.Below(0x3fffffff);
            std::string name = FormatInto({}, 100, "%I", index).text;

            ASSERT_NO_FATAL_FAILURE(Compare(format, RandomSize(random), index, name.c_str(), theirs.c_str()));
            continue;
        }
        for (uint8_t &byte : addr.address) {
            byte = random.OneIn(2) ? 0 : static_cast<uint8_t>(random.Below(256));
        }
        addr.family = random.OneIn(2) ? MCAST_FAMILY_IPV4 : MCAST_FAMILY_IPV6;
        inet_ntop(addr.family, addr.address, text, sizeof(text));
        ASSERT_NO_FATAL_FAILURE(Compare(format, RandomSize(random), static_cast<const MCAST_ADDR_S *>(&addr),
                                        text, theirs.c_str()));
    }
}

/* Segments side by side do not disturb each other. */
TEST(FormatProperty, LinesOfManyConversionsAreTheirParts)
{
    property::Random random(property::Seed("FormatProperty"));

    for (uint64_t i = property::Operations(50000); i > 0; --i) {
        std::string first = RandomConversion(random, "dux") + " and ";
        std::string second = RandomConversion(random, "s");
        std::string third = "%% " + RandomConversion(random, "dxo") + "%%";
        std::string format = first + second + third;
        uint32_t a = RandomValue(random);
        uint32_t b = RandomValue(random);
        char expected[4096 * 2];
        size_t size = random.OneIn(2) ? 1 + random.Below(100) : sizeof(expected);

        snprintf(expected, size, format.c_str(), a, "some text", b);
        ASSERT_EQ(FormatInto({}, size, format.c_str(), a, "some text", b).text, expected) << format;
    }
}

TEST(AddressTextProperty, IsWhatTheCLibraryWrites)
{
    property::Random random(property::Seed("AddressTextProperty"));

    for (uint64_t i = property::Operations(500000); i > 0; --i) {
        MCAST_ADDR_S addr = {
            random.OneIn(4) ? uint16_t{MCAST_FAMILY_IPV4} : uint16_t{MCAST_FAMILY_IPV6}, 0, {}};
        char expected[INET6_ADDRSTRLEN];
        char text[mcast::kAddressTextSize];

        for (size_t word = 0; word < 16; word += 2) {
            uint32_t value = random.OneIn(2) ? 0 : random.Below(0x10000) >> random.Below(16);

            if (word == 10 && random.OneIn(4)) {
                value = 0xffff;
            }
            addr.address[word] = static_cast<uint8_t>(value >> 8);
            addr.address[word + 1] = static_cast<uint8_t>(value);
        }
        std::memset(text, 0x5a, sizeof(text));
        inet_ntop(addr.family, addr.address, expected, sizeof(expected));

        size_t length = mcast::WriteAddress(text, &addr);

        ASSERT_STREQ(text, expected);
        ASSERT_EQ(length, std::strlen(expected));
    }
}

/* Every pattern of zero and non-zero words. */
TEST(AddressTextProperty, LeavesOutTheZerosThatTheCLibraryLeavesOut)
{
    for (uint32_t pattern = 0; pattern < 6561; ++pattern) {
        MCAST_ADDR_S addr = {MCAST_FAMILY_IPV6, 0, {}};
        char expected[INET6_ADDRSTRLEN];
        char text[mcast::kAddressTextSize];
        uint32_t rest = pattern;

        for (size_t word = 0; word < 16; word += 2, rest /= 3) {
            addr.address[word] = rest % 3 == 2 ? 0xff : 0;
            addr.address[word + 1] = rest % 3 == 2 ? 0xff : static_cast<uint8_t>(rest % 3);
        }
        inet_ntop(AF_INET6, addr.address, expected, sizeof(expected));
        mcast::WriteAddress(text, &addr);
        ASSERT_STREQ(text, expected);
    }
}

} // namespace
