/*
 * A netlink socket: questions are answered at once, one message a datagram; who belongs to a group gets its
 * notifications. When more of these wait than the queue holds, the next receive says that some were lost.
 */
#ifndef TESTS_SIMULATION_KERNEL_NETLINK_SOCKET_H
#define TESTS_SIMULATION_KERNEL_NETLINK_SOCKET_H

#include <deque>
#include <set>

#include "tests/simulation/kernel/netlink_message.h"

struct nlmsghdr;

namespace sim
{

class NetlinkSocket : public Socket
{
public:
    NetlinkSocket(Machine &machine, bool blocking) : machine_(machine), blocking_(blocking)
    {
    }

    uint32_t ready() const override;
    ssize_t send(const void *bytes, size_t size) override;
    ssize_t receive(void *buffer, size_t size, int flags, sockaddr *from) override;
    bool is_blocking() const
    {
        return blocking_;
    }

    void join(unsigned group)
    {
        groups_.insert(group);
    }
    bool listens() const
    {
        return !groups_.empty();
    }
    void notify(unsigned group, const Bytes &message);
    // As if notifications had been lost: what waits is all there is of them.
    void overrun()
    {
        overrun_ = true;
    }

private:
    void answer(const nlmsghdr *question);
    void dump(const nlmsghdr *question);
    void answer_route(const nlmsghdr *question);
    void answer_link(const nlmsghdr *question);
    void change_rule(const nlmsghdr *question);
    void put(Bytes message)
    {
        queue_.push_back(std::move(message));
    }

    Machine &machine_;
    bool blocking_;
    std::set<unsigned> groups_;
    std::deque<Bytes> queue_;
    bool overrun_ = false;
};

// Tells the machine's sockets of a group.
void notify_netlink(Machine &machine, unsigned group, const Bytes &message);

} // namespace sim

#endif
