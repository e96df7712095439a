#include <Kiv/Exceptions.h>
#include <Kiv/Threading/ConditionVariable.h>
#include <Kiv/Threading/Mutex.h>
#include <Kiv/Threading/Thread.h>

#include "Support/StringPrinter.h"
#include "Support/WaitFor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using namespace Kiv;
using namespace Kiv::System::Commons::Threading;
using namespace std::chrono_literals;
using ::testing::ThrowsMessage;
using Clock = ConditionVariable::Clock;

namespace
{
bool TryLockFromAnotherThread(Mutex& mutex)
{
    bool locked = false;
    std::thread other(
        [&]
        {
            locked = mutex.TryLock();
            if (locked)
            {
                mutex.Unlock();
            }
        });
    other.join();
    return locked;
}

// Checks what the body sees of itself, and records where it ran.
struct Worker
{
    Thread* current = nullptr;
    void* argument = nullptr;
    std::atomic<bool> done{false};

    void Body(void* givenArgument)
    {
        current = Thread::pCurrentThread;
        argument = givenArgument;
        EXPECT_EQ(Thread::GetCurrentOsThreadName(), "NotificationBro");
        EXPECT_TRUE(current->IsJoinable());
        EXPECT_THAT([this] { current->Join(); },
                    ThrowsMessage<InvalidOperationException>(
                        "Thread 'NotificationBrokerThread' cannot join itself."));
        done = true;
    }
};
}  // namespace

TEST(MutexTest, RecursiveMutexIsFreeForOthersOnlyAfterTheLastUnlock)
{
    Mutex mutex(true);
    mutex.Lock();
    EXPECT_NO_THROW(mutex.Lock());
    EXPECT_TRUE(mutex.TryLock());
    mutex.Unlock();
    mutex.Unlock();
    EXPECT_FALSE(TryLockFromAnotherThread(mutex));
    mutex.Unlock();
    EXPECT_TRUE(TryLockFromAnotherThread(mutex));
}

TEST(MutexTest, NonRecursiveMutexRefusesASecondLockByItsOwnerAndScopedLockReleasesOnUnwinding)
{
    Mutex mutex(false);
    try
    {
        Mutex::ScopedLock lock(mutex);
        EXPECT_FALSE(TryLockFromAnotherThread(mutex));
        EXPECT_FALSE(mutex.TryLock());
        EXPECT_THROW(mutex.Lock(), InvalidOperationException);
        throw InvalidOperationException("unwind");
    }
    catch (const InvalidOperationException&)
    {
    }
    EXPECT_TRUE(TryLockFromAnotherThread(mutex));
}

TEST(ConditionVariableTest, NotifyAllWakesEveryWaiterBeforeItsDeadline)
{
    Mutex mutex(false);
    ConditionVariable condition;
    bool go = false;
    int waiting = 0;
    bool timedOut = false;
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i)
    {
        waiters.emplace_back(
            [&]
            {
                Mutex::ScopedLock lock(mutex);
                ++waiting;
                while (!go && !timedOut)
                {
                    timedOut = !condition.WaitUntil(mutex, Clock::now() + 30s);
                }
            });
    }
    // Each waiter counts itself in under the mutex and releases it only by waiting.
    EXPECT_TRUE(Kiv::Testing::WaitFor(
        [&]
        {
            Mutex::ScopedLock lock(mutex);
            return waiting == 3;
        }));
    {
        Mutex::ScopedLock lock(mutex);
        go = true;
        condition.NotifyAll();
    }
    for (auto& waiter : waiters)
    {
        waiter.join();
    }
    EXPECT_FALSE(timedOut);
}

