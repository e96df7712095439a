#pragma once

#include <Kiv/Export.h>
#include <Kiv/Threading/Mutex.h>

#include <pthread.h>
#include <chrono>

namespace Kiv::System::Commons::Threading
{
/// A condition variable over a non-recursive Mutex that the caller holds. Waits may wake spuriously;
/// callers re-test their predicate.
class KIV_API ConditionVariable
{
public:
    using Clock = std::chrono::steady_clock;

    ConditionVariable();
    ConditionVariable(const ConditionVariable&) = delete;
    ConditionVariable& operator=(const ConditionVariable&) = delete;
    ~ConditionVariable();

    void NotifyOne() noexcept;
    void NotifyAll() noexcept;

    /// Waits without limit. Raises InvalidOperationException for a recursive mutex and for a mutex that
    /// the caller does not hold.
    void Wait(Mutex& mutex);
    /// Waits until notified or until `deadline`; false when the deadline passed (at once for a deadline
    /// in the past). Raises as Wait does.
    bool WaitUntil(Mutex& mutex, Clock::time_point deadline);

    /// Waits until `predicate` holds or `deadline` passes; returns the predicate's last value.
    template <class Predicate>
    bool WaitUntil(Mutex& mutex, Clock::time_point deadline, Predicate predicate)
    {
        while (!predicate())
        {
            if (!WaitUntil(mutex, deadline))
            {
                return predicate();
            }
        }
        return true;
    }

private:
    pthread_cond_t handle;
};
}  // namespace Kiv::System::Commons::Threading
