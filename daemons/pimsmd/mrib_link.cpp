#include "daemons/pimsmd/mrib_link.h"

#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <sys/epoll.h>
#include <sys/socket.h>

#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "daemons/common/services.h"
#include "mcast/addr.h"
#include "mcast/member_channel.h"

namespace pimsmd
{
namespace
{

// Entries that a round of the event loop tells, and of what hosts want those that it looks at.
constexpr size_t ENTRIES_PER_ROUND = 1024;
constexpr size_t SWEPT_PER_ROUND = 4096;

// Messages of the member channel that a wake-up reads, so that everything else has its turn.
constexpr unsigned MESSAGES_PER_WAKE = 32;

constexpr uint32_t MS_PER_S = 1000;

// The library's callbacks have no context.
MribLink *the_link;

// The markers of a full report say all zeroes.
constexpr MRIB_SMOOTH_RECORD_S MARKER{};

} // namespace

MribLink::MribLink(mcastd::Reactor &reactor, MsQueue &queue, Router &router, RegisterTunnels &tunnels)
    : reactor_(reactor), queue_(queue), router_(router),
      teller_(mcastd::PUBLIC_INSTANCE, router.trees(), *this, tunnels),
      listener_(mcastd::PUBLIC_INSTANCE, queue, router.trees(), *this, teller_, tunnels),
      channel_(reactor, [this] { report_all(); })
{
    router_.set_mrib(this);
    the_link = this;
    // What fails when a connection is made is tried again here, and what was refused is asked for again.
    reactor_.add_each_second([this] {
        if (channel_.connected() && member_ < 0) {
            channel_.start_over();
        } else if (member_ >= 0 && !asking_ && listener_.wants_replay()) {
            request_replay();
        }
    });
}

MribLink::~MribLink()
{
    router_.set_mrib(nullptr);
    drop_member();
    channel_.close();
    the_link = nullptr;
}

bool MribLink::open(MCAST_TMR_S *timers, uint32_t relearn_s)
{
    const bool ipv4 = router_.family() == MCAST_FAMILY_IPV4;
    const uint32_t component =
        ipv4 ? mcastd::COMPONENT_PIMSMD_IPV4 : MCAST_Mid4ToMid6(mcastd::COMPONENT_PIMSMD_IPV4);
    MRIB_GMP_CALLBACKS_S callbacks{};
    callbacks.vrf_enabled = [](const MRIB_GMP_VRF_KEY_S *) {
    }; // subscribes to the state; the library keeps it
    callbacks.smooth_finished = on_smooth_finished;
    queue_.start(
        relearning_, uint64_t{relearn_s} * MS_PER_S, [](void *) {}, nullptr);
    return channel_.open(timers, {static_cast<uint8_t>(component), static_cast<uint8_t>(router_.family()), 1},
                         callbacks);
}

void MribLink::close()
{
    if (channel_.connected()) {
        teller_.take_leave(*this);
        channel_.flush();
    }
    drop_member();
    channel_.close();
}

void MribLink::link_came(unsigned link)
{
    teller_.link_came(link);
    came_ |= Links{1} << link;
}

void MribLink::dr_changed(unsigned link)
{
    teller_.dr_changed(link);
}

void MribLink::link_gone(unsigned link, uint32_t if_index)
{
    teller_.link_gone(link, if_index);
    came_ &= ~(Links{1} << link);
}

void MribLink::entry_changed(const Address &group, const Address &source)
{
    teller_.entry_changed(group, source);
}

bool MribLink::has_room()
{
    return channel_.connected() && channel_.pending() == 0 && MRIB_GMP_IsConnectionBusy() == 0;
}

void MribLink::append(uint16_t type, std::span<const uint8_t> value) MCAST_NO_LOCK_ANALYSIS
{
    const uint32_t size = MRIB_RECORD_SIZE(value.size());
    pthread_mutex_lock(&g_stMribConnectInfo.lock.posix);
    void *record = MRIB_GMP_GetOutBuffer(&g_stMribConnectInfo, size);

    if (record != nullptr) {
        std::memcpy(MRIB_TlvStart(record, type, static_cast<uint16_t>(value.size())), value.data(),
                    value.size());
    }
    pthread_mutex_unlock(&g_stMribConnectInfo.lock.posix);
}

void MribLink::join_prune(uint32_t if_index, const Address &group, const Address &source, uint8_t join,
                          uint8_t exclude)
{
    const MRIB_GMP_VRF_KEY_S key{static_cast<uint8_t>(router_.family()), mcastd::PUBLIC_INSTANCE};
    MRIB_GMP_SendGmpJoinPrune(&key, if_index, &group, &source, join, exclude);
}

uint32_t MribLink::interface_of(unsigned link) const
{
    const Link *found = router_.link(link);
    return found != nullptr ? found->state().if_index : 0;
}

std::optional<unsigned> MribLink::link_of(uint32_t if_index) const
{
    return router_.link_of(if_index);
}

std::optional<Tunnel> MribLink::tunnel_to(const Address &rp, unsigned link)
{
    const std::optional<Address> from = router_.source_towards(rp);
    const Link *source_link = router_.link(link);
    if (!from || source_link == nullptr) {
        return std::nullopt;
    }
    return Tunnel{*from, rp, 0, source_link->state().mtu};
}

// The channel has just connected: the report follows in rounds, as the MRIB process takes it.
void MribLink::report_all()
{
    drop_member();
    replayed_ = say_again_ = false;
    begin_report();
    if (!open_member()) {
        mcastd::log_warning("cannot hear what the MRIB process says, trying every second");
    }
}

void MribLink::begin_report()
{
    teller_.start_over();
    MRIB_GMP_SendSmoothAlert(static_cast<uint8_t>(router_.family()), mcastd::PIM_TLV_BEGIN, &MARKER);
    bracket_open_ = true;
}

// The first of a connection is the one that connecting asked for.
void MribLink::on_smooth_finished()
{
    the_link->say_again_ |= the_link->replayed_;
    the_link->replayed_ = true;
}

void MribLink::end_bracket()
{
    if (bracket_open_ && teller_.is_complete() && !relearning_.running()) {
        MRIB_GMP_SendSmoothAlert(static_cast<uint8_t>(router_.family()), mcastd::PIM_TLV_END, &MARKER);
        bracket_open_ = false;
    }
}

bool MribLink::work()
{
    for (; came_ != 0; came_ &= came_ - 1) {
        const auto link = static_cast<unsigned>(std::countr_zero(came_));
        listener_.link_came(link, interface_of(link));
    }
    return listener_.sweep(SWEPT_PER_ROUND);
}

bool MribLink::flush()
{
    if (!channel_.connected()) {
        drop_member();
        return false;
    }
    if (say_again_) {
        say_again_ = false;
        begin_report();
    }
    const bool more = teller_.tell(*this, ENTRIES_PER_ROUND);
    if (!more) {
        end_bracket();
    }
    channel_.flush();
    return more;
}

bool MribLink::open_member()
{
    const auto family = static_cast<uint32_t>(router_.family());
    const uint32_t fd =
        MBR_LIB_Init(family, mcastd::COMPONENT_PIMSMD_IPV4, static_cast<uint32_t>(reactor_.descriptor()),
                     mcastd::Reactor::context());
    if (fd == MCAST_NONE) {
        return false;
    }
    member_ = static_cast<int>(fd);
    reactor_.attach(member_, [this](uint32_t events) { serve_member(events); });
    if (MBR_LIB_RegEvt(family, mcastd::PIM_EVENTS) != MCAST_OK) {
        drop_member();
        return false;
    }
    request_replay();
    return member_ >= 0;
}

void MribLink::drop_member()
{
    if (member_ >= 0) {
        reactor_.remove(member_);
        MBR_LIB_Fini(router_.family());
        member_ = -1;
        asking_ = false;
    }
}

void MribLink::request_replay()
{
    mcastd::PimReplay request{};
    request.family = static_cast<uint8_t>(router_.family());
    request.events = mcastd::PIM_EVENTS;
    listener_.replay_begins();
    asking_ = true;
    if (MBR_LIB_SendMsg(router_.family(), mcastd::PIM_TLV_REQUEST, sizeof(request), &request, 0) ==
        MCAST_OK) {
        send_waiting();
    } else {
        drop_member();
    }
}

// What the socket does not take now goes out once it has room.
void MribLink::send_waiting()
{
    const bool sent = MBR_LIB_SendMsg(router_.family(), 0, 0, nullptr, 1) == MCAST_OK;
    reactor_.modify(member_, sent ? EPOLLIN : EPOLLIN | EPOLLOUT);
}

void MribLink::serve_member(uint32_t events)
{
    if (!receive()) {
        drop_member();
        channel_.start_over();
        return;
    }
    if (member_ >= 0 && (events & EPOLLOUT) != 0) {
        send_waiting();
    }
}

// False when the connection has ended.
bool MribLink::receive()
{
    static std::array<uint8_t, MRIB_MSG_RECV_MAX> message;
    for (unsigned count = 0; count < MESSAGES_PER_WAKE; ++count) {
        const ssize_t size = recv(member_, message.data(), message.size(), MSG_DONTWAIT);
        if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
            return true;
        }
        if (size <= 0) {
            return false;
        }
        MRIB_MSG_READER_S reader;
        MRIB_RECORD_S record;
        MRIB_MsgReaderStart(&reader, message.data(), static_cast<size_t>(size));
        while (MRIB_MsgReaderNext(&reader, &record) == MCAST_TRUE) {
            asking_ &= record.type != mcastd::PIM_TLV_REPLAYED;
            if (listener_.take(record)) {
                request_replay();
            }
        }
        if (member_ < 0) {
            return false;
        }
    }
    return true;
}

} // namespace pimsmd
