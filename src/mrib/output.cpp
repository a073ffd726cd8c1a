/*
 * The sending half of the channel. Records are assembled into one message; a message that the socket does not
 * take moves, whole, to a queue and the next one is started.
 *
 *   sender --> out_buffer (current message) --> socket
 *                     |                          ^
 *                     +--> pending queue --------+
 *
 * Messages leave in the order in which they were begun: the current one is sent only while nothing is queued.
 * All sends are non-blocking. Data is lost in only two cases, a full queue and short memory; both set the
 * failed flag, and the client rebuilds the connection, upon which the MRIB replays everything.
 *
 * A record costs one comparison and its own stores; a message costs one send.
 */
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

#include "event/guards.h"
#include "mrib/channel.h"
#include "probe/probe.h"

using namespace mcast;

namespace
{

/* Moves the current message to the tail of the queue. False, and the message stays, when it is lost. */
bool QueueMessage(MRIB_GMP_CONNECT_S *connection) MCAST_REQUIRES(connection->lock)
{
    if (connection->pending_count >= connection->pending_limit) {
        ++connection->dropped_count;
        connection->failed = 1;
        probe::MessageDropped(connection->out_buffer, connection->used, probe::Loss::kFullQueue);
        return false;
    }
    MRIB_GMP_PENDING_S *node =
        static_cast<MRIB_GMP_PENDING_S *>(malloc(sizeof(MRIB_GMP_PENDING_S) + connection->copy_size));

    if (node == nullptr) {
        ++connection->allocation_failure_count;
        connection->failed = 1;
        probe::MessageDropped(connection->out_buffer, connection->used, probe::Loss::kShortMemory);
        return false;
    }
    node->next = nullptr;
    node->message = reinterpret_cast<uint8_t *>(node + 1);
    node->length = connection->used;
    memcpy(node->message, connection->out_buffer, connection->copy_size);
    if (connection->pending_tail == nullptr) {
        connection->pending_head = node;
    } else {
        connection->pending_tail->next = node;
    }
    connection->pending_tail = node;
    ++connection->pending_count;
    ++connection->queued_count;
    probe::MessageQueued(node->message, node->length, connection->pending_count);
    ResetMessage(connection);
    return true;
}

void DropHead(MRIB_GMP_CONNECT_S *connection) MCAST_REQUIRES(connection->lock)
{
    MRIB_GMP_PENDING_S *node = connection->pending_head;
    connection->pending_head = node->next;
    if (node->next == nullptr) {
        connection->pending_tail = nullptr;
    }
    --connection->pending_count;
    free(node);
}

} // namespace

void mcast::FreePending(MRIB_GMP_CONNECT_S *connection)
{
    while (connection->pending_head != nullptr) {
        DropHead(connection);
    }
}

void *mcast::ReserveInNextMessage(MRIB_GMP_CONNECT_S *connection, uint32_t record_size)
{
    uint64_t capacity = g_stMRIBComponent.max_message_size;
    if (sizeof(MRIB_MSG_HEADER_S) + uint64_t{record_size} > capacity) {
        return nullptr;
    }
    if (connection->pending_head != nullptr || MRIB_GMP_TrySendBuffer(connection) != MCAST_OK) {
        if (!QueueMessage(connection)) {
            return nullptr;
        }
    }
    return MRIB_MsgReserve(connection->out_buffer, &connection->used, capacity, record_size);
}

void *MRIB_GMP_GetOutBuffer(MRIB_GMP_CONNECT_S *connection, uint32_t record_size)
{
    return ReserveRecord(connection, record_size);
}

uint64_t MRIB_GMP_TrySendBuffer(MRIB_GMP_CONNECT_S *connection)
{
    const MRIB_MSG_HEADER_S *header = reinterpret_cast<const MRIB_MSG_HEADER_S *>(connection->out_buffer);
    if (header == nullptr || header->record_count == 0 || connection->pending_head != nullptr) {
        return MCAST_OK;
    }
    if (send(connection->socket, connection->out_buffer, connection->used, MSG_DONTWAIT) <= 0) {
        return MCAST_ERR_GENERAL;
    }
    probe::MessageOut(connection->socket, connection->out_buffer, connection->used, probe::Way::kAtOnce);
    ResetMessage(connection);
    return MCAST_OK;
}

uint64_t MRIB_GMP_SendAtOnce(void)
{
    MutexGuard guard(g_stMribConnectInfo.lock);
    return MRIB_GMP_TrySendBuffer(&g_stMribConnectInfo);
}

uint64_t MRIB_GMP_SendFailData(void)
{
    MRIB_GMP_CONNECT_S *connection = &g_stMribConnectInfo;
    MutexGuard guard(connection->lock);

    for (uint32_t i = 0; i < MRIB_GMP_DRAIN_LIMIT && connection->pending_head != nullptr; ++i) {
        const MRIB_GMP_PENDING_S *node = connection->pending_head;

        if (send(connection->socket, node->message, node->length, MSG_DONTWAIT) < 0) {
            return MCAST_ERR_GENERAL;
        }
        probe::MessageOut(connection->socket, node->message, node->length, probe::Way::kFromQueue);
        DropHead(connection);
    }
    return MRIB_GMP_TrySendBuffer(connection);
}

uint64_t MRIB_GMP_IsConnectionBusy(void)
{
    MutexGuard guard(g_stMribConnectInfo.lock);
    return g_stMribConnectInfo.busy;
}
