#include "daemons/pimsmd/register_report.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <linux/mroute.h>
#include <linux/mroute6.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

namespace pimsmd
{
namespace
{

static_assert(REPORT_WHOLE_PACKET == IGMPMSG_WHOLEPKT && REPORT_WHOLE_PACKET == MRT6MSG_WHOLEPKT);
static_assert(REPORT_KIND_AT == NLMSG_HDRLEN + NLMSG_ALIGN(sizeof(rtgenmsg)) + NLA_HDRLEN);

// Both families number the attributes alike; IPv4 has one more.
static_assert(+IPMRA_CREPORT_MSGTYPE == +IP6MRA_CREPORT_MSGTYPE && +IPMRA_CREPORT_PKT == +IP6MRA_CREPORT_PKT);

template <typename Record> bool read_record(std::span<const uint8_t> bytes, Record *record)
{
    if (bytes.size() < sizeof(*record)) {
        return false;
    }
    std::memcpy(record, bytes.data(), sizeof(*record));
    return true;
}

// Takes the attribute at the front of *left; false when there is no whole one.
bool next_attribute(std::span<uint8_t> *left, uint16_t *type, std::span<uint8_t> *value)
{
    nlattr header{};
    if (!read_record(*left, &header) || header.nla_len < NLA_HDRLEN || header.nla_len > left->size()) {
        return false;
    }
    *type = header.nla_type & NLA_TYPE_MASK;
    *value = left->subspan(NLA_HDRLEN, header.nla_len - NLA_HDRLEN);
    *left = left->subspan(std::min<size_t>(NLA_ALIGN(header.nla_len), left->size()));
    return true;
}

// Reads the attributes. Whether all that matters is there.
bool read_attributes(uint16_t family, std::span<uint8_t> left, RegisterReport *report)
{
    uint16_t type = 0;
    std::span<uint8_t> value;
    uint8_t kind = 0;
    std::optional<uint32_t> vif;
    const size_t size = address_size(family);
    *report = {};
    while (next_attribute(&left, &type, &value)) {
        uint32_t number = 0;
        if (type == IPMRA_CREPORT_MSGTYPE && !value.empty()) {
            kind = value[0];
        } else if (type == IPMRA_CREPORT_VIF_ID && read_record(value, &number)) {
            vif = number;
        } else if (type == IPMRA_CREPORT_SRC_ADDR && value.size() == size) {
            report->source = make_address(family, value.data());
        } else if (type == IPMRA_CREPORT_DST_ADDR && value.size() == size) {
            report->group = make_address(family, value.data());
        } else if (type == IPMRA_CREPORT_PKT) {
            report->packet = value;
        } else if (type == IPMRA_CREPORT_TABLE && family == MCAST_FAMILY_IPV4) {
            read_record(value, &report->table);
        }
    }
    report->vif = vif.value_or(0);
    return kind == REPORT_WHOLE_PACKET && vif && report->source.family != 0 && report->group.family != 0 &&
           !report->packet.empty();
}

} // namespace

bool next_report(uint16_t family, std::span<uint8_t> *bytes, RegisterReport *report)
{
    const uint8_t wanted = family == MCAST_FAMILY_IPV4 ? RTNL_FAMILY_IPMR : RTNL_FAMILY_IP6MR;
    nlmsghdr header{};
    rtgenmsg general{};
    while (read_record(*bytes, &header) && header.nlmsg_len >= NLMSG_HDRLEN &&
           header.nlmsg_len <= bytes->size()) {
        const std::span<uint8_t> content = bytes->subspan(NLMSG_HDRLEN, header.nlmsg_len - NLMSG_HDRLEN);
        *bytes = bytes->subspan(std::min<size_t>(NLMSG_ALIGN(size_t{header.nlmsg_len}), bytes->size()));
        if (header.nlmsg_type != RTM_NEWCACHEREPORT || !read_record(content, &general) ||
            general.rtgen_family != wanted || content.size() < NLMSG_ALIGN(sizeof(general))) {
            continue;
        }
        if (read_attributes(family, content.subspan(NLMSG_ALIGN(sizeof(general))), report)) {
            return true;
        }
    }
    *bytes = {};
    return false;
}

} // namespace pimsmd
