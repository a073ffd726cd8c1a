/*
 * What an operator types for a Multicast-UA interface against the expressions, compiled and matched here.
 */
#include <cstdlib>
#include <gtest/gtest.h>
#include <regex.h>
#include <string>

#include "mcast/interface_name.h"
#include "support/property.h"

namespace
{

#define MUA_TYPE "m(u(l(t(i(c(a(s(t(-(ua?)?)?)?)?)?)?)?)?)?)?"

class Expression
{
public:
    explicit Expression(const char *text)
    {
        EXPECT_EQ(regcomp(&compiled_, text, REG_EXTENDED | REG_ICASE), 0);
    }
    ~Expression()
    {
        regfree(&compiled_);
    }
    Expression(const Expression &) = delete;
    Expression &operator=(const Expression &) = delete;

    bool Matches(const std::string &text) const
    {
        return regexec(&compiled_, text.c_str(), 0, nullptr, 0) == 0;
    }

private:
    regex_t compiled_;
};

/* The start of the type in any case, zeros and digits, now and then with a character changed. */
std::string RandomText(property::Random &random)
{
    const std::string type = "multicast-ua";
    std::string text = random.OneIn(3) ? "" : type.substr(0, random.Below(13));
    for (char &each : text) {
        each = random.OneIn(2) ? static_cast<char>(toupper(each)) : each;
    }
    text.append(random.OneIn(2) ? 0 : random.Below(24), '0');
    for (uint32_t digits = random.Below(11); digits > 0; --digits) {
        text += static_cast<char>('0' + random.Below(10));
    }
    if (!text.empty() && random.OneIn(4)) {
        text[random.Below(static_cast<uint32_t>(text.size()))] = "mMuU0-1 ?\n\xe9x"[random.Below(12)];
    }
    return text;
}

bool IsLow(const std::string &text)
{
    const size_t digit = text.find_first_of("0123456789");
    return strtoul(text.c_str() + digit, nullptr, 10) <= MCAST_IF_TYPED_NUMBER_MAX;
}

TEST(MuaTypedProperty, ChecksAcceptWhatTheExpressionsMatchUpToTheLimit)
{
    const Expression name("^" MUA_TYPE "0{0,19}[0-9]{1,8}$");
    const Expression number("^0{0,19}[0-9]{1,8}$");
    property::Random random(property::Seed("typed names"));
    uint64_t accepted = 0;

    for (uint64_t left = property::Operations(4000); left > 0; --left) {
        const std::string text = RandomText(random);
        const bool is_name = name.Matches(text) && IsLow(text);

        ASSERT_EQ(MCAST_MuaIfNameCheck(text.c_str()) == MCAST_OK, is_name) << text;
        ASSERT_EQ(MCAST_MuaIfNumCheck(text.c_str()) == MCAST_OK, number.Matches(text) && IsLow(text)) << text;
        accepted += is_name;
    }
    EXPECT_GT(accepted, 0u);
}

} // namespace
