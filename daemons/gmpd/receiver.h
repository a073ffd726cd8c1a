/*
 * Hearing the links: a packet socket for each interface, served in turn.
 */
#ifndef DAEMONS_GMPD_RECEIVER_H
#define DAEMONS_GMPD_RECEIVER_H

#include <cstdint>
#include <map>
#include <vector>

#include "daemons/common/descriptor.h"
#include "daemons/common/reactor.h"
#include "daemons/common/timer.h"
#include "daemons/gmpd/process.h"

namespace gmpd
{

class Receiver
{
public:
    // Both must outlive the receiver.
    Receiver(Process &process, mcastd::Reactor &reactor);
    ~Receiver();
    Receiver(const Receiver &) = delete;
    Receiver &operator=(const Receiver &) = delete;

    // Whether the kernel lets this process hear links; if not, that is logged with the remedy.
    bool open();

    // Ends hearing on every interface.
    void close();

    // Begins to hear the interface, with packets for every group. When its socket is refused that is logged and
    // tried again every second.
    void join(uint32_t if_index);

    // Ends that; harmless for an interface that is not heard, or gone.
    void leave(uint32_t if_index);

    // Packets that the kernel dropped because a socket was full, since the start.
    uint64_t kernel_drops();

private:
    // One interface.
    struct Ear {
        mcastd::Descriptor socket;
        uint64_t drops_warned = 0;
        uint64_t drops = 0;
    };

    // The socket stays closed when it cannot be opened, which is logged.
    void open_ear(uint32_t if_index, Ear &ear);
    void open_if_closed(uint32_t if_index, Ear &ear);
    void retry_later();
    void retry();
    void read_some(uint32_t if_index);
    bool read_one(uint32_t if_index, const Ear &ear);
    void count_drops(uint32_t if_index, Ear &ear);

    Process &process_;
    mcastd::Reactor &reactor_;
    std::map<uint32_t, Ear> ears_;
    std::vector<uint8_t> buffer_;
    mcastd::Timer retry_;
    uint64_t gone_drops_ = 0; // of sockets that are closed
};

} // namespace gmpd

#endif
