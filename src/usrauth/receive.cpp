/*
 * One read of a connection. A message is never joined across two reads, so nothing is kept between them.
 */
#include <sys/epoll.h>
#include <sys/socket.h>

#include "usrauth/detail.h"
#include "usrauth/handlers.h"
#include "usrauth/service.h"

namespace mcast::usrauth
{
namespace
{

/*
 * Handles the messages of one read. A callback may end the store or close the connection, and the rest with
 * it.
 */
void HandleRead(int32_t descriptor, const uint8_t *data, size_t size) MCAST_EXCLUDES(g_stUsrAuthRWLock)
{
    MessageReader reader = {data, size};
    Message message = {descriptor, 0, 0, nullptr};
    uint64_t closed_connections = g_service.closed_connections;
    while (g_store.open && NextMessage(&reader, &message)) {
        HandleMessage(message);
        if (g_service.closed_connections != closed_connections) {
            closed_connections = g_service.closed_connections;
            if (FindConnection(descriptor) == nullptr) {
                break;
            }
        }
    }
}

} // namespace

uint64_t OnReceive(uint32_t events, int32_t descriptor)
{
    Connection *connection = FindConnection(descriptor);
    uint8_t data[USRAUTH_MSG_RECV_MAX];

    if (connection == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    if ((events & (EPOLLERR | EPOLLHUP)) != 0) {
        CloseConnection(connection);
        return MCAST_OK;
    }
    const ssize_t size = recv(descriptor, data, sizeof(data), MSG_DONTWAIT);

    if (size > 0) {
        HandleRead(descriptor, data, static_cast<size_t>(size));
        CountRead();
    }
    return MCAST_OK;
}

} // namespace mcast::usrauth
