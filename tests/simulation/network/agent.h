/*
 * An authentication agent of a router: it knows which hosts are users and what each may join, tells the gmpd of either
 * family, and tells everything again when a gmpd is another one, or a link got another interface.
 *
 *     allow, forbid ──► users ──► connection of IPv4 ──► gmpd -4
 *                          └────► connection of IPv6 ──► gmpd -6
 */
#ifndef TESTS_SIMULATION_NETWORK_AGENT_H
#define TESTS_SIMULATION_NETWORK_AGENT_H

#include <map>
#include <memory>

#include "tests/simulation/kernel/local_socket.h"
#include "tests/simulation/network/agent_message.h"
#include "tests/simulation/network/host.h"

namespace sim
{

class Agent
{
public:
    Agent(Kernel &kernel, Machine &machine) : kernel_(kernel), machine_(machine)
    {
    }
    Agent(const Agent &) = delete;
    Agent &operator=(const Agent &) = delete;

    // The host is a user and may join these, and nothing else.
    void allow(const Host &host, std::set<Permission> permissions);
    // It is none any more.
    void forbid(const Host &host);
    // Whether the host may have what it wants of the group from the source.
    bool permits(const Host &host, const Address &source, const Address &group) const;
    // Calls visitor(host, permissions) for each user.
    template <typename Visitor> void visit(const Visitor &visitor) const
    {
        for (const auto &[number, user] : users_) {
            if (user.second.is_user) {
                visitor(*user.first, user.second.permissions);
            }
        }
    }
    // When what the host may have changed last.
    Ns changed(const Host &host) const;

    // Ways to behave badly, each on connections of its own or with what it has.
    void stop_sending();   // without closing; from now on it uses others
    void send_nonsense();  // a message that says to be longer than it is, an unknown type, an unknown user
    void open_and_leave(); // connects often, and is gone at once

private:
    struct User {
        bool is_user = false;
        std::set<Permission> permissions;
        Ns changed = 0;
    };
    struct Connection {
        std::shared_ptr<LocalEnd> end;
        std::map<const Host *, uint32_t> told; // with which interface
    };

    void tick();
    void tell_all(int family, Connection &connection);
    bool tell(int family, Connection &connection, const Host &host, const User &user);
    bool is_told(const Connection &connection) const;

    Kernel &kernel_;
    Machine &machine_;
    bool ticking_ = false;
    std::map<uint64_t, std::pair<const Host *, User>> users_; // by the host's number
    std::map<int, Connection> connections_;
    std::vector<std::shared_ptr<LocalEnd>> silent_;
};

} // namespace sim

#endif
