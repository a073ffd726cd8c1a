/*
 * The records of the MSDP daemon in a client's session.
 */
#include "daemons/mribd/session.h"
#include "mcast/addr.h"

namespace mribd
{
namespace
{

Bracket bracket_of(uint16_t type)
{
    switch (type) {
    case MRIB_TLV_MSDP_SMOOTH_REMOTE_SG_BEGIN:
    case MRIB_TLV_MSDP_SMOOTH_REMOTE_SG_END:
        return Bracket::RemoteSources;
    case MRIB_TLV_MSDP_SMOOTH_REQ_ENABLE_BEGIN:
    case MRIB_TLV_MSDP_SMOOTH_REQ_ENABLE_END:
        return Bracket::RequestEnables;
    default:
        return Bracket::EncapEnables;
    }
}

void put_local_source(const MsdpExchange::LocalSource &change, ClientQueue &queue)
{
    MRIB_MSDP_LOCAL_SRC_S record{};
    record.family = MCAST_FAMILY_IPV4;
    record.operation = change.present ? 1 : 0;
    record.vrf_index = PUBLIC_INSTANCE;
    std::memcpy(&record.source_be, change.source.address, sizeof(record.source_be));
    std::memcpy(&record.group_be, change.group.address, sizeof(record.group_be));
    record.rp_be = change.rp_be;
    queue.put(MRIB_TLV_MSDP_LOCAL_SRC, record);
}

} // namespace

void Session::tell_local_source(const MsdpExchange::LocalSource &change)
{
    if (wants(MRIB_CAP_MSDP_LOCAL_SRC)) {
        trace_channel("client %u: told: local source (%M, %N) %s", id_, &change.source, &change.group,
                      change.present ? "is there" : "is gone");
        tell([&] { put_local_source(change, queue_); });
    }
}

void Session::tell_request(const MCAST_ADDR_S &group)
{
    if (!wants(MRIB_CAP_MSDP_REMOTE_SRC) || queue_.message_count() > REPLAY_WAITING) {
        return;
    }
    trace_channel("client %u: asked for the sources of %N", id_, &group);
    MRIB_MSDP_REQ_REMOTE_SRC_S record{};
    record.family = MCAST_FAMILY_IPV4;
    record.vrf_index = PUBLIC_INSTANCE;
    std::memcpy(&record.group_be, group.address, sizeof(record.group_be));
    tell([&] { queue_.put(MRIB_TLV_MSDP_REQ_REMOTE_SRC, record); });
}

bool Session::continue_replay()
{
    const bool for_pim = continue_pim_replay();
    if (!local_replay_ || queue_.has_overflowed()) {
        return for_pim;
    }
    const auto put = [this](const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, uint8_t note) {
        if (queue_.has_overflowed() || queue_.message_count() > REPLAY_WAITING) {
            return false;
        }
        put_local_source({group, source, msdp_.rp_be(note), true}, queue_);
        return true;
    };
    if (msdp_.local_sources().visit(&*local_replay_, put)) {
        queue_.put_marker(MRIB_TLV_MSDP_LOCAL_SRC_END);
        local_replay_.reset();
    }
    return true;
}

Session::Taken Session::judge(MsdpExchange::Result result)
{
    switch (result) {
    case MsdpExchange::Result::Done:
        return Taken::Done;
    case MsdpExchange::Result::UnknownInstance:
        return refuse(Fault::Instance);
    case MsdpExchange::Result::NoMemory:
        missed_ = true;
        return refuse(Fault::Memory);
    case MsdpExchange::Result::Refused:
        break;
    }
    return refuse(Fault::Limit);
}

Session::Taken Session::take_remote_source(const MRIB_RECORD_S &record)
{
    const auto *value = value_of<MRIB_MSDP_REMOTE_SG_S>(record);
    if (value == nullptr || record.length < sizeof(*value) + value->data_length) {
        return refuse(Fault::Short);
    }
    if (value->family != routers_.family() || value->family != MCAST_FAMILY_IPV4) {
        return refuse(Fault::Family);
    }
    const MCAST_ADDR_S group = make_address(value->family, &value->group_be);
    const MCAST_ADDR_S source = make_address(value->family, &value->source_be);
    trace_channel("client %u: remote source (%M, %N) of instance %u %s", id_, &source, &group,
                  value->vrf_index, value->operation == 0 ? "removed" : "added");
    if (value->operation == 0) {
        return judge(msdp_.remove_remote(value->vrf_index, group, source));
    }
    if (MCAST_GrpAddrCheck(&group) != MCAST_TRUE) {
        return refuse(Fault::Group);
    }
    if (!is_routable_source(source)) {
        return refuse(Fault::Source);
    }
    return judge(msdp_.add_remote(value->vrf_index, group, source, value->entry));
}

Session::Taken Session::take_msdp_enable(const MRIB_RECORD_S &record)
{
    const auto *value = value_of<MRIB_MSDP_ENABLE_S>(record);
    if (value == nullptr) {
        return refuse(Fault::Short);
    }
    if (value->family != routers_.family() || value->family != MCAST_FAMILY_IPV4) {
        return refuse(Fault::Family);
    }
    if (value->enable > 1) {
        return refuse(Fault::Flags);
    }
    trace_channel("client %u: %s of instance %u %s", id_,
                  record.type == MRIB_TLV_MSDP_REQ_SA_ENABLE ? "source requests" : "encapsulation",
                  value->vrf_index, value->enable == 1 ? "enabled" : "disabled");
    const Bracket kind =
        record.type == MRIB_TLV_MSDP_REQ_SA_ENABLE ? Bracket::RequestEnables : Bracket::EncapEnables;
    return judge(msdp_.set_enable(kind, value->vrf_index, value->enable == 1));
}

Session::Taken Session::take_bracket(const MRIB_RECORD_S &record)
{
    const auto *value = value_of<MRIB_SMOOTH_ALERT_S>(record);
    if (value == nullptr) {
        return refuse(Fault::Short);
    }
    if (value->family != routers_.family() || value->family != MCAST_FAMILY_IPV4) {
        return refuse(Fault::Family);
    }
    trace_channel("client %u: re-send %s", id_, record.type % 2 == 0 ? "begins" : "ends");
    // The begin markers have the even numbers.
    if (record.type % 2 == 0) {
        msdp_.begin(bracket_of(record.type), id_);
        return Taken::Done;
    }
    return msdp_.end(bracket_of(record.type), id_) == MsdpExchange::Result::Done ? Taken::Done
                                                                                 : refuse(Fault::Flags);
}

} // namespace mribd
