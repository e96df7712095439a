#include <Nm/Future.h>
#include <Nm/Internal/Promise.h>
#include <Nm/Internal/ThreadSafeQueue.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

using namespace Kiv::System::Nm;
using Kiv::System::Nm::Internal::Promise;
using Kiv::System::Nm::Internal::ThreadSafeQueue;

namespace
{
template <class Predicate>
bool WaitFor(Predicate predicate)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
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

// Readers poll their own copies, pending and valid, while another thread writes the result; once they see
// it, it must be complete.
void PollWhileWriting(Promise<NotificationId>& promise, const std::function<void()>& write,
                      const std::function<void(const Future<NotificationId>&)>& checkResult)
{
    std::atomic<int> polling{0};
    std::vector<std::thread> readers;
    for (int r = 0; r < 3; ++r)
    {
        readers.emplace_back(
            [future = promise.GetFuture(), &polling, &checkResult]
            {
                ++polling;
                while (!future.HasValue())
                {
                    EXPECT_TRUE(future.IsValid());
                    std::this_thread::yield();
                }
                checkResult(future);
            });
    }
    EXPECT_TRUE(WaitFor([&] { return polling == 3; }));
    std::thread(write).join();
    for (auto& reader : readers)
    {
        reader.join();
    }
}
}  // namespace

TEST(FutureConcurrencyTest, ReadersOnOtherThreadsSeeTheWholeValueOrTheStoredException)
{
    // All 64 bits in use, so that a torn read on a 32-bit target would show.
    const NotificationId id(0xFEDCBA9876543210ULL);
    Promise<NotificationId> withValue;
    PollWhileWriting(
        withValue, [&] { withValue.SetValue(id); },
        [&](const Future<NotificationId>& future)
        {
            EXPECT_FALSE(future.HasException());
            EXPECT_EQ(future.GetValue(), id);
        });

    Promise<NotificationId> withException;
    PollWhileWriting(
        withException,
        [&] { withException.SetException(Kiv::ArgumentException::Create("arg", 3, "rejected")); },
        [](const Future<NotificationId>& future)
        {
            EXPECT_TRUE(future.HasException());
            for (int i = 0; i < 50; ++i)
            {
                EXPECT_THROW(future.GetValue(), Kiv::ArgumentException);
            }
        });
}

TEST(FutureConcurrencyTest, AFutureReusedForEveryRequestCarriesEachResultBackToTheCaller)
{
    // As on the non-blocking path: the caller resets its Future for each request and hands the promise to a
    // worker through a queue; results alternate between values and exceptions.
    ThreadSafeQueue<Promise<NotificationId>> requests(4);
    std::thread worker(
        [&requests]
        {
            for (std::uint64_t request = 1; auto promise = requests.Pop(); ++request)
            {
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
        requests.Push(std::make_shared<Promise<NotificationId>>(future));
        if (!WaitFor([&] { return future.HasValue(); }))
        {
            ADD_FAILURE() << "no result for request " << request;
            break;
        }
        EXPECT_EQ(future.HasException(), request % 2 == 0);
        if (request % 2 == 1)
        {
            EXPECT_EQ(future.GetValue(), NotificationId(request));
        }
    }
    requests.Push(nullptr);
    worker.join();
}
