/*
 * Formats with matching arguments into MCAST_vsprintf, compared with a plain reading of its contract that
 * prints each segment by the C library. Arguments stand in a block of exactly their number, strings and
 * addresses in blocks of exactly their size, the output in a block of exactly what it may use.
 *
 * An input is the size of the output (two bytes), the format up to a zero byte, and what the arguments are
 * made of.
 */
#include <algorithm>
#include <arpa/inet.h>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "mcast/format.h"
#include "mcast/interface_name.h"

namespace
{

void Require(bool truth)
{
    if (!truth) {
        abort();
    }
}

/* Bytes that are used up; zeros follow the last. */
class Bytes
{
public:
    Bytes(const uint8_t *data, size_t size) : at(data), left(size)
    {
    }

    uint8_t Byte()
    {
        if (left == 0) {
            return 0;
        }
        --left;
        return *at++;
    }

    /* A number of so many bytes, the highest first. */
    uint64_t Word(int bytes)
    {
        uint64_t word = 0;
        for (int i = 0; i < bytes; ++i) {
            word = word << 8 | Byte();
        }
        return word;
    }

    std::string Text(size_t most)
    {
        std::string text;
        for (char next; text.size() < most && (next = static_cast<char>(Byte())) != '\0';) {
            text += next;
        }
        return text;
    }

private:
    const uint8_t *at;
    size_t left;
};

/* Arguments as a variadic call leaves them once the registers are used up: eight bytes each, in order. */
struct Arguments {
    std::vector<uint64_t> slots;
    std::vector<std::unique_ptr<char[]>> blocks;

    template <typename Value> void Add(Value value)
    {
        uint64_t slot = 0;
        static_assert(sizeof(value) <= sizeof(slot));
        std::memcpy(&slot, &value, sizeof(value));
        slots.push_back(slot);
    }

