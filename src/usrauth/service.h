/*
 * The service's listening socket and connections.
 */
#ifndef SRC_USRAUTH_SERVICE_H
#define SRC_USRAUTH_SERVICE_H

#include <stdint.h>

namespace mcast::usrauth
{

struct Connection {
    Connection *next;
    int32_t descriptor;
    int32_t epoll_id; /* the set in which the descriptor is registered */
};

struct Service {
    int32_t listener;            /* -1 while closed */
    int32_t epoll_id;            /* the set in which the listener is registered */
    Connection *head;            /* oldest */
    Connection *tail;            /* newest */
    uint64_t closed_connections; /* ever */
};

extern Service g_service;

/* The connection of that descriptor, or nullptr. */
Connection *FindConnection(int32_t descriptor);

/* Takes the connection out of its set and the list, closes and frees it. */
void CloseConnection(Connection *connection);

/* What the event loop calls for the listener and for each connection: with the events and the descriptor. */
uint64_t OnAccept(uint32_t events, int32_t descriptor);
uint64_t OnReceive(uint32_t events, int32_t descriptor);

} // namespace mcast::usrauth

#endif
