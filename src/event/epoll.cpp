#include <sys/epoll.h>
#include <sys/eventfd.h>

#include "event/descriptor.h"
#include "mcast/event.h"

namespace
{

/*
 * The record is longer than struct epoll_event. The kernel copies only the part that it knows; the context
 * behind it is for an event loop that sees the call first.
 */
int Control(uint32_t epfd, int operation, uint32_t fd, uint32_t events, uint64_t context)
{
    MCAST_EPOLL_RECORD_S record = {events, fd, context};
    return epoll_ctl(static_cast<int>(epfd), operation, static_cast<int>(fd),
                     reinterpret_cast<struct epoll_event *>(&record));
}

MCAST_STATUS Register(uint32_t epfd, int operation, uint32_t fd, uint32_t events, uint64_t context)
{
    return Control(epfd, operation, fd, events, context) == 0 ? MCAST_OK : MCAST_ERR_GENERAL;
}

} // namespace

uint32_t MCAST_CreateEpoll(void)
{
    return static_cast<uint32_t>(epoll_create(1));
}

MCAST_STATUS MCAST_AddEpoll(uint32_t epfd, uint32_t fd, uint32_t events, uint64_t context)
{
    return Register(epfd, EPOLL_CTL_ADD, fd, events, context);
}

MCAST_STATUS MCAST_ModifyEpoll(uint32_t epfd, uint32_t fd, uint32_t events, uint64_t context)
{
    return Register(epfd, EPOLL_CTL_MOD, fd, events, context);
}

int MCAST_DeleteEpoll(uint32_t epfd, uint32_t fd)
{
    return Control(epfd, EPOLL_CTL_DEL, fd, 0, 0);
}

uint32_t MCAST_CreateEvtFd(uint32_t epfd, uint64_t context)
{
    if (context == 0 || epfd == MCAST_NONE) {
        return MCAST_NONE;
    }

    int fd = eventfd(0, 0);

    if (fd < 0) {
        return MCAST_NONE;
    }
    if (MCAST_AddEpoll(epfd, static_cast<uint32_t>(fd), EPOLLIN, context) != MCAST_OK) {
        mcast::CloseAfterFailure(fd);
        return MCAST_NONE;
    }
    return static_cast<uint32_t>(fd);
}
