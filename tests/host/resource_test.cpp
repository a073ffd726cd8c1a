// Registered texts and help lists, by themselves and as the library uses them.
#include "platform/resource.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <thread>

#include "mcast/argument_check.h"
#include "mcast/interface_name.h"
#include "mcasthost/help.h"

namespace
{

constexpr uint32_t BLOCK = 0x7770000;
const char *const TEXTS[] = {"first", nullptr, "third"};
const RC_TEXT_TABLE_S TABLE = {TEXTS, 0};

TEST(Resource, GivesTheTextsOfABlockWhileItIsRegistered)
{
    EXPECT_STREQ(RC_LoadString(BLOCK), "");
    ASSERT_EQ(RC_RegInfo(BLOCK, &TABLE, 3), 0u);
    EXPECT_EQ(RC_LoadString(BLOCK), TEXTS[0]);
    EXPECT_STREQ(RC_LoadString(BLOCK + 1), "");
    EXPECT_EQ(RC_LoadString(BLOCK + 2), TEXTS[2]);
    EXPECT_STREQ(RC_LoadString(BLOCK + 3), "");
    EXPECT_STREQ(RC_LoadString(BLOCK + 0xffff), "");
    EXPECT_STREQ(RC_LoadString(BLOCK + 0x10000), "");
    EXPECT_EQ(RC_DeregInfo(BLOCK), 0u);
    EXPECT_STREQ(RC_LoadString(BLOCK), "");
}

TEST(Resource, RefusesABlockTwiceAndWithdrawalOfNone)
{
    const char *const others[] = {"other"};
    const RC_TEXT_TABLE_S other = {others, 0};
    EXPECT_NE(RC_DeregInfo(BLOCK), 0u);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(RC_RegInfo(BLOCK, &TABLE, 3), 0u);
        EXPECT_NE(RC_RegInfo(BLOCK, &other, 1), 0u);
        EXPECT_EQ(RC_RegInfo(BLOCK + 0x10000, &other, 1), 0u);
        EXPECT_STREQ(RC_LoadString(BLOCK), "first");
        EXPECT_STREQ(RC_LoadString(BLOCK + 0x10000), "other");
        EXPECT_EQ(RC_DeregInfo(BLOCK), 0u);
        EXPECT_NE(RC_DeregInfo(BLOCK), 0u);
        EXPECT_STREQ(RC_LoadString(BLOCK + 0x10000), "other");
        EXPECT_EQ(RC_DeregInfo(BLOCK + 0x10000), 0u);
    }
}

TEST(Resource, RefusesWhatIsNoTableOrNoBlock)
{
    const RC_TEXT_TABLE_S empty = {nullptr, 0};
    EXPECT_NE(RC_RegInfo(BLOCK + 1, &TABLE, 3), 0u);
    EXPECT_NE(RC_RegInfo(BLOCK, nullptr, 3), 0u);
    EXPECT_NE(RC_RegInfo(BLOCK, &empty, 3), 0u);
    EXPECT_NE(RC_RegInfo(BLOCK, &TABLE, 0), 0u);
    EXPECT_NE(RC_RegInfo(BLOCK, &TABLE, 0x10001), 0u);
    EXPECT_STREQ(RC_LoadString(BLOCK), "");
}

TEST(Resource, LoadsWhileOtherBlocksComeAndGo)
{
    ASSERT_EQ(RC_RegInfo(BLOCK, &TABLE, 3), 0u);
    std::thread other([] {
        for (int i = 0; i < 1000; ++i) {
            EXPECT_EQ(RC_RegInfo(BLOCK + 0x10000, &TABLE, 3), 0u);
            EXPECT_EQ(RC_DeregInfo(BLOCK + 0x10000), 0u);
        }
    });
    for (int i = 0; i < 1000; ++i) {
        EXPECT_STREQ(RC_LoadString(BLOCK + 2), "third");
    }
    other.join();
    EXPECT_EQ(RC_DeregInfo(BLOCK), 0u);
}

// An entry as "syntax|description", "-" past the last.
std::string entry(const CLI_HELP_LIST_S *list, uint32_t position)
{
    const char *syntax = "untouched";
    const char *description = "untouched";
    if (HOST_HelpGet(list, position, &syntax, &description) != 0) {
        EXPECT_STREQ(syntax, "untouched");
        EXPECT_STREQ(description, "untouched");
        return "-";
    }
    return std::string(syntax) + "|" + description;
}

TEST(HelpList, KeepsCopiesInTheirOrder)
{
    CLI_HELP_LIST_S *list = HOST_HelpCreate();
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(entry(list, 0), "-");
    char text[] = "group";
    CLI_NewHelpInfo(text, "a group", list);
    memset(text, 'x', sizeof(text) - 1);
    const char *first = nullptr;
    const char *description = nullptr;
    ASSERT_EQ(HOST_HelpGet(list, 0, &first, &description), 0u);
    for (int i = 0; i < 1000; ++i) {
        CLI_NewHelpInfo("", "", list);
    }
    EXPECT_STREQ(first, "group");
    EXPECT_EQ(entry(list, 0), "group|a group");
    EXPECT_EQ(entry(list, 1000), "|");
    EXPECT_EQ(entry(list, 1001), "-");
    EXPECT_EQ(entry(list, UINT32_MAX), "-");
    HOST_HelpDestroy(list);
}

TEST(HelpList, BearsNull)
{
    CLI_HELP_LIST_S *list = HOST_HelpCreate();
    CLI_NewHelpInfo(nullptr, "", list);
    CLI_NewHelpInfo("", nullptr, list);
    CLI_NewHelpInfo("", "", nullptr);
    EXPECT_EQ(entry(list, 0), "-");
    EXPECT_EQ(entry(nullptr, 0), "-");
    const char *text = nullptr;
    CLI_NewHelpInfo("a", "b", list);
    EXPECT_NE(HOST_HelpGet(list, 0, nullptr, &text), 0u);
    EXPECT_NE(HOST_HelpGet(list, 0, &text, nullptr), 0u);
    EXPECT_EQ(text, nullptr);
    HOST_HelpDestroy(nullptr);
    HOST_HelpDestroy(list);
}

TEST(ResourceWithLibrary, HelpOfTheLibraryShowsItsRegisteredTexts)
{
    ASSERT_EQ(MC_CommonRcInit(), 0u);
    EXPECT_NE(MC_CommonRcInit(), 0u);
    EXPECT_STREQ(RC_LoadString(0x4a00001), "Group address");
    EXPECT_STREQ(RC_LoadString(0x4a00036), "%s is not ready.");
    EXPECT_STREQ(RC_LoadString(0x4a00037), "");
    CLI_HELP_LIST_S *list = HOST_HelpCreate();
    EXPECT_EQ(MCAST_MuaIfTypeHelp("?", list), 0u);
    EXPECT_EQ(MCAST_MuaIfNameHelp("mu5", list), 0u);
    EXPECT_NE(MCAST_MuaIfNameHelp("xu5", list), 0u);
    EXPECT_EQ(entry(list, 0), "Multicast-UA|Multicast-UA interface");
    EXPECT_EQ(entry(list, 1), "<0-33554429>|");
    EXPECT_EQ(entry(list, 2), "-");
    HOST_HelpDestroy(list);
    EXPECT_EQ(MC_CommonRcExit(), 0u);
    EXPECT_STREQ(RC_LoadString(0x4a00001), "");
}

} // namespace
