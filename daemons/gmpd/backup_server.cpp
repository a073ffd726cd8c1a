/*
 * The port is what makes a daemon the active one: only one process can listen on it, and it takes it before it
 * touches anything else. A standby that connects is told all users in the order of their keys, then that this
 * was everything, then each user whose index changed:
 *
 *      assigned indexes ──► untold: keys, for each standby ──► message of up to 100 users ──► socket
 *
 * Only keys wait. The index is looked up when the message is written, so that a user that changed ten times while
 * the socket was full is told once, and a standby that never reads costs no more than one key a user.
 */
#include "daemons/gmpd/backup_server.h"

#include <cerrno>
#include <cstring>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "daemons/common/local_listener.h"
#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "daemons/gmpd/backup_message.h"

namespace gmpd
{

constexpr unsigned ACCEPTS_PER_WAKE = 16;

BackupServer::BackupServer(mcastd::Reactor &reactor, const UserIndexes &indexes)
    : reactor_(reactor), indexes_(indexes)
{
}

BackupServer::~BackupServer()
{
    close();
}

bool BackupServer::open(uint16_t port)
{
    listener_ = mcastd::listen_local(port);
    if (listener_ >= 0 && reactor_.add(listener_, EPOLLIN, [this](uint32_t) { accept_standbys(); })) {
        return true;
    }
    if (errno == EADDRINUSE) {
        mcastd::log_warning("another gmpd of the family is active in this network namespace");
    } else {
        mcastd::log_error("cannot listen on local port %u for a standby: %s", port, strerror(errno));
    }
    close();
    return false;
}

void BackupServer::close()
{
    if (listener_ >= 0) {
        reactor_.remove(listener_);
        ::close(listener_);
        listener_ = -1;
    }
    while (!standbys_.empty()) {
        drop(standbys_.begin()->first, nullptr);
    }
}

void BackupServer::accept_standbys()
{
    mcastd::accept_waiting(reactor_, listener_, ACCEPTS_PER_WAKE, "a standby", [this](int fd) { adopt(fd); });
}

void BackupServer::adopt(int fd)
{
    Peer peer; // what needs memory comes first
    for (const auto &[user, index] : indexes_.assigned()) {
        peer.untold.insert(peer.untold.end(), user);
    }
    const auto place =
        standbys_.size() < MOST_STANDBYS ? standbys_.emplace(fd, std::move(peer)).first : standbys_.end();
    bool watched = false;
    mcastd::memory_unit("a standby", [&] {
        watched = place != standbys_.end() &&
                  reactor_.add(fd, EPOLLIN, [this, fd](uint32_t events) { serve(fd, events); });
    });
    if (!watched) {
        mcastd::log_warning("a standby is turned away: %zu are connected already", standbys_.size());
        standbys_.erase(fd);
        ::close(fd);
        return;
    }
    mcastd::log_info("a standby is connected");
}

// A standby sends nothing: whatever can be read is its end.
void BackupServer::serve(int fd, uint32_t events)
{
    if ((events & (EPOLLIN | EPOLLERR | EPOLLHUP)) != 0) {
        drop(fd, "a standby is gone");
    } else {
        send_untold(fd, standbys_.at(fd));
    }
}

void BackupServer::index_changed(const UserKey &user)
{
    for (auto &[fd, standby] : standbys_) {
        standby.missed |= !mcastd::memory_unit("what a standby is told",
                                               [&standby = standby, &user] { standby.untold.insert(user); });
    }
}

void BackupServer::flush()
{
    for (auto next = standbys_.begin(); next != standbys_.end();) {
        const auto current = next++; // it may be dropped
        if (current->second.missed) {
            drop(current->first, "a standby has missed something and is to come again");
        } else if (!current->second.waits_for_room) {
            send_untold(current->first, current->second);
        }
    }
}

// The next message that the standby is to get. False when the socket does not take it.
bool BackupServer::send_some(int fd, Peer &standby)
{
    BackupMessage message;
    auto last = standby.untold.begin();

    if (standby.begun) {
        message.kind = standby.untold.empty() ? BackupKind::End : BackupKind::Users;
    }
    while (message.kind == BackupKind::Users && last != standby.untold.end() &&
           message.records.size() < BACKUP_RECORDS_MAX) {
        const auto assigned = indexes_.assigned().find(*last);

        message.records.push_back({*last, assigned != indexes_.assigned().end() ? assigned->second : 0});
        ++last;
    }
    const std::vector<uint8_t> bytes = encode(message);

    if (send(fd, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
        return false;
    }
    standby.untold.erase(standby.untold.begin(), last);
    standby.begun = true;
    standby.synchronised = standby.synchronised || message.kind == BackupKind::End;
    return true;
}

// False when the standby is gone.
bool BackupServer::send_untold(int fd, Peer &standby)
{
    bool wait = false;
    while (!wait && (!standby.synchronised || !standby.untold.empty())) {
        if (!send_some(fd, standby)) {
            if (errno != EAGAIN && errno != EINTR) {
                drop(fd, "a standby is gone");
                return false;
            }
            wait = true;
        }
    }
    if (wait != standby.waits_for_room &&
        reactor_.modify(fd, wait ? uint32_t{EPOLLIN | EPOLLOUT} : uint32_t{EPOLLIN})) {
        standby.waits_for_room = wait;
    }
    return true;
}

size_t BackupServer::synchronised() const
{
    size_t count = 0;
    for (const auto &[fd, standby] : standbys_) {
        count += standby.synchronised && standby.untold.empty() ? 1 : 0;
    }
    return count;
}

void BackupServer::drop(int fd, const char *why)
{
    if (why != nullptr) {
        mcastd::log_info("%s", why);
    }
    standbys_.erase(fd);
    reactor_.remove(fd);
    ::close(fd);
}

} // namespace gmpd
