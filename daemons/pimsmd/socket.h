/*
 * A raw socket of PIM: one for each link, which hears and says what concerns neighbours, and one that is bound to none, for
 * what goes to and comes from routers anywhere. A filter in the kernel gives each its types, so that a flood of Registers fills
 * the queue of no link.
 */
#ifndef DAEMONS_PIMSMD_SOCKET_H
#define DAEMONS_PIMSMD_SOCKET_H

#include <cstdint>
#include <deque>
#include <span>
#include <vector>

#include "daemons/common/descriptor.h"
#include "daemons/pimsmd/wire.h"

namespace pimsmd
{

// Bytes that wait for one socket to have room; what is more is dropped, and said again by its own timers.
constexpr size_t MOST_BYTES_WAITING = size_t{1024} * 1024;

// A packet that came in; if_index is the link's, 0 of the socket that is bound to none.
struct Arrival {
    Envelope envelope;
    std::span<const uint8_t> bytes;
};

class Socket
{
public:
    // Opens it for a link, or with if_index 0 for none. False with errno set when it cannot be.
    bool open(uint16_t family, uint32_t if_index);

    int descriptor() const
    {
        return socket_.get();
    }
    bool valid() const
    {
        return socket_.valid();
    }

    enum class Outcome { Packet, Refused, Nothing };

    // Reads a packet into buffer. Refused with *reason; Nothing when none waits.
    Outcome receive(std::span<uint8_t> buffer, Arrival *arrival, Count *reason) const;

    // Sends the message, or keeps it until there is room. if_index is that of a link or 0.
    void send(uint32_t if_index, const Envelope &envelope, std::span<const uint8_t> message,
              Counters &counters);

    // Sends what waits. Whether all of it is gone.
    bool flush(Counters &counters);

    bool waits() const
    {
        return !waiting_.empty();
    }

    // Packets that the kernel dropped because the socket was full, since the last call.
    uint64_t take_kernel_drops();

private:
    struct Waiting {
        uint32_t if_index;
        Envelope envelope;
        std::vector<uint8_t> message;
    };

    bool set_up_ipv4(uint32_t if_index) const;
    bool set_up_ipv6(uint32_t if_index) const;
    bool attach_filter(bool of_link) const;
    // 0, or the error.
    int send_now(uint32_t if_index, const Envelope &envelope, std::span<const uint8_t> message) const;

    uint16_t family_ = MCAST_FAMILY_IPV4;
    mcastd::Descriptor socket_;
    std::deque<Waiting> waiting_;
    size_t waiting_bytes_ = 0;
    uint32_t drops_ = 0; // as the kernel counts
};

} // namespace pimsmd

#endif
