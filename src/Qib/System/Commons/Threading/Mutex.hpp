// A mutex, optionally recursive, with a scoped lock.
#pragma once

#include "Qib/QibExport.hpp"

#include <pthread.h>

namespace Qib::System::Commons::Threading
{

/// Mutual exclusion. Shared objects: safe.
class QIB_EXPORT Mutex
{
public:
    /// Locks the mutex for the lifetime of the object.
    class ScopedLock
    {
    public:
        explicit ScopedLock(Mutex& mutex) : mutex(mutex) { mutex.Lock(); }
        ~ScopedLock() { mutex.Unlock(); }
        ScopedLock(const ScopedLock&) = delete;
        ScopedLock& operator=(const ScopedLock&) = delete;

    private:
        Mutex& mutex;
    };

    /// A recursive mutex may be locked again by the thread that holds it.
    explicit Mutex(bool recursive);
    ~Mutex();
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void Lock();
    bool TryLock();
    void Unlock();

private:
    pthread_mutex_t handle;
};

} // namespace Qib::System::Commons::Threading
