/*
 * Internals of the connection that more than one file of the room needs.
 */
#ifndef SRC_MRIB_CHANNEL_H
#define SRC_MRIB_CHANNEL_H

#include "mcast/mrib.h"
#include "mcast/mrib_message.h"

namespace mcast
{

/* Empties the message being assembled; connection->out_buffer is not nullptr. */
inline void ResetMessage(MRIB_GMP_CONNECT_S *connection) MCAST_REQUIRES(connection->lock)
{
    connection->used = MRIB_MsgReset(connection->out_buffer, g_stMRIBComponent.component);
}

/*
 * The smooth flags have no lock of their own: the receiving thread clears what another thread may just be
 * setting. Single atomic changes keep each other's bits.
 */
inline void SetSmoothFlag(uint64_t bits)
{
    __atomic_or_fetch(&g_ulMribGmpSmoothEndFlag, bits, __ATOMIC_ACQ_REL);
}

inline void ForgetSmoothFlags()
{
    __atomic_store_n(&g_ulMribGmpSmoothEndFlag, 0, __ATOMIC_RELEASE);
}

/* Frees every waiting message. */
void FreePending(MRIB_GMP_CONNECT_S *connection) MCAST_REQUIRES(connection->lock);

/* The rare end of a reservation, when the record does not fit behind what is in the current message. */
void *ReserveInNextMessage(MRIB_GMP_CONNECT_S *connection, uint32_t record_size)
    MCAST_REQUIRES(connection->lock);

/* MRIB_GMP_GetOutBuffer, for the senders' own use without a call. */
inline void *ReserveRecord(MRIB_GMP_CONNECT_S *connection, uint32_t record_size)
    MCAST_REQUIRES(connection->lock)
{
    if (connection->socket == -1 || connection->out_buffer == nullptr) {
        return nullptr;
    }
    void *record = MRIB_MsgReserve(connection->out_buffer, &connection->used,
                                   g_stMRIBComponent.max_message_size, record_size);

    return record != nullptr ? record : ReserveInNextMessage(connection, record_size);
}

/* Reserves a record and writes its header. The value, every byte of which the sender writes; or nullptr. */
template <typename Value>
inline Value *ReserveValue(MRIB_GMP_CONNECT_S *connection, uint16_t type) MCAST_REQUIRES(connection->lock)
{
    void *record = ReserveRecord(connection, MRIB_RECORD_SIZE(sizeof(Value)));
    return record == nullptr ? nullptr : static_cast<Value *>(MRIB_TlvStart(record, type, sizeof(Value)));
}

} // namespace mcast

#endif
