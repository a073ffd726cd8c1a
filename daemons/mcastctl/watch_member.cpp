#include "daemons/mcastctl/watch_member.h"

#include <array>
#include <cerrno>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <utility>

#include "daemons/common/address.h"
#include "mcast/member_channel.h"

namespace mcastctl
{
namespace
{

// The operator's programs have no module number of their own; mribd shows this one.
constexpr uint32_t MODULE = MBR_MODULE_MAX;

// What one wake-up reads before signals and the other family have their turn.
constexpr unsigned MESSAGES_PER_WAKE = 32;

} // namespace

WatchMember::WatchMember(mcastd::Reactor &reactor, uint8_t family, const Watch &watch, Print print)
    : reactor_(reactor), family_(family), watch_(watch), print_(std::move(print))
{
}

WatchMember::~WatchMember()
{
    close();
}

bool WatchMember::is_open() const
{
    return MBR_LIB_IsAlreadyReg(family_) == MCAST_TRUE;
}

uint64_t WatchMember::mask() const
{
    uint64_t mask = 0;
    for (const WatchedEvents *events : watch_.events) {
        mask |= events->flag;
    }
    return mask;
}

bool WatchMember::open()
{
    const uint32_t fd = MBR_LIB_Init(family_, MODULE, static_cast<uint32_t>(reactor_.descriptor()),
                                     mcastd::Reactor::context());
    if (fd == MCAST_NONE) {
        return false;
    }
    fd_ = static_cast<int>(fd);
    reactor_.attach(fd_, [this](uint32_t events) { serve(events); });
    if (MBR_LIB_RegEvt(family_, mask()) != MCAST_OK) {
        drop();
        return false;
    }
    if (!watch_.changes_alone) {
        ask();
    }
    return true;
}

void WatchMember::close()
{
    if (is_open()) {
        MBR_LIB_DeRegEvt(family_, mask());
        drop();
    }
}

void WatchMember::drop()
{
    reactor_.remove(fd_);
    MBR_LIB_Fini(family_);
    fd_ = -1;
}

void WatchMember::ask()
{
    const MRIB_REQUEST_S request{family_, {}};
    for (const WatchedEvents *events : watch_.events) {
        if (family_ == MCAST_FAMILY_IPV4 || !events->ipv4_alone) {
            MBR_LIB_SendMsg(family_, events->request, sizeof(request), &request, 0);
        }
    }
    send_waiting();
}

// What the socket does not take now goes out once it has room.
void WatchMember::send_waiting()
{
    const bool sent = MBR_LIB_SendMsg(family_, 0, 0, nullptr, 1) == MCAST_OK;
    reactor_.modify(fd_, sent ? EPOLLIN : EPOLLIN | EPOLLOUT);
}

void WatchMember::serve(uint32_t events)
{
    if (!receive()) {
        drop();
        print_(std::string(mcastd::family_name(family_)) + ": mribd is gone");
        return;
    }
    if ((events & EPOLLOUT) != 0) {
        send_waiting();
    }
}

// False when the connection has ended.
bool WatchMember::receive()
{
    static std::array<uint8_t, MRIB_MSG_RECV_MAX> message;
    for (unsigned count = 0; count < MESSAGES_PER_WAKE; ++count) {
        const ssize_t size = recv(fd_, message.data(), message.size(), MSG_DONTWAIT);
        if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
            return true;
        }
        if (size <= 0) {
            return false;
        }
        take(message.data(), static_cast<size_t>(size));
    }
    return true;
}

void WatchMember::take(const uint8_t *message, size_t size)
{
    MRIB_MSG_READER_S reader;
    MRIB_RECORD_S record;
    MRIB_MsgReaderStart(&reader, message, size);
    while (MRIB_MsgReaderNext(&reader, &record) == MCAST_TRUE) {
        const std::string line = watch_line(family_, record, watch_.if_index);
        if (!line.empty()) {
            print_(line);
        }
        if (record.type == MRIB_TLV_SMOOTH_START) {
            ask();
        }
    }
}

} // namespace mcastctl
