#include <Kiv/Exceptions.h>
#include <Kiv/Threading/Thread.h>

#include "Support/StringPrinter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>

using namespace Kiv;
using namespace Kiv::System::Commons::Threading;

namespace
{
ThreadSettings Named(const char* name)
{
    ThreadSettings settings;
    settings.name = name;
    return settings;
}

// What a body saw of itself; written by the body, read after Join.
struct Observation
{
    String osName;
    String fullName;
    Thread* current = nullptr;
    bool joinableInside = false;
    void* argument = nullptr;
    String selfJoinError;
    std::atomic<bool> done{false};
};

struct Worker
{
    Observation seen;

    void Body(void* argument)
    {
        seen.osName = Thread::GetCurrentOsThreadName();
        seen.current = Thread::pCurrentThread;
        seen.fullName =
            Thread::pCurrentThread != nullptr ? Thread::pCurrentThread->GetName() : String("<none>");
        seen.joinableInside = Thread::pCurrentThread != nullptr && Thread::pCurrentThread->IsJoinable();
        seen.argument = argument;
        try
        {
            Thread::pCurrentThread->Join();
        }
        catch (const InvalidOperationException& e)
        {
            seen.selfJoinError = e.GetMessage();
        }
        seen.done = true;
    }
};

void WaitFor(const std::atomic<bool>& flag)
{
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!flag && std::chrono::steady_clock::now() < limit)
    {
        Thread::Sleep(1);
    }
}
}  // namespace

TEST(ThreadTest, LongNameIsKeptWhileTheOsNameIsCutTo15Characters)
{
    Worker worker;
    Thread thread(MakeDelegate(&worker, &Worker::Body), nullptr, Named("NotificationBrokerThread"));
    thread.Start();
    thread.Join();

    EXPECT_EQ(thread.GetName(), "NotificationBrokerThread");
    EXPECT_EQ(worker.seen.fullName, "NotificationBrokerThread");
    EXPECT_EQ(worker.seen.osName, "NotificationBro");
    EXPECT_EQ(worker.seen.osName.size(), Thread::MaxOsNameLength);
}

TEST(ThreadTest, ShortNameIsTheOsNameAsItIs)
{
    Worker worker;
    Thread thread(MakeDelegate(&worker, &Worker::Body), nullptr, Named("NmNonBlocking"));
    thread.Start();
    thread.Join();
    EXPECT_EQ(worker.seen.osName, "NmNonBlocking");
}

TEST(ThreadTest, OsNameIsNotCutInsideAUtf8Character)
{
    // 14 ASCII characters and then "ä" (2 bytes): byte 15 would split it.
    EXPECT_EQ(Thread::ToOsThreadName("abcdefghijklmn\xC3\xA4xyz"), "abcdefghijklmn");
    EXPECT_EQ(Thread::ToOsThreadName("abcdefghijklmno"), "abcdefghijklmno");
    EXPECT_EQ(Thread::ToOsThreadName(""), "");
}

TEST(ThreadTest, CurrentThreadIsTheThreadObjectInsideTheBodyAndNullElsewhere)
{
    EXPECT_EQ(Thread::pCurrentThread, nullptr);
    Worker worker;
    int argument = 42;
    Thread thread(MakeDelegate(&worker, &Worker::Body), &argument, Named("Current"));
    thread.Start();
    thread.Join();
    EXPECT_EQ(worker.seen.current, &thread);
    EXPECT_EQ(worker.seen.argument, &argument);
    EXPECT_EQ(Thread::pCurrentThread, nullptr);
}

TEST(ThreadTest, IsJoinableFromStartUntilJoinAlsoAfterTheBodyReturned)
{
    Worker worker;
    Thread thread(MakeDelegate(&worker, &Worker::Body), nullptr, Named("Joinable"));
    EXPECT_FALSE(thread.IsJoinable());

    thread.Start();
    EXPECT_TRUE(thread.IsJoinable());
    WaitFor(worker.seen.done);
    ASSERT_TRUE(worker.seen.done);
    Thread::Sleep(5);
    EXPECT_TRUE(thread.IsJoinable());

    thread.Join();
    EXPECT_FALSE(thread.IsJoinable());
    EXPECT_TRUE(worker.seen.joinableInside);
}

TEST(ThreadTest, StartTwiceRaises)
{
    Worker worker;
    Thread thread(MakeDelegate(&worker, &Worker::Body), nullptr, Named("Twice"));
    thread.Start();
    EXPECT_THROW(thread.Start(), InvalidOperationException);
    thread.Join();
    EXPECT_THROW(thread.Start(), InvalidOperationException);
}

TEST(ThreadTest, JoinWithoutStartOrTwiceRaises)
{
    Worker worker;
    Thread thread(MakeDelegate(&worker, &Worker::Body), nullptr, Named("NoStart"));
    EXPECT_THROW(thread.Join(), InvalidOperationException);
    thread.Start();
    thread.Join();
    EXPECT_THROW(thread.Join(), InvalidOperationException);
}

TEST(ThreadTest, BodyCannotJoinItself)
{
    Worker worker;
    Thread thread(MakeDelegate(&worker, &Worker::Body), nullptr, Named("SelfJoin"));
    thread.Start();
    thread.Join();
    EXPECT_EQ(worker.seen.selfJoinError, "Thread 'SelfJoin' cannot join itself.");
}

TEST(ThreadTest, DestructorJoinsAStartedThread)
{
    std::atomic<bool> finished{false};
    {
        Thread thread(
            [&finished](void*)
            {
                Thread::Sleep(20);
                finished = true;
            },
            nullptr, Named("Destructor"));
        thread.Start();
    }
    EXPECT_TRUE(finished);
}

TEST(ThreadTest, PthreadExitInTheBodyEndsOnlyTheThread)
{
    std::atomic<bool> beforeExit{false};
    std::atomic<bool> afterExit{false};
    Thread thread(
        [&](void*)
        {
            beforeExit = true;
            pthread_exit(nullptr);
            afterExit = true;
        },
        nullptr, Named("Exit"));
    thread.Start();
    thread.Join();
    EXPECT_TRUE(beforeExit);
    EXPECT_FALSE(afterExit);
}

TEST(ThreadTest, EmptyDelegateIsRefused)
{
    EXPECT_THROW(Thread(ThreadDelegate(), nullptr, Named("Empty")), ArgumentException);
}

TEST(ThreadTest, SleepWaitsAtLeastTheGivenMilliseconds)
{
    const auto start = std::chrono::steady_clock::now();
    Thread::Sleep(30);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
}