TEST(ConditionVariableTest, WaitUntilReturnsFalseAtTheDeadlineWithTheMutexHeld)
{
    Mutex mutex(false);
    ConditionVariable condition;
    Mutex::ScopedLock lock(mutex);
    const auto start = Clock::now();
    // Spurious wake-ups may return true early; a time-out returns false.
    while (condition.WaitUntil(mutex, start + 30ms))
    {
    }
    EXPECT_GE(Clock::now() - start, 30ms);
    EXPECT_THROW(mutex.Lock(), InvalidOperationException);  // held again
    EXPECT_FALSE(condition.WaitUntil(mutex, Clock::now() + 10ms, [] { return false; }));
    for (const auto past : {Clock::now() - 1s, Clock::time_point::min(), Clock::time_point{}})
    {
        EXPECT_FALSE(condition.WaitUntil(mutex, past)) << past.time_since_epoch().count();
    }
}

TEST(MutexTest, UnlockOrWaitWithoutHoldingTheMutexAndWaitOnARecursiveOneRaise)
{
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "ThreadSanitizer reports the deliberate misuse itself";
#endif
    Mutex recursive(true);
    Mutex unheld(false);
    EXPECT_THROW(unheld.Unlock(), InvalidOperationException);
    ConditionVariable condition;
    Mutex::ScopedLock lock(recursive);
    for (Mutex* mutex : {&recursive, &unheld})
    {
        EXPECT_THROW(condition.Wait(*mutex), InvalidOperationException);
        EXPECT_THROW(condition.WaitUntil(*mutex, Clock::now() + 1s), InvalidOperationException);
    }
    // Held by this thread, the mutex cannot be unlocked by another.
    std::thread([&] { EXPECT_THROW(recursive.Unlock(), InvalidOperationException); }).join();
}

TEST(ThreadTest, OsNameIsCutTo15BytesButNotInsideAUtf8Character)
{
    EXPECT_EQ(Thread::ToOsThreadName("NotificationBrokerThread"), "NotificationBro");
    EXPECT_EQ(Thread::ToOsThreadName("abcdefghijklmno"), "abcdefghijklmno");
    // Byte 15 would split the "ä".
    EXPECT_EQ(Thread::ToOsThreadName("abcdefghijklmn\xC3\xA4xyz"), "abcdefghijklmn");
}

TEST(ThreadTest, BodySeesItselfAndTheThreadIsJoinableFromStartUntilJoin)
{
    Worker worker;
    int argument = 42;
    Thread thread(MakeDelegate(&worker, &Worker::Body), &argument, {"NotificationBrokerThread"});
    EXPECT_FALSE(thread.IsJoinable());
    EXPECT_THROW(thread.Join(), InvalidOperationException);

    thread.Start();
    EXPECT_TRUE(thread.IsJoinable());
    EXPECT_THROW(thread.Start(), InvalidOperationException);
    ASSERT_TRUE(Kiv::Testing::WaitFor([&] { return worker.done.load(); }));
    EXPECT_TRUE(thread.IsJoinable());  // also once the body is through
    thread.Join();
    EXPECT_FALSE(thread.IsJoinable());
    EXPECT_THROW(thread.Join(), InvalidOperationException);
    EXPECT_THROW(thread.Start(), InvalidOperationException);

    EXPECT_EQ(worker.current, &thread);
    EXPECT_EQ(worker.argument, &argument);
}

TEST(ThreadTest, PthreadExitInTheBodyEndsOnlyTheThreadAndTheDestructorJoins)
{
    std::atomic<bool> beforeExit{false};
    std::atomic<bool> afterExit{false};
    {
        Thread thread(
            [&](void*)
            {
                Thread::Sleep(20);  // so that the destructor has to wait
                beforeExit = true;
                pthread_exit(nullptr);
                afterExit = true;
            },
            nullptr, {"Exit"});
        thread.Start();
    }
    EXPECT_TRUE(beforeExit);
    EXPECT_FALSE(afterExit);
}

TEST(ThreadTest, EmptyDelegateIsRefused)
{
    EXPECT_THROW(Thread(ThreadDelegate(), nullptr, {"Empty"}), ArgumentException);
}

TEST(ThreadTest, SleepWaitsAtLeastTheGivenMilliseconds)
{
    const auto start = std::chrono::steady_clock::now();
    Thread::Sleep(30);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
}
