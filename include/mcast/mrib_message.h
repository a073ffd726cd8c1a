/*
 * The one reader and the one writer of MRIB channel messages, for both ends of the channel. Both check every
 * bound; nothing else steps through the bytes of a message.
 */
#ifndef MCAST_MRIB_MESSAGE_H
#define MCAST_MRIB_MESSAGE_H

#include <string.h>

#include "mcast/mrib_wire.h"

MCAST_EXTERN_C_BEGIN

/* One record of a received message. */
typedef struct MRIB_RECORD_S {
    uint16_t type;
    uint16_t length;      /* bytes at value */
    const uint8_t *value; /* inside the message */
} MRIB_RECORD_S;

/* A cursor over the records of a received message; it never leaves the bytes it was started on. */
typedef struct MRIB_MSG_READER_S {
    const uint8_t *next;
    size_t left;
    uint32_t records_left;
} MRIB_MSG_READER_S;

/*
 * Starts reading the size bytes at message, which stay the caller's and must outlive the cursor. MCAST_FALSE,
 * with a cursor that yields nothing, when they are fewer than MRIB_MSG_MIN; message may then be NULL.
 */
static inline MCAST_BOOL MRIB_MsgReaderStart(MRIB_MSG_READER_S *reader, const void *message, size_t size)
{
    reader->next = NULL;
    reader->left = 0;
    reader->records_left = 0;
    if (size < MRIB_MSG_MIN) {
        return MCAST_FALSE;
    }
    reader->next = (const uint8_t *)message + sizeof(MRIB_MSG_HEADER_S);
    reader->left = size - sizeof(MRIB_MSG_HEADER_S);
    reader->records_left = ((const MRIB_MSG_HEADER_S *)message)->record_count;
    return MCAST_TRUE;
}

/*
 * Fetches the next record. MCAST_FALSE, with *record untouched and for every later call too, after the
 * counted number of records or at the first one that does not lie whole inside the message.
 */
static inline MCAST_BOOL MRIB_MsgReaderNext(MRIB_MSG_READER_S *reader, MRIB_RECORD_S *record)
{
    const MRIB_TLV_HEADER_S *header = (const MRIB_TLV_HEADER_S *)reader->next;
    if (reader->records_left == 0 || reader->left < sizeof(*header) ||
        reader->left - sizeof(*header) < header->length) {
        reader->records_left = 0;
        return MCAST_FALSE;
    }
    record->type = header->type;
    record->length = header->length;
    record->value = reader->next + sizeof(*header);
    reader->next += sizeof(*header) + record->length;
    reader->left -= sizeof(*header) + record->length;
    --reader->records_left;
    return MCAST_TRUE;
}

/*
 * Makes an empty message of the buffer, which holds at least a message header, and returns the bytes used.
 */
static inline uint32_t MRIB_MsgReset(void *buffer, uint8_t component)
{
    MRIB_MSG_HEADER_S *header = (MRIB_MSG_HEADER_S *)buffer;
    header->component = component;
    header->reserved = 0;
    header->record_count = 0;
    header->body_length = 0;
    return (uint32_t)sizeof(*header);
}

/*
 * Reserves record_size bytes, record header included, at the end of the message of *used bytes in a buffer of
 * capacity bytes, and counts the record. Returns where it goes, or NULL with nothing changed when it does not
 * fit. The bytes are whatever the buffer held.
 */
static inline void *MRIB_MsgReserve(void *message, uint32_t *used, uint64_t capacity, uint32_t record_size)
{
    MRIB_MSG_HEADER_S *header = (MRIB_MSG_HEADER_S *)message;
    uint8_t *record = (uint8_t *)message + *used;
    if ((uint64_t)*used + record_size > capacity) {
        return NULL;
    }
    *used += record_size;
    ++header->record_count;
    header->body_length += record_size;
    return record;
}

/* Writes the record header at record and returns where the value goes. */
static inline void *MRIB_TlvStart(void *record, uint16_t type, uint16_t length)
{
    MRIB_TLV_HEADER_S *header = (MRIB_TLV_HEADER_S *)record;
    header->type = type;
    header->length = length;
    return header + 1;
}

/*
 * Appends a record with a zeroed value of length bytes to the message of *used bytes in a buffer of capacity
 * bytes. Returns the value for the caller to fill, or NULL with nothing changed when it does not fit.
 */
static inline void *MRIB_MsgAppend(void *message, uint32_t *used, uint64_t capacity, uint16_t type,
                                   uint16_t length)
{
    void *record = MRIB_MsgReserve(message, used, capacity, MRIB_RECORD_SIZE(length));
    return record == NULL ? NULL : memset(MRIB_TlvStart(record, type, length), 0, length);
}

MCAST_EXTERN_C_END

#endif
