/* The receiving half of the channel: one datagram a wake-up, its records handed on in order. */
#include <sys/epoll.h>
#include <sys/socket.h>

#include "mcast/mrib.h"
#include "mcast/mrib_message.h"
#include "probe/probe.h"

uint64_t g_ulMribGmpSmoothEndFlag = 0;

namespace
{

uint64_t ProcessMessage(const void *message, size_t size)
{
    MRIB_MSG_READER_S reader;
    MRIB_RECORD_S record;
    uint64_t result = MCAST_OK;
    if (MRIB_MsgReaderStart(&reader, message, size) != MCAST_TRUE) {
        return MCAST_ERR_GENERAL;
    }
    while (MRIB_MsgReaderNext(&reader, &record) == MCAST_TRUE) {
        result |= mribGmpTLVProc(record.type, record.length, record.value);
    }
    return result;
}

} // namespace

uint64_t MRIB_GMP_ProcLipcMsg(uint32_t events, int32_t socket)
{
    if ((events & (EPOLLERR | EPOLLHUP)) != 0) {
        return MRIB_GMP_CloseConnection();
    }
    if (g_pcMribGmpRecvBuf == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    ssize_t size = recv(socket, g_pcMribGmpRecvBuf, MRIB_MSG_RECV_MAX, MSG_DONTWAIT);

    if (size <= 0) {
        return MCAST_ERR_GENERAL;
    }
    mcast::probe::MessageIn(socket, g_pcMribGmpRecvBuf, static_cast<uint32_t>(size));
    return ProcessMessage(g_pcMribGmpRecvBuf, static_cast<size_t>(size));
}

uint64_t MRIB_GMP_ClearSmoothFlag(uint64_t bits)
{
    uint64_t left = __atomic_and_fetch(&g_ulMribGmpSmoothEndFlag, ~bits, __ATOMIC_ACQ_REL);
    if (left == 0 && g_stMRIBComponent.callbacks.smooth_finished != nullptr) {
        g_stMRIBComponent.callbacks.smooth_finished();
    }
    return MCAST_OK;
}
