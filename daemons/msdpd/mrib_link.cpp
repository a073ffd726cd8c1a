/*
 * A new connection begins with everything, in brackets whose end makes the MRIB process drop what was not
 * sent. This daemon may know little then, because it has just started and its peers are still telling what
 * they know. So while that lasts the bracket of the remote sources stays open: what the MRIB process knows
 * from before lives on until the peers had the time to connect and to announce everything once.
 */
#include "daemons/msdpd/mrib_link.h"

#include "daemons/common/memory.h"
#include "daemons/common/services.h"
#include "daemons/msdpd/request.h"
#include "daemons/msdpd/trace.h"

namespace msdpd
{
namespace
{

using mcastd::MS_PER_S;
using mcastd::PUBLIC_INSTANCE;

constexpr uint8_t OPERATION_DELETE = 0;
constexpr uint8_t OPERATION_ADD = 1;
constexpr uint8_t NO_ENTRY = 0;

// The speaker that the callbacks of the channel act on; they get no context of their own.
Speaker *the_speaker;

bool is_public(const MRIB_GMP_VRF_KEY_S *key)
{
    return key->vrf_index == PUBLIC_INSTANCE;
}

void send_remote(const Pair &pair, bool present)
{
    trace_told(pair, present);
    MRIB_MSDP_SendRemoteOneSG(PUBLIC_INSTANCE, present ? OPERATION_ADD : OPERATION_DELETE,
                              to_network(pair.group), to_network(pair.source), NO_ENTRY, nullptr, 0);
}

void send_forgotten(Ipv4 group)
{
    trace_forgotten(group);
    if (group == Ipv4{}) {
        MRIB_MSDP_SendDelAllRemoteSG(PUBLIC_INSTANCE);
    } else {
        MRIB_MSDP_SendDelOneGrpRemoteSG(PUBLIC_INSTANCE, to_network(group));
    }
}

bool wants_requests(const Speaker &speaker)
{
    for (const auto &[address, peer] : speaker.peers) {
        if (peer->config.enabled && peer->config.sa_request) {
            return true;
        }
    }
    return false;
}

} // namespace

MribLink::MribLink(mcastd::Reactor &reactor) : channel_(reactor, [this] { report_all(); })
{
}

MribLink::~MribLink()
{
    close();
}

bool MribLink::open(Speaker &speaker)
{
    MRIB_GMP_CALLBACKS_S callbacks{};
    callbacks.vrf_enabled = [](const MRIB_GMP_VRF_KEY_S *) {
    }; // subscribes to the state; the library keeps it
    callbacks.ssm_policy_changed = on_ssm_policy;
    callbacks.msdp_local_source = on_local_source;
    callbacks.msdp_remote_source_request = on_request;
    speaker_ = &speaker;
    the_speaker = &speaker;
    speaker.cache.on_change([this](const Pair &pair, bool present) {
        if (channel_.connected()) {
            send_remote(pair, present);
        }
    });
    speaker.cache.on_forget([this](Ipv4 group) {
        if (channel_.connected()) {
            send_forgotten(group);
        }
    });
    mcastd::timer_start(speaker.timers, relearning_,
                        (speaker.config.connect_retry_s + speaker.config.advertisement_s) * MS_PER_S,
                        on_relearned, this);
    return channel_.open(speaker.timers, {mcastd::COMPONENT_MSDPD, MCAST_FAMILY_IPV4, 1}, callbacks);
}

void MribLink::close()
{
    if (speaker_ != nullptr) {
        channel_.close();
        speaker_->cache.on_change(nullptr);
        speaker_->cache.on_forget(nullptr);
        mcastd::timer_stop(speaker_->timers, relearning_);
        speaker_ = the_speaker = nullptr;
    }
}

void MribLink::report_all()
{
    SaCache::Cursor cursor;
    MRIB_MSDP_SendSmoothRemoteSGBegin();
    bracket_open_ = true;
    speaker_->cache.visit(&cursor, [](const SaEntry &entry) {
        send_remote(entry.pair(), true);
        return true;
    });
    if (!relearning_.running()) {
        end_bracket();
    }
    tell_requests();
    MRIB_MSDP_SendSmoothEncapDataBegin();
    MRIB_MSDP_SendSmoothEncapDataEnd();
}

void MribLink::end_bracket()
{
    if (bracket_open_ && channel_.connected()) {
        MRIB_MSDP_SendSmoothRemoteSGEnd();
    }
    bracket_open_ = false;
}

void MribLink::on_relearned(void *link)
{
    static_cast<MribLink *>(link)->end_bracket();
}

void MribLink::tell_requests()
{
    if (channel_.connected()) {
        MRIB_MSDP_SendSmoothRequestEnableBegin();
        MRIB_MSDP_SendRequestSAEnable(PUBLIC_INSTANCE, wants_requests(*speaker_) ? 1 : 0);
        MRIB_MSDP_SendSmoothRequestEnableEnd();
    }
}

void MribLink::flush()
{
    advertise_flush(*speaker_);
    channel_.flush();
}

void MribLink::on_local_source(const MRIB_GMP_VRF_KEY_S *key, uint32_t rp_be, uint32_t group_be,
                               uint32_t source_be, const void *, uint32_t)
{
    // What finds no memory is announced with all others.
    if (is_public(key)) {
        mcastd::memory_unit("a new source", [=] {
            advertise_fresh(*the_speaker, from_network(rp_be),
                            {from_network(group_be), from_network(source_be)});
        });
    }
}

uint64_t MribLink::on_request(const MRIB_GMP_VRF_KEY_S *key, uint32_t group_be)
{
    if (is_public(key)) {
        mcastd::memory_unit("a request", [=] { ask_for_sources(*the_speaker, from_network(group_be)); });
    }
    return MCAST_OK;
}

void MribLink::on_ssm_policy(const MRIB_GMP_VRF_KEY_S *key, uint32_t)
{
    if (is_public(key)) {
        speaker_check_cache(*the_speaker);
    }
}

bool MribLink::next_local(uint32_t acl, Ipv4 group, MRIB_MSDP_CURSOR_S *cursor, MRIB_MSDP_BATCH_S *batch)
{
    const MRIB_MSDP_FILTER_S filter{PUBLIC_INSTANCE, acl, MRIB_MSDP_BATCH_MAX, to_network(group)};
    return MRIB_MSDP_GetLocalSrc(PUBLIC_INSTANCE, &filter, cursor, batch) == MCAST_WALK_AGAIN ||
           cursor->rp_be != 0;
}

uint32_t MribLink::local_count()
{
    uint32_t count = 0;
    // The MRIB process tells the sources of one RP.
    MRIB_MSDP_GetSGCntOfOneRP(PUBLIC_INSTANCE, 0, &count);
    return count;
}

bool MribLink::is_source_specific(Ipv4 group)
{
    return MRIB_MSDP_IsSSMGroup(PUBLIC_INSTANCE, to_network(group)) == MCAST_TRUE;
}

} // namespace msdpd
