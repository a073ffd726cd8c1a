#include "scale_kernel.h"

#include <cerrno>
#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#include <linux/rtnetlink.h>

#include "scale_support.h"

namespace scale
{
namespace
{

constexpr int NOTIFICATION_BUFFER = 512 << 20;
constexpr timeval A_MOMENT = {.tv_sec = 0, .tv_usec = 100000};

mnl_socket *open_socket()
{
    mnl_socket *socket = mnl_socket_open(NETLINK_ROUTE);
    if (socket == nullptr || mnl_socket_bind(socket, 0, MNL_SOCKET_AUTOPID) != 0) {
        fail("netlink socket");
    }
    return socket;
}

using Attributes = std::array<const nlattr *, RTA_MAX + 1>;

int keep_attribute(const nlattr *attribute, void *attributes)
{
    const uint16_t type = mnl_attr_get_type(attribute);
    if (type <= RTA_MAX) {
        (*static_cast<Attributes *>(attributes))[type] = attribute;
    }
    return MNL_CB_OK;
}

const uint8_t *address(const nlattr *attribute, size_t size)
{
    return attribute != nullptr && mnl_attr_get_payload_len(attribute) == size
               ? static_cast<const uint8_t *>(mnl_attr_get_payload(attribute))
               : nullptr;
}

} // namespace

Kernel::Kernel(const Family &family, const std::string &router) : family_(family)
{
    const int home = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
    const int there = open(router.c_str(), O_RDONLY | O_CLOEXEC);
    if (home < 0 || there < 0 || setns(there, CLONE_NEWNET) != 0) {
        fail("the router's namespace");
    }
    notifications_ = open_socket();
    requests_ = open_socket();
    if (setns(home, CLONE_NEWNET) != 0) {
        fail("the host's namespace");
    }
    close(home);
    close(there);
    int group = family.entry_notifications;
    const int fd = mnl_socket_get_fd(notifications_);
    if (mnl_socket_setsockopt(notifications_, NETLINK_ADD_MEMBERSHIP, &group, sizeof(group)) != 0 ||
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &A_MOMENT, sizeof(A_MOMENT)) != 0 ||
        setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &NOTIFICATION_BUFFER, sizeof(NOTIFICATION_BUFFER)) != 0) {
        fail("listening to notifications");
    }
}

void Kernel::listen(const Take &take)
{
    // One system call for each of them: what it costs is missing where the router works.
    const ssize_t size = mnl_socket_recvfrom(notifications_, buffer_.data(), buffer_.size());
    if (size >= 0) {
        visit(size, take);
    } else if (errno == ENOBUFS) {
        ++overruns_;
    } else if (errno != EAGAIN && errno != EINTR) {
        fail("reading notifications");
    }
}

void Kernel::dump(const Take &take)
{
    nlmsghdr *request = mnl_nlmsg_put_header(buffer_.data());
    request->nlmsg_type = RTM_GETROUTE;
    request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    auto *route = static_cast<rtmsg *>(mnl_nlmsg_put_extra_header(request, sizeof(rtmsg)));
    route->rtm_family = family_.entry_family;
    if (mnl_socket_sendto(requests_, request, request->nlmsg_len) < 0) {
        fail("asking for the entries");
    }
    ssize_t size;
    do {
        size = mnl_socket_recvfrom(requests_, buffer_.data(), buffer_.size());
        if (size < 0) {
            fail("reading the entries");
        }
    } while (visit(size, take));
}

Entry Kernel::entry_of(const nlmsghdr *message) const
{
    const auto *route = static_cast<const rtmsg *>(mnl_nlmsg_get_payload(message));
    Attributes attributes{};
    Entry entry;
    if (message->nlmsg_type != RTM_NEWROUTE || route->rtm_family != family_.entry_family) {
        return entry;
    }
    mnl_attr_parse(message, sizeof(rtmsg), keep_attribute, &attributes);
    const uint8_t *group = address(attributes[RTA_DST], family_.address_size);
    const uint8_t *source = address(attributes[RTA_SRC], family_.address_size);
    if (group != nullptr && source != nullptr) {
        entry.join = join_of(family_, group, source);
    }
    entry.forwards = attributes[RTA_MULTIPATH] != nullptr &&
                     mnl_attr_get_payload_len(attributes[RTA_MULTIPATH]) >= sizeof(rtnexthop);
    return entry;
}

// False at the end of a dump.
bool Kernel::visit(ssize_t size, const Take &take) const
{
    int left = static_cast<int>(size);
    const auto *message = reinterpret_cast<const nlmsghdr *>(buffer_.data());
    for (; mnl_nlmsg_ok(message, left); message = mnl_nlmsg_next(message, &left)) {
        if (message->nlmsg_type == NLMSG_DONE) {
            return false;
        }
        if (message->nlmsg_type >= NLMSG_MIN_TYPE) {
            take(entry_of(message));
        }
    }
    return true;
}

} // namespace scale
