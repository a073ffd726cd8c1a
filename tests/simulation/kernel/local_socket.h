/*
 * Local sockets of family 37: messages between the processes of one machine, by port. They answer as the kernel's
 * own local sockets do, on which the host platform builds them: connected pairs keep order and message bounds; a
 * queue takes what the sender's buffer allows, and there is room again when three quarters of it are read; after
 * the other end is closed what it sent can still be read, unless something was left unread over there: then an
 * error comes first.
 *
 *     listener ── backlog ──► accept: end B          end A ◄── connect
 *     end A ── queue of B ──► end B                  end B ── queue of A ──► end A
 */
#ifndef TESTS_SIMULATION_KERNEL_LOCAL_SOCKET_H
#define TESTS_SIMULATION_KERNEL_LOCAL_SOCKET_H

#include <deque>

#include "tests/simulation/kernel/listener.h"
#include "tests/simulation/kernel/machine.h"

namespace sim
{

// One end of a connection.
class LocalEnd : public std::enable_shared_from_this<LocalEnd>
{
public:
    ~LocalEnd();

    // Makes two that are each other's. No message may be longer than that, by what the daemons have agreed.
    static std::pair<std::shared_ptr<LocalEnd>, std::shared_ptr<LocalEnd>> make_pair(size_t longest);
    size_t longest() const
    {
        return longest_;
    }

    uint32_t ready() const;
    ssize_t send(const void *bytes, size_t size);
    ssize_t receive(void *buffer, size_t size, int flags);
    // What this end sent and the other one has not read, as the kernel charges it.
    size_t in_flight() const
    {
        return in_flight_;
    }
    // As by shutdown: the other end reads to the end, and may go on sending.
    void stop_sending();
    // As by shutdown of both directions.
    void stop();

private:
    bool is_writable() const;

    size_t longest_ = 0;
    std::weak_ptr<LocalEnd> peer_;
    std::deque<Bytes> queue_; // to be read here
    size_t in_flight_ = 0;
    bool closed_ = false; // the other one
    bool ended_ = false;  // the other one sends no more
    bool reset_ = false;  // it left something unread, which is not told yet
};

class LocalSocket;

class LocalListener : public Listener<LocalEnd>
{
};

class LocalSocket : public Socket
{
public:
    explicit LocalSocket(Machine &machine) : machine_(machine)
    {
    }
    explicit LocalSocket(Machine &machine, std::shared_ptr<LocalEnd> end)
        : machine_(machine), end_(std::move(end))
    {
    }

    uint32_t ready() const override;
    int bind(const sockaddr *address, socklen_t length) override;
    int listen(int backlog) override;
    int connect(const sockaddr *address, socklen_t length) override;
    std::shared_ptr<File> accept(int *error) override;
    ssize_t send(const void *bytes, size_t size) override;
    ssize_t receive(void *buffer, size_t size, int flags, sockaddr *from) override;
    int shutdown(int how) override;
    int control(unsigned long request, void *argument) override;

private:
    Machine &machine_;
    std::shared_ptr<LocalListener> listener_; // when it is bound
    std::shared_ptr<LocalEnd> end_;           // when it is connected
};

// The end of a connection to a port, for those who are no process; nullptr when nobody listens there.
std::shared_ptr<LocalEnd> connect_local(Machine &machine, uint16_t port, int *error);

} // namespace sim

#endif
