/* The event loop of the minimal platform: it has nothing but timers. */
#ifndef TESTS_PORTING_MINIMAL_TIMER_H
#define TESTS_PORTING_MINIMAL_TIMER_H

#include "mcast/platform/timer.h"

/* The one timer service. */
TIMER_SERVICE MINIMAL_Timers(void);

/* Waits at most so long for a timer, and fires one that is due. */
void MINIMAL_Serve(uint32_t milliseconds);

#endif
