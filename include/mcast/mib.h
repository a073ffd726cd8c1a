/*
 * Management (MIB) requests to the daemons that hold a table. A table may be spread over several instances
 * of a daemon, one a family or one a node; each has an address and a request record of its own.
 *
 * A call opens a connection for each exchange, sends the request in one message, waits without limit for one
 * reply, and closes the connection. A reply that is longer than its buffer is cut; a send is not completed
 * when it took only a part. send and recv that a signal interrupts are repeated; an exchange fails when
 * either gives 0 or less, and a send that failed is followed by no recv. How long a connection takes and
 * whether it starts the daemon, see MCAST_Connect2APP. What the messages say is between the caller and the
 * daemon: the caller's parser reads the reply.
 *
 * The functions keep no state and take no lock; they may be called from several threads with request records
 * of their own. Parsers and choosers run on the calling thread. No pointer may be NULL unless its function
 * says so.
 */
#ifndef MCAST_MIB_H
#define MCAST_MIB_H

#include "mcast/common.h"
#include "mcast/service.h"

MCAST_EXTERN_C_BEGIN

/*
 * A request to one instance, followed by what its parser writes: a caller's record has this one as its first
 * field and the output behind it, on a boundary of 8 bytes. The caller owns record and buffers.
 */
typedef struct MCAST_MIB_REQUEST_S {
    uint64_t request_length; /* bytes at request, 1 at least: nothing is not sent */
    const void *request;
    uint64_t reply_size; /* bytes of room at reply, 1 at least */
    void *reply;
    uint64_t reply_length; /* bytes of the last reply; untouched by an exchange that fails */
    int64_t result;        /* this instance's result of a get-next, zero-extended */
} MCAST_MIB_REQUEST_S;

MCAST_STATIC_ASSERT(sizeof(MCAST_MIB_REQUEST_S) == 48, "the parser's part follows 48 bytes");
MCAST_STATIC_ASSERT(offsetof(MCAST_MIB_REQUEST_S, reply_size) == 16, "the reply follows the request");
MCAST_STATIC_ASSERT(offsetof(MCAST_MIB_REQUEST_S, reply_length) == 32, "lengths follow the buffers");
MCAST_STATIC_ASSERT(offsetof(MCAST_MIB_REQUEST_S, result) == 40, "the result follows the lengths");

/* What follows the request: the output of its parser. */
static inline void *MCAST_MIB_Output(MCAST_MIB_REQUEST_S *request)
{
    return request + 1;
}

/*
 * Reads a reply of reply_length bytes. output is MCAST_MIB_Output where a table is read, and NULL where
 * something is set, except by MCAST_MIB_SetTable, which says what the last three are; elsewhere these two are
 * NULL. MCAST_OK; MCAST_MIB_NO_ENTRY, MCAST_MIB_NO_NEXT or another failure.
 */
typedef MCAST_STATUS (*MCAST_MIB_PARSER)(const void *reply, uint64_t reply_length, void *output, void *extra1,
                                         void *extra2);

/*
 * Which of count requests, at least one of them with result 0, holds the entry that comes next in the order
 * of the table: its position.
 */
typedef uint32_t (*MCAST_MIB_CHOOSER)(MCAST_MIB_REQUEST_S *const requests[], uint32_t count);

/*
 * Reads an entry from one instance: the parser's result; MCAST_MIB_NO_ENTRY when the daemon cannot be
 * reached, or daemon is NULL.
 */
MCAST_API MCAST_STATUS MCAST_MIB_Get(const MCAST_APP_ENDPOINT_S *daemon, MCAST_MIB_PARSER parser,
                                     MCAST_MIB_REQUEST_S *request);

/* Sets a scalar: the parser's result, or as MCAST_MIB_Get. */
MCAST_API MCAST_STATUS MCAST_MIB_SetGlobal(const MCAST_APP_ENDPOINT_S *daemon, MCAST_MIB_PARSER parser,
                                           MCAST_MIB_REQUEST_S *request);

