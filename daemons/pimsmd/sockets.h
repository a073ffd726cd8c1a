/*
 * The sockets of PIM in the event loop. Each has a turn of so many packets or milliseconds in a round, so that a flood on one
 * link delays no other; what the kernel cannot send at once waits for room (socket.h).
 */
#ifndef DAEMONS_PIMSMD_SOCKETS_H
#define DAEMONS_PIMSMD_SOCKETS_H

#include <functional>
#include <map>
#include <string>

#include "daemons/common/reactor.h"
#include "daemons/pimsmd/socket.h"
#include "daemons/pimsmd/transmitter.h"

namespace pimsmd
{

class Sockets final : public Transmitter
{
public:
    // Takes a message that came in, from the link or, with 0, from anywhere.
    using Receive =
        std::function<void(uint32_t if_index, const Envelope &envelope, std::span<const uint8_t> bytes)>;

    // The reactor outlives it.
    Sockets(uint16_t family, mcastd::Reactor &reactor);
    ~Sockets();
    Sockets(const Sockets &) = delete;
    Sockets &operator=(const Sockets &) = delete;

    // Opens the socket that is bound to no link. False on failure, which is logged.
    bool open(Receive receive);

    // Begins to hear the interface. A socket that cannot be opened is logged and tried again by tend.
    void join(uint32_t if_index, const std::string &name);

    // Ends that; harmless for one that is not heard.
    void leave(uint32_t if_index);

    void send(uint32_t if_index, const Envelope &envelope, std::span<const uint8_t> message) override;

    // To be called once a second: opens and sends what could not be.
    void tend();

    // Sends what waits and ends hearing.
    void close();

    const Counters &counters() const
    {
        return counters_;
    }

private:
    struct Ear {
        std::string name;
        Socket socket;
        bool watches_room = false;
    };

    bool open_ear(uint32_t if_index, Ear &ear);
    void serve(uint32_t if_index, uint32_t events);
    void read_some(uint32_t if_index);
    bool read_one(uint32_t if_index, const Socket &socket);
    void watch_room(Ear &ear);
    void count_drops(Ear &ear);

    uint16_t family_;
    mcastd::Reactor &reactor_;
    Receive receive_;
    Counters counters_;
    std::map<uint32_t, Ear> ears_; // by interface, 0 for that of none
    std::vector<uint8_t> buffer_;
};

} // namespace pimsmd

#endif
