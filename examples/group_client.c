/*
 * A client of the MRIB that joins a group on an interface for as long as it runs, survives the death of mribd and then
 * says everything again.
 *
 *     ./group_client eth1 239.1.2.3 [SOURCE]
 *
 * docs/writing-a-client.md explains each step.
 */
#include <mcast/mrib.h>
#include <mcast/timer.h>
#include <mcasthost/address.h>
#include <mcasthost/loop.h>
#include <net/if.h>
#include <signal.h>
#include <stdio.h>
#include <sys/epoll.h>

#define COMPONENT 12 /* of our own: none of MRIB_COMPONENT_... */
#define RETRY_S 1

static int32_t loop;
static MCAST_TMR_S *timers;
static int32_t channel = -1;     /* the connection's socket while there is one */
static int waiting_for_room = 0; /* whether it is watched for EPOLLOUT */
static int replayed = 0;         /* whether a replay has ended on this connection */

static MRIB_GMP_VRF_KEY_S instance; /* the family, and the public VPN instance */
static uint32_t if_index;
static MCAST_ADDR_S group;
static MCAST_ADDR_S source; /* family 0: any source */

static void connect_to_mrib(void);

/* Whether something is left in the library that the socket did not take. */
static int output_waits(void)
{
    int waits;
    pthread_mutex_lock(&g_stMribConnectInfo.lock.posix);
    waits = g_stMribConnectInfo.pending_count > 0 || g_stMribConnectInfo.used > sizeof(MRIB_MSG_HEADER_S);
    pthread_mutex_unlock(&g_stMribConnectInfo.lock.posix);
    return waits;
}

/* Level-triggered: the socket is ready for as long as there is something to read, or room that we wait for. */
static uint64_t channel_ready(uint32_t events, int32_t socket)
{
    if ((events & (EPOLLIN | EPOLLERR | EPOLLHUP)) != 0) {
        MRIB_GMP_ProcLipcMsg(events,
                             socket); /* one message; may call disconnected, and so end the connection */
    }
    if (channel >= 0 && (events & EPOLLOUT) != 0) {
        MRIB_GMP_SendFailData();
    }
    if (channel >= 0 && waiting_for_room && !output_waits()) {
        waiting_for_room = 0;
        HOST_LoopModify(loop, channel, EPOLLIN, channel_ready);
    }
    return 0;
}

/* After everything that one event brought: sends the records that were appended, many in one message. */
static void flush(void)
{
    if (MRIB_GMP_CloseFailConnection() == 1) {
        return; /* records were lost: disconnected has started the next try, which says everything again */
    }
    MRIB_GMP_SendAtOnce();
    if (channel >= 0 && !waiting_for_room && output_waits()) {
        waiting_for_room = 1;
        HOST_LoopModify(loop, channel, EPOLLIN | EPOLLOUT, channel_ready);
    }
}

/* mribd keeps what a connection reported for as long as it lasts: each begins with the whole. */
static void say_everything(void)
{
    MRIB_GMP_SendGmpEnableAlert(&instance, if_index, MRIB_GMP_ENABLED, 0);
    MRIB_GMP_SendGmpJoinPrune(&instance, if_index, &group, source.family != 0 ? &source : NULL,
                              MRIB_JOIN_PRUNE_FLAG_JOIN, MRIB_JOIN_PRUNE_FLAG_PLAIN);
    flush();
}

static void retry(uint64_t data[4])
{
    (void)data;
    connect_to_mrib();
}

static uint64_t connected(int32_t socket)
{
    if (HOST_LoopAdd(loop, socket, EPOLLIN, channel_ready) != 0) {
        return MCAST_ERR_GENERAL;
    }
    channel = socket;
    waiting_for_room = 0;
    replayed = 0;
    puts("connected");
    return MCAST_OK;
}

static void disconnected(int32_t socket)
{
    if (channel >= 0) {
        HOST_LoopRemove(loop, socket); /* while the descriptor is still open */
        channel = -1;
        puts("disconnected");
        MCAST_TMR_AddNode(timers, RETRY_S, retry, NULL);
    }
}

/*
 * A replay of mribd's state has ended. The first of a connection is the one that connecting asked for; a further one says
 * that mribd was told to have its clients say everything again.
 */
static void smooth_finished(void)
{
    if (replayed) {
        puts("asked for everything again");
        say_everything();
    }
    replayed = 1;
}

static void connect_to_mrib(void)
{
    if (MRIB_GMP_OpenConnect() != MCAST_OK || channel < 0) {
        MRIB_GMP_CloseConnection(); /* one that could not be watched */
        MCAST_TMR_AddNode(timers, RETRY_S, retry, NULL);
        return;
    }
    say_everything();
}

static void timers_due(uint64_t parameters[4])
{
    (void)parameters;
    MCAST_TMR_ProcExpires(timers);
}

static void designated_router(const MRIB_GMP_VRF_KEY_S *key, uint32_t index, uint32_t state)
{
    printf("instance %u, interface %u: %s designated router\n", key->vrf_index, index,
           state == 1 ? "is" : "is not");
}

static void stop(int signal_number)
{
    (void)signal_number;
    HOST_LoopStop(loop);
}

int main(int argc, char **argv)
{
    static MRIB_GMP_CALLBACKS_S callbacks;
    if (argc < 3 || argc > 4 || (if_index = if_nametoindex(argv[1])) == 0 ||
        HOST_AddressFromText(argv[2], &group) != 0 ||
        (argc == 4 && HOST_AddressFromText(argv[3], &source) != 0)) {
        fprintf(stderr, "usage: group_client INTERFACE GROUP [SOURCE]\n");
        return 2;
    }
    instance.family = (uint8_t)group.family;
    callbacks.connected = connected;
    callbacks.disconnected = disconnected;
    callbacks.smooth_finished = smooth_finished;
    callbacks.dr_changed = designated_router; /* a callback is also what asks for its kind of news */
    setvbuf(stdout, NULL, _IOLBF, BUFSIZ);
    signal(SIGPIPE, SIG_IGN);
    signal(SIGTERM, stop);
    signal(SIGINT, stop);
    loop = HOST_LoopCreate();
    timers = MCAST_TMR_Create(HOST_LoopTimerService(loop), timers_due, NULL);
    if (loop < 0 || timers == NULL ||
        MRIB_GMP_Init(COMPONENT, instance.family, 1, MRIB_MSG_RECV_MAX, &callbacks) != MCAST_OK) {
        fprintf(stderr, "group_client: cannot set up\n");
        return 1;
    }
    connect_to_mrib();
    HOST_LoopRun(loop);
    MRIB_GMP_CloseConnection();
    MRIB_GMP_Fini();
    MCAST_TMR_Destroy(timers);
    HOST_LoopDestroy(loop);
    return 0;
}
