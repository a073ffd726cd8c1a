/*
 * Internals of the connection that more than one file of the room needs.
 */
#ifndef SRC_MRIB_CHANNEL_H
#define SRC_MRIB_CHANNEL_H

#include "mcast/mrib.h"

namespace mcast
{

/* Empties the message being assembled; connection->out_buffer is not nullptr. */
inline void ResetMessage(MRIB_GMP_CONNECT_S *connection) MCAST_REQUIRES(connection->lock)
{
    connection->used = MRIB_MsgReset(connection->out_buffer, g_stMRIBComponent.component);
}

/* Frees every waiting message. */
void FreePending(MRIB_GMP_CONNECT_S *connection) MCAST_REQUIRES(connection->lock);

} // namespace mcast

#endif
