/*
 * A service of the user authentication: takes announcements of agents (user_agent.c is one) and prints who is there, on
 * which interface, and what each may join.
 *
 *     ./user_service
 *
 * It listens on the same port as a gmpd for IPv4 would: one of them at a time in a network namespace.
 */
#include <mcast/usrauth.h>
#include <mcast/usrauth_wire.h>
#include <mcasthost/address.h>
#include <mcasthost/local_socket.h>
#include <mcasthost/loop.h>
#include <signal.h>
#include <stdio.h>

#define MOST_AGENTS 16

static int32_t loop;
static uint32_t next_if_index = 1000; /* interfaces made for users */

static void print_address(const char *between, const MCAST_ADDR_S *address)
{
    char text[HOST_ADDRESS_TEXT_SIZE];
    printf("%s%s", between, HOST_AddressToText(address, text));
}

/* Groups, and sources within each: a source of zero is any source. */
static void print_rights(const MCAST_USRAUTH_USER_S *user)
{
    const MTABLE_GROUP_S *group = MTable_GetNextGroup(&user->groups, NULL);
    for (; group != NULL; group = MTable_GetNextGroup(&user->groups, &group->address)) {
        print_address(" ", &group->address);
    }
    puts("");
}

/* The first group list of a user has ended: it gets its interface here, and can be found by it from now on. */
static void user_online(MCAST_USRAUTH_USER_S *user, uint32_t *if_index)
{
    *if_index = next_if_index++;
    printf("online: user %u of node %u behind interface %u, address", user->user_id,
           MCAST_USRAUTH_GetNode(user), user->access_if_index);
    print_address(" ", &user->address);
    printf(", may join");
    print_rights(user);
}

/* Within this call the user is still whole; what the daemon keeps about it goes now. */
static void user_offline(MCAST_USRAUTH_USER_S *user)
{
    printf("offline: user %u of node %u\n", user->user_id, MCAST_USRAUTH_GetNode(user));
}

static void user_changed(MCAST_USRAUTH_USER_S *user, uint32_t change_mask)
{
    printf("changed: user %u of node %u", user->user_id, MCAST_USRAUTH_GetNode(user));
    if ((change_mask & MCAST_USRAUTH_CHANGED_LIST) != 0) {
        printf(", lost entries, may join"); /* leaves what it joined and may not any more */
        print_rights(user);
    } else {
        puts("");
    }
}

static void refresh_ended(uint16_t node, uint32_t kind)
{
    printf("refreshed: users of kind %u of node %u\n", kind, node);
}

static void stop(int signal_number)
{
    (void)signal_number;
    HOST_LoopStop(loop);
}

int main(void)
{
    static MCAST_USRAUTH_CALLBACKS_S callbacks;
    callbacks.user_online = user_online;
    callbacks.user_offline = user_offline;
    callbacks.user_changed = user_changed;
    callbacks.refresh_ended = refresh_ended;
    setvbuf(stdout, NULL, _IOLBF, BUFSIZ);
    signal(SIGTERM, stop);
    signal(SIGINT, stop);
    loop = HOST_LoopCreate();
    HOST_LocalSocketLimit(USRAUTH_PORT_IPV4, MOST_AGENTS);
    if (loop < 0 ||
        MCAST_USRAUTH_Init(MCAST_FAMILY_IPV4, loop, HOST_LoopTimerService(loop), &callbacks) != MCAST_OK ||
        MCAST_USRAUTH_Upgrade(MCAST_FAMILY_IPV4, loop) != MCAST_OK) {
        perror("user_service");
        return 1;
    }
    puts("ready");
    HOST_LoopRun(
        loop); /* connections, messages and timers are the library's: it registered them in the loop */
    MCAST_USRAUTH_StopServer();
    MCAST_USRAUTH_Fini();
    HOST_LoopDestroy(loop);
    return 0;
}
