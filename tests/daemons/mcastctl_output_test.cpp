#include <gtest/gtest.h>

#include "daemons/mcastctl/arguments.h"
#include "daemons/mcastctl/output.h"
#include "daemons/mcastctl/text.h"
#include "mcast/argument_check.h"

using namespace mcastctl;
using mcastd::ControlField;
using mcastd::ControlFields;
using mcastd::FieldType;

namespace
{

constexpr mcastd::ControlColumn COLUMNS[] = {
    {"interface", FieldType::Interface}, {"group", FieldType::Address},
    {"expires", FieldType::Seconds},     {"packets", FieldType::Counter},
    {"running", FieldType::Truth},       {"outgoing", FieldType::Interfaces},
    {"family", FieldType::Family},       {"response_ms", FieldType::Number},
};
constexpr mcastd::ControlSchema TABLE{1, "all", 1, COLUMNS};

constexpr DaemonInfo DAEMON{"mribd", 0, {1, 2201, 0}};

// No interface has such an index, so that it stands for itself.
constexpr uint32_t NOBODY = 0x00fffff0;

ControlFields full_row()
{
    return {
        ControlField::interface(NOBODY),
        ControlField::address(*group_from_text("239.1.1.1")),
        ControlField::seconds(90061),
        ControlField::counter(7),
        ControlField::truth(true),
        ControlField::interfaces({NOBODY, NOBODY + 1}),
        ControlField::family(MCAST_FAMILY_IPV6),
        ControlField::number(10000),
    };
}

ControlFields empty_row()
{
    ControlFields row(std::size(COLUMNS));
    row[0] = ControlField::interface(0);
    row[5] = ControlField::interfaces({});
    return row;
}

std::string printed(bool as_json, bool with_daemon, const std::vector<ControlFields> &rows)
{
    testing::internal::CaptureStdout();
    Output output(TABLE, as_json, with_daemon);
    for (const ControlFields &row : rows) {
        output.add(DAEMON, row);
    }
    EXPECT_TRUE(output.finish());
    return testing::internal::GetCapturedStdout();
}

TEST(Output, TextStandsInColumnsNumbersToTheRight)
{
    EXPECT_EQ(printed(false, false, {full_row(), empty_row()}),
              "Interface  Group      Expires  Packets  Running  Outgoing           Family  Response (ms)\n"
              "0xfffff0   239.1.1.1   1d:01h        7  yes      0xfffff0,0xfffff1  ipv6            10000\n"
              "-          -                -        -  -        -                  -                   -\n");
}

TEST(Output, ATableWithoutFamilyGetsTheDaemons)
{
    static constexpr mcastd::ControlColumn columns[] = {{"name", FieldType::Text}};
    constexpr mcastd::ControlSchema table{1, "names", 1, columns};
    constexpr DaemonInfo gmpd{"gmpd", MCAST_FAMILY_IPV6, {3, 2203, 0}};
    testing::internal::CaptureStdout();
    Output text(table, false, true);
    text.add(gmpd, {ControlField::text("x")});
    text.add(DAEMON, {ControlField::text("y")});
    EXPECT_TRUE(text.finish());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Daemon  Family  Name\n"
                                                      "gmpd    ipv6    x\n"
                                                      "mribd   -       y\n");
}

TEST(Output, NoRowsPrintNothingAsText)
{
    EXPECT_EQ(printed(false, true, {}), "");
}

TEST(Output, JsonNamesUnitsAndKeepsIndexes)
{
    EXPECT_EQ(
        printed(true, true, {full_row(), empty_row()}),
        "[\n"
        "  {\"daemon\": \"mribd\", \"interface\": \"0xfffff0\", \"interface_index\": 16777200, "
        "\"group\": \"239.1.1.1\", \"expires_s\": 90061, \"packets\": 7, \"running\": true, "
        "\"outgoing\": [\"0xfffff0\", \"0xfffff1\"], \"family\": \"ipv6\", \"response_ms\": 10000},\n"
        "  {\"daemon\": \"mribd\", \"interface\": null, \"interface_index\": 0, \"group\": null, "
        "\"expires_s\": null, \"packets\": null, \"running\": null, \"outgoing\": [], \"family\": null, "
        "\"response_ms\": null}\n"
        "]\n");
    EXPECT_EQ(printed(true, false, {}), "[]\n");
}

TEST(Arguments, GroupsAreThoseThatAreRouted)
{
    EXPECT_EQ(group_from_text("239.1.1.1")->family, MCAST_FAMILY_IPV4);
    EXPECT_EQ(group_from_text("ff0e::1")->family, MCAST_FAMILY_IPV6);
    for (const char *wrong :
         {"", "239.1.1", "239.1.1.1 ", "224.0.0.5", "10.0.0.1", "ff02::1", "fe80::1", "default"}) {
        EXPECT_FALSE(group_from_text(wrong)) << wrong;
    }
}

TEST(Arguments, SourcesAreUnicastOrAny)
{
    EXPECT_EQ(address_text(*source_from_text("10.0.0.1")), "10.0.0.1");
    EXPECT_EQ(address_text(*source_from_text("0.0.0.0")), "0.0.0.0");
    EXPECT_EQ(address_text(*source_from_text("::")), "::");
    EXPECT_EQ(address_text(*source_from_text("2001:db8::1")), "2001:db8::1");
    for (const char *wrong : {"", "127.0.0.1", "239.1.1.1", "255.255.255.255", "fe80::1", "::1", "x"}) {
        EXPECT_FALSE(source_from_text(wrong)) << wrong;
    }
}

TEST(Arguments, InterfacesAreThePlatformsOrTheLibrarys)
{
    EXPECT_EQ(interface_from_text("mu5"), 0xD0000005u);
    EXPECT_EQ(interface_from_text("no-such-interface"), 0u);
    EXPECT_EQ(interface_from_text(""), 0u);
    EXPECT_EQ(interface_from_text(std::string(200, 'x')), 0u);
}

TEST(Text, HelpIsTheLibrarys)
{
    ASSERT_EQ(MC_CommonRcInit(), MCAST_OK);
    EXPECT_STREQ(help_text(Help::SpecifyGroup), "Specify multicast group");
    EXPECT_EQ(not_ready_text("gmpd"), "gmpd is not ready.");
    EXPECT_EQ(MC_CommonRcExit(), MCAST_OK);
    EXPECT_STREQ(help_text(Help::SpecifyGroup), "");
}

TEST(Text, DurationsBeyondTheLibrarysAreTheLongest)
{
    EXPECT_EQ(duration_text(59), "00:00:59");
    EXPECT_EQ(duration_text(UINT64_MAX), duration_text(UINT32_MAX));
}

} // namespace
