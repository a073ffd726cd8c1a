#include "daemons/mcastctl/text.h"

#include "mcast/argument_check.h"
#include "mcast/format.h"
#include "platform/resource.h"

#include <algorithm>
#include <cstdarg>
#include <unordered_map>

namespace mcastctl
{

const char *help_text(Help help)
{
    return RC_LoadString(MCAST_RC_MODULE + static_cast<uint32_t>(help));
}

std::string format(const char *text, ...)
{
    constexpr MRIB_GMP_VRF_KEY_S PUBLIC_INSTANCE{MCAST_FAMILY_IPV4, 0};
    char buffer[1024];
    va_list arguments;
    va_start(arguments, text);
    const uint64_t length =
        MCAST_vsprintf(&PUBLIC_INSTANCE, MCAST_NONE, 0, text, arguments, sizeof(buffer), buffer);
    va_end(arguments);
    return {buffer, length};
}

const std::string &interface_text(uint32_t if_index)
{
    static std::unordered_map<uint32_t, std::string> known;
    const auto found = known.find(if_index);
    return found != known.end() ? found->second : known[if_index] = format("%I", if_index);
}

std::string address_text(const MCAST_ADDR_S &address)
{
    return format("%A", &address);
}

std::string duration_text(uint64_t seconds)
{
    char buffer[MCAST_TIME_STR_SIZE];
    MCAST_ConvertTimeToString(static_cast<uint32_t>(std::min<uint64_t>(seconds, UINT32_MAX)), buffer);
    return buffer;
}

} // namespace mcastctl
