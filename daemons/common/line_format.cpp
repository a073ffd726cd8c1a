#include "daemons/common/line_format.h"

#include <cstdarg>

namespace mcastd
{

std::string format_line(const char *format, ...)
{
    const MRIB_GMP_VRF_KEY_S key{}; // not looked at without a list
    char text[LINE_TEXT_MAX + 1];
    va_list arguments;
    va_start(arguments, format);
    const uint64_t length = MCAST_vsprintf(&key, MCAST_NONE, 0, format, arguments, sizeof(text), text);
    va_end(arguments);
    return std::string(text, length);
}

} // namespace mcastd
