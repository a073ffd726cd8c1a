#include "daemons/mribd/channel_server.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "daemons/common/local_listener.h"
#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "daemons/common/trace.h"
#include "daemons/mribd/address.h"

namespace mribd
{
namespace
{

// What one wake-up takes of one client and of the listening socket, before timers and others have their turn.
constexpr unsigned MESSAGES_PER_WAKE = 32;
constexpr unsigned ACCEPTS_PER_WAKE = 16;

} // namespace

ChannelServer::ChannelServer(mcastd::Reactor &reactor, const Backend &backend)
    : reactor_(reactor), backend_(backend), routers_(backend.routers)
{
    routers_.on_designated_router([this] { backend_.current_view.touch(); });
    routers_.set_pim_listener(this);
    backend_.msdp.on_local_source([this](const MsdpExchange::LocalSource &change) {
        for (auto &[fd, client] : clients_) {
            client.session->tell_local_source(change);
        }
    });
    backend_.msdp.on_remote_source([this](const MsdpExchange::RemoteSource &change) {
        for (auto &[fd, client] : clients_) {
            client.session->tell_remote_source(change);
        }
    });
    backend_.msdp.on_request([this](const MCAST_ADDR_S &group) {
        for (auto &[fd, client] : clients_) {
            client.session->tell_request(group);
        }
    });
}

ChannelServer::~ChannelServer()
{
    routers_.on_designated_router(nullptr);
    routers_.set_pim_listener(nullptr);
    backend_.msdp.on_local_source(nullptr);
    backend_.msdp.on_remote_source(nullptr);
    backend_.msdp.on_request(nullptr);
    while (!clients_.empty()) {
        drop(clients_.begin()->first, nullptr);
    }
    if (listener_ >= 0) {
        reactor_.remove(listener_);
        close(listener_);
    }
}

bool ChannelServer::open()
{
    const uint16_t port = routers_.family() == MCAST_FAMILY_IPV4 ? MRIB_PORT_IPV4 : MRIB_PORT_IPV6;
    listener_ = mcastd::listen_local(port);
    if (listener_ < 0) {
        mcastd::log_error("%s: cannot listen on local port %u: %s%s", family_name(routers_.family()), port,
                          std::strerror(errno),
                          errno == EADDRINUSE ? "; another mribd serves this network namespace" : "");
        return false;
    }
    return reactor_.add(listener_, EPOLLIN, [this](uint32_t) { accept_clients(); });
}

void ChannelServer::accept_clients()
{
    mcastd::accept_waiting(reactor_, listener_, ACCEPTS_PER_WAKE, "a client of the channel",
                           [this](int fd) { adopt(fd); });
}

void ChannelServer::adopt(int fd)
{
    auto session = std::make_unique<Session>(next_id_++, backend_, counters_);
    const ClientId id = session->id();
    const auto place = clients_.try_emplace(fd).first; // what needs memory before the reactor has it
    place->second.session = std::move(session);
    bool watched = false;
    try {
        watched = reactor_.add(fd, EPOLLIN, [this, fd](uint32_t events) { serve(fd, events); });
    } catch (const std::bad_alloc &) {
        clients_.erase(place);
        throw;
    }
    if (!watched) {
        mcastd::log_error("%s: cannot watch a client: %s", family_name(routers_.family()),
                          std::strerror(errno));
        clients_.erase(place);
        close(fd);
        return;
    }
    mcastd::trace(mcastd::TraceCategory::Channel, instance_key(routers_.family()), "client %u connected", id);
}

void ChannelServer::serve(int fd, uint32_t events)
{
    if ((events & (EPOLLERR | EPOLLHUP)) != 0) {
        drop(fd, "is gone");
        return;
    }
    if ((events & EPOLLOUT) != 0 && !flush(fd, clients_.at(fd), true)) {
        return;
    }
    if ((events & EPOLLIN) != 0) {
        receive(fd);
    }
}

void ChannelServer::receive(int fd)
{
    static std::array<uint8_t, MRIB_MSG_RECV_MAX> buffer;
    Session &session = *clients_.at(fd).session;
    for (unsigned count = 0; count < MESSAGES_PER_WAKE; ++count) {
        const ssize_t size = recv(fd, buffer.data(), buffer.size(), MSG_DONTWAIT | MSG_TRUNC);
        if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
            return;
        }
        if (size <= 0) {
            drop(fd, size == 0 ? "closed its connection" : std::strerror(errno));
            return;
        }
        const bool truncated = static_cast<size_t>(size) > buffer.size();
        session.take_message(buffer.data(), truncated ? buffer.size() : static_cast<size_t>(size), truncated);
    }
}

