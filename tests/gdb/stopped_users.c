#include <arpa/inet.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>

#include "mcast/usrauth.h"
#include "mcast/usrauth_wire.h"
#include "mcasthost/loop.h"
#include "platform/local_socket.h"
#include "stopped.h"

/* An announcement with a name of five letters and one entry. */
typedef struct {
    USRAUTH_MSG_HEADER_S header;
    USRAUTH_USER_S user;
    char name[6];
    USRAUTH_GROUP_ENTRY_S entry;
} __attribute__((packed)) ANNOUNCEMENT_S;

typedef struct {
    USRAUTH_MSG_HEADER_S header;
    USRAUTH_GROUP_LIST_S list;
} __attribute__((packed)) LIST_END_S;

static void GiveInterface(MCAST_USRAUTH_USER_S *user, uint32_t *if_index)
{
    *if_index = 100 + user->user_id;
}

static void SendAnnouncement(int agent, uint16_t node, uint32_t user_id, const char *name)
{
    ANNOUNCEMENT_S message;
    memset(&message, 0, sizeof(message));
    message.header.length_be = htons(sizeof(message) - sizeof(message.header));
    message.user.user_id_be = htonl(user_id);
    message.user.node_be = htons(node);
    message.user.kind_be = htonl(3);
    message.user.access_if_index_be = htonl(50);
    message.user.name_length_be = htons(sizeof(message.name));
    message.user.name_offset_be = htons(sizeof(message.user));
    message.user.entry_count_be = htonl(1);
    message.user.entry_size_be = htons(sizeof(message.entry));
    inet_pton(AF_INET, "192.0.2.9", message.user.address);
    inet_pton(AF_INET, "10.0.0.1", message.entry.source);
    inet_pton(AF_INET, "239.0.0.1", message.entry.group);
    snprintf(message.name, sizeof(message.name), "%s", name);
    send(agent, &message, sizeof(message), 0);
}

static void SendListEnd(int agent, uint16_t node, uint32_t user_id)
{
    LIST_END_S message;
    memset(&message, 0, sizeof(message));
    message.header.type_be = htons(USRAUTH_MSG_GROUP_LIST_END);
    message.header.length_be = htons(sizeof(message.list));
    message.list.user_id_be = htonl(user_id);
    message.list.node_be = htons(node);
    message.list.kind_be = htonl(3);
    send(agent, &message, sizeof(message), 0);
}

int AnnounceUsers(void)
{
    static MCAST_USRAUTH_CALLBACKS_S callbacks;
    const LOCAL_SOCKET_ADDR_S address = {
        .family = LOCAL_SOCKET_FAMILY, .port_be = htons(USRAUTH_PORT_IPV4), .node = LOCAL_SOCKET_NODE};
    int loop = HOST_LoopCreate();

    callbacks.user_online = GiveInterface;
    if (MCAST_USRAUTH_Init(MCAST_FAMILY_IPV4, loop, HOST_LoopTimerService(loop), &callbacks) != MCAST_OK ||
        MCAST_USRAUTH_Upgrade(MCAST_FAMILY_IPV4, loop) != MCAST_OK) {
        return 1;
    }
    int agent = socket(LOCAL_SOCKET_FAMILY, SOCK_DGRAM, LOCAL_SOCKET_PROTOCOL);

    if (connect(agent, (const struct sockaddr *)&address, sizeof(address)) != 0) {
        return 1;
    }
    SendAnnouncement(agent, 1, 7, "alice");
    SendListEnd(agent, 1, 7);
    SendAnnouncement(agent, 2, 8, "bobby");
    while (HOST_LoopRunOnce(loop, 0) == 1) {
    }
    return MCAST_USRAUTH_UserCount() == 1 ? 0 : 1;
}
