#include <gtest/gtest.h>

#include "daemons/common/command_words.h"
#include "daemons/common/nearest_word.h"

using namespace mcastd;

namespace
{

const std::vector<std::string> WORDS = {"groups", "sources",     "interfaces",
                                        "users",  "user-rights", "--family"};

// What the command line answers, without the advice to read the help.
std::string answer(std::vector<std::string> words)
{
    CLI::App app("about", "tool");
    std::string category;
    app.add_flag("--loud");
    app.add_option("--category", category)->check(one_of({"packet", "group"}));
    CLI::App &show = *app.add_subcommand("show");
    show.add_subcommand("groups")->add_option("--interface", category);
    show.add_subcommand("sources");
    explain_errors(app);
    std::vector<const char *> arguments = {"tool"};
    for (const std::string &word : words) {
        arguments.push_back(word.c_str());
    }
    std::ostringstream out;
    std::ostringstream err;
    try {
        app.parse(static_cast<int>(arguments.size()), arguments.data());
    } catch (const CLI::ParseError &error) {
        app.exit(error, out, err);
    }
    const std::string text = err.str();
    return text.substr(0, text.find('\n'));
}

TEST(NearestWord, IsALetterOrSoAway)
{
    const std::pair<const char *, const char *> rows[] = {
        {"grops", "groups"},          {"gruops", "groups"},     {"group", "groups"},  {"groupss", "groups"},
        {"gr0ups", "groups"},         {"sorces", "sources"},    {"user", "users"},    {"inter", "interfaces"},
        {"usr-right", "user-rights"}, {"--famliy", "--family"}, {"groups", "groups"}, {"uesrs", "users"},
    };
    for (const auto &[typed, word] : rows) {
        EXPECT_EQ(nearest_word(typed, WORDS), word) << typed;
    }
}

TEST(NearestWord, IsNoneWhereNoneIsNear)
{
    for (const char *typed : {"", "x", "peers", "gropes-all", "abcdef", "sg"}) {
        EXPECT_EQ(nearest_word(typed, WORDS), "") << typed;
        EXPECT_EQ(suggestion(typed, WORDS), "") << typed;
    }
    EXPECT_EQ(nearest_word("groups", {}), "");
    EXPECT_EQ(nearest_word(std::string(65, 'a'), {std::string(65, 'a')}), "");
    EXPECT_EQ(suggestion("grops", WORDS), "; did you mean groups?");
}

TEST(NearestWord, IsTheFirstOfEquallyNearOnes)
{
    EXPECT_EQ(nearest_word("bat", {"cat", "rat"}), "cat");
    EXPECT_EQ(nearest_word("bats", {"cat", "rats", "hats"}), "rats");
}

TEST(CommandWords, AnUnknownWordIsAnsweredWithTheNearestOneOfItsPlace)
{
    EXPECT_EQ(answer({"shwo"}), "The following argument was not expected: shwo; did you mean show?");
    EXPECT_EQ(answer({"show", "grops"}),
              "The following argument was not expected: grops; did you mean groups?");
    EXPECT_EQ(answer({"show", "groups", "--interfaec=eth0"}),
              "The following argument was not expected: --interfaec=eth0; did you mean --interface?");
    EXPECT_EQ(answer({"--luod"}), "The following argument was not expected: --luod; did you mean --loud?");
    EXPECT_EQ(answer({"show", "loud"}), "The following argument was not expected: loud");
    EXPECT_EQ(answer({"show", "groups"}), "");
}

TEST(CommandWords, AValueThatIsNoneOfTheWordsIsAnsweredWithTheNearestOne)
{
    EXPECT_EQ(answer({"--category", "grup"}),
              "--category: grup is none of packet, group; did you mean group?");
    EXPECT_EQ(answer({"--category", "all"}), "--category: all is none of packet, group");
    EXPECT_EQ(answer({"--category", "group"}), "");
}

} // namespace
