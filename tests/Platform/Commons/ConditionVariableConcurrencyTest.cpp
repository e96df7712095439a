#include <Kiv/Exceptions.h>
#include <Kiv/Threading/ConditionVariable.h>
#include <Kiv/Threading/Mutex.h>

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

using namespace Kiv;
using namespace Kiv::System::Commons::Threading;
using namespace std::chrono_literals;

TEST(ConditionVariableTest, WaitWakesOnNotifyOneFromAnotherThread)
{
    Mutex mutex(false);
    ConditionVariable condition;
    bool ready = false;

    std::thread notifier(
        [&]
        {
            std::this_thread::sleep_for(20ms);
            Mutex::ScopedLock lock(mutex);
            ready = true;
            condition.NotifyOne();
        });

    {
        Mutex::ScopedLock lock(mutex);
        while (!ready)
        {
            condition.Wait(mutex);
        }
        EXPECT_TRUE(ready);
    }
    notifier.join();
}

TEST(ConditionVariableTest, NotifyAllWakesEveryWaiter)
{
    Mutex mutex(false);
    ConditionVariable condition;
    bool go = false;
    int woken = 0;
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i)
    {
        waiters.emplace_back(
            [&]
            {
                Mutex::ScopedLock lock(mutex);
                while (!go)
                {
                    condition.Wait(mutex);
                }
                ++woken;
            });
    }
    std::this_thread::sleep_for(20ms);
    {
        Mutex::ScopedLock lock(mutex);
        go = true;
        condition.NotifyAll();
    }
    for (auto& waiter : waiters)
    {
        waiter.join();
    }
    EXPECT_EQ(woken, 3);
}

TEST(ConditionVariableTest, WaitUntilTimesOutAndReturnsFalse)
{
    Mutex mutex(false);
    ConditionVariable condition;
    Mutex::ScopedLock lock(mutex);
    const auto start = ConditionVariable::Clock::now();
    bool notified = true;
    // Spurious wake-ups may return true early; a time-out returns false.
    while (notified)
    {
        notified = condition.WaitUntil(mutex, start + 30ms);
    }
    EXPECT_FALSE(notified);
    EXPECT_GE(ConditionVariable::Clock::now() - start, 30ms);
    // The mutex is held again after the time-out.
    EXPECT_THROW(mutex.Lock(), InvalidOperationException);
}

TEST(ConditionVariableTest, WaitUntilADeadlineInThePastReturnsFalseAtOnce)
{
    Mutex mutex(false);
    ConditionVariable condition;
    Mutex::ScopedLock lock(mutex);
    EXPECT_FALSE(condition.WaitUntil(mutex, ConditionVariable::Clock::now() - 1s));
    EXPECT_FALSE(condition.WaitUntil(mutex, ConditionVariable::Clock::time_point::min()));
    EXPECT_FALSE(condition.WaitUntil(mutex, ConditionVariable::Clock::time_point{}));
}

TEST(ConditionVariableTest, WaitUntilWithPredicateReturnsTrueWhenItHolds)
{
    Mutex mutex(false);
    ConditionVariable condition;
    bool ready = false;
    std::thread notifier(
        [&]
        {
            std::this_thread::sleep_for(10ms);
            Mutex::ScopedLock lock(mutex);
            ready = true;
            condition.NotifyOne();
        });
    {
        Mutex::ScopedLock lock(mutex);
        EXPECT_TRUE(condition.WaitUntil(mutex, ConditionVariable::Clock::now() + 10s, [&] { return ready; }));
    }
    notifier.join();

    Mutex::ScopedLock lock(mutex);
    EXPECT_FALSE(condition.WaitUntil(mutex, ConditionVariable::Clock::now() + 10ms, [] { return false; }));
}

TEST(ConditionVariableTest, RecursiveMutexIsRefused)
{
    Mutex mutex(true);
    ConditionVariable condition;
    Mutex::ScopedLock lock(mutex);
    EXPECT_THROW(condition.Wait(mutex), InvalidOperationException);
    EXPECT_THROW(condition.WaitUntil(mutex, ConditionVariable::Clock::now() + 1s), InvalidOperationException);
}

TEST(ConditionVariableTest, WaitWithoutHoldingTheMutexRaises)
{
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "ThreadSanitizer reports the deliberate misuse itself";
#endif
    Mutex mutex(false);
    ConditionVariable condition;
    EXPECT_THROW(condition.Wait(mutex), InvalidOperationException);
    EXPECT_THROW(condition.WaitUntil(mutex, ConditionVariable::Clock::now() + 1s), InvalidOperationException);
}