    const char *AddBlock(const void *data, size_t size)
    {
        blocks.push_back(std::make_unique<char[]>(size));
        std::memcpy(blocks.back().get(), data, size);
        Add(static_cast<const char *>(blocks.back().get()));
        return blocks.back().get();
    }
};

uint64_t Call(const Arguments &arguments, uint32_t if_filter, const char *format, size_t size, char *buffer)
{
    struct {
        unsigned int used_integers;
        unsigned int used_doubles;
        void *overflow;
        void *saved;
    } state = {48, 176, nullptr, nullptr};
    va_list args;

    static_assert(sizeof(state) == sizeof(args), "the argument list of x86-64");
    auto exact = std::make_unique<uint64_t[]>(arguments.slots.size());

    std::copy(arguments.slots.begin(), arguments.slots.end(), exact.get());
    state.overflow = exact.get();
    std::memcpy(args, &state, sizeof(state));
    return MCAST_vsprintf(nullptr, MCAST_NONE, if_filter, format, args, size, buffer);
}

/* A line by the contract: its text, and whether it passes the interface filter. */
struct Expected {
    std::string text;
    uint32_t if_index = 0;
    std::string address;
    Arguments arguments;
};

template <typename Value> std::string Printed(const std::string &format, Value value)
{
    int length = snprintf(nullptr, 0, format.c_str(), value);
    std::string text(static_cast<size_t>(std::max(length, 0)) + 1, '\0');
    Require(length >= 0);
    snprintf(text.data(), text.size(), format.c_str(), value);
    text.pop_back();
    return text;
}

/* Above it a number drops its segment; in between the C library needs minutes and gigabytes. */
constexpr size_t kMostDigits = 10;
constexpr uint64_t kGreatest = INT_MAX;
constexpr uint64_t kGreatestTried = 100000;

/* The value of a width or precision; all that are too great are alike. */
uint64_t Value(const std::string &digits)
{
    size_t first = digits.find_first_not_of('0');
    if (first == std::string::npos) {
        return 0;
    }
    return digits.size() - first > kMostDigits ? kGreatest + 1 : std::stoull(digits.substr(first));
}

/* The format with every number that the C library prints but at great cost made a smaller one. */
std::string Affordable(const std::string &format)
{
    std::string made;
    for (size_t at = 0; at < format.size();) {
        size_t end = std::min(format.find_first_not_of("0123456789", at), format.size());

        if (end == at) {
            made += format[at++];
            continue;
        }
        std::string digits = format.substr(at, end - at);
        uint64_t value = Value(digits);

        made += value > kGreatestTried && value <= kGreatest ? std::to_string(kGreatestTried) : digits;
        at = end;
    }
    return made;
}

std::string AddressText(const MCAST_ADDR_S &addr)
{
    char text[INET6_ADDRSTRLEN];
    return inet_ntop(addr.family, addr.address, text, sizeof(text)) != nullptr ? text : "unknown address";
}

/* The argument of a letter, printed by the format: false when the letter takes none. */
bool PrintArgument(Expected &expected, Bytes &bytes, char letter, const std::string &format,
                   std::string &text)
{
    std::string as_string = format;

    as_string[as_string.find(letter)] = 's';
    if (strchr("diouxXc", letter) != nullptr) {
        uint32_t value = static_cast<uint32_t>(bytes.Word(4));

        if (letter == 'c' && static_cast<uint8_t>(value) == 0) {
            value = 'z';
        }
        expected.arguments.Add(value | uint64_t{0xdeadbeef} << 32);
        text = Printed(format, value);
    } else if (letter == 'l') {
        int32_t value = static_cast<int32_t>(bytes.Word(4));

        expected.arguments.Add(static_cast<uint32_t>(value) | uint64_t{0xdeadbeef} << 32);
        text = Printed(format, static_cast<long>(value));
    } else if (letter == 'p') {
        void *value = reinterpret_cast<void *>(bytes.Word(8));

        expected.arguments.Add(value);
        text = Printed(format, value);
    } else if (letter == 's') {
        if (bytes.Byte() % 8 == 7) {
            expected.arguments.Add(uint64_t{0});
            text = Printed(format, static_cast<const char *>(nullptr));
        } else {
            std::string value = bytes.Text(100);

            text = Printed(format, expected.arguments.AddBlock(value.c_str(), value.size() + 1));
        }
    } else if (strchr("efgEG", letter) != nullptr) {
        uint64_t bits = bytes.Word(8);
        double value = 0;

        std::memcpy(&value, &bits, sizeof(value));
        expected.arguments.Add(value);
        text = Printed(format, value);
    } else if (strchr("AMN", letter) != nullptr) {
        uint8_t kind = bytes.Byte() % 4;
        MCAST_ADDR_S addr = {MCAST_FAMILY_IPV4, 0, {}};

        if (kind == 1) {
            addr.family = MCAST_FAMILY_IPV6;
        } else if (kind == 2) {
            addr.family = bytes.Byte();
        }

        if (kind == 3) {
            expected.arguments.Add(uint64_t{0});
        } else {
            for (uint8_t &byte : addr.address) {
                byte = bytes.Byte();
            }
            expected.arguments.AddBlock(&addr, sizeof(addr));
            expected.address = AddressText(addr);
        }
        text = Printed(as_string, expected.address.c_str());
    } else if (strchr("IP", letter) != nullptr) {
        uint32_t index = static_cast<uint32_t>(bytes.Word(4));
        char name[MCAST_IF_NAME_SIZE];

        expected.arguments.Add(index);
        MCAST_GetIfNameOrIndex(index, name);
        expected.if_index = letter == 'P' ? index : expected.if_index;
        text = Printed(as_string, name);
    } else {
        return false;
    }
    return true;
}

void ReadSegment(Expected &expected, Bytes &bytes, const std::string &segment)
{
    static const std::regex kWellFormed("%([-+ #0']*)([0-9]*)(\\.?)([0-9]*)(l{1,2}[diouxX]|[^l])([^]*)");
    auto letter = std::find_if(segment.begin(), segment.end(), [](char each) {
        return (each >= 'a' && each <= 'z') || (each >= 'A' && each <= 'Z');
    });
    std::smatch parts;
    std::string text;

    if (letter == segment.end()) {
        return;
    }
    if (std::regex_match(segment, parts, kWellFormed) && parts[5].first == letter &&
        (parts[3].length() != 0 || parts[4].length() == 0)) {
        std::string format =
            "%" + parts[1].str() + parts[2].str() + parts[3].str() + parts[4].str() + parts[5].str();

        if (Value(parts[2].str()) > kGreatest || Value(parts[4].str()) > kGreatest) {
            PrintArgument(expected, bytes, *letter, "%" + parts[5].str(), text);
        } else if (PrintArgument(expected, bytes, *letter, format, text)) {
            expected.text += text + parts[6].str();
        }
    } else if (PrintArgument(expected, bytes, *letter, *letter == 'l' ? "%ld" : std::string("%") + *letter,
                             text)) {
        expected.text += segment;
    }
}

/* Takes the format apart as the contract says. */
Expected Read(const std::string &whole, Bytes &bytes)
{
    Expected expected;
    std::string format = whole.substr(0, MCAST_FORMAT_MAX);
    size_t at = format.find('%');

    expected.text = format.substr(0, at);
    while (at != std::string::npos) {
        bool doubled = at + 1 < format.size() && format[at + 1] == '%';
        size_t next = format.find('%', at + (doubled ? 2 : 1));
        std::string segment = format.substr(at, next == std::string::npos ? next : next - at);

        if (doubled) {
            expected.text += segment.substr(1);
        } else {
            ReadSegment(expected, bytes, segment);
        }
        at = next;
    }
    return expected;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Bytes bytes(data, size);
    size_t room = bytes.Word(2) % 3000;
    std::string format = Affordable(bytes.Text(700));
    uint32_t if_filter = bytes.Byte() % 2;
    Expected expected = Read(format, bytes);
    auto buffer = std::make_unique<char[]>(room);
    auto exact_format = std::make_unique<char[]>(format.size() + 1);

    std::memcpy(exact_format.get(), format.c_str(), format.size() + 1);
    expected.text.resize(std::min(expected.text.size(), room != 0 ? room - 1 : 0));

    uint64_t result = Call(expected.arguments, if_filter, exact_format.get(), room, buffer.get());
    bool filtered = if_filter != 0 && expected.if_index != 0 && expected.if_index != if_filter;

    Require(result == (filtered ? 0 : expected.text.size()));
    Require(room == 0 || (std::memcmp(buffer.get(), expected.text.data(), expected.text.size()) == 0 &&
                          buffer[expected.text.size()] == '\0'));
    return 0;
}
