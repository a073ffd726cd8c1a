#include "daemons/common/trace.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "daemons/common/log.h"
#include "daemons/common/log_output.h"
#include "mcast/interface_name.h"
#include "platform/acl.h"

namespace mcastd
{
namespace
{

using trace_detail::g_settings;

constexpr const char *CATEGORY_NAMES[] = {"packet", "group", "querier", "channel", "route", "user"};
constexpr uint32_t EVERY_CATEGORY = (1u << std::size(CATEGORY_NAMES)) - 1;
static_assert(EVERY_CATEGORY == 2 * static_cast<uint32_t>(TraceCategory::User) - 1,
              "each category has a name");

// "name: trace: " and the instance, behind which the text goes. The length.
size_t write_start(const MRIB_GMP_VRF_KEY_S &key, char *line, size_t size)
{
    char vrf_name[MCAST_VRF_NAME_SIZE];
    char instance[MCAST_INST_STR_SIZE];
    MCAST_GetVrfNameByVrfIndex(key.vrf_index, vrf_name);
    MCAST_GetInstStr(&key, vrf_name, instance);
    const int length = std::snprintf(line, size, "%s: trace: %s", log_name(), instance);
    return length < 0 ? 0 : static_cast<size_t>(length);
}

} // namespace

TraceSettings trace_detail::g_settings;

std::span<const char *const> trace_category_names()
{
    return CATEGORY_NAMES;
}

const TraceSettings &trace_settings()
{
    return g_settings;
}

bool trace_switch(std::string_view name, bool on, std::string *error)
{
    uint32_t bits = name == "all" ? EVERY_CATEGORY : 0;
    for (size_t i = 0; i < std::size(CATEGORY_NAMES); ++i) {
        bits |= name == CATEGORY_NAMES[i] ? 1u << i : 0;
    }
    if (bits == 0) {
        *error = "no trace category \"" + std::string(name) + "\"; allowed: all";
        for (const char *known : CATEGORY_NAMES) {
            *error += std::string(", ") + known;
        }
        return false;
    }
    g_settings.categories = on ? g_settings.categories | bits : g_settings.categories & ~bits;
    return true;
}

bool trace_filter_acl(uint32_t number, std::string *error)
{
    if (number != MCAST_NONE && ACL_GetRuleTotalNumber(ACL_FAMILY_IPV4, number) == 0 &&
        ACL_GetRuleTotalNumber(ACL_FAMILY_IPV6, number) == 0) {
        *error = "no access list " + std::to_string(number) + " with rules is configured";
        return false;
    }
    g_settings.acl = number;
    return true;
}

bool trace_filter_interface(const std::string &name, std::string *error)
{
    if (name.empty()) {
        g_settings.if_index = 0;
        return true;
    }
    char full_name[MCAST_IF_NAME_SIZE] = "";
    uint32_t if_index = 0;
    if (name.size() < sizeof(full_name)) {
        std::memcpy(full_name, name.c_str(), name.size() + 1);
        if_index = MCAST_GetIfIndexByIfName("", "", full_name);
    }
    if (if_index == 0) {
        *error = "there is no interface " + name;
        return false;
    }
    g_settings.if_index = if_index;
    return true;
}

void trace_line(MRIB_GMP_VRF_KEY_S key, const char *format, ...)
{
    const int saved_errno = errno;
    char line[LOG_LINE_MAX];
    const size_t start = write_start(key, line, sizeof(line));
    va_list arguments;
    va_start(arguments, format);
    const uint64_t length = MCAST_vsprintf(&key, g_settings.acl, g_settings.if_index, format, arguments,
                                           sizeof(line) - start, line + start);
    va_end(arguments);
    if (length != 0) {
        line[start + length] = '\n'; // takes the place of the terminator
        log_output_line(line, start + length + 1);
    }
    errno = saved_errno;
}

} // namespace mcastd
