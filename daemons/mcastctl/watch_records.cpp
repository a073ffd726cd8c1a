#include "daemons/mcastctl/watch_records.h"

#include <cstdarg>
#include <cstring>

#include "daemons/common/address.h"
#include "mcast/format.h"

namespace mcastctl
{
namespace
{

constexpr WatchedEvents EVENTS[] = {
    {"instances", "Instances switched on and off", MRIB_CAP_VRF, MRIB_TLV_REQ_VRF_STATE, false},
    {"ssm-policy", "Source-specific ranges", MRIB_CAP_SSM_POLICY, MRIB_TLV_REQ_SSM_POLICY, false},
    {"designated-router", "Where this router is the designated one", MRIB_CAP_DR, MRIB_TLV_REQ_PIM_DR, false},
    {"boundaries", "Boundaries of interfaces", MRIB_CAP_BOUNDARY, MRIB_TLV_REQ_BOUNDARY, false},
    {"local-sources", "Sources on this router's links, as told to an MSDP daemon; IPv4",
     MRIB_CAP_MSDP_LOCAL_SRC, MRIB_TLV_REQ_LOCAL_SRC, true},
};

// A line under construction: what every line begins with is put in front.
class Line
{
public:
    Line(uint8_t family, uint32_t if_filter)
        : start_(std::string(mcastd::family_name(family)) + ": "), if_filter_(if_filter)
    {
    }

    // A format of MCAST_vsprintf and its arguments; %P is the interface that the filter is asked about.
    std::string operator()(const char *text, ...) const
    {
        char buffer[512];
        va_list arguments;
        va_start(arguments, text);
        const uint64_t length =
            MCAST_vsprintf(nullptr, MCAST_NONE, if_filter_, text, arguments, sizeof(buffer), buffer);
        va_end(arguments);
        return length == 0 ? "" : start_ + std::string(buffer, length);
    }

private:
    std::string start_;
    uint32_t if_filter_;
};

// A copy of the record's value, whose fields may then be handed on by address.
template <typename Value> bool read(const MRIB_RECORD_S &record, Value *value)
{
    if (record.length < sizeof(*value)) {
        return false;
    }
    std::memcpy(value, record.value, sizeof(*value));
    return true;
}

MCAST_ADDR_S ipv4_of(uint32_t address_be)
{
    return mcastd::make_address(MCAST_FAMILY_IPV4, &address_be);
}

std::string line_of(const Line &line, const MRIB_VRF_STATE_S &value)
{
    return line("instance %u: %s", value.vrf_index, value.state == 1 ? "enabled" : "disabled");
}

std::string line_of(const Line &line, const MRIB_SSM_POLICY_S &value)
{
    if (value.acl_number == MCAST_NONE) {
        return line("source-specific range, instance %u: the default one", value.vrf_index);
    }
    return line("source-specific range, instance %u: access list %u", value.vrf_index, value.acl_number);
}

std::string line_of(const Line &line, const MRIB_PIM_DR_S &value)
{
    return line("designated router on %P, instance %u: %s", value.if_index, value.vrf_index,
                value.state == 1 ? "this one" : "not this one");
}

std::string line_of(const Line &line, const MRIB_BOUNDARY_S &value)
{
    const char *what = value.operation == 1 ? "added" : "removed";
    if (value.remove_all == 1) {
        return line("boundaries on %P, instance %u: all removed", value.if_index, value.vrf_index);
    }
    if (value.scope_flag == 1) {
        return line("boundary of scope %u on %P, instance %u: %s", value.scope, value.if_index,
                    value.vrf_index, what);
    }
    const MCAST_ADDR_S range = mcastd::make_address(value.family, value.address);
    return line("boundary %A/%u on %P, instance %u: %s", &range, value.prefix_length, value.if_index,
                value.vrf_index, what);
}

std::string line_of(const Line &line, const MRIB_MSDP_LOCAL_SRC_S &value)
{
    const MCAST_ADDR_S source = ipv4_of(value.source_be);
    const MCAST_ADDR_S group = ipv4_of(value.group_be);
    const MCAST_ADDR_S rp = ipv4_of(value.rp_be);
    return line("local source (%M, %N), instance %u, rp %A: %s", &source, &group, value.vrf_index, &rp,
                value.operation == 1 ? "added" : "removed");
}

template <typename Value> std::string read_line(const Line &line, const MRIB_RECORD_S &record)
{
    Value value;
    if (!read(record, &value)) {
        return line("record of type %u: %u bytes are too few", record.type, record.length);
    }
    return line_of(line, value);
}

} // namespace

std::span<const WatchedEvents> watched_events()
{
    return EVENTS;
}

std::string watch_line(uint8_t family, const MRIB_RECORD_S &record, uint32_t if_filter)
{
    const Line line(family, if_filter);
    switch (record.type) {
    case MRIB_TLV_VRF_STATE:
        return read_line<MRIB_VRF_STATE_S>(line, record);
    case MRIB_TLV_SSM_POLICY:
        return read_line<MRIB_SSM_POLICY_S>(line, record);
    case MRIB_TLV_PIM_DR:
        return read_line<MRIB_PIM_DR_S>(line, record);
    case MRIB_TLV_BOUNDARY:
        return read_line<MRIB_BOUNDARY_S>(line, record);
    case MRIB_TLV_MSDP_LOCAL_SRC:
        return read_line<MRIB_MSDP_LOCAL_SRC_S>(line, record);
    case MRIB_TLV_VRF_STATE_END:
        return line("end of instances");
    case MRIB_TLV_PIM_DR_END:
        return line("end of designated routers");
    case MRIB_TLV_BOUNDARY_END:
        return line("end of boundaries");
    case MRIB_TLV_MSDP_LOCAL_SRC_END:
        return line("end of local sources");
    case MRIB_TLV_SMOOTH_START:
        return line("mribd asks to read everything again");
    default:
        return line("record of type %u, %u bytes", record.type, record.length);
    }
}

} // namespace mcastctl
