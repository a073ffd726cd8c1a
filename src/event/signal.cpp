#include <signal.h>
#include <sys/epoll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "event/descriptor.h"
#include "mcast/event.h"

namespace
{

/* The kernel's signal set is the first 8 bytes of the C library's. */
constexpr long kKernelSetBytes = 8;
constexpr long kNewDescriptor = -1;

/*
 * A descriptor for the signals in set, or a value <= 0 on failure. The call without flags, which the C library
 * does not offer; machines that came later have only the one with flags.
 */
int OpenSignalFd(const sigset_t *set)
{
#if defined(SYS_signalfd)
    return static_cast<int>(syscall(SYS_signalfd, kNewDescriptor, set, kKernelSetBytes));
#else
    constexpr long kNoFlags = 0;
    return static_cast<int>(syscall(SYS_signalfd4, kNewDescriptor, set, kKernelSetBytes, kNoFlags));
#endif
}

bool BlockAndRegister(uint32_t epfd, int fd, const sigset_t *set, uint64_t context)
{
    return pthread_sigmask(SIG_BLOCK, set, nullptr) != -1 &&
           MCAST_AddEpoll(epfd, static_cast<uint32_t>(fd), EPOLLIN, context) == MCAST_OK;
}

} // namespace

MCAST_STATUS MCAST_SigToEpoll(uint32_t epfd, uint32_t signo, uint64_t context, uint32_t *out_fd)
{
    sigset_t set;

    if (context == 0 || epfd == MCAST_NONE || out_fd == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    if (sigemptyset(&set) != 0 || sigaddset(&set, static_cast<int>(signo)) != 0) {
        return MCAST_ERR_GENERAL;
    }

    int fd = OpenSignalFd(&set);

    /* Descriptor 0 is refused, but it exists and must not stay open. */
    if (fd <= 0 || !BlockAndRegister(epfd, fd, &set, context)) {
        if (fd >= 0) {
            mcast::CloseAfterFailure(fd);
        }
        return MCAST_ERR_GENERAL;
    }
    *out_fd = static_cast<uint32_t>(fd);
    return MCAST_OK;
}
