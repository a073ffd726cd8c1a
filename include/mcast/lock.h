/*
 * The locks that stand inside exported records, and the annotations with which the compiler checks who holds
 * them. A lock record holds exactly the POSIX object, so its layout is that of the POSIX type.
 *
 * In strict C11 (-std=c11 without _POSIX_C_SOURCE) the C library hides the reader-writer lock. Records that
 * hold one keep their layout, and everything else can be used; such a source cannot take the lock itself.
 */
#ifndef MCAST_LOCK_H
#define MCAST_LOCK_H

#include <pthread.h>

#include "mcast/common.h"

#if defined(__clang__) && defined(__cplusplus)
#define MCAST_TSA(attribute) __attribute__((attribute))
#else
#define MCAST_TSA(attribute)
#endif

#define MCAST_CAPABILITY(name) MCAST_TSA(capability(name))
#define MCAST_GUARDED_BY(lock) MCAST_TSA(guarded_by(lock))
#define MCAST_PT_GUARDED_BY(lock) MCAST_TSA(pt_guarded_by(lock))
#define MCAST_REQUIRES(...) MCAST_TSA(requires_capability(__VA_ARGS__))
#define MCAST_REQUIRES_SHARED(...) MCAST_TSA(requires_shared_capability(__VA_ARGS__))
#define MCAST_EXCLUDES(...) MCAST_TSA(locks_excluded(__VA_ARGS__))
#define MCAST_ACQUIRE(...) MCAST_TSA(acquire_capability(__VA_ARGS__))
#define MCAST_ACQUIRE_SHARED(...) MCAST_TSA(acquire_shared_capability(__VA_ARGS__))
#define MCAST_RELEASE(...) MCAST_TSA(release_capability(__VA_ARGS__))
#define MCAST_RELEASE_SHARED(...) MCAST_TSA(release_shared_capability(__VA_ARGS__))
#define MCAST_ACQUIRED_BEFORE(...) MCAST_TSA(acquired_before(__VA_ARGS__))
#define MCAST_ACQUIRED_AFTER(...) MCAST_TSA(acquired_after(__VA_ARGS__))
#define MCAST_NO_LOCK_ANALYSIS MCAST_TSA(no_thread_safety_analysis)

/* What a reader-writer lock's record holds: pthread_rwlock_t, or its place where the C library hides it. */
#if defined(PTHREAD_RWLOCK_INITIALIZER)
#define MCAST_POSIX_RWLOCK pthread_rwlock_t
#elif defined(__SIZEOF_PTHREAD_RWLOCK_T)
#define MCAST_POSIX_RWLOCK                                                                                   \
    union {                                                                                                  \
        long alignment;                                                                                      \
        unsigned char bytes[__SIZEOF_PTHREAD_RWLOCK_T];                                                      \
    }
#else
#error "mcast/lock.h needs the POSIX reader-writer lock: compile with -D_POSIX_C_SOURCE=200809L"
#endif

MCAST_EXTERN_C_BEGIN

/* A mutex in an exported record. */
typedef struct MCAST_CAPABILITY("mutex") MCAST_MUTEX_S {
    pthread_mutex_t posix;
} MCAST_MUTEX_S;

/* A reader-writer lock in an exported record or object. */
typedef struct MCAST_CAPABILITY("rwlock") MCAST_RWLOCK_S {
    MCAST_POSIX_RWLOCK posix;
} MCAST_RWLOCK_S;

MCAST_STATIC_ASSERT(sizeof(MCAST_MUTEX_S) == sizeof(pthread_mutex_t), "a mutex record is the POSIX mutex");
#if defined(PTHREAD_RWLOCK_INITIALIZER)
MCAST_STATIC_ASSERT(sizeof(MCAST_RWLOCK_S) == sizeof(pthread_rwlock_t), "a lock record is the POSIX lock");
#endif

MCAST_EXTERN_C_END

#endif
