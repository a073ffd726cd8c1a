/*
 * A packet socket bound to the IP protocol of one family on one interface, or on all with index 0: whole packets as
 * they arrive. What its queue has no room for is counted. An interface that goes down is told once as ENETDOWN; one
 * that is removed is never heard again, whatever comes later.
 */
#ifndef TESTS_SIMULATION_KERNEL_PACKET_SOCKET_H
#define TESTS_SIMULATION_KERNEL_PACKET_SOCKET_H

#include <deque>

#include "tests/simulation/kernel/machine.h"

namespace sim
{

class PacketSocket : public Socket
{
public:
    explicit PacketSocket(Process &process) : process_(process)
    {
    }

    uint32_t ready() const override;
    int bind(const sockaddr *address, socklen_t length) override;
    int set_option(int level, int option, const void *value, socklen_t size) override;
    int get_option(int level, int option, void *value, socklen_t *size) override;
    ssize_t receive(void *buffer, size_t size, int flags, sockaddr *from) override;

    void arrive(uint32_t if_index, const Packet &packet);
    // 0: all of them.
    uint32_t bound_to() const
    {
        return bound_to_;
    }
    void interface_down(uint32_t if_index, bool removed);

private:
    struct Waiting {
        uint32_t if_index;
        Bytes bytes;
    };

    Process &process_;
    bool hears(uint32_t if_index) const;

    int family_ = AF_UNSPEC;
    uint32_t bound_to_ = 0;
    int error_ = 0; // told by the next call that receives
    std::deque<Waiting> queue_;
    uint32_t dropped_ = 0;
};

} // namespace sim

#endif
