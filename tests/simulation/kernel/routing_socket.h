/*
 * The raw socket of the mroute interface: options change the multicast table that it owns, upcalls come in as
 * packets, an ioctl reads the counters of an entry. It serves also as the raw socket by which a daemon sends
 * queries, which is never read.
 */
#ifndef TESTS_SIMULATION_KERNEL_ROUTING_SOCKET_H
#define TESTS_SIMULATION_KERNEL_ROUTING_SOCKET_H

#include <deque>

#include "tests/simulation/kernel/machine.h"

namespace sim
{

class RoutingSocket : public Socket
{
public:
    RoutingSocket(Process &process, int family);
    ~RoutingSocket() override;

    uint32_t ready() const override;
    int set_option(int level, int option, const void *value, socklen_t size) override;
    int get_option(int level, int option, void *value, socklen_t *size) override;
    int control(unsigned long request, void *argument) override;
    ssize_t send_message(const msghdr &message) override;
    ssize_t receive(void *buffer, size_t size, int flags, sockaddr *from) override;

    // False when its queue is full and the report is lost.
    bool upcall(int kind, unsigned vif, const MulticastTable::Key &key);

    int family() const
    {
        return family_;
    }
    // Reports so far, the lost ones included.
    uint64_t told() const
    {
        return told_;
    }

private:
    int set_multicast_option(int option, const void *value, socklen_t size);
    size_t size_of(int option) const; // of its record
    int add_vif(MulticastTable &table, const void *value);
    int delete_vif(MulticastTable &table, const void *value);
    int change_entry(MulticastTable &table, bool add, const void *value);
    MulticastTable *owned() const;

    Process &process_;
    Machine &machine_;
    int family_;
    uint32_t table_ = 0;
    std::deque<Bytes> upcalls_;
    uint32_t lost_ = 0;
    uint64_t told_ = 0;
};

} // namespace sim

#endif
