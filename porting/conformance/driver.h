/*
 * What the conformance programs ask of a port beside the platform's own names: how to serve its event loop, and what
 * was configured for the test. A port writes these functions in one file, its driver; those of the host platform and
 * of the small platform of the tests are examples.
 */
#ifndef PORTING_DRIVER_H
#define PORTING_DRIVER_H

#include "mcast/platform/timer.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Called once, before anything else is asked: start and configure the platform. 0, or the program ends as failed. */
int PORT_Begin(void);

/* Called once at the end. */
void PORT_End(void);

/* The service whose timers fire from PORT_ServeEvents, or NULL: the cases that need it are then skipped. */
TIMER_SERVICE PORT_TimerService(void);

/*
 * Serves the event loop that fires the timers. Returns once something was served, or after about milliseconds when
 * nothing was; a platform whose time is simulated moves it on by as much. 0, or another value for a failure.
 */
int PORT_ServeEvents(uint32_t milliseconds);

/* An interface that exists for as long as the program runs. */
typedef struct PORT_INTERFACE_S {
    uint32_t if_index;
    uint32_t type;           /* its type code, one that may be selected */
    const char *full_name;   /* as the platform gives it */
    const char *short_name;  /* as the platform gives it */
    const char *abbreviated; /* a text that IF_IfNameFill completes to its full name; NULL: none is tried */
    uint32_t other_type;     /* a type that it has not and that may be selected */
} PORT_INTERFACE_S;

/* Tells of one interface. 0; another value where there is none, and the cases that need it are skipped. */
int PORT_Interface(PORT_INTERFACE_S *interface);

/*
 * Access lists of one family, which the driver configures; the addresses are in the comments, IPv4 and IPv6. A number
 * of 0 stands for a list that cannot be had: what needs it is skipped.
 */
typedef struct PORT_ACCESS_LISTS_S {
    uint32_t
        basic; /* deny source 10.1.0.0/16 or 2001:db8:1::/48; permit source 10.0.0.0/8 or 2001:db8::/32 */
    uint32_t
        advanced; /* permit source 10.0.0.0/8 and destination 232.0.0.0/8, or 2001:db8::/32 and ff3e::/16; deny */
    uint32_t empty;  /* a basic list without a rule */
    uint32_t absent; /* the number of a basic list that does not exist */
} PORT_ACCESS_LISTS_S;

/* Tells of the lists of a family, ACL_FAMILY_IPV4 or ACL_FAMILY_IPV6. 0, or another value where there are none. */
int PORT_AccessLists(uint32_t family_index, PORT_ACCESS_LISTS_S *lists);

/* A port of the local sockets that nobody uses, from 1 to 65534, the one above it being free too; 0 where there are none. */
uint16_t PORT_LocalPort(void);

#ifdef __cplusplus
}
#endif

#endif
