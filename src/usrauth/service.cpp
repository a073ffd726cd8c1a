/*
 * Opening and closing the service, and its list of connections.
 *
 * The list is searched from its oldest connection on: agents are few and stay. A descriptor that is not in it
 * is not the service's, whatever the event loop reports.
 */
#include "usrauth/service.h"

#include <endian.h>
#include <stdlib.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "event/descriptor.h"
#include "mcast/event.h"
#include "mcast/usrauth.h"
#include "mcast/usrauth_wire.h"
#include "platform/local_socket.h"
#include "usrauth/store.h"

namespace mcast::usrauth
{

Service g_service = {-1, -1, nullptr, nullptr, 0};

namespace
{

constexpr int kBacklog = 1024;

uint32_t Unsigned(int32_t descriptor)
{
    return static_cast<uint32_t>(descriptor);
}

/* Makes the socket the listener of the family's port. */
bool Listen(int32_t descriptor, uint8_t family)
{
    LOCAL_SOCKET_ADDR_S address = {};
    const uint32_t reuse = 1;
    address.family = LOCAL_SOCKET_FAMILY;
    address.port_be = htobe16(family == MCAST_FAMILY_IPV4 ? USRAUTH_PORT_IPV4 : USRAUTH_PORT_IPV6);
    address.node = LOCAL_SOCKET_NODE;
    return setsockopt(descriptor, SOL_SOCKET, LOCAL_SOCKET_OPTION_REUSE, &reuse, sizeof(reuse)) == 0 &&
           bind(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0 &&
           listen(descriptor, kBacklog) == 0;
}

bool Register(int32_t epoll_id, int32_t descriptor, uint64_t (*handler)(uint32_t, int32_t))
{
    return MCAST_AddEpoll(Unsigned(epoll_id), Unsigned(descriptor), EPOLLIN,
                          reinterpret_cast<uint64_t>(handler)) == MCAST_OK;
}

void CloseRegistered(int32_t epoll_id, int32_t descriptor)
{
    MCAST_DeleteEpoll(Unsigned(epoll_id), Unsigned(descriptor));
    close(descriptor);
}

/* Puts a connection at the end of the list; false when memory is short. */
bool AppendConnection(int32_t descriptor, int32_t epoll_id)
{
    Connection *connection = static_cast<Connection *>(malloc(sizeof(*connection)));
    if (connection == nullptr) {
        return false;
    }
    *connection = {nullptr, descriptor, epoll_id};
    (g_service.tail != nullptr ? g_service.tail->next : g_service.head) = connection;
    g_service.tail = connection;
    return true;
}

void UnlinkConnection(Connection *connection)
{
    Connection *previous = nullptr;
    for (Connection *at = g_service.head; at != connection; at = at->next) {
        previous = at;
    }
    (previous != nullptr ? previous->next : g_service.head) = connection->next;
    if (g_service.tail == connection) {
        g_service.tail = previous;
    }
}

} // namespace

Connection *FindConnection(int32_t descriptor)
{
    Connection *connection = g_service.head;
    while (connection != nullptr && connection->descriptor != descriptor) {
        connection = connection->next;
    }
    return connection;
}

void CloseConnection(Connection *connection)
{
    UnlinkConnection(connection);
    CloseRegistered(connection->epoll_id, connection->descriptor);
    free(connection);
    ++g_service.closed_connections;
}

uint64_t OnAccept(uint32_t, int32_t listener)
{
    const int32_t descriptor = accept(listener, nullptr, nullptr);
    const uint32_t linger[2] = {1, 0};
    if (descriptor < 0) {
        return MCAST_ERR_GENERAL;
    }
    setsockopt(descriptor, SOL_SOCKET, LOCAL_SOCKET_OPTION_LINGER, linger, sizeof(linger));
    if (!Register(g_store.epoll_id, descriptor, OnReceive)) {
        CloseAfterFailure(descriptor);
        return MCAST_ERR_GENERAL;
    }
    if (!AppendConnection(descriptor, g_store.epoll_id)) {
        CloseRegistered(g_store.epoll_id, descriptor);
        return MCAST_ERR_GENERAL;
    }
    return MCAST_OK;
}

} // namespace mcast::usrauth

using namespace mcast;
using namespace mcast::usrauth;

MCAST_STATUS MCAST_USRAUTH_Upgrade(uint8_t family, int32_t epoll_id)
{
    if (g_service.listener != -1) {
        return MCAST_OK;
    }
    const int32_t descriptor = socket(LOCAL_SOCKET_FAMILY, SOCK_DGRAM, LOCAL_SOCKET_PROTOCOL);

    if (descriptor < 0) {
        return MCAST_ERR_GENERAL;
    }
    if (!Listen(descriptor, family) || !Register(epoll_id, descriptor, OnAccept)) {
        CloseAfterFailure(descriptor);
        return MCAST_ERR_GENERAL;
    }
    g_service.listener = descriptor;
    g_service.epoll_id = epoll_id;
    return MCAST_OK;
}

MCAST_BOOL MCAST_USRAUTH_StopServer(void)
{
    MCAST_BOOL closed = MCAST_FALSE;
    while (g_service.head != nullptr) {
        CloseConnection(g_service.head);
        closed = MCAST_TRUE;
    }
    if (g_service.listener != -1) {
        CloseRegistered(g_service.epoll_id, g_service.listener);
        g_service.listener = -1;
        closed = MCAST_TRUE;
    }
    return closed;
}
