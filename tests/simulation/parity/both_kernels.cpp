#include "tests/simulation/parity/both_kernels.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <libmnl/libmnl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/local_socket.h"
#include "tests/host/namespace.h"
#include "tests/simulation/kernel/machine.h"

extern "C" {
int sim_socket(int domain, int type, int protocol);
int sim_bind(int fd, const sockaddr *address, socklen_t length);
int sim_connect(int fd, const sockaddr *address, socklen_t length);
int sim_accept4(int fd, sockaddr *address, socklen_t *length, int flags);
int sim_setsockopt(int fd, int level, int option, const void *value, socklen_t size);
int sim_epoll_ctl(int epoll, int operation, int fd, epoll_event *event);
int __wrap_listen(int fd, int backlog);
ssize_t __wrap_send(int fd, const void *bytes, size_t size, int flags);
ssize_t __wrap_recv(int fd, void *buffer, size_t size, int flags);
ssize_t __wrap_read(int fd, void *buffer, size_t size);
ssize_t __wrap_write(int fd, const void *buffer, size_t size);
int __wrap_close(int fd);
int __wrap_epoll_create1(int flags);
int __wrap_epoll_wait(int epoll, epoll_event *event, int most, int timeout_ms);
int __wrap_eventfd(unsigned count, int flags);
int __wrap_timerfd_create(int clock, int flags);
int __wrap_timerfd_settime(int fd, int flags, const itimerspec *value, itimerspec *old);
int __wrap_ioctl(int fd, unsigned long request, void *argument);
int __wrap_getsockopt(int fd, int level, int option, void *value, socklen_t *size);
ssize_t __wrap_recvfrom(int fd, void *buffer, size_t size, int flags, sockaddr *from, socklen_t *length);
ssize_t __wrap_sendmsg(int fd, const msghdr *message, int flags);
mnl_socket *__wrap_mnl_socket_open2(int bus, int flags);
int __wrap_mnl_socket_bind(mnl_socket *socket, unsigned groups, pid_t pid);
int __wrap_mnl_socket_get_fd(const mnl_socket *socket);
int __wrap_mnl_socket_setsockopt(const mnl_socket *socket, int option, void *value, socklen_t size);
ssize_t __wrap_mnl_socket_sendto(const mnl_socket *socket, const void *bytes, size_t size);
ssize_t __wrap_mnl_socket_recvfrom(const mnl_socket *socket, void *buffer, size_t size);
int __wrap_mnl_socket_close(mnl_socket *socket);
int __wrap_shutdown(int fd, int how);
int __wrap_getsockname(int fd, sockaddr *address, socklen_t *length);
}

namespace parity
{
namespace
{

sim::Machine *g_machine;

int real_ioctl(int fd, unsigned long request, void *argument)
{
    return ioctl(fd, request, argument);
}

ssize_t real_recvfrom(int fd, void *buffer, size_t size, int flags, sockaddr *from, socklen_t *length)
{
    return recvfrom(fd, buffer, size, flags, from, length);
}

void change_real(const std::string &interface, const std::string &what)
{
    const size_t space = what.find(' ');
    const std::string verb = what.substr(0, space);
    const std::string command = verb == "delete"    ? "ip link delete " + interface
                                : verb == "address" ? "ip address add" + what.substr(space) + " dev " + interface
                                : verb == "no-address"
                                    ? "ip address delete" + what.substr(space) + " dev " + interface
                                    : "ip link set " + interface + " " + verb;
    host_test::shell(command);
}

void change_simulated(const std::string &name, const std::string &what)
{
    const uint32_t if_index = g_machine->find(name)->index;
    const size_t space = what.find(' ');
    const std::string verb = what.substr(0, space);
    if (verb == "delete") {
        g_machine->remove_interface(if_index);
        return;
    }
    if (verb == "up" || verb == "down") {
        g_machine->set_up(if_index, verb == "up");
        return;
    }
    const size_t slash = what.find('/');
    const sim::Address address = sim::address_from(what.substr(space + 1, slash - space - 1));
    if (verb == "address") {
        g_machine->add_address(if_index,
                               {address, static_cast<unsigned>(std::stoul(what.substr(slash + 1)))});
    } else {
        g_machine->remove_address(if_index, address);
    }
}

constexpr Calls LINUX = {true,
                         socket,
                         bind,
                         connect,
                         accept4,
                         setsockopt,
                         epoll_ctl,
                         listen,
                         send,
                         recv,
                         read,
                         write,
                         close,
                         epoll_create1,
                         epoll_wait,
                         eventfd,
                         timerfd_create,
                         timerfd_settime,
                         real_ioctl,
                         getsockopt,
                         real_recvfrom,
                         sendmsg,
                         mnl_socket_open2,
                         mnl_socket_bind,
                         mnl_socket_get_fd,
                         mnl_socket_setsockopt,
                         mnl_socket_sendto,
                         mnl_socket_recvfrom,
                         mnl_socket_close,
                         shutdown,
                         getsockname,
                         change_real};
constexpr Calls SIMULATED = {false,
                             sim_socket,
                             sim_bind,
                             sim_connect,
                             sim_accept4,
                             sim_setsockopt,
                             sim_epoll_ctl,
                             __wrap_listen,
                             __wrap_send,
                             __wrap_recv,
                             __wrap_read,
                             __wrap_write,
                             __wrap_close,
                             __wrap_epoll_create1,
                             __wrap_epoll_wait,
                             __wrap_eventfd,
                             __wrap_timerfd_create,
                             __wrap_timerfd_settime,
                             __wrap_ioctl,
                             __wrap_getsockopt,
                             __wrap_recvfrom,
                             __wrap_sendmsg,
                             __wrap_mnl_socket_open2,
                             __wrap_mnl_socket_bind,
                             __wrap_mnl_socket_get_fd,
                             __wrap_mnl_socket_setsockopt,
                             __wrap_mnl_socket_sendto,
                             __wrap_mnl_socket_recvfrom,
                             __wrap_mnl_socket_close,
                             __wrap_shutdown,
                             __wrap_getsockname,
                             change_simulated};

} // namespace

int Calls::local() const
{
    return real ? socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)
                : socket(LOCAL_SOCKET_FAMILY, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC,
                         LOCAL_SOCKET_PROTOCOL);
}

