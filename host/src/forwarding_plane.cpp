/*
 * The forwarding plane of this machine is its kernel, in the network namespace of the calling thread. It has
 * no threads to be started, and forwards multicast for whoever holds the routing socket: the kernel sets
 * mc_forwarding itself then, which nobody else can, and neither looks at ip_forward nor at its IPv6 twin.
 * These are left alone, since they would make a router for unicast of a machine that may not be one, and have
 * it drop the routes that it learnt from router advertisements. So to start forwarding is to find out whether
 * the routing socket will be able to work: it is asked for the version of the interface, which works on a
 * socket that does not take the routing over.
 */
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <string_view>
#include <sys/socket.h>
#include <linux/mroute.h>
#include <linux/mroute6.h>

#include "descriptor.h"
#include "libc_calls.h"
#include "mcasthost/device.h"
#include "platform/device.h"

namespace
{

struct Family {
    int domain;
    int protocol;
    int level;
    int version_option;
    uint32_t absent;
    uint32_t denied;
    uint32_t unknown;
};

constexpr Family FAMILIES[] = {
    {AF_INET, IPPROTO_IGMP, IPPROTO_IP, MRT_VERSION, HOST_FORWARDING_NO_IPV4, HOST_FORWARDING_DENIED_IPV4,
     HOST_FORWARDING_UNKNOWN_IPV4},
    {AF_INET6, IPPROTO_ICMPV6, IPPROTO_IPV6, MRT6_VERSION, HOST_FORWARDING_NO_IPV6,
     HOST_FORWARDING_DENIED_IPV6, HOST_FORWARDING_UNKNOWN_IPV6},
};

struct Explanation {
    uint32_t bit;
    std::string_view text;
};

constexpr Explanation EXPLANATIONS[] = {
    {HOST_FORWARDING_NO_IPV4, "the kernel has no IPv4 multicast routing (CONFIG_IP_MROUTE)"},
    {HOST_FORWARDING_DENIED_IPV4, "no permission for IPv4 multicast routing (CAP_NET_RAW)"},
    {HOST_FORWARDING_UNKNOWN_IPV4, "IPv4 multicast routing could not be looked at"},
    {HOST_FORWARDING_NO_IPV6, "the kernel has no IPv6 multicast routing (CONFIG_IPV6_MROUTE)"},
    {HOST_FORWARDING_DENIED_IPV6, "no permission for IPv6 multicast routing (CAP_NET_RAW)"},
    {HOST_FORWARDING_UNKNOWN_IPV6, "IPv6 multicast routing could not be looked at"},
    {HOST_FORWARDING_ELSEWHERE, "a node that is up is another machine and cannot be reached"},
};

uint32_t missing(const Family &family)
{
    const host::Descriptor probe(
        host::libc().socket(family.domain, SOCK_RAW | SOCK_CLOEXEC, family.protocol));
    int version = 0;
    socklen_t length = sizeof(version);
    if (probe.valid() &&
        getsockopt(probe.get(), family.level, family.version_option, &version, &length) == 0) {
        return 0;
    }
    switch (errno) {
    case EPERM:
    case EACCES:
        return family.denied;
    case EAFNOSUPPORT:
    case EPROTONOSUPPORT:
    case ESOCKTNOSUPPORT:
    case ENOPROTOOPT:
    case EOPNOTSUPP:
        return family.absent;
    default:
        return family.unknown;
    }
}

uint32_t start_forwarding(uint16_t node)
{
    uint32_t result = 0;
    if (node != DEV_GetSelf()) {
        return HOST_FORWARDING_ELSEWHERE;
    }
    for (const Family &family : FAMILIES) {
        result |= missing(family);
    }
    return result;
}

} // namespace

extern "C" {

HOST_API uint32_t CIOCTL(uint16_t node, uint32_t command, uint32_t length, const void *input, void *,
                         uint32_t output_length, uint32_t *status)
{
    if (command != CIOCTL_START_MULTICAST_THREADS || length != sizeof(uint64_t) || input == nullptr ||
        output_length != 0 || status == nullptr || IF_IsNodeUp(node) == 0) {
        return HOST_FAILED;
    }
    *status = start_forwarding(node);
    return *status == 0 ? 0 : HOST_FAILED | *status;
}

HOST_API size_t HOST_ForwardingText(uint32_t result, char *text, size_t size)
{
    size_t length = 0;
    const auto append = [&](std::string_view part) {
        if (length < size) {
            memcpy(text + length, part.data(), std::min(part.size(), size - 1 - length));
        }
        length += part.size();
    };
    for (const Explanation &explanation : EXPLANATIONS) {
        if ((result & explanation.bit) != 0) {
            append(length != 0 ? "; " : "");
            append(explanation.text);
        }
    }
    if (result != 0 && length == 0) {
        append("the forwarding plane refused the call, or its nodes could not be had");
    }
    if (size != 0) {
        text[std::min(length, size - 1)] = '\0';
    }
    return length;
}

} // extern "C"
