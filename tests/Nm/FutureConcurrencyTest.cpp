#include <Nm/Future.h>
#include <Nm/Internal/Promise.h>

#include <Support/WaitFor.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

using namespace Kiv::System::Nm;
using Kiv::System::Nm::Internal::Promise;

namespace
{
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
    EXPECT_TRUE(Kiv::Testing::WaitFor([&] { return polling == 3; }));
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
