/*
 * Holding a lock for the length of a scope, in a form that the compiler's lock analysis follows.
 */
#ifndef SRC_EVENT_GUARDS_H
#define SRC_EVENT_GUARDS_H

#include "mcast/lock.h"

namespace mcast
{

class MCAST_TSA(scoped_lockable) MutexGuard
{
public:
    explicit MutexGuard(MCAST_MUTEX_S &mutex) MCAST_ACQUIRE(mutex) : mutex_(mutex)
    {
        pthread_mutex_lock(&mutex_.posix);
    }
    ~MutexGuard() MCAST_RELEASE()
    {
        pthread_mutex_unlock(&mutex_.posix);
    }
    MutexGuard(const MutexGuard &) = delete;
    MutexGuard &operator=(const MutexGuard &) = delete;

private:
    MCAST_MUTEX_S &mutex_;
};

class MCAST_TSA(scoped_lockable) WriteGuard
{
public:
    explicit WriteGuard(MCAST_RWLOCK_S &lock) MCAST_ACQUIRE(lock) : lock_(lock)
    {
        pthread_rwlock_wrlock(&lock_.posix);
    }
    ~WriteGuard() MCAST_RELEASE()
    {
        pthread_rwlock_unlock(&lock_.posix);
    }
    WriteGuard(const WriteGuard &) = delete;
    WriteGuard &operator=(const WriteGuard &) = delete;

private:
    MCAST_RWLOCK_S &lock_;
};

class MCAST_TSA(scoped_lockable) ReadGuard
{
public:
    explicit ReadGuard(MCAST_RWLOCK_S &lock) MCAST_ACQUIRE_SHARED(lock) : lock_(lock)
    {
        pthread_rwlock_rdlock(&lock_.posix);
    }
    ~ReadGuard() MCAST_TSA(release_generic_capability())
    {
        pthread_rwlock_unlock(&lock_.posix);
    }
    ReadGuard(const ReadGuard &) = delete;
    ReadGuard &operator=(const ReadGuard &) = delete;

private:
    MCAST_RWLOCK_S &lock_;
};

} // namespace mcast

#endif
