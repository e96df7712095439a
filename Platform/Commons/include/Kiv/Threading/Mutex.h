#pragma once

#include <Kiv/Export.h>

#include <pthread.h>

namespace Kiv::System::Commons::Threading
{
/// A mutex; recursive when built with true. Only the non-recursive kind pairs with a ConditionVariable.
class KIV_API Mutex
{
public:
    explicit Mutex(bool recursive);
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;
    ~Mutex();

    /// Raises InvalidOperationException when the owner of a non-recursive mutex locks it again (the
    /// non-recursive kind is error-checking, so this fails instead of hanging).
    void Lock();
    /// False when another thread holds the mutex, and when the owner of a non-recursive one tries again.
    bool TryLock();
    /// Raises InvalidOperationException when the caller does not hold the mutex.
    void Unlock();

    bool IsRecursive() const noexcept { return recursive; }
    pthread_mutex_t* GetNativeHandle() noexcept { return &handle; }

    /// Holds the mutex for one scope; unwinding releases it.
    class ScopedLock
    {
    public:
        explicit ScopedLock(Mutex& mutex) : mutex(mutex) { mutex.Lock(); }
        ScopedLock(const ScopedLock&) = delete;
        ScopedLock& operator=(const ScopedLock&) = delete;
        ~ScopedLock() { mutex.Unlock(); }

    private:
        Mutex& mutex;
    };

private:
    pthread_mutex_t handle;
    bool recursive;
};
}  // namespace Kiv::System::Commons::Threading
