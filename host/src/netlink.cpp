/*
 * Sockets of the kernel's route protocol, in three kinds that differ in who waits:
 *
 *     notifications    the kernel speaks; never waits; a large receive buffer, for what does not fit is lost
 *     requests         a change or a listing; waits for the acknowledgement, which ends the answer
 *     questions        one message each way; never waits, because the kernel answers within the send
 *
 * Loss is the case to get right. When notifications were lost (ENOBUFS) everything that is still queued is
 * older than the loss, so it is thrown away and the caller reads the whole state anew. A listing during
 * which the state changed is marked by the kernel (NLM_F_DUMP_INTR) and fails with EINTR, for the caller to
 * repeat. Answers carry the number of their request; what a request that was given up left behind is passed
 * over.
 */
#include "netlink.h"

#include <cerrno>
#include <sys/socket.h>
#include <utility>
#include <linux/netlink.h>

namespace
{

constexpr int RECEIVE_BUFFER = 8 << 20;
constexpr size_t DATAGRAM_MAX = 64 << 10;

struct Handover {
    host::Netlink::Message message;
    void *context;
};

int hand_over(const nlmsghdr *header, void *data)
{
    const Handover *handover = static_cast<const Handover *>(data);
    handover->message(header, handover->context);
    return MNL_CB_OK;
}

} // namespace

namespace host
{

Netlink::~Netlink()
{
    if (socket_ != nullptr) {
        int saved = errno;
        mnl_socket_close(socket_);
        errno = saved;
    }
}

bool Netlink::open(Kind kind, std::initializer_list<unsigned> groups)
{
    buffer_ = std::make_unique_for_overwrite<char[]>(DATAGRAM_MAX);
    int flags = SOCK_CLOEXEC | (kind == Kind::Requests ? 0 : SOCK_NONBLOCK);
    socket_ = mnl_socket_open2(NETLINK_ROUTE, flags);
    if (socket_ == nullptr || mnl_socket_bind(socket_, 0, MNL_SOCKET_AUTOPID) != 0) {
        return false;
    }
    for (unsigned group : groups) {
        if (mnl_socket_setsockopt(socket_, NETLINK_ADD_MEMBERSHIP, &group, sizeof(group)) != 0) {
            return false;
        }
    }
    // Going beyond the system's limit takes a privilege; without it as much as is allowed.
    int size = RECEIVE_BUFFER;
    if (kind == Kind::Notifications &&
        setsockopt(descriptor(), SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof(size)) != 0) {
        setsockopt(descriptor(), SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
    }
    return true;
}

void Netlink::discard()
{
    ssize_t length;
    do {
        length = mnl_socket_recvfrom(socket_, buffer_.get(), DATAGRAM_MAX);
    } while (length >= 0 || (errno != EAGAIN && errno != EBADF));
}

Netlink::Received Netlink::receive(Message message, void *context)
{
    ssize_t length = mnl_socket_recvfrom(socket_, buffer_.get(), DATAGRAM_MAX);
    if (length < 0) {
        if (errno == EAGAIN || errno == EINTR) {
            return Received::Nothing;
        }
        if (errno != ENOBUFS && errno != ENOSPC) {
            return Received::Failed;
        }
        discard();
        return Received::Overrun;
    }
    Handover handover{message, context};
    mnl_cb_run(buffer_.get(), static_cast<size_t>(length), 0, 0, hand_over, &handover);
    return Received::Messages;
}

// One datagram of an answer. True when it held the end, which is the acknowledgement if there is to be one;
// *error is then 0 or the kernel's refusal.
bool Netlink::read_answer(size_t length, bool acknowledged, Message message, void *context, int *error)
{
    int left = static_cast<int>(length);
    const nlmsghdr *header = reinterpret_cast<const nlmsghdr *>(buffer_.get());
    for (; mnl_nlmsg_ok(header, left); header = mnl_nlmsg_next(header, &left)) {
        if (header->nlmsg_seq != sequence_) {
            continue; // left from a request that was given up
        }
        if ((header->nlmsg_flags & NLM_F_DUMP_INTR) != 0) {
            *error = EINTR;
        }
        if (header->nlmsg_type == NLMSG_DONE) {
            return true;
        }
        if (header->nlmsg_type == NLMSG_ERROR) {
            if (mnl_nlmsg_get_payload_len(header) < sizeof(nlmsgerr)) {
                *error = EBADMSG;
                return true;
            }
            int refusal = static_cast<const nlmsgerr *>(mnl_nlmsg_get_payload(header))->error;
            *error = refusal != 0 ? -refusal : *error;
            return true;
        }
        message(header, context);
        if (!acknowledged) {
            return true;
        }
    }
    return false;
}

bool Netlink::exchange(nlmsghdr *header, uint16_t flags, Message message, void *context)
{
    header->nlmsg_seq = ++sequence_;
    header->nlmsg_flags = flags;
    if (mnl_socket_sendto(socket_, header, header->nlmsg_len) < 0) {
        return false;
    }
    int error = 0;
    for (bool complete = false; !complete;) {
        ssize_t length = mnl_socket_recvfrom(socket_, buffer_.get(), DATAGRAM_MAX);
        if (length < 0 && errno != EINTR) {
            return false;
        }
        complete = length >= 0 && read_answer(static_cast<size_t>(length), (flags & NLM_F_ACK) != 0, message,
                                              context, &error);
    }
    errno = error != 0 ? error : errno;
    return error == 0;
}

bool Netlink::request(nlmsghdr *header, Message message, void *context)
{
    const unsigned flags = NLM_F_REQUEST | NLM_F_ACK | (header->nlmsg_flags & NLM_F_DUMP);
    return exchange(header, static_cast<uint16_t>(flags), message, context);
}

bool Netlink::ask(nlmsghdr *header, Message message, void *context)
{
    return exchange(header, NLM_F_REQUEST, message, context);
}

} // namespace host
