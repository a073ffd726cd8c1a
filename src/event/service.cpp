/*
 * Reaching another daemon, which is started when it is not there:
 *
 *     connect ── fails ──► state of the service on this node
 *        ▲                    absent, stopped, unknown ──► start it here and on the standby nodes
 *        │                    there but not ready ───────► nothing
 *        └──────── wait ◄─────────┘
 *
 * The same socket serves every attempt.
 */
#include "mcast/service.h"

#include <errno.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include "event/descriptor.h"
#include "event/local_channel.h"
#include "platform/device.h"

namespace
{

/* Whether a service call succeeded. */
bool Succeeded(uint32_t status)
{
    return status == MCAST_OK || status == SERVICE_NOTHING_DONE;
}

/* What is known of a service on a node. */
enum class Service { kUnknown, kNotRunning, kPresent };

Service Find(uint16_t node, uint64_t service)
{
    uint32_t state = SERVICE_STATE_ABSENT;
    if (!Succeeded(SERVICE_GetStatus(node, service, 0, &state))) {
        return Service::kUnknown;
    }
    return state == SERVICE_STATE_ABSENT || state == SERVICE_STATE_STOPPED ? Service::kNotRunning
                                                                           : Service::kPresent;
}

void StartUnlessPresent(uint64_t service)
{
    uint16_t node = static_cast<uint16_t>(LIP_GetLocalLip());
    if (Find(node, service) == Service::kPresent) {
        return;
    }
    (void)SERVICE_Start(node, service, 0, 0);
    (void)MCAST_StartSlaveService(service);
}

void Wait()
{
    struct timespec left = {0, MCAST_APP_WAIT_US * 1000L};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

/* Connects the socket, or leaves the errno of the last attempt. */
bool Reach(int fd, const MCAST_APP_ENDPOINT_S &endpoint)
{
    const LOCAL_SOCKET_ADDR_S address = mcast::LocalAddress(endpoint.port, sizeof(address));

    for (uint32_t attempt = 0; attempt < MCAST_APP_ATTEMPTS; ++attempt) {
        if (MCAST_Connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0) {
            return true;
        }

        if (endpoint.start_if_absent != 1) {
            return false;
        }

        int error = errno;

        StartUnlessPresent(endpoint.service);
        Wait();
        errno = error;
    }
    return false;
}

} // namespace

MCAST_STATUS MCAST_StartSlaveService(uint64_t service)
{
    MCAST_STATUS result = MCAST_OK;
    uint32_t count = 0;
    uint16_t *nodes = DEV_GetAllStandbyNodes(&count);

    for (uint32_t i = 0; nodes != nullptr && i < count; ++i) {
        if (Find(nodes[i], service) == Service::kNotRunning) {
            uint32_t status = SERVICE_Start(nodes[i], service, 0, 0);

            result |= Succeeded(status) ? MCAST_OK : status;
        }
    }
    free(nodes);
    return result;
}

int MCAST_Connect(int fd, const struct sockaddr *addr, uint32_t addr_len)
{
    int result = 0;
    do {
        result = connect(fd, addr, addr_len);
    } while (result != 0 && errno == EINTR);
    return result != 0 && errno == EISCONN ? 0 : result;
}

int MCAST_Connect2APP(const MCAST_APP_ENDPOINT_S *endpoint)
{
    if (endpoint == nullptr) {
        errno = EINVAL;
        return -1;
    }

    int fd = socket(LOCAL_SOCKET_FAMILY, SOCK_DGRAM, LOCAL_SOCKET_PROTOCOL);

    if (fd < 0) {
        return fd;
    }
    if (!Reach(fd, *endpoint)) {
        mcast::CloseAfterFailure(fd);
        return -1;
    }
    mcast::SetLinger(fd);
    return fd;
}
