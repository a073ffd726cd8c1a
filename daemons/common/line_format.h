/*
 * Formats of MCAST_vsprintf that the compiler has compared with the arguments: a conversion without an
 * argument of its kind, an argument too many, a letter that the library does not know and a format that it
 * would cut do not compile.
 */
#ifndef DAEMONS_COMMON_LINE_FORMAT_H
#define DAEMONS_COMMON_LINE_FORMAT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>

#include "mcast/common.h"
#include "mcast/format.h"

namespace mcastd
{

// What a conversion takes. None is what no conversion takes, 64-bit integers among it.
enum class LineArgument { None, Integer, Text, Pointer, Double, Address };

constexpr LineArgument line_letter_takes(char letter)
{
    switch (letter) {
    case 'd':
    case 'i':
    case 'o':
    case 'u':
    case 'x':
    case 'X':
    case 'c':
    case 'I':
    case 'P':
        return LineArgument::Integer;
    case 's':
        return LineArgument::Text;
    case 'p':
        return LineArgument::Pointer;
    case 'e':
    case 'f':
    case 'g':
    case 'E':
    case 'G':
        return LineArgument::Double;
    case 'A':
    case 'M':
    case 'N':
        return LineArgument::Address;
    default:
        return LineArgument::None;
    }
}

template <typename T> constexpr LineArgument line_argument_of()
{
    if constexpr (std::is_integral_v<T> && sizeof(T) <= sizeof(uint32_t)) {
        return LineArgument::Integer;
    } else if constexpr (std::is_convertible_v<T, const char *>) {
        return LineArgument::Text;
    } else if constexpr (std::is_convertible_v<T, const MCAST_ADDR_S *>) {
        return LineArgument::Address;
    } else if constexpr (std::is_pointer_v<T>) {
        return LineArgument::Pointer;
    } else if constexpr (std::is_same_v<T, double>) {
        return LineArgument::Double;
    } else {
        return LineArgument::None;
    }
}

// Whether the format's conversions take exactly these arguments.
constexpr bool line_format_fits(std::string_view format, const LineArgument *arguments, size_t count)
{
    constexpr std::string_view BEFORE_LETTER = "-+ #0123456789.";
    size_t taken = 0;
    size_t at = format.find('%');
    while (at != format.npos) {
        const bool doubled = at + 1 < format.size() && format[at + 1] == '%';
        const size_t letter = format.find_first_not_of(BEFORE_LETTER, at + 1);
        if (!doubled) {
            if (letter == format.npos || taken == count) {
                return false;
            }
            const LineArgument takes = line_letter_takes(format[letter]);
            if (takes == LineArgument::None || takes != arguments[taken++]) {
                return false;
            }
        }
        at = format.find('%', doubled ? at + 2 : letter);
    }
    return taken == count && format.size() <= MCAST_FORMAT_MAX;
}

template <typename... Arguments> class LineFormat
{
public:
    // A format that does not fit calls this, which no constant expression can.
    static void does_not_fit_its_arguments()
    {
    }

    consteval LineFormat(const char *text) : text_(text)
    {
        // One more than there are, so that the list is never empty.
        constexpr LineArgument ARGUMENTS[] = {line_argument_of<Arguments>()..., LineArgument::None};
        if (!line_format_fits(text, ARGUMENTS, sizeof...(Arguments))) {
            does_not_fit_its_arguments();
        }
    }

    constexpr const char *text() const
    {
        return text_;
    }

private:
    const char *text_;
};

// What MCAST_vsprintf makes of the format, cut behind LINE_TEXT_MAX characters.
constexpr size_t LINE_TEXT_MAX = 1023;
std::string format_line(const char *format, ...);

// The same with a format that is checked: formatted("%A on %I", &address, if_index).
template <typename... Arguments>
std::string formatted(std::type_identity_t<LineFormat<Arguments...>> format, Arguments... arguments)
{
    return format_line(format.text(), arguments...);
}

} // namespace mcastd

#endif
