#include <Kiv/Exceptions.h>
#include <Kiv/Threading/ConditionVariable.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <limits>

namespace Kiv::System::Commons::Threading
{
ConditionVariable::ConditionVariable()
{
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    // Deadlines run on the monotonic clock, as steady_clock does, so wall-clock jumps don't move them.
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&handle, &attributes);
    pthread_condattr_destroy(&attributes);
}

ConditionVariable::~ConditionVariable()
{
    pthread_cond_destroy(&handle);
}

void ConditionVariable::NotifyOne() noexcept
{
    pthread_cond_signal(&handle);
}

void ConditionVariable::NotifyAll() noexcept
{
    pthread_cond_broadcast(&handle);
}

namespace
{
void ThrowIfRecursive(const Mutex& mutex)
{
    if (mutex.IsRecursive())
    {
        throw InvalidOperationException("A condition variable cannot wait on a recursive mutex.");
    }
}

// The deadline as CLOCK_MONOTONIC time; a deadline before the clock's start is its start, one beyond
// what time_t holds is the largest time_t.
timespec ToTimespec(ConditionVariable::Clock::time_point deadline)
{
    const long long nanoseconds =
        std::chrono::duration_cast<std::chrono::nanoseconds>(deadline.time_since_epoch()).count();
    timespec until{};
    if (nanoseconds <= 0)
    {
        return until;
    }
    const long long seconds = nanoseconds / 1000000000LL;
    if (seconds > static_cast<long long>(std::numeric_limits<time_t>::max()))
    {
        until.tv_sec = std::numeric_limits<time_t>::max();
        return until;
    }
    until.tv_sec = static_cast<time_t>(seconds);
    until.tv_nsec = static_cast<long>(nanoseconds % 1000000000LL);
    return until;
}
}  // namespace

void ConditionVariable::Wait(Mutex& mutex)
{
    ThrowIfRecursive(mutex);
    const int result = pthread_cond_wait(&handle, mutex.GetNativeHandle());
    if (result != 0)
    {
        // EPERM: the caller does not hold the mutex.
        throw InvalidOperationException("ConditionVariable::Wait failed: {0}", std::strerror(result));
    }
}

bool ConditionVariable::WaitUntil(Mutex& mutex, Clock::time_point deadline)
{
    ThrowIfRecursive(mutex);
    const timespec until = ToTimespec(deadline);
    const int result = pthread_cond_timedwait(&handle, mutex.GetNativeHandle(), &until);
    if (result == 0)
    {
        return true;
    }
    if (result == ETIMEDOUT)
    {
        return false;
    }
    throw InvalidOperationException("ConditionVariable::WaitUntil failed: {0}", std::strerror(result));
}
}  // namespace Kiv::System::Commons::Threading
