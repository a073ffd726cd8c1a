/*
 * How messages leave: over the sockets of the daemon, or in tests from one router to the next.
 */
#ifndef DAEMONS_PIMSMD_TRANSMITTER_H
#define DAEMONS_PIMSMD_TRANSMITTER_H

#include <cstdint>
#include <span>

#include "daemons/pimsmd/wire.h"

namespace pimsmd
{

class Transmitter
{
public:
    // Sends a complete message from the envelope's source. To a group it leaves by the interface; to a router's address
    // too unless if_index is 0, which leaves the way to the routes. It never waits; what cannot be sent is counted.
    virtual void send(uint32_t if_index, const Envelope &envelope, std::span<const uint8_t> message) = 0;

protected:
    ~Transmitter() = default;
};

} // namespace pimsmd

#endif
