/*
 * The platform's timers and boot time under a test's control. Time stands still until the test moves it; a
 * timer never fires by itself, the test decides with Due when it would. Calls are recorded in order and can
 * be made to fail.
 */
#ifndef TESTS_SUPPORT_SCRIPTED_TIMER_H
#define TESTS_SUPPORT_SCRIPTED_TIMER_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "platform/timer.h"

namespace scripted_timer
{

/* One timer of the scripted platform. */
struct Timer {
    TIMER_SERVICE service;
    TIMER_HANDLER handler;
    uint64_t parameters[4];
    TIMER_ATTR_S attributes;
    bool armed;
    uint64_t due_ms; /* since boot, when armed */
};

/* The platform: what a test sets, and what the calls left. */
struct Platform {
    uint64_t now_ms = 1000 * 1000;
    bool fail_create = false;
    uint32_t get_attr_status = 0;
    std::map<uint32_t, uint32_t> set_status; /* state -> code with which Timer_SetStatus refuses it */

    std::map<TIMER_ID, Timer> timers;
    std::vector<std::string>
        calls;          /* "create 1 4294967295", "stop", "enable", "arm 5000", "attr", "delete" */
    bool record = true; /* off for long random sequences */
    unsigned long arms = 0;
    unsigned long time_reads = 0;
    TIMER_ID next = 1;
};

extern Platform platform;

/* Starts over: no timers, no calls, no failures, one thousand seconds since boot. */
void Reset();

/* The calls recorded since the last Calls, joined by ", ". */
std::string Calls();

/* Moves the time. */
void Advance(uint64_t seconds);

/* A service handle for the library. */
TIMER_SERVICE Service();

/* The one timer that exists; fails the test when there is not exactly one. */
Timer &Only();

/*
 * Whether the one timer would have fired by now; if so it is disarmed and its handler is called, after which
 * a one-shot timer is gone.
 */
bool FireIfDue();

/* Fires the timer that is due next, moving the time there, or moves the time by so much when none is due until then. */
void ServeFor(uint64_t milliseconds);

} // namespace scripted_timer

#endif
