#include "mcast/format.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "mcast/acl_filter.h"
#include "platform/acl.h"
#include "support/addresses.h"
#include "support/formatted.h"
#include "support/scripted_acl.h"
#include "support/scripted_interface.h"

namespace
{

const MCAST_ADDR_S kAddr4 = Addr("10.1.20.200");
const MCAST_ADDR_S kGroup4 = Addr("239.4.5.6");
const MCAST_ADDR_S kAddr6 = Addr("2001:db8::1");

class FormatLine : public testing::Test
{
protected:
    void SetUp() override
    {
        scripted::if_data = [](uint32_t if_index, uint32_t item, void *data) -> uint32_t {
            EXPECT_EQ(item, 10u);
            if (if_index >= 100) {
                return 1;
            }
            std::strcpy(static_cast<char *>(data), ("eth" + std::to_string(if_index)).c_str());
            return 0;
        };
    }

    void TearDown() override
    {
        scripted::ResetInterface();
        scripted::ResetAcl();
    }
};

TEST_F(FormatLine, WithoutAPercentIsPrintedUnchanged)
{
    Formatted line = FormatInto({}, 100, "plain text");
    EXPECT_EQ(line.text, "plain text");
    EXPECT_EQ(line.result, 10u);
    EXPECT_EQ(Format(""), "");
    EXPECT_EQ(FormatInto({}, 100, "").result, 0u);
}

TEST_F(FormatLine, DoubledPercentGivesOne)
{
    EXPECT_EQ(Format("100%% done"), "100% done");
    EXPECT_EQ(Format("%%"), "%");
    EXPECT_EQ(Format("%%%%"), "%%");
    EXPECT_EQ(Format("%%d"), "%d");
    EXPECT_EQ(Format("%%%d|", 5), "%5|");
    EXPECT_EQ(Format("%d%%", 5), "5%");
    EXPECT_EQ(Format("a%%b%dc%%%%d", 7), "a%b7c%%d");
}

TEST_F(FormatLine, IntegersTakeThirtyTwoBits)
{
    EXPECT_EQ(Format("[%d] [%i]", -1, INT_MIN), "[-1] [-2147483648]");
    EXPECT_EQ(Format("[%u] [%o]", UINT_MAX, 8u), "[4294967295] [10]");
    EXPECT_EQ(Format("[%x] [%X]", 0xabcdefu, -1), "[abcdef] [FFFFFFFF]");
    EXPECT_EQ(Format("[%c%c]", 'a', 'b'), "[ab]");
    EXPECT_EQ(Format("[%5d] [%-5d] [%05d] [%+d] [% d] [%.3d] [%#x]", 7, 7, -7, 7, 7, 7, 255),
              "[    7] [7    ] [-0007] [+7] [ 7] [007] [0xff]");
}

TEST_F(FormatLine, LongConversionsWidenThirtyTwoBitsWithTheirSign)
{
    EXPECT_EQ(Format("[%ld] [%lld] [%li]", -5, INT_MIN, INT_MAX), "[-5] [-2147483648] [2147483647]");
    EXPECT_EQ(Format("[%lu] [%lx] [%lX]", -1, -1, 0x7fffffff),
              "[18446744073709551615] [ffffffffffffffff] [7FFFFFFF]");
    EXPECT_EQ(Format("[%lo] [%llu]", 8, 9), "[10] [9]");
    EXPECT_EQ(Format("[%08ld] [%-6lu] [%+ld]", -42, 42, 42), "[-0000042] [42    ] [+42]");
}

TEST_F(FormatLine, StringsPointersAndDoubles)
{
    EXPECT_EQ(Format("[%s] [%5s] [%-5s] [%.2s] [%05s]", "ab", "ab", "ab", "abc", "ab"),
              "[ab] [   ab] [ab   ] [ab] [   ab]");
    EXPECT_EQ(Format("[%s]", static_cast<const char *>(nullptr)), "[(null)]");
    EXPECT_EQ(Format("[%p]", reinterpret_cast<void *>(0x1234)), "[0x1234]");
    EXPECT_EQ(Format("[%f] [%.2f] [%8.3e] [%g] [%E] [%G]", 1.5, 2.0, 1234.5, 0.25, 1.0, 1e-10),
              "[1.500000] [2.00] [1.234e+03] [0.25] [1.000000E+00] [1E-10]");
}

TEST_F(FormatLine, AddressesArePrintedAsTextOfTheirFamily)
{
    MCAST_ADDR_S other = kAddr4;
    other.family = 7;
    EXPECT_EQ(Format("%A", &kAddr4), "10.1.20.200");
    EXPECT_EQ(Format("%-15A|", &kAddr4), "10.1.20.200    |");
    EXPECT_EQ(Format("%15A|", &kAddr4), "    10.1.20.200|");
    EXPECT_EQ(Format("%.4A|", &kAddr4), "10.1|");
    EXPECT_EQ(Format("(%M, %N)", &kAddr6, &kGroup4), "(2001:db8::1, 239.4.5.6)");
    EXPECT_EQ(Format("%A", &other), "unknown address");
}

TEST_F(FormatLine, MissingAddressRepeatsTheOnePrintedLast)
{
    const MCAST_ADDR_S *none = nullptr;
    MCAST_ADDR_S other = kAddr4;
    other.family = 0;
    EXPECT_EQ(Format("[%A] [%M]", none, none), "[] []");
    EXPECT_EQ(Format("[%A] [%N] [%3A]", &kAddr4, none, none), "[10.1.20.200] [10.1.20.200] [10.1.20.200]");
    EXPECT_EQ(Format("[%M] [%A]", &other, none), "[unknown address] [unknown address]");
}

TEST_F(FormatLine, InterfacesArePrintedByNameOrIndex)
{
    EXPECT_EQ(Format("[%I] [%P]", 5, 7), "[eth5] [eth7]");
    EXPECT_EQ(Format("[%-8I] [%8P]", 5, 7), "[eth5    ] [    eth7]");
    EXPECT_EQ(Format("[%I] [%P]", 0, 0xabc), "[0x0] [0xabc]");
    EXPECT_EQ(Format("[%I]", 0xD0000007u), "[Multicast-UA7]");
}

TEST_F(FormatLine, OtherLettersTakeNoArgumentAndDropTheirSegment)
{
    EXPECT_EQ(Format("a%hd b%d", 5), "a5");
    EXPECT_EQ(Format("a%zu b%x c", 255), "aff c");
    EXPECT_EQ(Format("a%n b%S c%a d%F e%m f%j g%t h%L i%q j%y", 1), "a");
    EXPECT_EQ(Format("a%5 b%d", 5), "a5");
    EXPECT_EQ(Format("a%", 5), "a");
    EXPECT_EQ(Format("a% ", 5), "a");
    EXPECT_EQ(Format("a%12.5%d", 5), "a5");
    EXPECT_EQ(Format("50% !%d", 5), "505");
}

TEST_F(FormatLine, MalformedConversionTakesItsArgumentAndIsPrintedAsWritten)
{
    EXPECT_EQ(Format("[%*d] [%d]", 5, 6), "[%*d] [6]");
    EXPECT_EQ(Format("[%.*s] [%s]", "one", "two"), "[%.*s] [two]");
    EXPECT_EQ(Format("[%1$d] [%d]", 5, 6), "[%1$d] [6]");
    EXPECT_EQ(Format("[%,d] [%d]", 5, 6), "[%,d] [6]");
    EXPECT_EQ(Format("[%5 5d] [%d]", 5, 6), "[%5 5d] [6]");
    EXPECT_EQ(Format("[%ls] [%ln] [%lc] [%lf] [%l] [%lll] [%lhd] [%d]", 1, 2, 3, 4, 5, 6, 7, 8),
              "[%ls] [%ln] [%lc] [%lf] [%l] [%lll] [%lhd] [8]");
    EXPECT_EQ(Format("%l", 1), "%l");
    EXPECT_EQ(Format("%ll", 1), "%ll");
}

TEST_F(FormatLine, OfALongFormatFiveHundredAndTwelveCharactersCount)
{
    std::string text(600, 'x');
    std::string at_end = std::string(510, 'x') + "%d";
    std::string cut = std::string(511, 'x') + "%d";
    EXPECT_EQ(Format(text.c_str()), std::string(512, 'x'));
    EXPECT_EQ(Format(at_end.c_str(), 42), std::string(510, 'x') + "42");
    EXPECT_EQ(Format(cut.c_str(), 42), std::string(511, 'x'));
    EXPECT_EQ(Format((std::string(510, 'x') + "%lld").c_str(), 42), std::string(510, 'x') + "%l");
}

TEST_F(FormatLine, IsCutToTheBuffer)
{
    const char *format = "src %M grp %-15N if %I n %d %5u x%% %f %s";
    const size_t whole = FormatInto({}, 4096, format, &kAddr4, &kGroup4, 5, -7, 8u, 1.25, "end").text.size();
    const std::string text = FormatInto({}, 4096, format, &kAddr4, &kGroup4, 5, -7, 8u, 1.25, "end").text;

    EXPECT_EQ(text, "src 10.1.20.200 grp 239.4.5.6       if eth5 n -7     8 x% 1.250000 end");
    for (size_t size = 0; size <= whole + 2; ++size) {
        Formatted line = FormatInto({}, size, format, &kAddr4, &kGroup4, 5, -7, 8u, 1.25, "end");
        size_t stored = size == 0 ? 0 : std::min(size - 1, whole);

        EXPECT_EQ(line.result, stored) << size;
        EXPECT_EQ(line.text, text.substr(0, stored)) << size;
    }
}

TEST_F(FormatLine, PlainTextIsCutToTheBuffer)
{
    for (size_t size = 0; size <= 7; ++size) {
        Formatted line = FormatInto({}, size, "plain");
        size_t stored = size == 0 ? 0 : std::min<size_t>(size - 1, 5);

        EXPECT_EQ(line.result, stored);
        EXPECT_EQ(line.text, std::string("plain").substr(0, stored));
    }
}

TEST_F(FormatLine, HugeWidthsAndPrecisionsStayInTheBuffer)
{
    for (const char *format : {"%2147483647d", "%-2147483647d", "%.2147483647d", "%02147483647d", "%100000x",
                               "%+2147483647i", "%.2147483647lu", "%#.2147483647o"}) {
        Formatted line = FormatInto({}, 64, format, 7);

        EXPECT_EQ(line.result, 63u) << format;
        EXPECT_EQ(line.text.size(), 63u) << format;
    }
    EXPECT_EQ(FormatInto({}, 64, "%2147483647s|", "x").text, std::string(63, ' '));
    EXPECT_EQ(FormatInto({}, 64, "%-2147483647A|", &kAddr4).text.size(), 63u);
    EXPECT_EQ(FormatInto({}, 64, "%.99999f|", 1.0).text.size(), 63u);
    EXPECT_EQ(FormatInto({}, 64, "%2147483647c|", 'x').text, std::string(63, ' '));
}

TEST_F(FormatLine, WidthsAndPrecisionsAreNotCut)
{
    std::string text(70000, 'x');

    for (const char *format : {"%65536d|", "%70000d|", "%-70000d|", "%.70000u|", "%070000x|", "%+.70000d|"}) {
        Formatted line = FormatInto({}, 100000, format, 7);
        size_t expected = format == std::string("%65536d|")     ? 65537
                          : format == std::string("%+.70000d|") ? 70002
                                                                : 70001;

        EXPECT_EQ(line.result, expected) << format;
        EXPECT_EQ(line.text.back(), '|');
    }
    EXPECT_EQ(FormatInto({}, 100000, "%.70000s|", text.c_str()).result, 70001u);
    EXPECT_EQ(FormatInto({}, 100000, "%.69999s|", text.c_str()).result, 70000u);
    EXPECT_EQ(FormatInto({}, 100000, "%70000A|", &kAddr4).result, 70001u);
    EXPECT_EQ(FormatInto({}, 100000, "%.70000f|", 1.0).result, 70003u);
    EXPECT_EQ(FormatInto({}, 100000, "%70000p|", nullptr).result, 70001u);
}

TEST_F(FormatLine, NumbersAboveWhatTheCLibraryPrintsDropTheSegmentAndTakeTheArgument)
{
    EXPECT_EQ(Format("a%2147483648d b%d", 7, 8), "a8");
    EXPECT_EQ(Format("a%.2147483648s b%d", "text", 8), "a8");
    EXPECT_EQ(Format("a%.2147483648f b%d", 1.5, 8), "a8");
    EXPECT_EQ(Format("a%-99999999999999999999999999999d b%d", 7, 8), "a8");
    EXPECT_EQ(Format("a%4294967297.3x b%d", 7, 8), "a8") << "a number is not taken modulo anything";

    FormatFilter filter;

    filter.if_filter = 5;
    EXPECT_EQ(FormatInto(filter, 100, "a %2147483648P b", 6).result, 0u) << "the interface is remembered";
}

TEST_F(FormatLine, MayBePrintedOverItsOwnFormat)
{
    char buffer[64] = "n %d of %d";
    auto print = [&](const char *format, ...) {
        va_list args;

        va_start(args, format);
        uint64_t result = MCAST_vsprintf(nullptr, MCAST_NONE, 0, format, args, sizeof(buffer), buffer);
        va_end(args);
        return result;
    };

    EXPECT_EQ(print(buffer, 1234567, 89), 15u);
    EXPECT_STREQ(buffer, "n 1234567 of 89");
}

TEST_F(FormatLine, PassesWithoutFilters)
{
    EXPECT_EQ(FormatInto({}, 100, "%M %N %P", &kAddr4, &kGroup4, 6).result, 26u);
}

TEST_F(FormatLine, InterfaceFilterComparesTheMarkedInterfaceAlone)
{
    FormatFilter filter;
    filter.if_filter = 5;
    EXPECT_EQ(FormatInto(filter, 100, "%P", 6).result, 0u);
    EXPECT_EQ(FormatInto(filter, 100, "%P", 6).text, "eth6"); /* printed all the same */
    EXPECT_EQ(FormatInto(filter, 100, "%P", 5).result, 4u);
    EXPECT_EQ(FormatInto(filter, 100, "%I", 6).result, 4u);
    EXPECT_EQ(FormatInto(filter, 100, "n %d", 6).result, 3u);
    EXPECT_EQ(FormatInto(filter, 100, "%P", 0).result, 3u);
    EXPECT_EQ(FormatInto(filter, 100, "%P %P", 6, 5).result, 9u); /* the last one counts */
    EXPECT_EQ(FormatInto(filter, 100, "%P %P", 5, 6).result, 0u);
    EXPECT_EQ(FormatInto(filter, 0, "%P", 5).result, 0u);
}

class FormatFiltered : public FormatLine
{
protected:
    MRIB_GMP_VRF_KEY_S ctx = {MCAST_FAMILY_IPV4, 3};
    FormatFilter filter;
    ACL_PACKET_INFO4_S asked = {};
    int matches = 0;
    uint32_t action = ACL_ACTION_PERMIT;

