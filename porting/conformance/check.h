/*
 * What the conformance programs share: cases that are run in turn, checks that say where they failed, and random
 * numbers that a seed repeats.
 */
#ifndef PORTING_CHECK_H
#define PORTING_CHECK_H

#include <stddef.h>
#include <stdint.h>

/* One thing that a platform must do; its name says what. */
typedef struct PORT_CASE_S {
    const char *name;
    void (*run)(void);
} PORT_CASE_S;

/* The cases of a program, which defines both. */
extern const char *const PORT_SERVICE;
extern const PORT_CASE_S PORT_CASES[];
extern const size_t PORT_CASE_COUNT;

/* Notes a failed check; the case goes on. A case notes at most a few, so that a loop does not fill the screen. */
void PORT_Failed(const char *condition, const char *file, int line);

/* Says that this case could not be run, and why. */
void PORT_Skip(const char *reason);

/* Whether the running case has failed: loops end then. */
int PORT_CaseFailed(void);

/* The next random number below bound, which is not 0. */
uint32_t PORT_Random(uint32_t bound);

#define CHECK(condition) ((condition) ? (void)0 : PORT_Failed(#condition, __FILE__, __LINE__))

/* The same, and the case ends when it fails: what follows could not be run. */
#define NEED(condition)                                                                                      \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            PORT_Failed(#condition, __FILE__, __LINE__);                                                     \
            return;                                                                                          \
        }                                                                                                    \
    } while (0)

#endif
