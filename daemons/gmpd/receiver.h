/*
 * Hearing the link: one packet socket for all interfaces.
 */
#ifndef DAEMONS_GMPD_RECEIVER_H
#define DAEMONS_GMPD_RECEIVER_H

#include <cstdint>
#include <vector>

#include "daemons/common/descriptor.h"
#include "daemons/gmpd/process.h"

namespace gmpd
{

class Receiver
{
public:
    explicit Receiver(Process &process) : process_(process), buffer_(BUFFER_SIZE)
    {
    }

    // Opens the socket. False when the kernel refuses, which is logged with the remedy.
    bool open();

    // Ends hearing; the loop must not watch the socket any more.
    void close();

    // The socket, readable when packets wait.
    int descriptor() const
    {
        return socket_.get();
    }

    // Makes the interface hand over packets for every group, or no longer does. An interface that is gone needs no
    // call.
    void join(uint32_t if_index);
    void leave(uint32_t if_index);

    // Reads and acts on what waits, at most a fixed number of packets so that timers get their turn.
    void read_some();

    // Packets that the kernel dropped because the socket was full, since it was opened.
    uint64_t kernel_drops();

private:
    static constexpr size_t BUFFER_SIZE = 65536;

    bool read_one();
    void membership(int option, uint32_t if_index);

    Process &process_;
    mcastd::Descriptor socket_;
    std::vector<uint8_t> buffer_;
    uint64_t kernel_drops_ = 0;
    uint64_t drops_warned_ = 0;
};

} // namespace gmpd

#endif
