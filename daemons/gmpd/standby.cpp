/*
 * The end of a connection alone does not say that nobody is active: the active one may have turned this
 * standby away, or be about to. So it looks whether the port is still taken, which the active one always holds.
 */
#include "daemons/gmpd/standby.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <sys/epoll.h>

#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "daemons/gmpd/backup_message.h"
#include "platform/local_socket.h"

namespace gmpd
{
namespace
{

constexpr uint32_t RETRY_MS = 1000;
constexpr int MESSAGES_PER_ROUND = 64;

} // namespace

Standby::Standby(mcastd::Reactor &reactor) : reactor_(reactor)
{
}

Standby::~Standby()
{
    stop();
}

void Standby::start(MCAST_TMR_S *timers, uint16_t port, uint32_t patience)
{
    stop();
    timers_ = timers;
    port_ = port;
    patience_ = patience;
    gone_ = false;
    look();
}

void Standby::stop()
{
    if (timers_ != nullptr) {
        disconnect();
        mcastd::timer_stop(timers_, retry_);
        timers_ = nullptr;
    }
}

void Standby::remember(const UserIndexMap &indexes)
{
    indexes_ = indexes;
    heard_ = true;
}

Standby::Look Standby::connect()
{
    LOCAL_SOCKET_ADDR_S address{};

    address.length = sizeof(address);
    address.family = LOCAL_SOCKET_FAMILY;
    address.port_be = htons(port_);
    address.node = LOCAL_SOCKET_NODE;
    socket_ = mcastd::Descriptor(
        socket(LOCAL_SOCKET_FAMILY, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, LOCAL_SOCKET_PROTOCOL));
    bool watched = false;
    if (socket_.valid() &&
        ::connect(socket_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0) {
        errno = ENOMEM;
        mcastd::memory_unit("the connection to the active gmpd", [this, &watched] {
            watched = reactor_.add(socket_.get(), EPOLLIN, [this](uint32_t events) { hear(events); });
        });
    }
    const int error = errno;
    if (watched) {
        return Look::Connected;
    }

    socket_ = mcastd::Descriptor();
    if (error == ECONNREFUSED) {
        return Look::Nobody;
    }
    mcastd::log_warning("cannot connect to the active gmpd: %s, trying every second", strerror(error));
    return Look::Unclear;
}

void Standby::look()
{
    const Look found = connect();
    if (found == Look::Nobody && patience_ == 0) {
        gone_ = true;
        return;
    }
    if (found != Look::Connected) {
        patience_ -= found == Look::Nobody ? 1 : 0;
        look_later();
    }
}

void Standby::tend()
{
    if (watching() && !gone_ && !socket_.valid() && !retry_.running()) {
        look();
    }
}

void Standby::look_later()
{
    mcastd::timer_start(
        timers_, retry_, RETRY_MS, [](void *owner) { static_cast<Standby *>(owner)->look(); }, this);
}

void Standby::disconnect()
{
    if (socket_.valid()) {
        reactor_.remove(socket_.get());
        socket_ = mcastd::Descriptor();
    }
    begun_ = false;
    synchronised_ = false;
}

bool Standby::take(std::span<const uint8_t> bytes)
{
    const std::optional<BackupMessage> message = decode_backup(bytes);
    if (!message) {
        return false;
    }
    if (message->kind == BackupKind::Begin) {
        mcastd::log_info("connected to the active gmpd, standing by");
        indexes_.clear();
        begun_ = true;
        synchronised_ = false;
        heard_ = true;
        patience_ = 0;
    }
    for (const BackupRecord &record : message->records) {
        if (record.index != 0) {
            indexes_[record.user] = record.index;
        } else {
            indexes_.erase(record.user);
        }
    }
    synchronised_ = synchronised_ || message->kind == BackupKind::End;
    return true;
}

// A standby that was turned away without a message tries again, but not at once.
void Standby::lost()
{
    const bool begun = begun_;
    disconnect();
    if (begun) {
        look();
    } else {
        look_later();
    }
}

void Standby::hear(uint32_t)
{
    std::array<uint8_t, BACKUP_MESSAGE_MAX + 1> buffer;

    for (int i = 0; i < MESSAGES_PER_ROUND; ++i) {
        const ssize_t size = recv(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);

        if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
            return;
        }
        if (size <= 0) {
            lost();
            return;
        }
        bool understood = false;
        const auto message = std::span(buffer).first(static_cast<size_t>(size));
        if (!mcastd::memory_unit("what the active gmpd tells", [&] { understood = take(message); })) {
            disconnect(); // it tells everything again
            look_later();
            return;
        }
        if (!understood) {
            mcastd::log_error("cannot understand the active gmpd: are both of the same version? Trying "
                              "every second");
            disconnect();
            look_later();
            return;
        }
    }
}

} // namespace gmpd
