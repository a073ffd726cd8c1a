/*
 * The simulated kernel beside the real one: the same sequences of calls, with the same results and the same errors.
 * What the simulation does otherwise than Linux is a fault of the simulation, whatever the daemons do with it.
 *
 *     sequence ──┬── the real kernel, in a fresh namespace ──► diary ──┐
 *                └── the simulated one, a fresh machine ─────► diary ──┴── equal?
 *
 * Both have the interfaces lan1 and lan2, up, with index 2 and 3, and the addresses 10.0.1.1 and 10.0.2.1.
 */
#ifndef TESTS_SIMULATION_PARITY_BOTH_KERNELS_H
#define TESTS_SIMULATION_PARITY_BOTH_KERNELS_H

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <vector>

struct mnl_socket;

namespace parity
{

// One kernel's calls.
struct Calls {
    bool real;
    int (*socket)(int, int, int);
    int (*bind)(int, const sockaddr *, socklen_t);
    int (*connect)(int, const sockaddr *, socklen_t);
    int (*accept4)(int, sockaddr *, socklen_t *, int);
    int (*setsockopt)(int, int, int, const void *, socklen_t);
    int (*epoll_ctl)(int, int, int, epoll_event *);
    int (*listen)(int, int);
    ssize_t (*send)(int, const void *, size_t, int);
    ssize_t (*recv)(int, void *, size_t, int);
    ssize_t (*read)(int, void *, size_t);
    ssize_t (*write)(int, const void *, size_t);
    int (*close)(int);
    int (*epoll_create1)(int);
    int (*epoll_wait)(int, epoll_event *, int, int);
    int (*eventfd)(unsigned, int);
    int (*timerfd_create)(int, int);
    int (*timerfd_settime)(int, int, const itimerspec *, itimerspec *);
    int (*ioctl)(int, unsigned long, void *);
    int (*getsockopt)(int, int, int, void *, socklen_t *);
    ssize_t (*recvfrom)(int, void *, size_t, int, sockaddr *, socklen_t *);
    ssize_t (*sendmsg)(int, const msghdr *, int);
    mnl_socket *(*netlink_open)(int, int);
    int (*netlink_bind)(mnl_socket *, unsigned, pid_t);
    int (*netlink_descriptor)(const mnl_socket *);
    int (*netlink_option)(const mnl_socket *, int, void *, socklen_t);
    ssize_t (*netlink_send)(const mnl_socket *, const void *, size_t);
    ssize_t (*netlink_receive)(const mnl_socket *, void *, size_t);
    int (*netlink_close)(mnl_socket *);
    int (*shutdown)(int, int);
    int (*getsockname)(int, sockaddr *, socklen_t *);
    // Changes an interface: "down", "up", "delete", "address ADDRESS/LENGTH", "no-address ADDRESS/LENGTH".
    void (*change)(const std::string &interface, const std::string &what);

    // A local socket, and a call with the address of a port.
    int local() const;
    int to_port(int (*call)(int, const sockaddr *, socklen_t), int fd, uint16_t port) const;
};

// What a sequence saw: each result with its name, an error in place of -1.
class Diary
{
public:
    long note(const std::string &what, long result)
    {
        lines.push_back(what + ": " + (result < 0 ? strerror(errno) : std::to_string(result)));
        return result;
    }
    // Of descriptors only whether there is one.
    int descriptor(const std::string &what, int fd)
    {
        note(what, fd < 0 ? fd : 0);
        return fd;
    }
    std::vector<std::string> lines;
};

using Sequence = std::function<void(const Calls &calls, Diary &diary)>;

using Sequence = std::function<void(const Calls &calls, Diary &diary)>;

// Fails the test when the diaries differ.
void compare(const Sequence &sequence);

// The events that a descriptor of the epoll instance has now.
uint32_t events_of(const Calls &calls, int epoll);
// The events of one descriptor, by an epoll instance of its own.
uint32_t ready(const Calls &calls, int fd, uint32_t asked = EPOLLIN | EPOLLOUT);
// The same once one of the wanted ones is there; 0 when none comes.
uint32_t await(const Calls &calls, int fd, uint32_t wanted);

} // namespace parity

#endif
