/*
 * The member channel: a queue of datagrams for each family, of which the newest is being filled.
 *
 *      queue.tail (oldest)                              queue.head (newest)
 *      datagram  <-------->  datagram  <-------->  | header | message | message | free ... |
 *      next to be sent                             |<---------- used --------->|
 *
 * While the channel is open the queue holds at least one datagram, and none but the newest is empty. A flush
 * sends from the oldest on. The first datagram that it sends becomes the empty one at the other end: so a
 * channel that keeps up lives on a single block, and after a flush that was cut short the next message starts
 * a datagram behind those that wait, without memory and even when the queue is full. Every other datagram is
 * freed as it is sent.
 */
#include "mcast/member_channel.h"

#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "event/descriptor.h"
#include "event/local_channel.h"
#include "mcast/event.h"
#include "mcast/mrib_message.h"

MBR_LIB_STAT_S g_stMbrLibStat = {};

namespace
{

constexpr uint32_t kDatagramHeader = sizeof(MRIB_MSG_HEADER_S);

constexpr MBR_CHANNEL_S kClosed = {MCAST_NONE, 0, 0, MCAST_NONE, 0, 0, {nullptr, nullptr}};

MBR_CHANNEL_S g_channel4 = kClosed;
MBR_CHANNEL_S g_channel6 = kClosed;

MBR_CHANNEL_S *ChannelOf(uint8_t family)
{
    return family == MCAST_FAMILY_IPV6 ? &g_channel6 : &g_channel4;
}

bool IsEmpty(const MBR_BLOCK_S *block)
{
    return block->used <= kDatagramHeader;
}

/* Makes the block the newest of the channel, empty. */
void StartBlock(MBR_CHANNEL_S *channel, MBR_BLOCK_S *block)
{
    MBR_QUEUE_S *queue = &channel->queue;
    memset(block->datagram, 0, kDatagramHeader);
    block->reserved = 0;
    block->used = MRIB_MsgReset(block->datagram, channel->module);
    block->next = queue->head;
    block->previous = nullptr;
    if (queue->head != nullptr) {
        queue->head->previous = block;
    } else {
        queue->tail = block;
    }
    queue->head = block;
    ++channel->block_count;
}

/* Takes the oldest block out of the queue, which is not empty. */
MBR_BLOCK_S *TakeOldest(MBR_CHANNEL_S *channel)
{
    MBR_QUEUE_S *queue = &channel->queue;
    MBR_BLOCK_S *block = queue->tail;
    queue->tail = block->previous;
    if (queue->tail != nullptr) {
        queue->tail->next = nullptr;
    } else {
        queue->head = nullptr;
    }
    --channel->block_count;
    return block;
}

bool AddBlock(MBR_CHANNEL_S *channel)
{
    if (channel->block_count >= MBR_BLOCK_MAX) {
        return false;
    }
    MBR_BLOCK_S *block = static_cast<MBR_BLOCK_S *>(malloc(sizeof(*block)));

    if (block == nullptr) {
        return false;
    }
    StartBlock(channel, block);
    return true;
}

void FreeBlocks(MBR_CHANNEL_S *channel)
{
    while (channel->queue.tail != nullptr) {
        free(TakeOldest(channel));
    }
}

/* Both families count here, each on a thread of its own. */
void Count(uint32_t *counter)
{
    __atomic_fetch_add(counter, 1, __ATOMIC_RELAXED);
}

/* Whether the socket took the datagram. */
bool SendBlock(const MBR_CHANNEL_S *channel, const MBR_BLOCK_S *block)
{
    if (send(static_cast<int>(channel->socket), block->datagram, block->used, MSG_DONTWAIT) >= 1) {
        return true;
    }
    Count(&g_stMbrLibStat.send_failures);
    return false;
}

/* Puts the first block that a flush sent to use again, unless an empty one is there already. */
void Reuse(MBR_CHANNEL_S *channel, MBR_BLOCK_S *block)
{
    if (channel->queue.head != nullptr && IsEmpty(channel->queue.head)) {
        free(block);
    } else {
        StartBlock(channel, block);
    }
}

MCAST_STATUS Flush(MBR_CHANNEL_S *channel)
{
    MCAST_STATUS status = MCAST_OK;
    MBR_BLOCK_S *first = nullptr;
    while (status == MCAST_OK && channel->queue.tail != nullptr && !IsEmpty(channel->queue.tail)) {
        if (!SendBlock(channel, channel->queue.tail)) {
            status = MCAST_ERR_GENERAL;
        } else if (first == nullptr) {
            first = TakeOldest(channel);
        } else {
            free(TakeOldest(channel));
        }
    }
    if (first != nullptr) {
        Reuse(channel, first);
    }
    return status;
}

/* Room for a record of so many bytes in the newest datagram, or NULL. */
void *ReserveInNewest(MBR_CHANNEL_S *channel, uint32_t size)
{
    MBR_BLOCK_S *block = channel->queue.head;
    return block == nullptr ? nullptr
                            : MRIB_MsgReserve(block->datagram, &block->used, MBR_DATAGRAM_MAX, size);
}

/* Room for a record that does not fit into the newest datagram, or NULL. Rare, and not in the others' way. */
__attribute__((noinline)) void *MakeRoom(MBR_CHANNEL_S *channel, uint32_t size)
{
    Flush(channel);

    void *record = ReserveInNewest(channel, size);

    return record != nullptr || !AddBlock(channel) ? record : ReserveInNewest(channel, size);
}

/*
 * For a length that it knows to be small the compiler copies with an instruction that takes longer to start
 * than a short message takes to copy; so what it knows is hidden from it.
 */
void Copy(void *to, const void *from, size_t length)
{
    asm("" : "+r"(length));
    memcpy(to, from, length);
}

MCAST_STATUS Append(MBR_CHANNEL_S *channel, uint16_t type, uint16_t length, const void *payload)
{
    const uint32_t size = MRIB_RECORD_SIZE(length);
    void *record = ReserveInNewest(channel, size);
    if (record == nullptr) {
        record = MakeRoom(channel, size);
    }
    if (record == nullptr) {
        Count(&g_stMbrLibStat.refused);
        return MCAST_ERR_NO_BLOCK;
    }
    Copy(MRIB_TlvStart(record, type, length), payload, length);
    return MCAST_OK;
}

MCAST_STATUS SendMessage(MBR_CHANNEL_S *channel, uint16_t type, uint16_t length, const void *payload,
                         uint16_t flush)
{
    if (channel->family == 0 || channel->socket == MCAST_NONE) {
        return MCAST_ERR_NOT_INIT;
    }
    if (length >= MBR_PAYLOAD_LIMIT) {
        Count(&g_stMbrLibStat.refused);
        return MCAST_ERR_NO_BLOCK;
    }
    if (length != 0) {
        MCAST_STATUS status = payload == nullptr ? MCAST_ERR_GENERAL : Append(channel, type, length, payload);

        if (status != MCAST_OK) {
            return status;
        }
    }
    return flush != 1 || Flush(channel) == MCAST_OK ? MCAST_OK : MCAST_ERR_STOPPED;
}

uint16_t PortOf(uint8_t family)
{
    return family == MCAST_FAMILY_IPV6 ? MRIB_PORT_IPV6 : MRIB_PORT_IPV4;
}

/* Fills the closed channel. False when memory is short. */
bool Open(MBR_CHANNEL_S *channel, uint8_t family, uint8_t module, uint32_t epoll, int descriptor)
{
    channel->module = module;
    if (!AddBlock(channel)) {
        return false;
    }
    channel->family = family;
    channel->epoll = epoll;
    channel->socket = static_cast<uint32_t>(descriptor);
    return true;
}

} // namespace

