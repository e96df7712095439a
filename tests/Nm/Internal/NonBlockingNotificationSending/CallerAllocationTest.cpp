// Counts the heap allocations of the caller's thread while it sends on the non-blocking path: operator new
// of the whole process is replaced by a counting one.

#include <Nm/Internal/NonBlockingNotificationSending/Proxy.h>

#include <Nm/NonBlockingDoubles.h>
#include <Nm/ThreeNumbersRegistration.h>
#include <Support/CountingAllocator.h>
#include <Support/WaitFor.h>

#include <gtest/gtest.h>

using Kiv::Testing::AllocationCounter;
using namespace Kiv::System::Nm;
using namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending;
using Kiv::Testing::WaitFor;

namespace
{
TEST(CallerAllocationTest, SendsWithAFutureMadeAheadAllocateNothingWhetherQueuedOrRefused)
{
    {
        AllocationCounter counter;
        auto made = std::make_shared<int>(1);
        ASSERT_EQ(counter.Get(), 1u) << "the counting operator new is in place";
    }
    using Payload = std::vector<TulVariant<512>>;
    const Kiv::DateTime stamp(637'000'000'000'000'000ULL, Kiv::DateTimeKind::Utc);
    constexpr unsigned Capacity = 4;
    Kiv::Testing::RecordingSending sending;
    Proxy proxy(sending, Capacity);
    Kiv::Testing::ProxyFacade facade(sending, proxy);
    Kiv::Testing::ThreeNumbersRegistration registration(
        std::make_unique<NonBlockingNotificationSendingAdapter>(facade), Capacity);
    registration.Register("A.B", "me", Severity::Info, PayloadTypeId(1));
    std::vector<Future<NotificationId>> futures;
    std::vector<std::function<Payload()>> functions;
    std::size_t counted = 0;
    for (unsigned i = 0; i < 2 * Capacity + 2; ++i)
    {
        futures.push_back(Future<NotificationId>::CreateByPromise());
        functions.emplace_back([] { return Payload(); });
        // Every slot holds a record of both kinds once; from the second round on the typed sends count.
        {
            AllocationCounter counter;
            ASSERT_TRUE(registration.Send(stamp, {1, 2, 3}));
            counted += i > Capacity ? counter.Get() : 0;
        }
        ASSERT_TRUE(WaitFor([&] { return registration.IsCompleted(); }));
        proxy.NonBlockingSendNotification(NotificationNameId(1), stamp, std::function(functions[i]),
                                          futures[i]);
        ASSERT_TRUE(WaitFor([&] { return futures[i].HasValue(); }));
    }

    // The worker holds the first record, the next Capacity fill the buffer, the rest are refused.
    sending.Hold();
    {
        AllocationCounter counter;
        for (unsigned i = 0; i <= Capacity + 1; ++i)
        {
            proxy.NonBlockingSendNotification(NotificationNameId(2), stamp, std::move(functions[i]),
                                              futures[i]);
            if (i == 0)
            {
                ASSERT_TRUE(sending.WaitForCalls(4 * Capacity + 6));  // after the 21 calls so far
            }
        }
        EXPECT_FALSE(registration.Send(stamp, {7, 7, 7}));
        counted += counter.Get();
    }
    EXPECT_EQ(counted, 0u);
    for (unsigned i = 0; i <= Capacity + 1; ++i)
    {
        EXPECT_EQ(futures[i].IsValid(), i <= Capacity) << "call " << i;
    }
    sending.Release();
}
}  // namespace
