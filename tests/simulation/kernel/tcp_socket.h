/*
 * TCP over IPv4 between the machines of a run, and within one. What is sent stays with the sender until it has
 * arrived; it leaves in pieces of any size, and each takes some milliseconds:
 *
 *     connect ── SYN ──► listener's backlog ──► accept
 *     end A: what it sent ── pieces ──► what end B received ──► read there
 *
 * While there is no way to the other end, or none back, nothing arrives; it is tried again, less and less often, and
 * after a quarter of an hour the connection fails. An end that is closed still sends what it was given, then its end;
 * one that is closed with something unread, or is sent to after that, resets the connection.
 */
#ifndef TESTS_SIMULATION_KERNEL_TCP_SOCKET_H
#define TESTS_SIMULATION_KERNEL_TCP_SOCKET_H

#include <deque>

#include "tests/simulation/kernel/listener.h"
#include "tests/simulation/kernel/machine.h"

namespace sim
{

struct TcpName {
    Address address;
    uint16_t port = 0;
};

// One end of a connection.
class TcpEnd : public std::enable_shared_from_this<TcpEnd>
{
public:
    // whose: of the draws.
    TcpEnd(Machine &machine, uint64_t whose, const TcpName &local, const TcpName &remote);

    // Asks the machine that has the remote address for a connection.
    void connect();

    uint32_t ready() const;
    ssize_t send(const void *bytes, size_t size);
    ssize_t receive(void *buffer, size_t size);
    // As by shutdown: what was given is sent, then the end; the other one may go on sending.
    void stop_sending();
    // Its descriptor is closed.
    void close();
    // The error that is not told yet; it is then.
    int take_error();

    bool is_connecting() const
    {
        return state_ == State::Connecting;
    }
    const TcpName local;
    const TcpName remote;

private:
    enum class State { Connecting, Open, Failed };

    Machine *way_there() const;
    void ask(unsigned attempt);
    void asked(unsigned attempt);
    void opened(const std::shared_ptr<TcpEnd> &peer);
    void push_later(Ns after);
    void push();
    bool push_piece(TcpEnd &peer);
    void fail(int error);
    bool has_to_send() const;
    bool is_writable() const;
    Ns on_the_way();

    Machine &machine_;
    const uint64_t whose_;
    std::weak_ptr<TcpEnd> peer_;
    State state_ = State::Connecting;
    std::deque<uint8_t> to_send_;
    std::deque<uint8_t> received_;
    bool stopped_ = false;  // sends its end behind what waits
    bool end_told_ = false; // the other one has received it
    bool ended_ = false;    // the other one's end was received
    bool closed_ = false;   // nobody has a descriptor any more
    bool pushes_ = false;   // an attempt to send is on its way
    unsigned failures_ = 0; // attempts in a row that found no way
    int error_ = 0;         // not told yet
};

// Whether packets go from the one address of the machine to the other address and back.
bool has_way(Machine &machine, const Address &own, const Address &other);

class TcpListener : public Listener<TcpEnd>
{
public:
    TcpName name;
};

class TcpSocket : public Socket
{
public:
    explicit TcpSocket(Process &process) : machine_(process.machine()), whose_(process.number())
    {
    }
    TcpSocket(Machine &machine, uint64_t whose, std::shared_ptr<TcpEnd> end)
        : machine_(machine), whose_(whose), end_(std::move(end)), outcome_told_(true)
    {
    }
    ~TcpSocket() override;

    bool is_stream() const override
    {
        return true;
    }
    uint32_t ready() const override;
    int bind(const sockaddr *address, socklen_t length) override;
    int listen(int backlog) override;
    int connect(const sockaddr *address, socklen_t length) override;
    std::shared_ptr<File> accept(int *error) override;
    int get_option(int level, int option, void *value, socklen_t *size) override;
    int name(sockaddr *address, socklen_t *length) override;
    int peer_name(sockaddr *address, socklen_t *length) override;
    ssize_t send(const void *bytes, size_t size) override;
    ssize_t receive(void *buffer, size_t size, int flags, sockaddr *from) override;
    int shutdown(int how) override;

private:
    Machine &machine_;
    const uint64_t whose_;
    TcpName bound_;
    std::shared_ptr<TcpListener> listener_; // when a port is bound
    std::shared_ptr<TcpEnd> end_;           // when it is connected, or about to be
    bool outcome_told_ = false;             // connect said what became of it
};

} // namespace sim

#endif