    void SetUp() override
    {
        FormatLine::SetUp();
        filter.ctx = &ctx;
        filter.acl_number = 3001;
        scripted::acl_group_type = [](uint32_t, uint32_t) -> uint32_t { return 2; };
        scripted::acl_match = [this](uint32_t, uint32_t number, const void *info, uint32_t, uint32_t *,
                                     uint32_t *out) -> uint32_t {
            EXPECT_EQ(number, 3001u);
            std::memcpy(&asked, info, sizeof(asked));
            *out = action;
            ++matches;
            return 0;
        };
    }
};

TEST_F(FormatFiltered, ListIsAskedAboutSourceAndGroup)
{
    EXPECT_NE(FormatInto(filter, 100, "%N from %M", &kGroup4, &kAddr4).result, 0u);
    EXPECT_EQ(asked.first, 0x0a0114c8u);
    EXPECT_EQ(asked.second, 0xef040506u);
    EXPECT_EQ(asked.slots, 3u);
    EXPECT_EQ(asked.vrf_index, 3u);
    FormatInto(filter, 100, "%M", &kAddr4);
    EXPECT_EQ(asked.slots, 1u);
    FormatInto(filter, 100, "%N", &kGroup4);
    EXPECT_EQ(asked.slots, 2u);
    FormatInto(filter, 100, "%M %M %N", &kGroup4, &kAddr4, &kGroup4);
    EXPECT_EQ(asked.first, 0x0a0114c8u);
    EXPECT_EQ(matches, 4);
}

TEST_F(FormatFiltered, DeniedLineIsPrintedButGivesZero)
{
    action = ACL_ACTION_DENY;
    Formatted line = FormatInto(filter, 100, "%M to %N", &kAddr4, &kGroup4);

    EXPECT_EQ(line.result, 0u);
    EXPECT_EQ(line.text, "10.1.20.200 to 239.4.5.6");
}

TEST_F(FormatFiltered, LineWithoutMarkedAddressesIsNotAskedAbout)
{
    action = ACL_ACTION_DENY;
    EXPECT_EQ(FormatInto(filter, 100, "plain").result, 5u);
    EXPECT_EQ(FormatInto(filter, 100, "%A", &kAddr4).result, 11u);
    EXPECT_EQ(FormatInto(filter, 100, "n %d", 5).result, 3u);
    EXPECT_EQ(FormatInto(filter, 100, "x%M", static_cast<const MCAST_ADDR_S *>(nullptr)).result, 1u);
    EXPECT_EQ(matches, 0);
}

TEST_F(FormatFiltered, MissingAddressDoesNotForgetTheOneBefore)
{
    FormatInto(filter, 100, "%M %M", &kAddr4, static_cast<const MCAST_ADDR_S *>(nullptr));
    EXPECT_EQ(asked.first, 0x0a0114c8u);
}

TEST_F(FormatFiltered, BothFiltersMustPass)
{
    filter.if_filter = 5;
    EXPECT_NE(FormatInto(filter, 100, "%M %P", &kAddr4, 5).result, 0u);
    EXPECT_EQ(FormatInto(filter, 100, "%M %P", &kAddr4, 6).result, 0u);
    action = ACL_ACTION_DENY;
    EXPECT_EQ(FormatInto(filter, 100, "%M %P", &kAddr4, 5).result, 0u);
}

TEST_F(FormatFiltered, ReportsWhatWasStoredOfALineThatPasses)
{
    for (size_t size : {size_t{0}, size_t{1}}) {
        EXPECT_EQ(FormatInto(filter, size, "%M %P", &kAddr4, 5).result, 0u);
    }
    EXPECT_EQ(FormatInto(filter, 6, "%M %P", &kAddr4, 5).result, 5u);
}

} // namespace
