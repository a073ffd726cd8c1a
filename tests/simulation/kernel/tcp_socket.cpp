#include "tests/simulation/kernel/tcp_socket.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <netinet/in.h>
#include <utility>

namespace sim
{
namespace
{

constexpr size_t SEND_BUFFER = 64 * 1024;
constexpr size_t RECEIVE_BUFFER = 128 * 1024;
constexpr size_t LARGEST_PIECE = 4 * 1448;
constexpr Ns LONGEST_WAY = 5 * MILLISECOND;
constexpr unsigned MOST_HOPS = 8;

// Of the first attempt to connect; each waits twice as long as the one before. The last one's failure is the end.
constexpr Ns SYN_AGAIN = SECOND;
constexpr unsigned SYN_ATTEMPTS = 7;
// How long a neighbour is asked for that is not there.
constexpr Ns NEIGHBOUR_ASKED = 3 * SECOND;
// The same of what is sent: 0.2 s, twice as long each time, at most 120 s; after 15 times, 924 s, it has failed.
constexpr Ns SEND_AGAIN = SECOND / 5;
constexpr Ns SEND_AGAIN_MOST = 120 * SECOND;
constexpr unsigned SEND_ATTEMPTS = 15;

constexpr uint16_t FIRST_FREE_PORT = 32768;

TcpName name_from(const sockaddr *address)
{
    sockaddr_in name{};
    memcpy(&name, address, sizeof(name));
    return {address_of(AF_INET, &name.sin_addr), ntohs(name.sin_port)};
}

int tell(const TcpName &name, sockaddr *address, socklen_t *length)
{
    sockaddr_in told{};
    told.sin_family = AF_INET;
    told.sin_port = htons(name.port);
    memcpy(&told.sin_addr, name.address.bytes.data(), sizeof(told.sin_addr));
    memcpy(address, &told, std::min<size_t>(*length, sizeof(told)));
    *length = sizeof(told);
    return 0;
}

bool is_any(const Address &address)
{
    return address == Address{AF_INET, {}};
}

// The machine that has the address, by the routes of each on the way; nullptr when a packet gets lost.
Machine *find_way(Machine &from, const Address &to)
{
    Machine *at = &from;
    for (unsigned hops = 0; at != nullptr && hops < MOST_HOPS; ++hops) {
        const Machine::Lookup route = at->look_up(to, 0);
        if (route.is_local) {
            return at;
        }
        const Interface *out = route.if_index == 0 ? nullptr : at->find(route.if_index);
        const Address &next = route.gateway.family == AF_INET ? route.gateway : to;
        at = out == nullptr || out->wire == nullptr ? nullptr : out->wire->neighbour(*at, next);
    }
    return nullptr;
}

} // namespace

bool has_way(Machine &machine, const Address &own, const Address &other)
{
    Machine *there = find_way(machine, other);
    return there != nullptr && find_way(*there, own) == &machine;
}

TcpEnd::TcpEnd(Machine &machine, uint64_t whose, const TcpName &its_local, const TcpName &its_remote)
    : local(its_local), remote(its_remote), machine_(machine), whose_(whose)
{
}

// The other machine, when packets reach it and come back.
Machine *TcpEnd::way_there() const
{
    Machine *there = find_way(machine_, remote.address);
    return there != nullptr && find_way(*there, local.address) == &machine_ ? there : nullptr;
}

Ns TcpEnd::on_the_way()
{
    return 1 + machine_.kernel.draw.below(Stream::Tcp, whose_, LONGEST_WAY);
}

void TcpEnd::connect()
{
    ask(0);
}

void TcpEnd::ask(unsigned attempt)
{
    machine_.kernel.clock.after(on_the_way(), [self = weak_from_this(), attempt] {
        if (const auto end = self.lock(); end != nullptr && end->is_connecting()) {
            end->asked(attempt);
        }
    });
}

// The question arrives, or does not.
void TcpEnd::asked(unsigned attempt)
{
    Clock &clock = machine_.kernel.clock;
    Machine *there = way_there();
    const auto found = there == nullptr ? nullptr : there->tcp_listener(remote.address, remote.port);
    if (there != nullptr && found == nullptr) {
        fail(ECONNREFUSED);
    } else if (found != nullptr && found->backlog.size() <= found->backlog_limit) {
        const auto peer = std::make_shared<TcpEnd>(*there, found->owner, remote, local);
        peer->opened(shared_from_this());
        found->backlog.push_back(peer);
        opened(peer);
    } else {
        const bool is_alone = there == nullptr && find_way(machine_, remote.address) == nullptr;
        const Ns again = is_alone ? NEIGHBOUR_ASKED : SYN_AGAIN << attempt;
        clock.after(again, [self = weak_from_this(), attempt, is_alone] {
            const auto end = self.lock();
            if (end == nullptr || !end->is_connecting()) {
                return;
            }
            if (is_alone && end->way_there() == nullptr) {
                end->fail(EHOSTUNREACH);
            } else if (attempt + 1 == SYN_ATTEMPTS) {
                end->fail(ETIMEDOUT);
            } else {
                end->ask(attempt + 1);
            }
        });
    }
}

void TcpEnd::opened(const std::shared_ptr<TcpEnd> &peer)
{
    peer_ = peer;
    state_ = State::Open;
}

bool TcpEnd::has_to_send() const
{
    return state_ == State::Open && (!to_send_.empty() || (stopped_ && !end_told_));
}

bool TcpEnd::is_writable() const
{
    return (SEND_BUFFER - to_send_.size()) * 3 >= SEND_BUFFER;
}

uint32_t TcpEnd::ready() const
{
    if (state_ == State::Connecting) {
        return 0;
    }
    if (state_ == State::Failed) {
        return EPOLLIN | EPOLLOUT | EPOLLHUP | EPOLLRDHUP | events_if(error_ != 0, EPOLLERR);
    }
    return events_if(!received_.empty(), EPOLLIN) | events_if(ended_, EPOLLIN | EPOLLRDHUP) |
           events_if(ended_ && stopped_, EPOLLHUP) | events_if(stopped_ || is_writable(), EPOLLOUT);
}

int TcpEnd::take_error()
{
    return std::exchange(error_, 0);
}

// Sometimes only a part is taken although there is room for all of it.
ssize_t TcpEnd::send(const void *bytes, size_t size)
{
    if (error_ != 0) {
        return -take_error();
    }
    if (state_ == State::Failed || stopped_) {
        return -EPIPE;
    }
    if (state_ == State::Connecting || to_send_.size() >= SEND_BUFFER) {
        return -EAGAIN;
    }
    size_t taken = std::min(size, SEND_BUFFER - to_send_.size());
    if (taken > 1 && machine_.kernel.draw.below(Stream::Tcp, whose_, 16) == 0) {
        taken = 1 + machine_.kernel.draw.below(Stream::Tcp, whose_, taken);
    }
    const auto *from = static_cast<const uint8_t *>(bytes);
    to_send_.insert(to_send_.end(), from, from + taken);
    push_later(on_the_way());
    return static_cast<ssize_t>(taken);
}

ssize_t TcpEnd::receive(void *buffer, size_t size)
{
    if (received_.empty()) {
        if (error_ != 0) {
            return -take_error();
        }
        return ended_ || state_ == State::Failed ? 0 : -EAGAIN;
    }
    const size_t given = std::min(size, received_.size());
    const auto end = received_.begin() + static_cast<ptrdiff_t>(given);
    std::copy(received_.begin(), end, static_cast<uint8_t *>(buffer));
    received_.erase(received_.begin(), end);
    if (const auto peer = peer_.lock()) {
        peer->push_later(on_the_way()); // there is room again
    }
    return static_cast<ssize_t>(given);
}

void TcpEnd::stop_sending()
{
    stopped_ = true;
    push_later(on_the_way());
}

void TcpEnd::close()
{
    closed_ = true;
    const auto peer = peer_.lock();
    if (state_ == State::Open && !received_.empty()) {
        fail(0);
        if (peer != nullptr && way_there() != nullptr) {
            machine_.kernel.clock.after(on_the_way(), [peer] { peer->fail(ECONNRESET); });
        }
        return;
    }
    if (state_ == State::Open) {
        stop_sending();
    } else {
        fail(0);
    }
}

// Nothing is sent or received any more.
void TcpEnd::fail(int error)
{
    if (state_ != State::Failed) {
        state_ = State::Failed;
        error_ = error;
        to_send_.clear();
    }
}

// Holds the end, which sends also when nobody has it any more.
void TcpEnd::push_later(Ns after)
{
    if (has_to_send() && !std::exchange(pushes_, true)) {
        machine_.kernel.clock.after(after, [self = shared_from_this()] {
            self->pushes_ = false;
            self->push();
        });
    }
}

void TcpEnd::push()
{
    if (!has_to_send()) {
        return;
    }
    if (way_there() == nullptr) {
        if (++failures_ > SEND_ATTEMPTS) {
            fail(ETIMEDOUT);
            return;
        }
        push_later(std::min(SEND_AGAIN << failures_, SEND_AGAIN_MOST));
        return;
    }
    failures_ = 0;
    const auto peer = peer_.lock();
    if (peer == nullptr || peer->state_ == State::Failed || (peer->closed_ && !to_send_.empty())) {
        const bool only_the_end = to_send_.empty();
        fail(only_the_end ? 0 : ended_ ? EPIPE : ECONNRESET); // whoever it was knows of no connection
        return;
    }
    // Without room it is asked for again, as when the other end says that there is some.
    const bool moved = push_piece(*peer);
    push_later(moved ? on_the_way() : SEND_AGAIN);
}

// Whether anything went.
bool TcpEnd::push_piece(TcpEnd &peer)
{
    const size_t room = RECEIVE_BUFFER - std::min(RECEIVE_BUFFER, peer.received_.size());
    const size_t most = std::min({room, to_send_.size(), LARGEST_PIECE});
    if (most > 0) {
        const size_t size = 1 + machine_.kernel.draw.below(Stream::Tcp, whose_, most);
        const auto end = to_send_.begin() + static_cast<ptrdiff_t>(size);
        peer.received_.insert(peer.received_.end(), to_send_.begin(), end);
        to_send_.erase(to_send_.begin(), end);
    }
    if (to_send_.empty() && stopped_) {
        end_told_ = true;
        peer.ended_ = true;
    }
    return most > 0 || end_told_;
}

TcpSocket::~TcpSocket()
{
    if (end_ != nullptr) {
        end_->close();
    }
    if (listener_ != nullptr) {
        for (const auto &waiting : listener_->backlog) {
            waiting->close();
        }
    }
}

uint32_t TcpSocket::ready() const
{
    if (end_ != nullptr) {
        return end_->ready();
    }
    if (listener_ != nullptr && listener_->listening) {
        return events_if(!listener_->backlog.empty(), EPOLLIN);
    }
    return EPOLLOUT | EPOLLHUP;
}

int TcpSocket::bind(const sockaddr *address, socklen_t)
{
    const TcpName wanted = name_from(address);
    if (bound_.address.family != AF_UNSPEC) {
        return -EINVAL;
    }
    if (!is_any(wanted.address) && !machine_.look_up(wanted.address, 0).is_local) {
        return -EADDRNOTAVAIL;
    }
    if (wanted.port != 0) {
        if (machine_.tcp_listener(wanted.address, wanted.port) != nullptr) {
            return -EADDRINUSE;
        }
        listener_ = std::make_shared<TcpListener>();
        listener_->name = wanted;
        listener_->owner = whose_;
    }
    bound_ = wanted;
    return 0;
}

int TcpSocket::listen(int backlog)
{
    if (listener_ == nullptr || end_ != nullptr) {
        return -EINVAL;
    }
    if (!std::exchange(listener_->listening, true)) {
        machine_.tcp_listeners.push_back(listener_);
    }
    listener_->backlog_limit = static_cast<size_t>(backlog);
    return 0;
}

int TcpSocket::connect(const sockaddr *address, socklen_t)
{
    const TcpName to = name_from(address);
    if (end_ != nullptr) {
        if (end_->is_connecting()) {
            return -EALREADY;
        }
        return std::exchange(outcome_told_, true) ? -EISCONN : -end_->take_error();
    }
    const Machine::Lookup route = machine_.look_up(to.address, 0);
    if (route.if_index == 0) {
        return -ENETUNREACH;
    }
    TcpName from = bound_;
    if (from.address.family == AF_UNSPEC || is_any(from.address)) {
        from.address = route.is_local ? to.address : machine_.address_on(route.if_index, AF_INET);
    }
    from.port = FIRST_FREE_PORT + machine_.next_tcp_port++ % FIRST_FREE_PORT;
    end_ = std::make_shared<TcpEnd>(machine_, whose_, from, to);
    end_->connect();
    return -EINPROGRESS;
}

std::shared_ptr<File> TcpSocket::accept(int *error)
{
    std::shared_ptr<TcpEnd> end = next_connection<TcpEnd>(listener_.get(), error);
    return end == nullptr ? nullptr : std::make_shared<TcpSocket>(machine_, whose_, std::move(end));
}

int TcpSocket::get_option(int level, int option, void *value, socklen_t *size)
{
    if (level != SOL_SOCKET || option != SO_ERROR || *size != sizeof(int)) {
        return -ENOPROTOOPT;
    }
    const int error = end_ == nullptr ? 0 : end_->take_error();
    memcpy(value, &error, sizeof(error));
    return 0;
}

int TcpSocket::name(sockaddr *address, socklen_t *length)
{
    return tell(end_ != nullptr ? end_->local : TcpName{Address{AF_INET, bound_.address.bytes}, bound_.port},
                address, length);
}

int TcpSocket::peer_name(sockaddr *address, socklen_t *length)
{
    return end_ == nullptr ? -ENOTCONN : tell(end_->remote, address, length);
}

ssize_t TcpSocket::send(const void *bytes, size_t size)
{
    return end_ == nullptr ? -EPIPE : end_->send(bytes, size);
}

ssize_t TcpSocket::receive(void *buffer, size_t size, int, sockaddr *)
{
    return end_ == nullptr ? -ENOTCONN : end_->receive(buffer, size);
}

int TcpSocket::shutdown(int how)
{
    if (end_ == nullptr || how != SHUT_WR) {
        return -ENOTCONN;
    }
    end_->stop_sending();
    return 0;
}

} // namespace sim
