/*
 * Typed interface names, numbers and their help, compared with a matcher written by hand. The input is the
 * text, in a block of exactly its size.
 */
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "mcast/interface_name.h"
#include "support/scripted_interface.h"
#include "support/scripted_resource.h"

namespace
{

constexpr uint64_t kRefused = 0x40010001;

void Require(bool truth)
{
    if (!truth) {
        abort();
    }
}

bool IsDigit(char character)
{
    return character >= '0' && character <= '9';
}

/* The length of the interface type at the start of text, 0 when there is none. */
size_t TypeLength(const std::string &text)
{
    static const std::string kType = "multicast-ua";
    size_t length = 0;

    while (length < text.size() && length < kType.size()) {
        char lower =
            text[length] >= 'A' && text[length] <= 'Z' ? static_cast<char>(text[length] + 32) : text[length];

        if (lower != kType[length]) {
            break;
        }
        ++length;
    }
    return length;
}

bool AllDigits(const std::string &text)
{
    for (char each : text) {
        if (!IsDigit(each)) {
            return false;
        }
    }
    return true;
}

/* Whether text is up to 19 zeros and then 1 to 8 digits, and no higher than may be typed. */
bool IsNumber(const std::string &text, uint32_t *number)
{
    size_t zeros = 0;
    if (text.empty() || !AllDigits(text)) {
        return false;
    }
    while (zeros < 19 && zeros + 1 < text.size() && text[zeros] == '0') {
        ++zeros;
    }
    if (text.size() - zeros > 8) {
        return false;
    }
    *number = static_cast<uint32_t>(std::strtoul(text.c_str() + zeros, nullptr, 10));
    return *number <= 33554429;
}

bool HelpGiven(uint64_t result)
{
    bool given = scripted::help_entries.size() == 1;
    Require(given ? result == 0 : result == kRefused && scripted::help_entries.empty());
    scripted::help_entries.clear();
    return given;
}

void CheckHelp(const std::string &text, const char *typed, size_t type)
{
    std::string rest = text.substr(type);
    Require(HelpGiven(MCAST_MuaIfTypeHelp(typed, nullptr)) == (text == "?" || (type != 0 && rest.empty())));
    Require(HelpGiven(MCAST_MuaIfNumHelp(typed, nullptr)) ==
            (text == "?" || (!text.empty() && text.size() <= 27 && AllDigits(text))));
    Require(HelpGiven(MCAST_MuaIfNameHelp(typed, nullptr)) ==
            (type != 0 && rest.size() <= 27 && AllDigits(rest)));
}

void CheckLookUp(const std::string &text, const char *typed)
{
    struct {
        char name[MCAST_IF_NAME_SIZE];
        char mark;
    } buffer = {"", 'm'};

    scripted::if_name_fill = [](const void *, const char *name, uint32_t, char *full) -> uint32_t {
        std::strcpy(full, name);
        std::strcat(full, std::string(200, 'x').c_str());
        return 0;
    };
    scripted::if_index_by_name = [](const char *name) { return static_cast<uint32_t>(std::strlen(name)); };
    uint32_t index = MCAST_GetIfIndexByIfName(typed, typed, buffer.name);

    Require(index == std::min<size_t>(2 * text.size(), 47) + 200);
    Require(std::strlen(buffer.name) == 47 && buffer.mark == 'm');
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string whole(data, data + size);
    std::string text = whole.substr(0, whole.find('\0'));
    auto typed = std::make_unique<char[]>(text.size() + 1);
    char name[MCAST_IF_NAME_SIZE] = "untouched";
    uint32_t number = 0;

    std::memcpy(typed.get(), text.c_str(), text.size() + 1);

    size_t type = TypeLength(text);
    bool is_name = type != 0 && IsNumber(text.substr(type), &number);
    uint32_t of_name = number;

    Require(MCAST_MuaIfNameCheck(typed.get()) == (is_name ? 0 : kRefused));
    Require(MCAST_GetMUANameFromStr(typed.get(), name) == (is_name ? 0 : kRefused));
    Require(name == (is_name ? "Multicast-UA" + std::to_string(of_name) : std::string("untouched")));
    Require(!is_name || MCAST_GetIfIndexByMUAName(2, name) == 0xD0000000 + of_name);
    Require(MCAST_MuaIfNumCheck(typed.get()) == (IsNumber(text, &number) ? 0 : kRefused));
    (void)MCAST_GetIfIndexByMUAName(10, typed.get());
    CheckHelp(text, typed.get(), type);
    CheckLookUp(text, typed.get());
    return 0;
}
