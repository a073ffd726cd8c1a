/*
 * The calls of a daemon about sockets. Those that the host platform stands in front of come through the table in
 * image_glue.cpp, the others by the linker's wrapping.
 */
#include <cstring>
#include <fcntl.h>
#include <libmnl/libmnl.h>
#include <netinet/in.h>
#include <unistd.h>

#include "platform/local_socket.h"
#include "tests/simulation/kernel/call_frame.h"
#include "tests/simulation/kernel/local_socket.h"
#include "tests/simulation/kernel/netlink_socket.h"
#include "tests/simulation/kernel/packet_socket.h"
#include "tests/simulation/kernel/routing_socket.h"
#include "tests/simulation/kernel/tcp_socket.h"

using namespace sim;

namespace
{

// The call, as it can be refused for this kind of socket.
Call call_for(int fd, Call others, Call streams)
{
    const OwnMemory own;
    const auto socket = std::dynamic_pointer_cast<Socket>(g_process->file(fd));
    return socket != nullptr && socket->is_stream() ? streams : others;
}

} // namespace

extern "C" {

int sim_socket(int domain, int type, int protocol)
{
    constexpr int KIND = ~(SOCK_NONBLOCK | SOCK_CLOEXEC);
    return make_file(Call::Socket, [&](Process &process) -> std::shared_ptr<File> {
        switch (domain) {
        case LOCAL_SOCKET_FAMILY:
            return std::make_shared<LocalSocket>(process.machine());
        case AF_PACKET: {
            auto socket = std::make_shared<PacketSocket>(process);
            process.machine().packet_sockets.push_back(socket);
            return socket;
        }
        default:
            static_cast<void>(protocol);
            if ((type & KIND) == SOCK_STREAM) {
                return std::make_shared<TcpSocket>(process);
            }
            return std::make_shared<RoutingSocket>(process, domain);
        }
    });
}

int sim_is_local(int fd)
{
    return std::dynamic_pointer_cast<LocalSocket>(g_process->file(fd)) != nullptr;
}

int sim_bind(int fd, const sockaddr *address, socklen_t length)
{
    return static_cast<int>(on_file<Socket>("bind", Call::Bind, fd,
                                            [&](Socket &socket) { return socket.bind(address, length); }));
}

int sim_connect(int fd, const sockaddr *address, socklen_t length)
{
    return static_cast<int>(on_file<Socket>("connect", call_for(fd, Call::Connect, Call::ConnectStream), fd,
                                            [&](Socket &socket) { return socket.connect(address, length); }));
}

int sim_accept4(int fd, sockaddr *address, socklen_t *length, int)
{
    return static_cast<int>(on_file<Socket>("accept4", Call::Accept, fd, [&](Socket &socket) {
        int error = 0;
        // A descriptor is found before a connection is taken.
        const int place = g_process->install(std::make_shared<File>());
        if (place < 0) {
            return place;
        }
        g_process->close(place);
        std::shared_ptr<File> accepted = socket.accept(&error);
        if (accepted == nullptr) {
            return -error;
        }
        if (address != nullptr) {
            std::dynamic_pointer_cast<Socket>(accepted)->peer_name(address, length);
        }
        return g_process->install(std::move(accepted));
    }));
}

// Which options can be refused the sockets know.
int sim_setsockopt(int fd, int level, int option, const void *value, socklen_t size)
{
    return static_cast<int>(on_file<Socket>("setsockopt", std::nullopt, fd, [&](Socket &socket) {
        return socket.set_option(level, option, value, size);
    }));
}

int __wrap_getsockopt(int fd, int level, int option, void *value, socklen_t *size)
{
    return static_cast<int>(on_file<Socket>("getsockopt", std::nullopt, fd, [&](Socket &socket) {
        return socket.get_option(level, option, value, size);
    }));
}

int __wrap_getsockname(int fd, sockaddr *address, socklen_t *length)
{
    return static_cast<int>(on_file<Socket>("getsockname", std::nullopt, fd,
                                            [&](Socket &socket) { return socket.name(address, length); }));
}

int __wrap_listen(int fd, int backlog)
{
    return static_cast<int>(
        on_file<Socket>("listen", Call::Listen, fd, [&](Socket &socket) { return socket.listen(backlog); }));
}

ssize_t __wrap_send(int fd, const void *bytes, size_t size, int)
{
    return on_file<Socket>("send", call_for(fd, Call::Send, Call::SendStream), fd,
                           [&](Socket &socket) { return socket.send(bytes, size); });
}

int __wrap_shutdown(int fd, int how)
{
    return static_cast<int>(
        on_file<Socket>("shutdown", std::nullopt, fd, [&](Socket &socket) { return socket.shutdown(how); }));
}

ssize_t __wrap_sendmsg(int fd, const msghdr *message, int)
{
    return on_file<Socket>("sendmsg", Call::SendMessage, fd,
                           [&](Socket &socket) { return socket.send_message(*message); });
}

ssize_t __wrap_recv(int fd, void *buffer, size_t size, int flags)
{
    return on_file<Socket>("recv", Call::Receive, fd,
                           [&](Socket &socket) { return socket.receive(buffer, size, flags, nullptr); });
}

ssize_t __wrap_recvfrom(int fd, void *buffer, size_t size, int flags, sockaddr *from, socklen_t *)
{
    return on_file<Socket>("recvfrom", Call::ReceivePacket, fd,
                           [&](Socket &socket) { return socket.receive(buffer, size, flags, from); });
}

int __wrap_ioctl(int fd, unsigned long request, void *argument)
{
    return static_cast<int>(on_file<Socket>(
        "ioctl", std::nullopt, fd, [&](Socket &socket) { return socket.control(request, argument); }));
}

// libmnl's record is its own secret, and so is this one.
struct mnl_socket {
    int fd;
};

mnl_socket *__wrap_mnl_socket_open2(int, int flags)
{
    const int fd = make_file(Call::NetlinkOpen, [flags](Process &process) {
        auto socket = std::make_shared<NetlinkSocket>(process.machine(), (flags & SOCK_NONBLOCK) == 0);
        process.machine().netlink_sockets.push_back(socket);
        return socket;
    });
    const OwnMemory own;
    return fd < 0 ? nullptr : new mnl_socket{fd};
}

int __wrap_mnl_socket_bind(mnl_socket *socket, unsigned, pid_t)
{
    return static_cast<int>(
        on_file<NetlinkSocket>("bind", Call::NetlinkBind, socket->fd, [](NetlinkSocket &) { return 0; }));
}

int __wrap_mnl_socket_get_fd(const mnl_socket *socket)
{
    return socket->fd;
}

int __wrap_mnl_socket_setsockopt(const mnl_socket *socket, int option, void *value, socklen_t)
{
    return static_cast<int>(
        on_file<NetlinkSocket>("setsockopt", Call::NetlinkJoin, socket->fd, [&](NetlinkSocket &self) {
            if (option == NETLINK_ADD_MEMBERSHIP) {
                self.join(*static_cast<const unsigned *>(value));
            }
            return 0;
        }));
}

ssize_t __wrap_mnl_socket_sendto(const mnl_socket *socket, const void *bytes, size_t size)
{
    return on_file<NetlinkSocket>("netlink send", Call::NetlinkSend, socket->fd,
                                  [&](NetlinkSocket &self) { return self.send(bytes, size); });
}

ssize_t __wrap_mnl_socket_recvfrom(const mnl_socket *socket, void *buffer, size_t size)
{
    bool blocks = false;
    const ssize_t result =
        on_file<NetlinkSocket>("netlink receive", Call::NetlinkReceive, socket->fd, [&](NetlinkSocket &self) {
            const ssize_t received = self.receive(buffer, size, 0, nullptr);
            blocks = received == -EAGAIN && self.is_blocking();
            return received;
        });
    if (blocks) {
        g_process->die(Process::End::Blocked);
    }
    return result;
}

int __wrap_close(int fd);

int __wrap_mnl_socket_close(mnl_socket *socket)
{
    const int fd = socket->fd;
    {
        const OwnMemory own;
        delete socket;
    }
    return __wrap_close(fd);
}

} // extern "C"
