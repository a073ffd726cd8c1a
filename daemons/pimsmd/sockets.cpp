#include "daemons/pimsmd/sockets.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <sys/epoll.h>

#include "daemons/common/log.h"

namespace pimsmd
{
namespace
{

// What one link may take of a round of the event loop; then the others have their turn.
constexpr int MESSAGES_PER_TURN = 64;
constexpr std::chrono::milliseconds MESSAGES_TURN(2);

constexpr size_t RECEIVE_SIZE = 65536;

} // namespace

Sockets::Sockets(uint16_t family, mcastd::Reactor &reactor)
    : family_(family), reactor_(reactor), buffer_(RECEIVE_SIZE)
{
}

Sockets::~Sockets()
{
    close();
}

bool Sockets::open_ear(uint32_t if_index, Ear &ear)
{
    if (!ear.socket.open(family_, if_index)) {
        return false;
    }
    if (!reactor_.add(ear.socket.descriptor(), EPOLLIN,
                      [this, if_index](uint32_t events) { serve(if_index, events); })) {
        ear.socket = Socket();
        return false;
    }
    return true;
}

bool Sockets::open(Receive receive)
{
    receive_ = std::move(receive);
    if (!open_ear(0, ears_[0])) {
        mcastd::log_error("cannot open a raw socket: %s%s", strerror(errno),
                          errno == EPERM ? " (root or the capability CAP_NET_RAW is needed)" : "");
        return false;
    }
    return true;
}

void Sockets::join(uint32_t if_index, const std::string &name)
{
    Ear &ear = ears_[if_index];
    ear.name = name;
    if (!ear.socket.valid() && !open_ear(if_index, ear)) {
        mcastd::log_warning("%s: cannot hear PIM: %s, trying every second", name.c_str(), strerror(errno));
    }
}

void Sockets::leave(uint32_t if_index)
{
    const auto found = ears_.find(if_index);
    if (found == ears_.end()) {
        return;
    }
    if (found->second.socket.valid()) {
        found->second.socket.flush(counters_);
        count_drops(found->second);
        reactor_.remove(found->second.socket.descriptor());
    }
    ears_.erase(found);
}

void Sockets::close()
{
    while (!ears_.empty()) {
        leave(ears_.begin()->first);
    }
}

void Sockets::send(uint32_t if_index, const Envelope &envelope, std::span<const uint8_t> message)
{
    const auto found = ears_.find(if_index);
    if (found == ears_.end() || !found->second.socket.valid()) {
        ++counters_[Count::SendFailed];
        return;
    }
    Ear &ear = found->second;
    ear.socket.send(if_index, envelope, message, counters_);
    watch_room(ear);
}

void Sockets::watch_room(Ear &ear)
{
    const bool waits = ear.socket.waits();
    if (waits != ear.watches_room &&
        reactor_.modify(ear.socket.descriptor(), waits ? EPOLLIN | EPOLLOUT : EPOLLIN)) {
        ear.watches_room = waits;
    }
}

void Sockets::tend()
{
    for (auto &[if_index, ear] : ears_) {
        if (!ear.socket.valid()) {
            open_ear(if_index, ear);
        }
        if (ear.socket.valid()) {
            ear.socket.flush(counters_);
            watch_room(ear);
            count_drops(ear);
        }
    }
}

void Sockets::serve(uint32_t if_index, uint32_t events)
{
    Ear &ear = ears_.at(if_index);
    if ((events & EPOLLOUT) != 0) {
        ear.socket.flush(counters_);
        watch_room(ear);
    }
    if ((events & ~static_cast<uint32_t>(EPOLLOUT)) != 0) {
        read_some(if_index);
    }
}

void Sockets::read_some(uint32_t if_index)
{
    const auto end = std::chrono::steady_clock::now() + MESSAGES_TURN;
    for (int i = 0; i < MESSAGES_PER_TURN && std::chrono::steady_clock::now() < end; ++i) {
        const auto found = ears_.find(if_index); // a message may end it
        if (found == ears_.end() || !read_one(if_index, found->second.socket)) {
            return;
        }
    }
}

bool Sockets::read_one(uint32_t if_index, const Socket &socket)
{
    Arrival arrival;
    Count reason = NO_DROP;
    const Socket::Outcome outcome = socket.receive(buffer_, &arrival, &reason);
    if (outcome == Socket::Outcome::Packet) {
        receive_(if_index, arrival.envelope, arrival.bytes);
    } else if (reason != NO_DROP) {
        ++counters_[reason];
    }
    return outcome != Socket::Outcome::Nothing;
}

void Sockets::count_drops(Ear &ear)
{
    const uint64_t fresh = ear.socket.take_kernel_drops();
    if (fresh == 0) {
        return;
    }
    counters_[Count::LostInKernel] += fresh;
    mcastd::log_warning("%s: %llu messages were lost because they came faster than they were read",
                        ear.name.empty() ? "unicast" : ear.name.c_str(),
                        static_cast<unsigned long long>(fresh));
}

} // namespace pimsmd
