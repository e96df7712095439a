#include <Kiv/Exceptions.h>
#include <Kiv/Threading/ConditionVariable.h>

#include <cerrno>
#include <ctime>

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

void ConditionVariable::Wait(Mutex& mutex)
{
    if (mutex.IsRecursive())
    {
        throw InvalidOperationException("A condition variable cannot wait on a recursive mutex.");
    }
    pthread_cond_wait(&handle, mutex.GetNativeHandle());
}

bool ConditionVariable::WaitUntil(Mutex& mutex, Clock::time_point deadline)
{
    if (mutex.IsRecursive())
    {
        throw InvalidOperationException("A condition variable cannot wait on a recursive mutex.");
    }
    const auto sinceEpoch = std::chrono::duration_cast<std::chrono::nanoseconds>(deadline.time_since_epoch());
    timespec until{};
    until.tv_sec = static_cast<time_t>(sinceEpoch.count() / 1000000000LL);
    until.tv_nsec = static_cast<long>(sinceEpoch.count() % 1000000000LL);
    return pthread_cond_timedwait(&handle, mutex.GetNativeHandle(), &until) != ETIMEDOUT;
}
}  // namespace Kiv::System::Commons::Threading
