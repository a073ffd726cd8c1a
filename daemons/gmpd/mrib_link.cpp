/*
 * The channel's rules, as this daemon keeps them:
 *
 *  - a record is appended and goes out with flush, many to a message;
 *  - what the socket does not take waits in the library's queue; while something waits the socket is watched
 *    for room and drained a batch at a time;
 *  - a queue that overflows loses records: flush then drops the connection, and the next one begins with the
 *    whole state, as every new connection does;
 *  - a connection that cannot be made, or breaks, is tried again after a second, for ever.
 */
#include "daemons/gmpd/mrib_link.h"

#include <sys/epoll.h>

#include "daemons/common/log.h"
#include "daemons/common/membership.h"
#include "daemons/gmpd/group_state.h"
#include "mcast/addr.h"
#include "mcast/mrib.h"

namespace gmpd
{

namespace
{

constexpr uint32_t RETRY_MS = 1000;
constexpr uint32_t MESSAGE_SIZE = MRIB_MSG_RECV_MAX;
constexpr uint64_t VRF_COUNT = 1;
// The component code of the IPv4 daemon; the IPv6 daemon's is its twin.
constexpr uint32_t COMPONENT_IPV4 = 4;
constexpr uint32_t SEND_LATER = 0;

MribLink *the_link;

MRIB_GMP_VRF_KEY_S key_of(const Interface &interface)
{
    return MRIB_GMP_VRF_KEY_S{interface.router->config.family, 0};
}

// What waits in the library: whole messages, and bytes of the one being filled.
struct Backlog {
    uint32_t messages;
    uint32_t bytes;
};

Backlog read_backlog() MCAST_NO_LOCK_ANALYSIS
{
    pthread_mutex_lock(&g_stMribConnectInfo.lock.posix);
    const Backlog backlog = {g_stMribConnectInfo.pending_count, g_stMribConnectInfo.used};

    pthread_mutex_unlock(&g_stMribConnectInfo.lock.posix);
    return backlog;
}

} // namespace

MribLink::MribLink(Router &router, mcastd::Reactor &reactor)
    : router_(router), policy_(router), reactor_(reactor)
{
    the_link = this;
}

MribLink::~MribLink()
{
    if (open_) {
        open_ = false;
        router_.policy = &EVERYTHING_MAY;
        MRIB_GMP_CloseConnection();
        MRIB_GMP_Fini();
    }
    timer_stop(router_.timers, retry_);
    the_link = nullptr;
}

bool MribLink::open()
{
    const bool ipv4 = router_.config.family == MCAST_FAMILY_IPV4;
    const uint32_t component = ipv4 ? COMPONENT_IPV4 : MCAST_Mid4ToMid6(COMPONENT_IPV4);
    MRIB_GMP_CALLBACKS_S callbacks{};

    callbacks.connected = on_connected;
    callbacks.disconnected = on_disconnected;
    MribPolicy::add_callbacks(callbacks);
    if (MRIB_GMP_Init(static_cast<uint8_t>(component), router_.config.family, VRF_COUNT, MESSAGE_SIZE,
                      &callbacks) != MCAST_OK) {
        mcastd::log_error("cannot set up the channel to the MRIB process");
        return false;
    }
    open_ = true;
    router_.policy = &policy_;
    connect();
    return true;
}

void MribLink::connect()
{
    if (MRIB_GMP_OpenConnect() != MCAST_OK || !connected_) {
        if (!reported_missing_) {
            reported_missing_ = true;
            mcastd::log_warning(
                "no connection to the MRIB process yet, trying every second: is mribd running?");
        }
        retry_later();
        return;
    }
    reported_missing_ = false;
    ++connects_;
    mcastd::log_info("connected to the MRIB process");
    tell_all();
}

void MribLink::retry_later()
{
    timer_start(router_.timers, retry_, RETRY_MS, on_retry, this);
}

void MribLink::on_retry(void *owner)
{
    static_cast<MribLink *>(owner)->connect();
}

uint64_t MribLink::on_connected(int32_t socket)
{
    MribLink &link = *the_link;

    if (!link.reactor_.add(socket, EPOLLIN,
                           [&link, socket](uint32_t events) { link.ready(events, socket); })) {
        mcastd::log_error("cannot watch the connection to the MRIB process");
        return MCAST_ERR_GENERAL;
    }
    link.connected_ = true;
    link.waiting_for_room_ = false;
    link.socket_ = socket;
    return MCAST_OK;
}

void MribLink::on_disconnected(int32_t socket)
{
    MribLink &link = *the_link;

    if (!link.connected_) {
        return;
    }
    link.connected_ = false;
    link.reactor_.remove(socket);
    if (link.open_) {
        mcastd::log_warning("the connection to the MRIB process is gone, trying every second");
        link.reported_missing_ = true;
        link.retry_later();
    }
}

void MribLink::ready(uint32_t events, int socket)
{
    if (events & (EPOLLIN | EPOLLERR | EPOLLHUP)) {
        MRIB_GMP_ProcLipcMsg(events, socket);
    }
    if (connected_ && (events & EPOLLOUT) != 0) {
        MRIB_GMP_SendFailData();
    }
}

void MribLink::flush()
{
    policy_.apply_changes();
    if (!connected_) {
        return;
    }
    if (MRIB_GMP_CloseFailConnection() == 1) {
        mcastd::log_warning("records for the MRIB process were lost, starting over");
        return;
    }
    MRIB_GMP_SendAtOnce();
    const Backlog left = read_backlog();
    const bool backlog = left.messages > 0 || left.bytes > sizeof(MRIB_MSG_HEADER_S);

    if (backlog != waiting_for_room_ && reactor_.modify(socket_, backlog ? EPOLLIN | EPOLLOUT : EPOLLIN)) {
        waiting_for_room_ = backlog;
    }
}

uint32_t MribLink::pending() const
{
    return read_backlog().messages;
}

void MribLink::tell_all()
{
    for (const auto &[index, interface] : router_.interfaces) {
        if (interface->running) {
            tell_running(*interface, true);
            tell_querier(*interface, interface->querier.elected);
            tell_everything(*interface);
        }
    }
}

void MribLink::tell_running(const Interface &interface, bool running)
{
    const MRIB_GMP_VRF_KEY_S key = key_of(interface);

    if (!connected_) {
        return;
    }
    if (!running) {
        const MRIB_MEMBER_SELECTOR_S every_member{};

        MRIB_GMP_SendDeleteIfMember(&key, interface.index, &every_member);
    }
    MRIB_GMP_SendGmpEnableAlert(&key, interface.index, running ? mcastd::GMP_ENABLED : mcastd::GMP_DISABLED,
                                SEND_LATER);
}

void MribLink::tell_querier(const Interface &interface, bool elected)
{
    const MRIB_GMP_VRF_KEY_S key = key_of(interface);

    if (connected_) {
        MRIB_GMP_SendQuerierChangeAlert(
            &key, interface.index, elected ? mcastd::QUERIER_THIS_ROUTER : mcastd::QUERIER_OTHER, SEND_LATER);
    }
}

void MribLink::tell_member(const Interface &interface, const Address &group, const Address *source, bool join,
                           bool blocked)
{
    const MRIB_GMP_VRF_KEY_S key = key_of(interface);

    if (connected_) {
        MRIB_GMP_SendGmpJoinPrune(&key, interface.index, &group, source,
                                  join ? mcastd::MEMBERSHIP_JOIN : mcastd::MEMBERSHIP_PRUNE,
                                  blocked ? mcastd::MEMBERSHIP_EXCLUDE : mcastd::MEMBERSHIP_PLAIN);
    }
}

} // namespace gmpd