// What waits, and what was to come after it for want of room.
ClientQueue::Result ChannelServer::send_all(int fd, Session &session)
{
    ClientQueue::Result result;
    do {
        result = session.queue().flush(fd);
    } while (result == ClientQueue::Result::Drained && session.continue_replay());
    return result;
}

bool ChannelServer::flush(int fd, Client &client, bool writable)
{
    ClientQueue &queue = client.session->queue();
    ClientQueue::Result result = send_all(fd, *client.session);
    if (writable && queue.has_overflowed()) {
        ++counters_.overflows;
        mcastd::log_warning("%s: client %u read too slowly; it is sent everything again",
                            family_name(routers_.family()), client.session->id());
        client.session->start_afresh();
        result = send_all(fd, *client.session);
    }
    if (result == ClientQueue::Result::Failed) {
        drop(fd, std::strerror(errno));
        return false;
    }
    const bool wait = result == ClientQueue::Result::Blocked || queue.has_overflowed();
    if (wait != client.waits_for_room) {
        client.waits_for_room = wait;
        reactor_.modify(fd, wait ? EPOLLIN | EPOLLOUT : EPOLLIN);
    }
    return true;
}

void ChannelServer::resynchronise()
{
    for (auto &[fd, client] : clients_) {
        if (client.session->is_registered() && !client.session->queue().has_overflowed()) {
            client.session->start_afresh();
        }
    }
}

bool ChannelServer::has_refused() const
{
    return std::any_of(clients_.begin(), clients_.end(), [](const auto &client) {
        return client.second.session->has_refused() || client.second.session->missed();
    });
}

void ChannelServer::ask_refused_again()
{
    for (auto next = clients_.begin(); next != clients_.end();) {
        const auto current = next++; // it may be dropped
        if (!current->second.session->missed()) {
            current->second.session->ask_refused_again();
        } else if (!mcastd::memory_is_short()) {
            drop(current->first, "missed something for lack of memory and is to connect anew");
        }
    }
}

void ChannelServer::flush()
{
    backend_.msdp.follow_pim();
    if (const auto before = backend_.current_view.refresh()) {
        for (auto &[fd, client] : clients_) {
            client.session->tell_changes(*before);
        }
    }
    for (auto next = clients_.begin(); next != clients_.end();) {
        const auto current = next++; // flush may drop the client
        const ClientQueue &queue = current->second.session->queue();
        if (!current->second.waits_for_room && (!queue.empty() || queue.has_overflowed())) {
            flush(current->first, current->second, false);
        }
    }
}

void ChannelServer::drop(int fd, const char *why)
{
    const auto found = clients_.find(fd);
    if (why != nullptr) {
        mcastd::log_info("%s: client %u %s", family_name(routers_.family()), found->second.session->id(),
                         why);
    }
    const std::unique_ptr<Session> session = std::move(found->second.session);
    mcastd::trace(mcastd::TraceCategory::Channel, instance_key(routers_.family()), "client %u disconnected",
                  session->id());
    clients_.erase(found); // before the session goes: its end may be told to the other clients
    reactor_.remove(fd);
    close(fd);
}

bool ChannelServer::is_told(uint64_t events) const
{
    return std::any_of(clients_.begin(), clients_.end(),
                       [events](const auto &client) { return client.second.session->is_told(events); });
}

void ChannelServer::tell_member(const Router &router, uint32_t if_index, const MCAST_ADDR_S &group,
                                const MCAST_ADDR_S &source, bool exclude, const HostWish &wish)
{
    for (auto &[fd, client] : clients_) {
        client.session->tell_member(router, if_index, group, source, exclude, wish);
    }
}

bool ChannelServer::tell_source(const Router &router, const Entry &entry, mcastd::PimSourceState state,
                                uint32_t if_index)
{
    bool is_told = false;
    for (auto &[fd, client] : clients_) {
        is_told |= client.session->tell_source(router, entry, state, if_index);
    }
    return is_told;
}

void ChannelServer::tell_instance(const Router &router, bool served)
{
    for (auto &[fd, client] : clients_) {
        client.session->tell_instance(router, served);
    }
}

void ChannelServer::visit(const std::function<void(const Session &)> &visitor) const
{
    for (const auto &[fd, client] : clients_) {
        visitor(*client.session);
    }
}

} // namespace mribd