/* What MCAST_MIB_SetTable presets for the parser. */
#define MCAST_MIB_SET_OUTPUT 8u
#define MCAST_MIB_NO_ERROR_INDEX 0xffffffffu

/*
 * Sets the cells of a row: the parser's result, or as MCAST_MIB_Get. The parser's output is a uint32_t,
 * preset to MCAST_MIB_SET_OUTPUT, extra1 a uint16_t, preset to 0, and extra2 a uint32_t, the number of the
 * cell that is wrong, preset to MCAST_MIB_NO_ERROR_INDEX. *error_index is that number whatever the parser's
 * result, and MCAST_MIB_NO_ERROR_INDEX when the daemon cannot be reached.
 */
MCAST_API MCAST_STATUS MCAST_MIB_SetTable(const MCAST_APP_ENDPOINT_S *daemon, MCAST_MIB_PARSER parser,
                                          MCAST_MIB_REQUEST_S *request, uint32_t *error_index);

/*
 * Get-next over all of n instances, for a table whose next entry any of them may hold. Each instance with an
 * address (daemons[i] not NULL) is asked, in order, and has its result stored: the parser's, or
 * MCAST_MIB_NO_ENTRY when it cannot be reached; the record of one without an address is left as it is. When a
 * parser returned 0, *chosen is what the chooser says and the result is 0; otherwise *chosen is untouched and
 * the result that of mcastMib_GetNextResult from 0.
 */
MCAST_API MCAST_STATUS MCAST_MIB_GetNextByIndex(const MCAST_APP_ENDPOINT_S *const daemons[],
                                                MCAST_MIB_REQUEST_S *const requests[], uint32_t n,
                                                MCAST_MIB_PARSER parser, MCAST_MIB_CHOOSER chooser,
                                                uint32_t *chosen);

/*
 * Get-next for a table whose instances follow each other: asks from position start on, stores each result as
 * MCAST_MIB_GetNextByIndex (an instance without an address cannot be reached), and ends with the first that
 * answers: *chosen is its position and the result 0. Otherwise *chosen is untouched and the result that of
 * mcastMib_GetNextResult from start.
 */
MCAST_API MCAST_STATUS MCAST_MIB_GetNextByInet(const MCAST_APP_ENDPOINT_S *const daemons[],
                                               MCAST_MIB_REQUEST_S *const requests[], uint32_t n,
                                               uint32_t start, MCAST_MIB_PARSER parser, uint32_t *chosen);

/*
 * What the results of requests start to n - 1, none of which found an entry, come to:
 * MCAST_ERR_NOTHING_DONE when one is neither MCAST_MIB_NO_ENTRY nor MCAST_MIB_NO_NEXT; MCAST_MIB_NO_ENTRY
 * when n of them are that, hence only from 0 on; otherwise MCAST_MIB_NO_NEXT. With start at n or above it is
 * MCAST_MIB_NO_ENTRY for n = 0 and MCAST_MIB_NO_NEXT for others. requests may then be NULL.
 */
MCAST_API MCAST_STATUS mcastMib_GetNextResult(MCAST_MIB_REQUEST_S *const requests[], uint32_t n,
                                              uint32_t start);

/*
 * Whether requests to the daemon can go through. When its service runs on this node, or else on a standby
 * node, a connection is tried: MCAST_OK, or MCAST_ERR_GENERAL when it fails. MCAST_OK without trying when the
 * service runs on none of them, and when SERVICE_GetStatus gives an error but names it running here. Its
 * result SERVICE_NOTHING_DONE says nothing about this node, whatever the state, so that the standby nodes are
 * asked.
 */
MCAST_API MCAST_STATUS MCAST_MIB_GetDaemonStatus(const MCAST_APP_ENDPOINT_S *daemon);

MCAST_EXTERN_C_END

#endif
