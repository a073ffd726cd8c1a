#include "tests/simulation/network/foreign_peer.h"

#include <cerrno>

namespace sim
{
namespace
{

constexpr uint16_t MSDP_PORT = 639;
constexpr uint16_t OWN_PORT = 20000;
constexpr uint64_t ITS_DRAWS = 1000; // no process has this number
constexpr Ns READS_EACH = SECOND;
constexpr Ns SOON = 5 * SECOND;

} // namespace

ForeignPeer::ForeignPeer(Machine &machine, const Address &its_other, const Address &own)
    : other(its_other), machine_(machine),
      end_(
          std::make_shared<TcpEnd>(machine, ITS_DRAWS, TcpName{own, OWN_PORT}, TcpName{its_other, MSDP_PORT}))
{
}

void ForeignPeer::connect()
{
    end_->connect();
    read_later();
}

void ForeignPeer::announce(const Address &source, const Address &group)
{
    std::vector<uint8_t> message = {1, 0, 20, 1};
    const auto append = [&message](const Address &address) {
        message.insert(message.end(), address.bytes.begin(), address.bytes.begin() + 4);
    };
    append(end_->local.address);
    message.insert(message.end(), {0, 0, 0, 32});
    append(group);
    append(source);
    end_->send(message.data(), message.size());
}

void ForeignPeer::stop_sending()
{
    stopped_ = machine_.kernel.clock.now();
    end_->stop_sending();
}

bool ForeignPeer::was_kept_waiting() const
{
    return stopped_ && over_.value_or(machine_.kernel.clock.now()) > *stopped_ + SOON;
}

void ForeignPeer::read_later()
{
    machine_.kernel.clock.after(READS_EACH, [self = weak_from_this()] {
        if (const auto peer = self.lock()) {
            peer->read();
        }
    });
}

void ForeignPeer::read()
{
    uint8_t bytes[1024];
    ssize_t size = 0;
    while ((size = end_->receive(bytes, sizeof(bytes))) > 0) {
    }
    if (size == -EAGAIN) {
        read_later();
        return;
    }
    over_ = machine_.kernel.clock.now();
    end_->close();
}

} // namespace sim
