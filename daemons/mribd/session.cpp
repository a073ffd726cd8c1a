/*
 * What a client says: its messages are taken apart into records, each is checked, and the router of its instance told
 * of it. What it asks for, and in which order, is in session_answers.cpp.
 *
 * A record that does not pass its checks is counted by what was wrong and otherwise ignored, and the records
 * after it still count. Reading stops at the first record that does not lie whole inside the message.
 */
#include "daemons/mribd/session.h"

#include <cstring>

#include "daemons/common/log.h"
#include "daemons/common/membership.h"
#include "daemons/common/memory.h"
#include "mcast/addr.h"

namespace mribd
{

const char *fault_name(Fault fault)
{
    switch (fault) {
    case Fault::UnknownType:
        return "unknown_type";
    case Fault::NotServed:
        return "not_served";
    case Fault::Short:
        return "short";
    case Fault::NotRegistered:
        return "not_registered";
    case Fault::Family:
        return "family";
    case Fault::Instance:
        return "instance";
    case Fault::Interface:
        return "interface";
    case Fault::Group:
        return "group";
    case Fault::Source:
        return "source";
    case Fault::Flags:
        return "flags";
    case Fault::Limit:
        return "limit";
    case Fault::Memory:
        return "memory";
    case Fault::Count:
        break;
    }
    return "?";
}

Session::Session(ClientId id, const Backend &backend, ChannelCounters &counters)
    : id_(id), routers_(backend.routers), current_view_(backend.current_view), msdp_(backend.msdp),
      users_(backend.users), counters_(counters)
{
    ++counters_.clients;
}

Session::~Session()
{
    users_.drop_client(id_);
    msdp_.drop_client(id_);
    routers_.lose_client(id_);
}

void Session::take_message(const uint8_t *message, size_t size, bool truncated)
{
    ++counters_.messages;
    MRIB_MSG_READER_S reader;
    if (MRIB_MsgReaderStart(&reader, message, size) != MCAST_TRUE) {
        ++counters_.malformed_messages;
        return;
    }
    MRIB_MSG_HEADER_S header;
    std::memcpy(&header, message, sizeof(header));
    trace_channel("client %u: message of %u bytes, %u records", id_, static_cast<uint32_t>(size),
                  header.record_count);
    uint32_t taken = 0;
    MRIB_RECORD_S record;
    while (MRIB_MsgReaderNext(&reader, &record) == MCAST_TRUE) {
        ++taken;
        ++counters_.records;
        if (!mcastd::memory_unit("a record of a client", [&] { take_record(record); })) {
            missed_ = true;
            refuse(Fault::Memory);
        }
    }
    if (truncated || taken < header.record_count) {
        trace_channel("client %u: message holds %u of its records%s", id_, taken,
                      truncated ? ", and is too long" : "");
        ++counters_.malformed_messages;
    }
}

void Session::ask_refused_again()
{
    const Router *router = refused_ ? routers_.find(refused_->vrf_index) : nullptr;
    if (router == nullptr) {
        refused_.reset(); // what was refused went with its instance
    } else if (router->members().has_room(id_, refused_->if_index) && !queue_.has_overflowed()) {
        trace_channel("client %u: there is room again, told to say everything again", id_);
        tell([this] { queue_.put_marker(MRIB_TLV_SMOOTH_START); });
        refused_.reset();
    }
}

// A membership that finds no room is not lost: the client is asked for it when there is some.
Session::Taken Session::refuse_member(const Router &router, uint32_t if_index, Fault fault)
{
    refused_ = Refused{router.vrf_index(), if_index};
    return refuse(fault);
}

Session::Taken Session::refuse(Fault fault)
{
    ++counters_.faults[static_cast<size_t>(fault)];
    trace_channel("client %u: record ignored: %s", id_, fault_name(fault));
    return Taken::Ignored;
}

Session::Taken Session::take_record(const MRIB_RECORD_S &record)
{
    if (!registered_ && record.type != MRIB_TLV_REGISTER) {
        return refuse(Fault::NotRegistered);
    }
    switch (record.type) {
    case MRIB_TLV_REGISTER:
        return take_register(record);
    case MRIB_TLV_CHANGE_EVENTS:
        return take_change_of_events(record);
    case MRIB_TLV_GMP_ENABLE:
    case MRIB_TLV_QUERIER_CHANGE:
        return take_interface_alert(record);
    case MRIB_TLV_GMP_JOIN_PRUNE:
        return take_join_prune(record);
    case MRIB_TLV_DELETE_IF_MEMBER:
        return take_delete_member(record);
    case MRIB_TLV_REQ_VRF_STATE:
    case MRIB_TLV_REQ_SSM_POLICY:
    case MRIB_TLV_REQ_PIM_DR:
    case MRIB_TLV_REQ_BOUNDARY:
    case MRIB_TLV_REQ_LOCAL_SRC:
    case MRIB_TLV_SMOOTH_ALERT:
        return take_request(record);
    case MRIB_TLV_MSDP_REMOTE_SG:
        return take_remote_source(record);
    case MRIB_TLV_MSDP_ENCAP_ENABLE:
    case MRIB_TLV_MSDP_REQ_SA_ENABLE:
        return take_msdp_enable(record);
    case MRIB_TLV_MAUTH_USER_INFO:
        return take_user(record);
    default:
        break;
    }
    if (record.type >= MRIB_TLV_MSDP_SMOOTH_REMOTE_SG_BEGIN &&
        record.type <= MRIB_TLV_MSDP_SMOOTH_ENCAP_END) {
        return take_bracket(record);
    }
    if (record.type >= mcastd::PIM_TLV_INTERFACE && record.type <= mcastd::PIM_TLV_REQUEST) {
        return take_pim(record);
    }
    const bool is_known = (record.type >= MRIB_TLV_PROXY_ENABLE && record.type <= MRIB_TLV_PROXY_MULTIPATH) ||
                          record.type == MRIB_TLV_HOST_ENABLE;
    return refuse(is_known ? Fault::NotServed : Fault::UnknownType);
}

// The router that a record is for; NULL when there is none, which is counted.
Router *Session::router_for(uint8_t family, uint16_t vrf_index, uint32_t if_index)
{
    Router *router = routers_.find(vrf_index);
    if (family != routers_.family()) {
        refuse(Fault::Family);
    } else if (router == nullptr) {
        refuse(Fault::Instance);
    } else if (if_index == 0) {
        refuse(Fault::Interface);
    } else {
        return router;
    }
    return nullptr;
}

Session::Taken Session::take_interface_alert(const MRIB_RECORD_S &record)
{
    const auto *value = value_of<MRIB_IF_ALERT_S>(record);
    if (value == nullptr) {
        return refuse(Fault::Short);
    }
    Router *router = router_for(value->family, value->vrf_index, value->if_index);
    if (router == nullptr) {
        return Taken::Ignored;
    }
    if (value->value > 1) {
        return refuse(Fault::Flags);
    }
    if (record.type == MRIB_TLV_GMP_ENABLE) {
        const bool runs = value->value == mcastd::GMP_ENABLED;
        mcastd::trace(mcastd::TraceCategory::Channel, router->key(), "client %u: the protocol %s on %P", id_,
                      runs ? "runs" : "no longer runs", value->if_index);
        return router->set_enabled(id_, value->if_index, runs) ? Taken::Done : refuse(Fault::Limit);
    }
    const bool this_router = value->value == mcastd::QUERIER_THIS_ROUTER;
    mcastd::trace(mcastd::TraceCategory::Channel, router->key(), "client %u: %s is the querier on %P", id_,
                  this_router ? "this router" : "another router", value->if_index);
    return router->set_querier(id_, value->if_index, this_router) ? Taken::Done : refuse(Fault::Limit);
}

Session::Taken Session::take_join_prune(const MRIB_RECORD_S &record)
{
    const auto *value = value_of<MRIB_JOIN_PRUNE_S>(record);
    if (value == nullptr) {
        return refuse(Fault::Short);
    }
    Router *router = router_for(value->family, value->vrf_index, value->if_index);
    if (router == nullptr) {
        return Taken::Ignored;
    }
    const MCAST_ADDR_S group = make_address(value->family, value->group);
    const MCAST_ADDR_S source = make_address(value->family, value->source);
    if (value->flag1 > mcastd::MEMBERSHIP_JOIN || value->flag2 > mcastd::MEMBERSHIP_EXCLUDE) {
        return refuse(Fault::Flags);
    }
    if (MCAST_GrpAddrCheck(&group) != MCAST_TRUE) {
        return refuse(Fault::Group);
    }
    const bool exclude = value->flag2 == mcastd::MEMBERSHIP_EXCLUDE;
    const bool join = value->flag1 == mcastd::MEMBERSHIP_JOIN;
    if (is_unspecified(source) ? exclude : MCAST_SrcAddrCheck(&source) != MCAST_TRUE) {
        return refuse(Fault::Source);
    }
    const char *what = exclude ? (join ? "block" : "unblock") : (join ? "join" : "prune");
    if (is_unspecified(source)) {
        mcastd::trace(mcastd::TraceCategory::Channel, router->key(), "client %u: %s (*, %N) on %P", id_, what,
                      &group, value->if_index);
    } else {
        mcastd::trace(mcastd::TraceCategory::Channel, router->key(), "client %u: %s (%M, %N) on %P", id_,
                      what, &source, &group, value->if_index);
    }
    const bool begins = join && is_unspecified(source) && !router->members().has_source_join(group, source);
    const auto result =
        router->set_member(id_, value->if_index, group, source,
                           exclude ? MemberTable::Kind::Block : MemberTable::Kind::Join, join);
    if (begins && router == &routers_.common() && router->family() == MCAST_FAMILY_IPV4 &&
        result == MemberTable::Result::Changed) {
        msdp_.group_wanted(group);
    }
    if (result == MemberTable::Result::OverLimit) {
        return refuse_member(*router, value->if_index, Fault::Limit);
    }
    if (result == MemberTable::Result::NoMemory) {
        return refuse_member(*router, value->if_index, Fault::Memory);
    }
    return Taken::Done;
}

Session::Taken Session::take_delete_member(const MRIB_RECORD_S &record)
{
    const auto *value = value_of<MRIB_DELETE_IF_MEMBER_S>(record);
    if (value == nullptr) {
        return refuse(Fault::Short);
    }
    Router *router = router_for(value->family, value->vrf_index, value->if_index);
    if (router == nullptr) {
        return Taken::Ignored;
    }
    if (value->selector.word != 0 || value->selector.byte != 0) {
        return refuse(Fault::Flags);
    }
    mcastd::trace(mcastd::TraceCategory::Channel, router->key(), "client %u: forget everything on %P", id_,
                  value->if_index);
    router->drop_members(id_, value->if_index);
    return Taken::Done;
}

} // namespace mribd
