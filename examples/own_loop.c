/*
 * A daemon with an event loop of its own instead of the host's: a member of the MRIB that prints what changes, survives the
 * death of mribd and registers again.
 *
 *     ./own_loop [ipv6]
 *
 * The library registers descriptors by calling epoll_ctl, not with the kernel's record but with one of three fields:
 * events, descriptor, context. A loop of one's own therefore defines epoll_ctl. The program's definition comes before any
 * library's: it keeps the context and gives the kernel the record that the kernel knows.
 */
#ifndef _GNU_SOURCE
#define _GNU_SOURCE /* syscall */
#endif
#include <mcast/event.h>
#include <mcast/member_channel.h>
#include <mcast/mrib_message.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#define MODULE 12
#define MOST_DESCRIPTORS 1024
#define RETRY_MS 1000

/* The contexts of this program and of the library are all handlers of this form. */
typedef uint64_t (*handler)(uint32_t events, int32_t fd);

static uint64_t handlers[MOST_DESCRIPTORS]; /* by descriptor */
static uint32_t set;
static uint32_t family = MCAST_FAMILY_IPV4;
static int running = 1;

#ifdef __cplusplus
#define AS_DECLARED noexcept
#else
#define AS_DECLARED
#endif

int epoll_ctl(int epfd, int op, int fd, struct epoll_event *event) AS_DECLARED
{
    MCAST_EPOLL_RECORD_S record;
    struct epoll_event kernels;
    if (op == EPOLL_CTL_DEL) {
        return (int)syscall(SYS_epoll_ctl, epfd, op, fd, NULL);
    }
    if (fd < 0 || fd >= MOST_DESCRIPTORS) {
        return (int)syscall(SYS_epoll_ctl, -1, op, fd, NULL); /* fails as for a wrong set */
    }
    memcpy(&record, event, sizeof(record));
    memset(&kernels, 0, sizeof(kernels));
    kernels.events = record.events;
    kernels.data.fd = fd;
    handlers[fd] = record.context;
    return (int)syscall(SYS_epoll_ctl, epfd, op, fd, &kernels);
}

static uint64_t as_context(handler function)
{
    return (uint64_t)(uintptr_t)function;
}

static void show(const MRIB_RECORD_S *record)
{
    if (record->type == MRIB_TLV_VRF_STATE && record->length >= sizeof(MRIB_VRF_STATE_S)) {
        const MRIB_VRF_STATE_S *state = (const MRIB_VRF_STATE_S *)(const void *)record->value;
        printf("instance %u: multicast %s\n", state->vrf_index, state->state == 1 ? "enabled" : "disabled");
    } else if (record->type == MRIB_TLV_PIM_DR && record->length >= sizeof(MRIB_PIM_DR_S)) {
        const MRIB_PIM_DR_S *dr = (const MRIB_PIM_DR_S *)(const void *)record->value;
        printf("interface %u: designated router %s\n", dr->if_index, dr->state == 1 ? "here" : "elsewhere");
    } else if (record->type == MRIB_TLV_SMOOTH_START) {
        puts("something was missed");
    }
}

/* One record of one message after the other. The end of the connection is read as the end of a file. */
static uint64_t take_news(uint32_t events, int32_t fd)
{
    static uint8_t message[MRIB_MSG_RECV_MAX];
    const ssize_t size = recv(fd, message, sizeof(message), MSG_DONTWAIT);
    MRIB_MSG_READER_S reader;
    MRIB_RECORD_S record;
    (void)events;
    if (size <= 0) {
        puts("disconnected");
        MBR_LIB_Fini(family);
        return 0;
    }
    MRIB_MsgReaderStart(&reader, message, (size_t)size);
    while (MRIB_MsgReaderNext(&reader, &record) == MCAST_TRUE) {
        show(&record);
    }
    return 0;
}

/* What changes is told from the registration on; what holds already is asked for. */
static void connect_to_mrib(void)
{
    const MRIB_REQUEST_S request = {(uint8_t)family, {0, 0, 0, 0, 0}};
    if (MBR_LIB_Init(family, MODULE, set, as_context(take_news)) == MCAST_NONE) {
        return;
    }
    if (MBR_LIB_RegEvt(family, MRIB_CAP_VRF | MRIB_CAP_DR) != MCAST_OK ||
        MBR_LIB_SendMsg(family, MRIB_TLV_REQ_VRF_STATE, sizeof(request), &request, 0) != MCAST_OK ||
        MBR_LIB_SendMsg(family, MRIB_TLV_REQ_PIM_DR, sizeof(request), &request, 1) != MCAST_OK) {
        MBR_LIB_Fini(family);
        return;
    }
    puts("connected");
}

static uint64_t each_second(uint32_t events, int32_t fd)
{
    uint64_t expirations;
    (void)events;
    if (read(fd, &expirations, sizeof(expirations)) == (ssize_t)sizeof(expirations) &&
        MBR_LIB_IsAlreadyReg(family) != MCAST_TRUE) {
        connect_to_mrib();
    }
    return 0;
}

static uint64_t stop(uint32_t events, int32_t fd)
{
    (void)events;
    (void)fd;
    running = 0;
    return 0;
}

int main(int argc, char **argv)
{
    uint32_t timer;
    uint32_t signals;
    if (argc == 2 && strcmp(argv[1], "ipv6") == 0) {
        family = MCAST_FAMILY_IPV6;
    }
    setvbuf(stdout, NULL, _IOLBF, BUFSIZ);
    signal(SIGPIPE, SIG_IGN);
    set = MCAST_CreateEpoll();
    timer = MCAST_CreateTimerFd(RETRY_MS);
    if (set == MCAST_NONE || timer == MCAST_NONE ||
        MCAST_SigToEpoll(set, SIGTERM, as_context(stop), &signals) != MCAST_OK ||
        MCAST_AddEpoll(set, timer, EPOLLIN, as_context(each_second)) != MCAST_OK) {
        perror("own_loop");
        return 1;
    }
    connect_to_mrib();
    while (running) {
        struct epoll_event ready;
        if (epoll_wait((int)set, &ready, 1, -1) == 1) { /* one at a time: a handler may close any other */
            ((handler)(uintptr_t)handlers[ready.data.fd])(ready.events, ready.data.fd);
        }
    }
    MBR_LIB_Fini(family);
    MCAST_DeleteTimerFd(timer);
    return 0;
}
