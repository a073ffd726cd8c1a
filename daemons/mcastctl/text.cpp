#include "daemons/mcastctl/text.h"

#include <algorithm>
#include <unordered_map>

#include "daemons/common/line_format.h"
#include "mcast/argument_check.h"
#include "mcast/format.h"
#include "platform/resource.h"

namespace mcastctl
{

const char *help_text(Help help)
{
    return RC_LoadString(MCAST_RC_MODULE + static_cast<uint32_t>(help));
}

std::string not_ready_text(const std::string &daemon)
{
    return mcastd::format_line(help_text(Help::NotReady), daemon.c_str());
}

const std::string &interface_text(uint32_t if_index)
{
    static std::unordered_map<uint32_t, std::string> known;
    const auto found = known.find(if_index);
    return found != known.end() ? found->second : known[if_index] = mcastd::formatted("%I", if_index);
}

std::string address_text(const MCAST_ADDR_S &address)
{
    return mcastd::formatted("%A", &address);
}

std::string duration_text(uint64_t seconds)
{
    char buffer[MCAST_TIME_STR_SIZE];
    MCAST_ConvertTimeToString(static_cast<uint32_t>(std::min<uint64_t>(seconds, UINT32_MAX)), buffer);
    return buffer;
}

} // namespace mcastctl
