/*
 * An authentication agent: tells the user service of this network namespace (user_service.c, or a gmpd) about one user.
 *
 *     ./user_agent announce USER ADDRESS GROUP...    the user is there and may join the groups, from any source
 *     ./user_agent withdraw USER                     the user is gone
 *
 * docs/usrauth.md has the messages. All integers in them are in network order.
 */
#include <arpa/inet.h>
#include <mcast/platform/local_socket.h>
#include <mcast/usrauth_wire.h>
#include <mcasthost/address.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <linux/sockios.h>

#define NODE 3
#define KIND 1
#define ACCESS_IF_INDEX 7
#define MOST_GROUPS 32

/* The service reads one packet at a time, and the messages in it one after the other. */
static uint8_t packet[USRAUTH_MSG_RECV_MAX];
static size_t used;

/* Room for a value of a message of the type, all zero. Every message of this program fits in one packet. */
static void *append(uint16_t type, size_t length)
{
    USRAUTH_MSG_HEADER_S *header = (USRAUTH_MSG_HEADER_S *)(void *)&packet[used];
    header->type_be = htons(type);
    header->length_be = htons((uint16_t)length);
    used += sizeof(*header) + length;
    return header + 1;
}

static void append_user(uint16_t type, uint32_t id, const MCAST_ADDR_S *address)
{
    USRAUTH_USER_S *user = (USRAUTH_USER_S *)append(type, sizeof(*user));
    user->user_id_be = htonl(id);
    user->node_be = htons(NODE);
    user->kind_be = htonl(KIND);
    user->access_if_index_be = htonl(ACCESS_IF_INDEX);
    memcpy(user->address, address->address, sizeof(user->address));
}

/* What the user may join, all of it: with the end of the list, older entries that are not in it go. */
static void append_list(uint32_t id, const MCAST_ADDR_S *groups, uint32_t count)
{
    const size_t list = sizeof(USRAUTH_GROUP_LIST_S);
    const size_t entry_size = sizeof(USRAUTH_GROUP_ENTRY_S);
    USRAUTH_GROUP_LIST_S *value =
        (USRAUTH_GROUP_LIST_S *)append(USRAUTH_MSG_GROUP_LIST, list + count * entry_size);
    USRAUTH_GROUP_ENTRY_S *entries = (USRAUTH_GROUP_ENTRY_S *)(value + 1);
    USRAUTH_GROUP_LIST_S *end;
    uint32_t i;
    value->user_id_be = htonl(id);
    value->node_be = htons(NODE);
    value->kind_be = htonl(KIND);
    value->entry_count_be = htonl(count);
    value->list_offset_be = htons((uint16_t)list);
    value->entry_size_be = htons((uint16_t)entry_size);
    for (i = 0; i < count; ++i) {
        memcpy(entries[i].group, groups[i].address,
               sizeof(entries[i].group)); /* its source stays zero: any */
    }
    end = (USRAUTH_GROUP_LIST_S *)append(USRAUTH_MSG_GROUP_LIST_END, list);
    end->user_id_be = htonl(id);
    end->node_be = htons(NODE);
    end->kind_be = htonl(KIND);
}

/* The service closes a connection whose other end has gone, whatever it has not read: so wait until it has. */
static int wait_until_read(int fd)
{
    struct pollfd hung_up = {fd, 0, 0};
    int unread = 0;
    while (ioctl(fd, SIOCOUTQ, &unread) == 0 && unread > 0) {
        if (poll(&hung_up, 1, 10) != 0) {
            return 1; /* the service has ended */
        }
    }
    return 0;
}

static int send_packet(void)
{
    LOCAL_SOCKET_ADDR_S service;
    const int fd = socket(LOCAL_SOCKET_FAMILY, SOCK_DGRAM, LOCAL_SOCKET_PROTOCOL);
    int failed;
    memset(&service, 0, sizeof(service));
    service.family = LOCAL_SOCKET_FAMILY;
    service.port_be = htons(USRAUTH_PORT_IPV4);
    service.node = LOCAL_SOCKET_NODE;
    if (fd < 0 || connect(fd, (const struct sockaddr *)(const void *)&service, sizeof(service)) != 0) {
        perror("user_agent: no service");
        return 1;
    }
    failed = send(fd, packet, used, MSG_NOSIGNAL) != (ssize_t)used || wait_until_read(fd) != 0;
    if (failed) {
        perror("user_agent: not sent");
    }
    close(fd);
    return failed;
}

static int usage(void)
{
    fprintf(stderr, "usage: user_agent announce USER ADDRESS GROUP... | withdraw USER\n");
    return 2;
}

static int is_ipv4(const char *text, MCAST_ADDR_S *address)
{
    return HOST_AddressFromText(text, address) == 0 && address->family == MCAST_FAMILY_IPV4;
}

int main(int argc, char **argv)
{
    MCAST_ADDR_S address;
    MCAST_ADDR_S groups[MOST_GROUPS];
    uint32_t count = 0;
    uint32_t id;
    memset(&address, 0, sizeof(address));
    if (argc < 3) {
        return usage();
    }
    id = (uint32_t)strtoul(argv[2], NULL, 10);
    if (strcmp(argv[1], "withdraw") == 0 && argc == 3) {
        append_user(USRAUTH_MSG_WITHDRAW, id, &address);
        return send_packet();
    }
    if (strcmp(argv[1], "announce") != 0 || argc < 4 || argc > 4 + MOST_GROUPS ||
        !is_ipv4(argv[3], &address)) {
        return usage();
    }
    for (; (int)count < argc - 4; ++count) {
        if (!is_ipv4(argv[4 + count], &groups[count])) {
            return usage();
        }
    }
    append_user(USRAUTH_MSG_ANNOUNCE, id, &address);
    append_list(id, groups, count);
    return send_packet();
}
