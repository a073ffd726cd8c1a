/*
 * The channel's rules, as the daemons keep them:
 *
 *  - a record is appended and goes out with flush, many to a message;
 *  - what the socket does not take waits in the library's queue; while something waits the socket is watched
 *    for room and drained a batch at a time;
 *  - a queue that overflows loses records: flush then drops the connection, and the next one begins with the
 *    whole state, as every new connection does;
 *  - a connection that cannot be made, or breaks, is tried again after a second, for ever.
 */
#include "daemons/common/mrib_channel.h"

#include <cerrno>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <utility>
#include <linux/sockios.h>

#include "daemons/common/log.h"
#include "daemons/common/memory.h"

namespace mcastd
{
namespace
{

constexpr uint32_t RETRY_MS = 1000;
constexpr uint32_t MESSAGE_SIZE = MRIB_MSG_RECV_MAX;

MribChannel *the_channel;

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

MribChannel::MribChannel(Reactor &reactor, std::function<void()> report_all)
    : reactor_(reactor), report_all_(std::move(report_all))
{
    the_channel = this;
    // A timer needs memory; should it have been missing when one was to be started, this looks.
    reactor_.add_each_second([this] {
        if (open_ && !connected_ && !retry_.running()) {
            connect();
        } else if (connected_ && missed_ && !memory_is_short()) {
            log_warning(
                "there was no memory for what the MRIB process said; connecting again to hear everything");
            MRIB_GMP_CloseConnection();
        }
    });
}

MribChannel::~MribChannel()
{
    close();
    the_channel = nullptr;
}

bool MribChannel::open(MCAST_TMR_S *timers, const Client &client, const MRIB_GMP_CALLBACKS_S &callbacks)
{
    timers_ = timers;
    client_ = client;
    callbacks_ = callbacks;
    callbacks_.connected = on_connected;
    callbacks_.disconnected = on_disconnected;
    return open();
}

bool MribChannel::reopen(uint64_t instance_count)
{
    close();
    client_.instance_count = instance_count;
    return open();
}

bool MribChannel::open()
{
    if (MRIB_GMP_Init(client_.component, client_.family, client_.instance_count, MESSAGE_SIZE, &callbacks_) !=
        MCAST_OK) {
        log_error("cannot set up the channel to the MRIB process");
        MRIB_GMP_Fini(); // what was set up until then
        return false;
    }
    open_ = true;
    connect();
    return true;
}

void MribChannel::close()
{
    if (open_) {
        open_ = false;
        MRIB_GMP_CloseConnection();
        MRIB_GMP_Fini();
        timer_stop(timers_, retry_);
    }
}

void MribChannel::start_over()
{
    if (connected_) {
        connected_ = false; // before the library says so, which is then nothing that happened to us
        reactor_.remove(socket_);
    }
    MRIB_GMP_CloseConnection();
    timer_stop(timers_, retry_);
    connect();
}

void MribChannel::connect()
{
    if (MRIB_GMP_OpenConnect() != MCAST_OK || !connected_) {
        MRIB_GMP_CloseConnection(); // one that cannot be watched would count as made for ever
        if (!reported_missing_) {
            reported_missing_ = true;
            log_warning("the MRIB process cannot be reached, trying every second: is mribd running?");
        }
        retry_later();
        return;
    }
    reported_missing_ = false;
    ++connects_;
    log_info("connected to the MRIB process");
    if (!memory_unit("telling the MRIB process everything", report_all_)) {
        MRIB_GMP_CloseConnection();
    }
}

void MribChannel::retry_later()
{
    timer_start(timers_, retry_, RETRY_MS, on_retry, this);
}

void MribChannel::on_retry(void *owner)
{
    static_cast<MribChannel *>(owner)->connect();
}

uint64_t MribChannel::on_connected(int32_t socket)
{
    MribChannel &channel = *the_channel;
    bool watched = false;
    memory_unit("the connection to the MRIB process", [&channel, &watched, socket] {
        watched = channel.reactor_.add(
            socket, EPOLLIN, [&channel, socket](uint32_t events) { channel.ready(events, socket); });
    });
    if (!watched) {
        log_error("cannot watch the connection to the MRIB process");
        return MCAST_ERR_GENERAL;
    }
    channel.connected_ = true;
    channel.missed_ = false;
    channel.waiting_for_room_ = false;
    channel.socket_ = socket;
    return MCAST_OK;
}

void MribChannel::on_disconnected(int32_t socket)
{
    MribChannel &channel = *the_channel;
    if (!channel.connected_) {
        return;
    }
    channel.connected_ = false;
    channel.reactor_.remove(socket);
    if (channel.open_) {
        log_warning("the connection to the MRIB process broke, trying every second");
        channel.reported_missing_ = true;
        memory_unit("the next try", [&channel] { channel.retry_later(); });
    }
}

void MribChannel::ready(uint32_t events, int socket)
{
    if (events & (EPOLLIN | EPOLLERR | EPOLLHUP)) {
        errno = 0;
        missed_ |= MRIB_GMP_ProcLipcMsg(events, socket) != MCAST_OK && errno == ENOMEM;
    }
    if (connected_ && (events & EPOLLOUT) != 0) {
        MRIB_GMP_SendFailData();
    }
}

void MribChannel::flush()
{
    if (!connected_) {
        return;
    }
    if (MRIB_GMP_CloseFailConnection() == 1) {
        log_warning("records for the MRIB process were lost; connecting again and sending everything anew");
        return;
    }
    MRIB_GMP_SendAtOnce();
    const Backlog left = read_backlog();
    const bool backlog = left.messages > 0 || left.bytes > sizeof(MRIB_MSG_HEADER_S);

    if (backlog != waiting_for_room_ && reactor_.modify(socket_, backlog ? EPOLLIN | EPOLLOUT : EPOLLIN)) {
        waiting_for_room_ = backlog;
    }
}

uint32_t MribChannel::pending() const
{
    return read_backlog().messages;
}

uint32_t MribChannel::unread() const
{
    int bytes = 0;
    return connected_ && ioctl(socket_, SIOCOUTQ, &bytes) == 0 ? static_cast<uint32_t>(bytes) : 0;
}

} // namespace mcastd
