/*
 * MIB requests to the daemons: one short connection for each request, one message each way, and the caller's
 * parser on the reply.
 *
 * Several instances of a daemon may have to be asked for one table. The two walks differ in how the next row
 * is chosen: by index all instances are asked and a chooser compares what they found; by address they stand
 * in order, and the first that has a row ends the search. When none has one, the results are folded into one
 * (mcastMib_GetNextResult): any instance that failed otherwise makes the whole undecided, only absent
 * instances mean no such entry, and everything else is the end of the table.
 *
 * Nothing here waits longer than the daemon takes to answer, and a daemon that vanishes is a failed
 * exchange: sending raises no signal.
 */
#include "mcast/mib.h"

#include <errno.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/device.h"

namespace
{

/* One message each way; true with the length of the reply in the record. */
bool Converse(int fd, MCAST_MIB_REQUEST_S *request)
{
    ssize_t count = 0;
    do {
        /* A peer that is gone is a failed exchange, not the end of the process. */
        count = send(fd, request->request, request->request_length, MSG_NOSIGNAL);
    } while (count < 0 && errno == EINTR);
    if (count <= 0) {
        return false;
    }
    do {
        count = recv(fd, request->reply, request->reply_size, 0);
    } while (count < 0 && errno == EINTR);
    if (count <= 0) {
        return false;
    }
    request->reply_length = static_cast<uint64_t>(count);
    return true;
}

MCAST_STATUS Exchange(const MCAST_APP_ENDPOINT_S *daemon, MCAST_MIB_REQUEST_S *request)
{
    int fd = MCAST_Connect2APP(daemon);

    if (fd < 0) {
        return MCAST_ERR_GENERAL;
    }

    bool answered = Converse(fd, request);

    close(fd);
    return answered ? MCAST_OK : MCAST_ERR_GENERAL;
}

/* An exchange whose reply the parser reads into output, extra1 and extra2. */
MCAST_STATUS Ask(const MCAST_APP_ENDPOINT_S *daemon, MCAST_MIB_PARSER parser, MCAST_MIB_REQUEST_S *request,
                 void *output, void *extra1, void *extra2)
{
    return Exchange(daemon, request) == MCAST_OK
               ? parser(request->reply, request->reply_length, output, extra1, extra2)
               : MCAST_MIB_NO_ENTRY;
}

bool RunsOnStandby(uint64_t service)
{
    bool runs = false;
    uint32_t count = 0;
    uint16_t *nodes = DEV_GetAllStandbyNodes(&count);

    for (uint32_t i = 0; nodes != nullptr && i < count && !runs; ++i) {
        uint32_t state = SERVICE_STATE_ABSENT;

        runs = SERVICE_GetStatus(nodes[i], service, 0, &state) == MCAST_OK && state == SERVICE_STATE_RUNNING;
    }
    free(nodes);
    return runs;
}

MCAST_STATUS TryConnection(const MCAST_APP_ENDPOINT_S *daemon)
{
    int fd = MCAST_Connect2APP(daemon);
    if (fd < 0) {
        return MCAST_ERR_GENERAL;
    }
    close(fd);
    return MCAST_OK;
}

} // namespace

MCAST_STATUS MCAST_MIB_Get(const MCAST_APP_ENDPOINT_S *daemon, MCAST_MIB_PARSER parser,
                           MCAST_MIB_REQUEST_S *request)
{
    return Ask(daemon, parser, request, MCAST_MIB_Output(request), nullptr, nullptr);
}

MCAST_STATUS MCAST_MIB_SetGlobal(const MCAST_APP_ENDPOINT_S *daemon, MCAST_MIB_PARSER parser,
                                 MCAST_MIB_REQUEST_S *request)
{
    return Ask(daemon, parser, request, nullptr, nullptr, nullptr);
}

MCAST_STATUS MCAST_MIB_SetTable(const MCAST_APP_ENDPOINT_S *daemon, MCAST_MIB_PARSER parser,
                                MCAST_MIB_REQUEST_S *request, uint32_t *error_index)
{
    uint32_t output = MCAST_MIB_SET_OUTPUT;
    uint16_t extra = 0;
    uint32_t wrong = MCAST_MIB_NO_ERROR_INDEX;
    MCAST_STATUS result = Ask(daemon, parser, request, &output, &extra, &wrong);
    *error_index = wrong;
    return result;
}

MCAST_STATUS MCAST_MIB_GetNextByIndex(const MCAST_APP_ENDPOINT_S *const daemons[],
                                      MCAST_MIB_REQUEST_S *const requests[], uint32_t n,
                                      MCAST_MIB_PARSER parser, MCAST_MIB_CHOOSER chooser, uint32_t *chosen)
{
    bool found = false;
    for (uint32_t i = 0; i < n; ++i) {
        if (daemons[i] != nullptr) {
            requests[i]->result = MCAST_MIB_Get(daemons[i], parser, requests[i]);
            found = found || requests[i]->result == MCAST_OK;
        }
    }
    if (!found) {
        return mcastMib_GetNextResult(requests, n, 0);
    }
    *chosen = chooser(requests, n);
    return MCAST_OK;
}

MCAST_STATUS MCAST_MIB_GetNextByInet(const MCAST_APP_ENDPOINT_S *const daemons[],
                                     MCAST_MIB_REQUEST_S *const requests[], uint32_t n, uint32_t start,
                                     MCAST_MIB_PARSER parser, uint32_t *chosen)
{
    for (uint32_t i = start; i < n; ++i) {
        requests[i]->result = MCAST_MIB_Get(daemons[i], parser, requests[i]);
        if (requests[i]->result == MCAST_OK) {
            *chosen = i;
            return MCAST_OK;
        }
    }
    return mcastMib_GetNextResult(requests, n, start);
}

MCAST_STATUS mcastMib_GetNextResult(MCAST_MIB_REQUEST_S *const requests[], uint32_t n, uint32_t start)
{
    uint32_t absent = 0;
    for (uint32_t i = start; i < n; ++i) {
        if (requests[i]->result == MCAST_MIB_NO_ENTRY) {
            ++absent;
        } else if (requests[i]->result != MCAST_MIB_NO_NEXT) {
            return MCAST_ERR_NOTHING_DONE;
        }
    }
    /* Compared with n and not with the number walked: a walk from further on says that it is at its end. */
    return absent == n ? MCAST_MIB_NO_ENTRY : MCAST_MIB_NO_NEXT;
}

MCAST_STATUS MCAST_MIB_GetDaemonStatus(const MCAST_APP_ENDPOINT_S *daemon)
{
    uint32_t state = SERVICE_STATE_ABSENT;
    uint16_t node = static_cast<uint16_t>(LIP_GetLocalLip());
    uint32_t status = SERVICE_GetStatus(node, daemon->service, 0, &state);
    if (status != SERVICE_NOTHING_DONE && state == SERVICE_STATE_RUNNING) {
        return status == MCAST_OK ? TryConnection(daemon) : MCAST_OK;
    }
    return RunsOnStandby(daemon->service) ? TryConnection(daemon) : MCAST_OK;
}