int Calls::to_port(int (*call)(int, const sockaddr *, socklen_t), int fd, uint16_t port) const
{
    if (real) {
        sockaddr_un name{};
        name.sun_family = AF_UNIX;
        const std::string text = "simulation-parity-" + std::to_string(port); // of the abstract kind
        memcpy(name.sun_path + 1, text.data(), text.size());
        return call(fd, reinterpret_cast<const sockaddr *>(&name),
                    static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + text.size()));
    }
    LOCAL_SOCKET_ADDR_S name{};
    name.length = sizeof(name);
    name.family = LOCAL_SOCKET_FAMILY;
    name.port_be = htons(port);
    name.node = LOCAL_SOCKET_NODE;
    return call(fd, reinterpret_cast<const sockaddr *>(&name), sizeof(name));
}

void compare(const Sequence &sequence)
{
    Diary real;
    Diary simulated;
    ASSERT_TRUE(host_test::in_fresh_namespace([&] {
        for (const char *command :
             {"ip link add lan1 index 2 type veth peer name lan2 index 3",
              "sysctl -qw net.ipv6.conf.lan1.disable_ipv6=1 net.ipv6.conf.lan2.disable_ipv6=1",
              "ip link set lo up", "ip link set lan1 up", "ip link set lan2 up",
              "ip address add 10.0.1.1/24 dev lan1", "ip address add 10.0.2.1/24 dev lan2"}) {
            host_test::shell(command);
        }
        const int first = eventfd(0, 0);
        close(first);
        sequence(LINUX, real);
        close_range(static_cast<unsigned>(first), ~0u, 0);
    })) << "run it inside scripts/lab";
    sim::Kernel kernel(1);
    sim::Machine machine(kernel, "r1");
    machine.add_interface("lan1", nullptr, {{sim::address_from("10.0.1.1"), 24}});
    machine.add_interface("lan2", nullptr, {{sim::address_from("10.0.2.1"), 24}});
    g_machine = &machine;
    {
        sim::Process process(kernel, machine, "r1.test", "");
        sim::g_process = &process;
        sequence(SIMULATED, simulated);
        sim::g_process = nullptr;
    }
    EXPECT_EQ(simulated.lines, real.lines);
    EXPECT_FALSE(real.lines.empty());
}

uint32_t events_of(const Calls &calls, int epoll)
{
    epoll_event event{};
    return calls.epoll_wait(epoll, &event, 1, 0) == 1 ? event.events : 0;
}

uint32_t await(const Calls &calls, int fd, uint32_t wanted)
{
    for (int tries = 0; tries < 10000; ++tries) {
        const uint32_t events = ready(calls, fd, wanted);
        if ((events & wanted) != 0) {
            return events;
        }
        if (calls.real) {
            poll(nullptr, 0, 1);
        } else {
            g_machine->kernel.run_for(sim::MILLISECOND);
        }
    }
    return 0;
}

uint32_t ready(const Calls &calls, int fd, uint32_t asked)
{
    const int epoll = calls.epoll_create1(0);
    epoll_event event{asked, {}};
    calls.epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event);
    const uint32_t events = events_of(calls, epoll);
    calls.close(epoll);
    return events;
}

} // namespace parity
