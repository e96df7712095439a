#include <Kiv/Exceptions.h>
#include <Kiv/Threading/Mutex.h>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using namespace Kiv;
using namespace Kiv::System::Commons::Threading;

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
}  // namespace

TEST(MutexTest, RecursiveMutexLocksTwiceFromOneThread)
{
    Mutex mutex(true);
    EXPECT_TRUE(mutex.IsRecursive());
    mutex.Lock();
    EXPECT_NO_THROW(mutex.Lock());
    EXPECT_TRUE(mutex.TryLock());
    mutex.Unlock();
    mutex.Unlock();
    EXPECT_FALSE(TryLockFromAnotherThread(mutex));
    mutex.Unlock();
    EXPECT_TRUE(TryLockFromAnotherThread(mutex));
}

TEST(MutexTest, NonRecursiveMutexRefusesASecondLockByItsOwner)
{
    Mutex mutex(false);
    EXPECT_FALSE(mutex.IsRecursive());
    mutex.Lock();
    EXPECT_THROW(mutex.Lock(), InvalidOperationException);
    EXPECT_FALSE(mutex.TryLock());
    mutex.Unlock();
    EXPECT_TRUE(mutex.TryLock());
    mutex.Unlock();
}

TEST(MutexTest, TryLockFromAnotherThreadFailsWhileHeld)
{
    Mutex mutex(false);
    mutex.Lock();
    EXPECT_FALSE(TryLockFromAnotherThread(mutex));
    mutex.Unlock();
    EXPECT_TRUE(TryLockFromAnotherThread(mutex));
}

TEST(MutexTest, UnlockByAThreadThatDoesNotHoldItRaises)
{
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "ThreadSanitizer reports the deliberate misuse itself";
#endif
    Mutex mutex(false);
    EXPECT_THROW(mutex.Unlock(), InvalidOperationException);
    mutex.Lock();
    bool raised = false;
    std::thread other(
        [&]
        {
            try
            {
                mutex.Unlock();
            }
            catch (const InvalidOperationException&)
            {
                raised = true;
            }
        });
    other.join();
    EXPECT_TRUE(raised);
    mutex.Unlock();
}

TEST(MutexTest, ScopedLockReleasesOnUnwinding)
{
    Mutex mutex(false);
    try
    {
        Mutex::ScopedLock lock(mutex);
        EXPECT_FALSE(TryLockFromAnotherThread(mutex));
        throw InvalidOperationException("unwind");
    }
    catch (const InvalidOperationException&)
    {
    }
    EXPECT_TRUE(TryLockFromAnotherThread(mutex));
}

TEST(MutexTest, ExcludesOtherThreads)
{
    for (bool recursive : {false, true})
    {
        Mutex mutex(recursive);
        long counter = 0;
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
        {
            threads.emplace_back(
                [&]
                {
                    for (int i = 0; i < 10000; ++i)
                    {
                        Mutex::ScopedLock lock(mutex);
                        ++counter;
                    }
                });
        }
        for (auto& thread : threads)
        {
            thread.join();
        }
        EXPECT_EQ(counter, 40000) << "recursive=" << recursive;
    }
}
