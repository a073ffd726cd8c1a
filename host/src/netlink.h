/*
 * Route netlink sockets: notifications and requests.
 */
#ifndef HOST_SRC_NETLINK_H
#define HOST_SRC_NETLINK_H

#include <cstdint>
#include <initializer_list>
#include <libmnl/libmnl.h>
#include <memory>

namespace host
{

class Netlink
{
public:
    enum class Kind { Notifications, Requests, Questions };

    // Called for each message; the context is the caller's.
    using Message = void (*)(const nlmsghdr *message, void *context);

    enum class Received { Messages, Nothing, Overrun, Failed };

    Netlink() = default;
    ~Netlink();
    Netlink(const Netlink &) = delete;
    Netlink &operator=(const Netlink &) = delete;

    /*
     * Opens the socket in the calling thread's network namespace. One for notifications is non-blocking, has
     * the largest receive buffer to be had and belongs to the groups; one for requests blocks; one for
     * questions, see ask, is non-blocking. False with errno set.
     */
    bool open(Kind kind, std::initializer_list<unsigned> groups = {});

    bool valid() const
    {
        return socket_ != nullptr;
    }

    int descriptor() const
    {
        return mnl_socket_get_fd(socket_);
    }

    /*
     * Reads one datagram of notifications and hands on its messages. Overrun: notifications were lost, and
     * everything that was still queued has been thrown away, because what is left between gaps misleads.
     */
    Received receive(Message message, void *context);

    /*
     * Sends a request and hands on the messages of the answer. The header's flags, apart from NLM_F_DUMP, and
     * its number are filled in. A dump that changed while it ran is false with EINTR. False with errno set;
     * the kernel's refusal is such an errno.
     */
    bool request(nlmsghdr *header, Message message, void *context);

    /*
     * The same for a question that one message answers, in two system calls: no acknowledgement follows. The
     * kernel answers before it has taken the question, so that an answer which is not there then was lost:
     * false with EAGAIN, at once.
     */
    bool ask(nlmsghdr *header, Message message, void *context);

private:
    void discard();
    bool exchange(nlmsghdr *header, uint16_t flags, Message message, void *context);
    bool read_answer(size_t length, bool acknowledged, Message message, void *context, int *error);

    mnl_socket *socket_ = nullptr;
    uint32_t sequence_ = 0;
    std::unique_ptr<char[]> buffer_;
};

} // namespace host

#endif
