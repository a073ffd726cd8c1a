#include "tests/simulation/kernel/local_socket.h"

#include <arpa/inet.h>
#include <bit>
#include <cstring>
#include <sys/ioctl.h>
#include <linux/sockios.h>

#include "daemons/common/control_message.h"
#include "daemons/common/services.h"
#include "mcast/mrib_wire.h"
#include "platform/local_socket.h"

namespace sim
{
namespace
{

// What the sender's buffer holds: what is asked for, as far as the system's default limit allows, doubled.
constexpr size_t SEND_BUFFER = 2 * 212992;
// What a message takes of it besides its bytes.
constexpr size_t OVERHEAD = 256;
constexpr size_t TAIL = 320;

// Of messages, by what is agreed upon on the port.
size_t longest_on(uint16_t port)
{
    const bool is_control = port >= mcastd::CONTROL_PORT_MRIBD && port <= mcastd::CONTROL_PORT_MSDPD;
    return is_control ? mcastd::CONTROL_REPLY_MAX : MRIB_MSG_RECV_MAX;
}

size_t charge(size_t size)
{
    return OVERHEAD + std::bit_ceil(size + TAIL);
}

} // namespace

LocalEnd::~LocalEnd()
{
    if (const auto peer = peer_.lock()) {
        peer->closed_ = true;
        peer->reset_ = !queue_.empty();
    }
}

std::pair<std::shared_ptr<LocalEnd>, std::shared_ptr<LocalEnd>> LocalEnd::make_pair(size_t longest)
{
    const auto one = std::make_shared<LocalEnd>();
    const auto other = std::make_shared<LocalEnd>();
    one->longest_ = other->longest_ = longest;
    one->peer_ = other;
    other->peer_ = one;
    return {one, other};
}

bool LocalEnd::is_writable() const
{
    return in_flight_ * 4 <= SEND_BUFFER;
}

uint32_t LocalEnd::ready() const
{
    return events_if(!queue_.empty(), EPOLLIN) | events_if(closed_, EPOLLIN | EPOLLHUP | EPOLLRDHUP) |
           events_if(ended_, EPOLLIN | EPOLLRDHUP) | events_if(reset_, EPOLLERR) |
           events_if(is_writable(), EPOLLOUT);
}

ssize_t LocalEnd::send(const void *bytes, size_t size)
{
    const auto peer = peer_.lock();
    const auto *from = static_cast<const uint8_t *>(bytes);
    if (reset_) {
        reset_ = false;
        return -ECONNRESET;
    }
    if (peer == nullptr || closed_) {
        return -EPIPE;
    }
    if (in_flight_ >= SEND_BUFFER) {
        return -EAGAIN;
    }
    in_flight_ += charge(size);
    peer->queue_.emplace_back(from, from + size);
    return static_cast<ssize_t>(size);
}

ssize_t LocalEnd::receive(void *buffer, size_t size, int flags)
{
    if (reset_) {
        reset_ = false;
        return -ECONNRESET;
    }
    if (queue_.empty()) {
        return closed_ || ended_ ? 0 : -EAGAIN;
    }
    const Bytes message = std::move(queue_.front());
    queue_.pop_front();
    if (const auto peer = peer_.lock()) {
        peer->in_flight_ -= charge(message.size());
    }
    return hand_over(message, buffer, size, flags);
}

void LocalEnd::stop_sending()
{
    if (const auto peer = peer_.lock()) {
        peer->ended_ = true;
    }
}

void LocalEnd::stop()
{
    closed_ = true;
    if (const auto peer = peer_.lock()) {
        peer->closed_ = true;
    }
}

std::shared_ptr<LocalEnd> connect_local(Machine &machine, uint16_t port, int *error)
{
    const auto found = machine.local_ports.find(port);
    const auto listener = found == machine.local_ports.end() ? nullptr : found->second.lock();
    if (listener == nullptr || !listener->listening) {
        *error = ECONNREFUSED;
        return nullptr;
    }
    if (listener->backlog.size() > listener->backlog_limit) {
        *error = EAGAIN;
        return nullptr;
    }
    auto [mine, theirs] = LocalEnd::make_pair(longest_on(port));
    listener->backlog.push_back(std::move(theirs));
    return mine;
}

namespace
{

uint16_t port_of(const sockaddr *address, socklen_t length)
{
    LOCAL_SOCKET_ADDR_S name{};
    memcpy(&name, address, std::min<size_t>(length, sizeof(name)));
    return ntohs(name.port_be);
}

} // namespace

uint32_t LocalSocket::ready() const
{
    if (end_ != nullptr) {
        return end_->ready();
    }
    if (listener_ != nullptr && listener_->listening) {
        return events_if(!listener_->backlog.empty(), EPOLLIN);
    }
    return EPOLLOUT | EPOLLHUP;
}

int LocalSocket::bind(const sockaddr *address, socklen_t length)
{
    std::weak_ptr<LocalListener> &place = machine_.local_ports[port_of(address, length)];
    if (listener_ != nullptr) {
        return -EINVAL;
    }
    if (!place.expired()) {
        return -EADDRINUSE;
    }
    listener_ = std::make_shared<LocalListener>();
    listener_->owner = g_process->number();
    place = listener_;
    return 0;
}

int LocalSocket::listen(int backlog)
{
    if (listener_ == nullptr) {
        return -EINVAL;
    }
    listener_->listening = true;
    listener_->backlog_limit = static_cast<size_t>(backlog);
    return 0;
}

int LocalSocket::connect(const sockaddr *address, socklen_t length)
{
    int error = 0;
    if (end_ != nullptr) {
        return -EISCONN;
    }
    end_ = connect_local(machine_, port_of(address, length), &error);
    return -error;
}

std::shared_ptr<File> LocalSocket::accept(int *error)
{
    std::shared_ptr<LocalEnd> end = next_connection<LocalEnd>(listener_.get(), error);
    return end == nullptr ? nullptr : std::make_shared<LocalSocket>(machine_, std::move(end));
}

ssize_t LocalSocket::send(const void *bytes, size_t size)
{
    if (end_ != nullptr && size > end_->longest()) {
        machine_.kernel.broken(Rule::KernelContract, g_process->name() + ": a message of " +
                                                         std::to_string(size) + " bytes, of at most " +
                                                         std::to_string(end_->longest()));
    }
    return end_ == nullptr ? -ENOTCONN : end_->send(bytes, size);
}

ssize_t LocalSocket::receive(void *buffer, size_t size, int flags, sockaddr *)
{
    return end_ == nullptr ? -ENOTCONN : end_->receive(buffer, size, flags);
}

int LocalSocket::control(unsigned long request, void *argument)
{
    if (request != SIOCOUTQ) {
        return -EINVAL;
    }
    *static_cast<int *>(argument) = end_ != nullptr ? static_cast<int>(end_->in_flight()) : 0;
    return 0;
}

int LocalSocket::shutdown(int how)
{
    if (end_ == nullptr) {
        return -ENOTCONN;
    }
    how == SHUT_RDWR ? end_->stop() : end_->stop_sending();
    return 0;
}

} // namespace sim
