#include <Nm/Future.h>
#include <Nm/Internal/Promise.h>
#include <Nm/Internal/ThreadSafeQueue.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using namespace Kiv::System::Nm;
using Kiv::System::Nm::Internal::Promise;
using Kiv::System::Nm::Internal::ThreadSafeQueue;

namespace
{
const char* const NotSet = "Kiv::System::Nm::Future<void>: GetValue() called, but no value has been set!";

template <class Predicate>
bool WaitFor(Predicate predicate, std::chrono::seconds limit = std::chrono::seconds(60))
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!predicate())
    {
        if (std::chrono::steady_clock::now() > deadline)
        {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

// Readers poll their own copies while the result is written on another thread. Until they see HasValue
// they must see a pending state; afterwards the complete result, never a partial one.
template <class Write, class CheckFinished>
void PollWhileWriting(Promise<NotificationId>& promise, Write write, CheckFinished checkFinished)
{
    constexpr int Readers = 3;
    std::atomic<int> polling{0};
    std::atomic<int> finished{0};
    std::vector<std::thread> readers;
    for (int r = 0; r < Readers; ++r)
    {
        readers.emplace_back(
            [future = promise.GetFuture(), &polling, &finished, &checkFinished]
            {
                ++polling;
                while (!future.HasValue())
                {
                    EXPECT_TRUE(future.IsValid());
                    const bool sawException = future.HasException();
                    bool sawPending = false;
                    try
                    {
                        future.GetValue();
                    }
                    catch (const Kiv::Exception& e)
                    {
                        sawPending = e.GetMessage() == NotSet;
                    }
                    // The writer may finish at any point in between; what was seen of a result must stay.
                    if (sawException || !sawPending)
                    {
                        EXPECT_TRUE(future.HasValue());
                    }
                }
                checkFinished(future);
                ++finished;
            });
    }
    EXPECT_TRUE(WaitFor([&] { return polling == Readers; }));
    std::thread writer(write);
    writer.join();
    EXPECT_TRUE(WaitFor([&] { return finished == Readers; }));
    for (auto& reader : readers)
    {
        reader.join();
    }
}
}  // namespace

TEST(FutureConcurrencyTest, ReadersSeeEitherPendingOrTheWholeValue)
{
    // All 64 bits set, so that a torn read on a 32-bit target would show.
    const NotificationId id(0xFEDCBA9876543210ULL);
    Promise<NotificationId> promise;
    PollWhileWriting(
        promise, [&] { promise.SetValue(id); },
        [&](const Future<NotificationId>& future)
        {
            EXPECT_FALSE(future.HasException());
            EXPECT_EQ(future.GetValue(), id);
        });
}

TEST(FutureConcurrencyTest, ReadersEachGetTheStoredExceptionAsItsType)
{
    Promise<NotificationId> promise;
    PollWhileWriting(
        promise, [&] { promise.SetException(Kiv::ArgumentException::Create("arg", 3, "rejected")); },
        [](const Future<NotificationId>& future)
        {
            EXPECT_TRUE(future.HasException());
            for (int i = 0; i < 100; ++i)
            {
                EXPECT_THROW(future.GetValue(), Kiv::ArgumentException);
            }
        });
}

TEST(FutureConcurrencyTest, AFutureReusedForEveryRequestCarriesEachResultBackToTheCaller)
{
    // The caller clears its Future for each new request and hands the promise to a worker through a
    // queue, as the non-blocking path does; results alternate between values and exceptions.
    ThreadSafeQueue<Promise<NotificationId>> requests(4);
    std::thread worker(
        [&requests]
        {
            std::uint64_t request = 0;
            while (auto promise = requests.Pop())
            {
                ++request;
                if (request % 2 == 0)
                {
                    promise->SetException(Kiv::InvalidOperationException("request {0}", request));
                }
                else
                {
                    promise->SetValue(NotificationId(request));
                }
            }
        });
    Future<NotificationId> future = Future<NotificationId>::CreateByPromise();
    for (std::uint64_t request = 1; request <= 2000; ++request)
    {
        auto promise = std::make_shared<Promise<NotificationId>>(future);
        ASSERT_FALSE(future.HasValue());
        requests.Push(promise);
        promise.reset();
        ASSERT_TRUE(WaitFor([&] { return future.HasValue(); }));
        if (request % 2 == 0)
        {
            ASSERT_TRUE(future.HasException());
            EXPECT_THROW(future.GetValue(), Kiv::InvalidOperationException);
        }
        else
        {
            ASSERT_FALSE(future.HasException());
            EXPECT_EQ(future.GetValue(), NotificationId(request));
        }
    }
    requests.Push(nullptr);
    worker.join();
}