uint32_t MBR_LIB_Init(uint32_t family, uint32_t module, uint32_t epoll_fd, uint64_t context)
{
    const uint8_t family_byte = static_cast<uint8_t>(family);
    MBR_CHANNEL_S *channel = ChannelOf(family_byte);

    if ((family_byte != MCAST_FAMILY_IPV4 && family_byte != MCAST_FAMILY_IPV6) || module > MBR_MODULE_MAX ||
        epoll_fd == MCAST_NONE || context == 0) {
        return MCAST_NONE;
    }
    if (channel->socket != MCAST_NONE) {
        return channel->socket;
    }
    int descriptor = mcast::OpenLocalChannel(PortOf(family_byte));

    if (descriptor < 0) {
        return MCAST_NONE;
    }
    if (!Open(channel, family_byte, static_cast<uint8_t>(module), epoll_fd, descriptor)) {
        mcast::CloseAfterFailure(descriptor);
        return MCAST_NONE;
    }
    (void)MCAST_AddEpoll(epoll_fd, channel->socket, EPOLLIN, context);
    return channel->socket;
}

MCAST_BOOL MBR_LIB_IsAlreadyReg(uint32_t family)
{
    return ChannelOf(static_cast<uint8_t>(family))->socket != MCAST_NONE ? MCAST_TRUE : MCAST_FALSE;
}

MCAST_STATUS MBR_LIB_SendMsg(uint32_t family, uint16_t type, uint16_t length, const void *payload,
                             uint16_t flush)
{
    return SendMessage(ChannelOf(static_cast<uint8_t>(family)), type, length, payload, flush);
}

MCAST_STATUS MbrLib_RegFinalEvt(MBR_CHANNEL_S *channel, uint16_t type, uint64_t mask)
{
    if (channel == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    if (mask == channel->events) {
        return MCAST_OK;
    }
    const MRIB_REGISTER_S registration = {channel->family, channel->module, mask};

    if (SendMessage(channel, type, sizeof(registration), &registration, 1) != MCAST_OK) {
        return MCAST_ERR_GENERAL;
    }
    channel->events = mask;
    return MCAST_OK;
}

MCAST_STATUS MBR_LIB_RegEvt(uint32_t family, uint64_t events)
{
    MBR_CHANNEL_S *channel = ChannelOf(static_cast<uint8_t>(family));
    if (channel->socket == MCAST_NONE) {
        return MCAST_ERR_GENERAL;
    }
    return MbrLib_RegFinalEvt(channel, channel->events == 0 ? MRIB_TLV_REGISTER : MRIB_TLV_CHANGE_EVENTS,
                              channel->events | events);
}

MCAST_STATUS MBR_LIB_DeRegEvt(uint32_t family, uint64_t events)
{
    MBR_CHANNEL_S *channel = ChannelOf(static_cast<uint8_t>(family));
    if (channel->socket == MCAST_NONE) {
        return MCAST_ERR_GENERAL;
    }
    return MbrLib_RegFinalEvt(channel, MRIB_TLV_CHANGE_EVENTS, channel->events & ~events);
}

void MBR_LIB_Fini(uint32_t family)
{
    MBR_CHANNEL_S *channel = ChannelOf(static_cast<uint8_t>(family));
    if (channel->socket == MCAST_NONE) {
        return;
    }
    MCAST_DeleteEpoll(channel->epoll, channel->socket);
    close(static_cast<int>(channel->socket));
    FreeBlocks(channel);
    *channel = kClosed;
}
