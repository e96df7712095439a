#pragma once

#include <Nm/Internal/NonBlockingNotificationSending/RingBuffer.h>

#include <Kiv/Threading/ConditionVariable.h>
#include <Kiv/Threading/Mutex.h>

#include <cstdint>
#include <vector>

namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
{
/// The ring buffer between any number of producers and one consumer. Producers never wait for room: a
/// full buffer refuses at once. The lock is held only to move one element and update the indices, never
/// while the consumer works on what it took.
template <class T>
class ThreadSafeRingBuffer : private RingBuffer<T>
{
public:
    explicit ThreadSafeRingBuffer(std::uint32_t capacity) : RingBuffer<T>(capacity), mutex(false) {}

    /// Moves `item` in and wakes the consumer; false, with `item` untouched, when full. Still accepts
    /// after a stop request, though nothing will take the element any more.
    bool TryPush(T& item)
    {
        Commons::Threading::Mutex::ScopedLock lock(mutex);
        if (!RingBuffer<T>::TryPush(item))
        {
            return false;
        }
        notEmpty.NotifyOne();
        return true;
    }

    /// Waits for an element and moves it into `target`. False once a stop was requested: the request
    /// wins over elements still queued, which are then never taken.
    bool WaitAndPop(T& target)
    {
        Commons::Threading::Mutex::ScopedLock lock(mutex);
        for (;;)
        {
            if (stopRequested)
            {
                return false;
            }
            if (!RingBuffer<T>::IsEmpty())
            {
                break;
            }
            notEmpty.Wait(mutex);
        }
        RingBuffer<T>::TryPop(target);
        return true;
    }

    /// As WaitAndPop, into `targets[0]`; if `joins(targets[0])`, the elements behind it for which `joins`
    /// holds come along, up to `targets.size()` in all, under the same lock. Gives how many were taken,
    /// 0 once a stop was requested.
    template <class TJoins>
    std::uint32_t WaitAndPopRun(std::vector<T>& targets, TJoins joins)
    {
        Commons::Threading::Mutex::ScopedLock lock(mutex);
        for (;;)
        {
            if (stopRequested)
            {
                return 0;
            }
            if (!RingBuffer<T>::IsEmpty())
            {
                break;
            }
            notEmpty.Wait(mutex);
        }
        std::uint32_t taken = 0;
        RingBuffer<T>::TryPop(targets[taken++]);
        if (!joins(targets[0]))
        {
            return taken;
        }
        while (taken < targets.size() && !RingBuffer<T>::IsEmpty() && joins(RingBuffer<T>::Front()))
        {
            RingBuffer<T>::TryPop(targets[taken++]);
        }
        return taken;
    }

    /// Whether RequestStop was called.
    bool IsStopRequested() const
    {
        Commons::Threading::Mutex::ScopedLock lock(mutex);
        return stopRequested;
    }

    /// Makes WaitAndPop return false, now and from then on, and returns how many elements were left in
    /// the buffer. Runs from destructors: a failure here ends the process.
    std::uint32_t RequestStop() noexcept
    {
        Commons::Threading::Mutex::ScopedLock lock(mutex);
        stopRequested = true;
        notEmpty.NotifyAll();
        return RingBuffer<T>::GetCount();
    }

    std::uint32_t GetCapacity() const
    {
        Commons::Threading::Mutex::ScopedLock lock(mutex);
        return RingBuffer<T>::GetCapacity();
    }

private:
    mutable Commons::Threading::Mutex mutex;
    Commons::Threading::ConditionVariable notEmpty;
    bool stopRequested = false;
};
}  // namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending
