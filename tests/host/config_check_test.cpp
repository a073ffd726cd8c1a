// Every error of a text at once.
#include "host/config/config_check.h"

#include <algorithm>
#include <string>
#include <vector>

#include "config_support.h"

namespace
{

using host::ConfigDocument;
using host::ConfigTable;

using Lines = std::vector<std::string>;

Lines check(const std::string &text)
{
    Lines lines;
    const uint32_t count = HOST_ConfigCheckText(
        "f", text.data(), text.size(), host_test::OTHER_TABLES,
        [](void *context, uint32_t line, uint32_t column, const char *error) {
            const std::string place = "f:" + std::to_string(line) + ":" + std::to_string(column) + ":";
            EXPECT_TRUE(line == 0 || std::string(error).starts_with(place)) << error;
            static_cast<Lines *>(context)->push_back(error);
        },
        &lines);
    EXPECT_EQ(count, lines.size());
    return lines;
}

TEST(ConfigCheck, ARightTextHasNoError)
{
    EXPECT_EQ(check(""), Lines{});
    EXPECT_EQ(check("[[vpn]]\nname = \"red\"\nindex = 5\ninterfaces = []\n[gmpd]\nwhatever = 1\n"), Lines{});
}

TEST(ConfigCheck, TellsWhatIsWrongInEveryTable)
{
    const Lines lines = check("nonsense = 1\n"
                              "[[vpn]]\nname = \"red\"\nindex = 0\ninterfaces = 7\ncolour = \"red\"\n"
                              "[[vpn]]\nname = \"blue\"\nindex = 6\ninterfaces = []\n"
                              "[[acl]]\nnumber = 1\nfamily = \"ipv5\"\n"
                              "[[acl]]\nnumber = 2001\nfamily = \"ipv4\"\nname = \"good\"\n"
                              "[[acl.rule]]\nid = 5\naction = \"perhaps\"\n"
                              "[[acl.rule]]\nid = 6\naction = \"permit\"\nsource = \"10.0.0.300\"\n");
    Lines places;
    for (const std::string &line : lines) {
        places.push_back(line.substr(2, line.find(' ') - 3));
    }
    for (const char *place : {"1:1", "4:9", "5:14", "6:1", "12:10", "13:10", "20:10", "24:10"}) {
        EXPECT_EQ(std::count(places.begin(), places.end(), place), 1) << place;
    }
    EXPECT_EQ(lines.size(), 8u) << testing::PrintToString(lines);
}

// A key that is missing because it was wrong is told once.
TEST(ConfigCheck, WhatFollowsFromAnErrorIsNotToldAgain)
{
    EXPECT_EQ(check("[[acl]]\nnumber = \"two\"\nfamily = \"ipv4\"\n").size(), 1u);
    EXPECT_EQ(check("[[acl]]\nfamily = \"ipv4\"\n").size(), 1u);
}

TEST(ConfigCheck, WhatIsNoTomlHasOneError)
{
    EXPECT_EQ(check("[[vpn\n").size(), 1u);
}

TEST(ConfigCheck, SaysAHundredAndNoMore)
{
    std::string text;
    for (int i = 0; i < 150; ++i) {
        text += "key" + std::to_string(i) + " = 1\n";
    }
    EXPECT_EQ(check(text).size(), host::MOST_CONFIG_ERRORS);
}

// An error that names no place of the file cannot be taken out of it.
TEST(ConfigCheck, AnErrorWithoutAPlaceEndsIt)
{
    ConfigDocument document("f", "[a]\nkey = 1\n");
    unsigned told = 0;
    host::check_document(
        document, [](ConfigTable &root) { root.table("b").string("key"); },
        [&](const host::ConfigError &) { ++told; });
    EXPECT_EQ(told, 1u);
}

TEST(ConfigCheck, ElementsOfListsAreTakenOutOneByOne)
{
    ConfigDocument document("f", "list = [1, \"two\", 3, \"four\"]\n");
    Lines lines;
    std::vector<int64_t> read;
    host::check_document(
        document, [&](ConfigTable &root) { read = root.integers("list", 0, 9); },
        [&](const host::ConfigError &error) { lines.push_back(error.what()); });
    EXPECT_EQ(lines.size(), 2u);
    EXPECT_EQ(read, (std::vector<int64_t>{1, 3}));
}

} // namespace
