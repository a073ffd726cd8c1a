#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "mcast/interface_name.h"
#include "support/scripted_libc.h"
#include "support/scripted_resource.h"

namespace
{

const std::string kZeros19(19, '0');
const std::string kWord = "multicast-ua";
constexpr uint64_t kRefused = 0x40010001;

class MuaTyped : public testing::Test
{
protected:
    CLI_HELP_LIST_S *list = reinterpret_cast<CLI_HELP_LIST_S *>(this);

    void TearDown() override
    {
        scripted::Reset();
        scripted::ResetResource();
    }

    void ExpectEntry(const char *syntax, const char *description)
    {
        ASSERT_EQ(scripted::help_entries.size(), 1u);
        EXPECT_EQ(scripted::help_entries[0].syntax, syntax);
        EXPECT_EQ(scripted::help_entries[0].description, description);
        EXPECT_EQ(scripted::help_entries[0].list, list);
        scripted::help_entries.clear();
    }
};

TEST_F(MuaTyped, NameIsAnyAbbreviationOfTheTypeInAnyCaseAndANumber)
{
    for (size_t length = 1; length <= kWord.size(); ++length) {
        std::string lower = kWord.substr(0, length);
        std::string upper = lower;

        for (char &each : upper) {
            each = static_cast<char>(toupper(each));
        }
        EXPECT_EQ(MCAST_MuaIfNameCheck((lower + "5").c_str()), 0u) << lower;
        EXPECT_EQ(MCAST_MuaIfNameCheck((upper + "33554429").c_str()), 0u) << upper;
        EXPECT_EQ(MCAST_MuaIfNameCheck((lower + kZeros19 + "12345678").c_str()), 0u) << lower;
        EXPECT_EQ(MCAST_MuaIfNameCheck(lower.c_str()), kRefused) << lower;
    }
    for (const char *text : {"mu5", "Multicast-UA005", "MULTICAST-U12", "m0", "m00000000"}) {
        EXPECT_EQ(MCAST_MuaIfNameCheck(text), 0u) << text;
    }
}

TEST_F(MuaTyped, NameIsRefusedWhenAnythingElseIsInIt)
{
    for (const char *text :
         {"multicast-ua", "mx1", "multicast-ua-1", "m123456789", "m33554430", "m99999999", "", "5", " m5",
          "m5 ", "m 5", "multicastua5", "multicast-uaa5", "m+5", "m5\n", "M5x", "\xff", "u5"}) {
        EXPECT_EQ(MCAST_MuaIfNameCheck(text), kRefused) << text;
    }
    EXPECT_EQ(MCAST_MuaIfNameCheck(("m0" + kZeros19 + "12345678").c_str()), kRefused);
    EXPECT_EQ(MCAST_MuaIfNameCheck(std::string(100000, '0').c_str()), kRefused);
    EXPECT_EQ(MCAST_MuaIfNameCheck(nullptr), kRefused);
}

TEST_F(MuaTyped, NumberHasUpToNineteenZerosAndEightDigits)
{
    for (const std::string &text : {std::string("0"), std::string("33554429"), std::string("00000005"),
                                    kZeros19 + "12345678", kZeros19 + "0"}) {
        EXPECT_EQ(MCAST_MuaIfNumCheck(text.c_str()), 0u) << text;
    }
    for (const std::string &text :
         {std::string(), std::string("33554430"), std::string("123456789"), "0" + kZeros19 + "12345678",
          std::string("-1"), std::string("+1"), std::string("1x"), std::string(" 1"), std::string("m1")}) {
        EXPECT_EQ(MCAST_MuaIfNumCheck(text.c_str()), kRefused) << text;
    }
    EXPECT_EQ(MCAST_MuaIfNumCheck(nullptr), kRefused);
}

TEST_F(MuaTyped, CanonicalNameHasTheWholeTypeAndNoLeadingZeros)
{
    char name[MCAST_IF_NAME_SIZE];

    EXPECT_EQ(MCAST_GetMUANameFromStr("mult0042", name), 0u);
    EXPECT_STREQ(name, "Multicast-UA42");
    EXPECT_EQ(MCAST_GetMUANameFromStr("M0", name), 0u);
    EXPECT_STREQ(name, "Multicast-UA0");
    EXPECT_EQ(MCAST_GetMUANameFromStr(("multicast-ua" + kZeros19 + "33554429").c_str(), name), 0u);
    EXPECT_STREQ(name, "Multicast-UA33554429");
    EXPECT_EQ(MCAST_GetIfIndexByMUAName(2, name), 0xD1FFFFFDu);

    std::strcpy(name, "untouched");
    for (const char *text : {"m33554430", "42", "mx42", "multicast-ua"}) {
        EXPECT_EQ(MCAST_GetMUANameFromStr(text, name), kRefused);
    }
    EXPECT_EQ(MCAST_GetMUANameFromStr(nullptr, name), kRefused);
    EXPECT_STREQ(name, "untouched");
}

TEST_F(MuaTyped, ExpressionThatDoesNotCompileRefuses)
{
    char name[MCAST_IF_NAME_SIZE] = "untouched";
    scripted::regcomp = [](regex_t *, const char *, int) { return REG_ESPACE; };
    EXPECT_EQ(MCAST_MuaIfNameCheck("m5"), kRefused);
    EXPECT_EQ(MCAST_MuaIfNumCheck("5"), kRefused);
    EXPECT_EQ(MCAST_GetMUANameFromStr("m5", name), kRefused);
    EXPECT_STREQ(name, "untouched");
    EXPECT_EQ(MCAST_MuaIfTypeHelp("m", list), kRefused);
    EXPECT_EQ(MCAST_MuaIfNumHelp("5", list), kRefused);
    EXPECT_EQ(MCAST_MuaIfNameHelp("m5", list), kRefused);
    EXPECT_TRUE(scripted::help_entries.empty());
}

TEST_F(MuaTyped, ExpressionsAreCompiledAsExtendedAndCaseless)
{
    std::string expression;
    int flags = 0;
    const std::string type = "^m(u(l(t(i(c(a(s(t(-(ua?)?)?)?)?)?)?)?)?)?)?";
    scripted::regcomp = [&](regex_t *compiled, const char *text, int asked) {
        expression = text;
        flags = asked;
        return scripted::real::regcomp(compiled, text, asked);
    };
    MCAST_MuaIfNameCheck("m5");
    EXPECT_EQ(expression, type + "0{0,19}[0-9]{1,8}$");
    EXPECT_EQ(flags & ~REG_NOSUB, REG_EXTENDED | REG_ICASE);
    MCAST_MuaIfNumCheck("5");
    EXPECT_EQ(expression, "^0{0,19}[0-9]{1,8}$");
    MCAST_MuaIfTypeHelp("m", list);
    EXPECT_EQ(expression, type + "$");
    MCAST_MuaIfNumHelp("5", list);
    EXPECT_EQ(expression, "^[0-9]{1,27}$");
    MCAST_MuaIfNameHelp("m5", list);
    EXPECT_EQ(expression, type + "[0-9]{0,27}$");
}

TEST_F(MuaTyped, TypeHelpFitsAnAbbreviation)
{
    scripted::rc_load = [](uint32_t id) -> const char * { return id == 0x04A00033 ? "the type" : "wrong"; };
    EXPECT_EQ(MCAST_MuaIfTypeHelp("?", list), 0u);
    ExpectEntry("Multicast-UA", "the type");
    for (const char *text : {"m", "MULTI", "multicast-", "Multicast-UA"}) {
        EXPECT_EQ(MCAST_MuaIfTypeHelp(text, list), 0u) << text;
        ExpectEntry("Multicast-UA", "");
    }
    for (const char *text : {"", "x", "m5", "multicast-ua5", "??", "m?"}) {
        EXPECT_EQ(MCAST_MuaIfTypeHelp(text, list), kRefused) << text;
    }
    EXPECT_EQ(MCAST_MuaIfTypeHelp(nullptr, list), kRefused);
    EXPECT_TRUE(scripted::help_entries.empty());
}

TEST_F(MuaTyped, NumberHelpFitsUpToTwentySevenDigits)
{
    scripted::rc_load = [](uint32_t id) -> const char * { return id == 0x04A00034 ? "the number" : "wrong"; };
    EXPECT_EQ(MCAST_MuaIfNumHelp("?", list), 0u);
    ExpectEntry("<0-33554429>", "the number");
    for (const std::string &text : {std::string("0"), std::string("33554430"), std::string(27, '9')}) {
        EXPECT_EQ(MCAST_MuaIfNumHelp(text.c_str(), list), 0u) << text;
        ExpectEntry("<0-33554429>", "");
    }
    for (const std::string &text :
         {std::string(), std::string(28, '9'), std::string("m5"), std::string("1 ")}) {
        EXPECT_EQ(MCAST_MuaIfNumHelp(text.c_str(), list), kRefused) << text;
    }
    EXPECT_EQ(MCAST_MuaIfNumHelp(nullptr, list), kRefused);
    EXPECT_TRUE(scripted::help_entries.empty());
}

TEST_F(MuaTyped, NameHelpFitsTheTypeWithOrWithoutDigitsButNoQuestion)
{
    for (const std::string &text :
         {std::string("m"), std::string("multicast-ua"), std::string("mu5"), "M" + std::string(27, '9')}) {
        EXPECT_EQ(MCAST_MuaIfNameHelp(text.c_str(), list), 0u) << text;
        ExpectEntry("<0-33554429>", "");
    }
    for (const std::string &text :
         {std::string("?"), std::string(), std::string("5"), "m" + std::string(28, '9'), std::string("mx")}) {
        EXPECT_EQ(MCAST_MuaIfNameHelp(text.c_str(), list), kRefused) << text;
    }
    EXPECT_EQ(MCAST_MuaIfNameHelp(nullptr, list), kRefused);
    EXPECT_TRUE(scripted::help_entries.empty());
}

} // namespace
