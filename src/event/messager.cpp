/*
 * The messager: one packet that is being filled, and a queue of blocks that could not be sent.
 *
 *      oldest                                        newest
 *      block -> block -> block          packet: | header area | message | message | free ... |
 *                                               |<------------ used ------------>|
 *
 * Order is the rule that everything follows from. A flush sends the blocks first and touches the packet only
 * when none is left; a packet that cannot be sent, or that must give way to a new message while blocks wait,
 * goes to the end of the queue. So a byte never overtakes an older one.
 *
 * A packet leaves when it passes MESSAGER_SEND_ABOVE bytes, whatever its capacity. What a failed send leaves
 * behind depends on the mode: for a stream the unsent tail, for datagrams the whole packet, for data that
 * ages nothing. When memory for a block is short the packet is lost, and the packet starts over all the same.
 */
#include "mcast/messager.h"

#include <stdlib.h>
#include <string.h>

#include "event/guards.h"

namespace
{

void Reset(MESSAGER_S *messager)
{
    messager->used = messager->reserve;
    messager->free = messager->capacity - messager->reserve;
    if (messager->on_reset != nullptr) {
        messager->on_reset(messager->buffer);
    }
}

/* A block with a copy of length bytes at data; NULL when memory is short. */
MESSAGER_BLOCK_S *NewBlock(const uint8_t *data, uint64_t length)
{
    MESSAGER_BLOCK_S *block = static_cast<MESSAGER_BLOCK_S *>(malloc(sizeof(*block)));
    uint8_t *storage = static_cast<uint8_t *>(malloc(length != 0 ? length : 1));
    if (block == nullptr || storage == nullptr) {
        free(block);
        free(storage);
        return nullptr;
    }
    memcpy(storage, data, length);
    *block = MESSAGER_BLOCK_S{nullptr, storage, storage, length};
    return block;
}

void FreeBlock(MESSAGER_BLOCK_S *block)
{
    free(block->storage);
    free(block);
}

/*
 * Appends the packet, of which sent bytes have left, to the queue as the mode says; when memory is short the
 * data is lost.
 */
MCAST_STATUS Queue(MESSAGER_S *messager, uint64_t sent)
{
    if (messager->mode == MESSAGER_DROP) {
        return MCAST_OK;
    }
    uint64_t skipped = messager->mode == MESSAGER_KEEP_TAIL ? sent : 0;
    MESSAGER_BLOCK_S *block = NewBlock(messager->buffer + skipped, messager->used - skipped);

    if (block == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    if (messager->pending_tail != nullptr) {
        messager->pending_tail->next = block;
    } else {
        messager->pending_head = block;
    }
    messager->pending_tail = block;
    ++messager->pending_count;
    return MCAST_OK;
}

/* Calls the send function; *sent is at most length afterwards. */
uint64_t SendBytes(const MESSAGER_S *messager, const uint8_t *data, uint64_t length, uint64_t *sent)
{
    *sent = 0;
    uint64_t status = messager->send(messager->peer, data, length, sent);

    if (*sent > length) {
        *sent = length;
    }
    return status;
}

uint64_t FlushPacket(MESSAGER_S *messager)
{
    if (messager->used <= messager->reserve) {
        return 0;
    }
    uint64_t sent;
    uint64_t status = SendBytes(messager, messager->buffer, messager->used, &sent);

    if (status != 0) {
        Queue(messager, sent);
    }
    Reset(messager);
    return status;
}

void DropFirstBlock(MESSAGER_S *messager)
{
    MESSAGER_BLOCK_S *block = messager->pending_head;
    messager->pending_head = block->next;
    if (messager->pending_head == nullptr) {
        messager->pending_tail = nullptr;
    }
    if (messager->pending_count != 0) {
        --messager->pending_count;
    }
    FreeBlock(block);
}

/* Sends the blocks and then the packet, up to the first failure. */
uint64_t FlushAll(MESSAGER_S *messager)
{
    while (messager->pending_head != nullptr) {
        MESSAGER_BLOCK_S *block = messager->pending_head;
        uint64_t sent;
        uint64_t status = SendBytes(messager, block->current, block->length, &sent);

        if (status != 0) {
            if (messager->mode == MESSAGER_KEEP_TAIL) {
                block->current += sent;
                block->length -= sent;
            }
            return status;
        }
        DropFirstBlock(messager);
    }
    return FlushPacket(messager);
}

/* Empties the packet for a message that does not fit. */
void MakeRoom(MESSAGER_S *messager)
{
    if (messager->pending_head == nullptr) {
        FlushPacket(messager);
        return;
    }
    Queue(messager, 0);
    Reset(messager);
    FlushAll(messager);
}

void Append(MESSAGER_S *messager, const void *data, uint64_t length)
{
    if (length != 0) {
        memcpy(messager->buffer + messager->used, data, length);
    }
    messager->used += length;
    messager->free -= length;
    if (messager->on_append != nullptr) {
        messager->on_append(messager->buffer, length);
    }
}

void FreePending(MESSAGER_S *messager)
{
    while (messager->pending_head != nullptr) {
        DropFirstBlock(messager);
    }
    messager->pending_count = 0;
}

} // namespace

MESSAGER_S *Messager_Init(uint32_t peer, uint64_t capacity, uint64_t reserve, uint64_t mode,
                          uint64_t max_pending, const MESSAGER_CALLBACKS_S *callbacks)
{
    if (callbacks == nullptr || callbacks->send == nullptr || reserve > capacity) {
        return nullptr;
    }
    MESSAGER_S *messager = static_cast<MESSAGER_S *>(calloc(1, sizeof(*messager)));

    if (messager == nullptr) {
        return nullptr;
    }
    messager->buffer = static_cast<uint8_t *>(calloc(capacity != 0 ? capacity : 1, 1));
    if (messager->buffer == nullptr || pthread_mutex_init(&messager->lock.posix, nullptr) != 0) {
        free(messager->buffer);
        free(messager);
        return nullptr;
    }
    messager->peer = peer;
    messager->capacity = capacity;
    messager->reserve = reserve;
    messager->mode = mode;
    messager->max_pending = max_pending;
    messager->on_append = callbacks->on_append;
    messager->on_reset = callbacks->on_reset;
    messager->send = callbacks->send;
    Reset(messager);
    return messager;
}

MCAST_STATUS Messager_Send(MESSAGER_S *messager, const void *data, uint16_t length, MCAST_BOOL flush_now)
{
    if (messager == nullptr) {
        return MCAST_OK;
    }
    mcast::MutexGuard guard(messager->lock);

    if (messager->pending_count >= messager->max_pending) {
        return MCAST_ERR_GENERAL;
    }
    if ((data == nullptr && length != 0) || length > messager->capacity - messager->reserve) {
        return MCAST_ERR_GENERAL;
    }
    if (messager->free < length) {
        MakeRoom(messager);
    }
    Append(messager, data, length);
    if (flush_now == MCAST_TRUE || messager->used > MESSAGER_SEND_ABOVE) {
        FlushAll(messager);
    }
    return MCAST_OK;
}

uint64_t Messager_Announce(MESSAGER_S *messager)
{
    if (messager == nullptr) {
        return 0;
    }
    mcast::MutexGuard guard(messager->lock);

    return FlushAll(messager);
}

uint64_t Messager_GetDataLen(const MESSAGER_S *messager)
{
    if (messager == nullptr) {
        return 0;
    }
    uint64_t length = messager->used;

    for (const MESSAGER_BLOCK_S *block = messager->pending_head; block != nullptr; block = block->next) {
        length += block->length;
    }
    return length;
}

MCAST_STATUS Messager_Clear(MESSAGER_S *messager)
{
    if (messager != nullptr) {
        FreePending(messager);
        Reset(messager);
    }
    return MCAST_OK;
}

void Messager_Fini(MESSAGER_S *messager)
{
    if (messager == nullptr) {
        return;
    }
    {
        mcast::MutexGuard guard(messager->lock);
        free(messager->buffer);
        FreePending(messager);
    }
    pthread_mutex_destroy(&messager->lock.posix);
    free(messager);
}
