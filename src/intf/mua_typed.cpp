/*
 * What an operator types for a Multicast-UA interface. The expressions are the contract: daemons and their
 * documentation quote them, so they are compiled as they stand, on each call, and nothing is kept between
 * calls that threads would have to share.
 */
#include <regex.h>
#include <string.h>

#include "intf/name_text.h"
#include "mcast/interface_name.h"

/* Any abbreviation of the type, from its first letter on. */
#define MUA_TYPE "m(u(l(t(i(c(a(s(t(-(ua?)?)?)?)?)?)?)?)?)?)?"

namespace
{

/* Checks: what is accepted. */
constexpr char kName[] = "^" MUA_TYPE "0{0,19}[0-9]{1,8}$";
constexpr char kNumber[] = "^0{0,19}[0-9]{1,8}$";

/* Help: what might still become something that is accepted, so the limits are wider. */
constexpr char kTypeBegun[] = "^" MUA_TYPE "$";
constexpr char kNumberBegun[] = "^[0-9]{1,27}$";
constexpr char kNameBegun[] = "^" MUA_TYPE "[0-9]{0,27}$";

/* Shown for a number: "<0-%u>" with the limit. */
constexpr size_t kNumberSyntaxSize = 64;

bool Matches(const char *expression, const char *text)
{
    regex_t compiled;

    /* Nobody asks where the parts of a match lie; knowing that makes compiling and matching cheaper. */
    if (text == nullptr || regcomp(&compiled, expression, REG_EXTENDED | REG_ICASE | REG_NOSUB) != 0) {
        return false;
    }

    bool matches = regexec(&compiled, text, 0, nullptr, 0) == 0;

    regfree(&compiled);
    return matches;
}

/* The number in a text that matches the expression; false when it does not or the number is too high. */
bool ReadTyped(const char *expression, const char *text, uint32_t *number)
{
    uint32_t value = 0;
    if (!Matches(expression, text)) {
        return false;
    }
    /* At most eight digits follow the zeros, so the value cannot overflow. */
    for (const char *digit = text + strcspn(text, "0123456789"); *digit >= '0' && *digit <= '9'; ++digit) {
        value = value * 10 + static_cast<uint32_t>(*digit - '0');
    }
    if (value > MCAST_IF_TYPED_NUMBER_MAX) {
        return false;
    }
    *number = value;
    return true;
}

uint64_t Check(const char *expression, const char *text)
{
    uint32_t number = 0;
    return ReadTyped(expression, text, &number) ? MCAST_OK : MCAST_ERR_GENERAL;
}

bool IsQuestion(const char *text)
{
    return text != nullptr && strcmp(text, "?") == 0;
}

void WriteNumberSyntax(char *out)
{
    memcpy(out, "<0-", 3);

    char *end = out + 3 + mcast::WriteNumber(out + 3, MCAST_IF_TYPED_NUMBER_MAX, 10);

    memcpy(end, ">", 2);
}

} // namespace

uint64_t MCAST_MuaIfNameCheck(const char *text)
{
    return Check(kName, text);
}

uint64_t MCAST_MuaIfNumCheck(const char *text)
{
    return Check(kNumber, text);
}

uint64_t MCAST_GetMUANameFromStr(const char *text, char *buf)
{
    uint32_t number = 0;
    if (!ReadTyped(kName, text, &number)) {
        return MCAST_ERR_GENERAL;
    }
    mcast::WriteNumberedName(buf, mcast::kMuaPrefix, number);
    return MCAST_OK;
}

uint64_t MCAST_MuaIfTypeHelp(const char *text, CLI_HELP_LIST_S *list)
{
    if (IsQuestion(text)) {
        CLI_NewHelpInfo(mcast::kMuaPrefix, RC_LoadString(MCAST_RC_MUA_TYPE), list);
        return MCAST_OK;
    }
    if (!Matches(kTypeBegun, text)) {
        return MCAST_ERR_GENERAL;
    }
    CLI_NewHelpInfo(mcast::kMuaPrefix, "", list);
    return MCAST_OK;
}

uint64_t MCAST_MuaIfNumHelp(const char *text, CLI_HELP_LIST_S *list)
{
    char syntax[kNumberSyntaxSize];
    WriteNumberSyntax(syntax);
    if (IsQuestion(text)) {
        CLI_NewHelpInfo(syntax, RC_LoadString(MCAST_RC_MUA_NUMBER), list);
        return MCAST_OK;
    }
    if (!Matches(kNumberBegun, text)) {
        return MCAST_ERR_GENERAL;
    }
    CLI_NewHelpInfo(syntax, "", list);
    return MCAST_OK;
}

uint64_t MCAST_MuaIfNameHelp(const char *text, CLI_HELP_LIST_S *list)
{
    char syntax[kNumberSyntaxSize];
    if (!Matches(kNameBegun, text)) {
        return MCAST_ERR_GENERAL;
    }
    WriteNumberSyntax(syntax);
    CLI_NewHelpInfo(syntax, "", list);
    return MCAST_OK;
}
