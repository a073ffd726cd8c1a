/*
 * The service for agents, in a runtime directory of its own, an agent that is connected to it, and the tables
 * that are offered of the users.
 */
#ifndef TESTS_DAEMONS_GMPD_USER_SERVICE_LAB_H
#define TESTS_DAEMONS_GMPD_USER_SERVICE_LAB_H

#include <algorithm>
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "daemons/common/reactor.h"
#include "daemons/gmpd/control.h"
#include "daemons/gmpd/status.h"
#include "daemons/gmpd/user_service.h"
#include "daemons/uagent/message.h"
#include "platform/local_socket.h"
#include "tests/daemons/control_table.h"
#include "tests/daemons/gmpd_lab.h"
#include "tests/daemons/runtime_folder.h"
#include "tests/daemons/whole_text.h"

namespace gmpd_test
{

using namespace gmpd;

inline constexpr uint32_t LINK = 7;

class UserServiceLab : public testing::TestWithParam<uint8_t>
{
protected:
    UserServiceLab()
    {
        lab.emplace(GetParam());
        interface_authenticate(*lab->interface, true);
        EXPECT_TRUE(indexes.open(GetParam()));
        service.emplace(lab->process, indexes, [this](const User &user, bool present) {
            told += (present ? "+" : "-") + std::to_string(user.info.user_id);
        });
        EXPECT_TRUE(service->open(reactor.descriptor()));
        EXPECT_TRUE(service->upgrade());
        server.emplace(reactor);
        offer_control(*server, lab->process, [] { return DaemonStatus{}; });
        offer_user_control(*server, lab->process, &*service);
        lab->start();
        agent = connect_agent();
    }
    ~UserServiceLab() override
    {
        close(agent);
        server.reset();
        lab->process.interfaces.clear();
        service.reset();
        lab.reset();
    }

    int connect_agent()
    {
        LOCAL_SOCKET_ADDR_S address{};
        const int fd = socket(LOCAL_SOCKET_FAMILY, SOCK_DGRAM, LOCAL_SOCKET_PROTOCOL);
        address.family = LOCAL_SOCKET_FAMILY;
        address.port_be = htons(GetParam() == MCAST_FAMILY_IPV4 ? 2195 : 2192);
        address.node = LOCAL_SOCKET_NODE;
        EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
        serve();
        return fd;
    }
    // Everything that is ready, then what the daemon does after a wake-up.
    void serve()
    {
        for (int round = 0; round < 20; ++round) {
            reactor.run_once(0);
            service->settle();
        }
    }
    // The store's timer, beside the one that the daemon's own timers share.
    void fire_one_shot()
    {
        auto &timers = scripted_timer::platform.timers;
        const auto found = std::find_if(timers.begin(), timers.end(), [](const auto &entry) {
            return entry.second.attributes.kind == TIMER_KIND_ONE_SHOT;
        });

        ASSERT_NE(found, timers.end());
        scripted_timer::Timer fired = found->second;

        timers.erase(found);
        fired.handler(fired.parameters);
        serve();
    }
    // One command of an agent, in one packet.
    void say(const std::string &line)
    {
        uagent::Command command;
        std::string error;
        std::vector<uint8_t> packet;
        ASSERT_TRUE(uagent::parse_command(uagent::split_words(line), GetParam(), &command, &error)) << error;
        for (const uagent::Message &message : uagent::build_messages(command)) {
            packet.insert(packet.end(), message.bytes.begin(), message.bytes.end());
        }
        ASSERT_EQ(send(agent, packet.data(), packet.size(), 0), static_cast<ssize_t>(packet.size()));
        serve();
    }
    std::string record(unsigned user, const std::string &more = "") const
    {
        return "id=" + std::to_string(user) + " node=3 kind=1 interface=0x7 address=" + neighbour(user) +
               " " + more;
    }
    std::string neighbour(unsigned number) const
    {
        return to_text(lab->neighbour(number));
    }
    // group=... for any source of the lab's group, or one.
    std::string right(unsigned group, unsigned source = 0) const
    {
        return " group=" + (source != 0 ? to_text(lab->source(source)) + "," : "") +
               to_text(lab->group(group));
    }
    void report(unsigned number, RecordType type, const std::vector<unsigned> &sources, unsigned group = 1)
    {
        Memberships *member = lab->process.users->member(*lab->interface, lab->neighbour(number));
        std::vector<Address> addresses;
        ASSERT_NE(member, nullptr);
        for (const unsigned source : sources) {
            addresses.push_back(lab->source(source));
        }
        apply_record(*member, type, lab->group(group), addresses);
    }
    uint64_t count(Count counter) const
    {
        return lab->interface->counters[counter];
    }
    std::vector<mcastd::ControlFields> table(const mcastd::ControlSchema &schema, uint16_t limit = 0)
    {
        return control_test::table(server->registry(), schema, limit);
    }
    mcastd::ControlReply clear_users(const mcastd::ControlFields &arguments)
    {
        return control_test::command(server->registry(), mcastd::COMMAND_CLEAR_USERS, arguments);
    }
    std::string status() const
    {
        DaemonStatus process;
        process.users = &*service;
        return whole_text(status_parts(lab->process, [&process] { return process; }));
    }

    RuntimeFolder folder;
    mcastd::Reactor reactor;
    std::optional<Lab> lab;
    UserIndexes indexes;
    std::optional<UserService> service;
    std::optional<mcastd::ControlServer> server;
    std::string told;
    int agent = -1;
};

} // namespace gmpd_test

#endif
