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
using Kiv::Testing::ProxyFacade;
using Kiv::Testing::RecordingSending;
using Kiv::Testing::ThreeNumbersRegistration;
using Kiv::Testing::WaitFor;

namespace
{
const Kiv::DateTime Stamp(637'000'000'000'000'000ULL, Kiv::DateTimeKind::Utc);
using Payload = std::vector<TulVariant<512>>;

Payload Empty(NonBlockingNotificationSendingAdapter::CreatePayloadFunctorArg)
{
    return {};
}

TEST(CallerAllocationTest, SendsWithAFutureMadeAheadAllocateNothingWhetherPushedOrRefused)
{
    {
        AllocationCounter counter;
        auto made = std::make_shared<int>(1);
        ASSERT_EQ(counter.Get(), 1u) << "the counting operator new is in place";
    }
    constexpr unsigned Capacity = 8;
    constexpr unsigned Calls = 2 * Capacity + 1;
    RecordingSending sending;
    Proxy proxy(sending, Capacity);
    auto arguments = std::make_shared<NonBlockingNotificationRegistration3ArgumentsBufferBase>();
    std::vector<Future<NotificationId>> futures;
    std::vector<std::function<Payload()>> functions;
    for (unsigned i = 0; i < Calls; ++i)
    {
        futures.push_back(Future<NotificationId>::CreateByPromise());
        functions.emplace_back([] { return Payload(); });
        // Warm-up: every slot has held a record of both kinds once.
        proxy.NonBlockingSendNotification(NotificationNameId(1), Stamp, &Empty, {arguments, i}, futures[i]);
        ASSERT_TRUE(WaitFor([&] { return futures[i].HasValue(); }));
        proxy.NonBlockingSendNotification(NotificationNameId(1), Stamp, std::function(functions[i]),
                                          futures[i]);
        ASSERT_TRUE(WaitFor([&] { return futures[i].HasValue(); }));
    }

    // The worker holds the first record; the next Capacity calls fill the buffer, the rest are refused.
    sending.Hold();
    std::size_t counted = 0;
    {
        AllocationCounter counter;
        for (unsigned i = 0; i < Calls; ++i)
        {
            if (i % 2 == 0)
            {
                proxy.NonBlockingSendNotification(NotificationNameId(2), Stamp, &Empty, {arguments, i},
                                                  futures[i]);
            }
            else
            {
                proxy.NonBlockingSendNotification(NotificationNameId(2), Stamp, std::move(functions[i]),
                                                  futures[i]);
            }
            if (i == 0)
            {
                ASSERT_TRUE(sending.WaitForCalls(2 * Calls + 1));
            }
        }
        counted = counter.Get();
    }
    EXPECT_EQ(counted, 0u);
    for (unsigned i = 0; i < Calls; ++i)
    {
        EXPECT_EQ(futures[i].IsValid(), i <= Capacity) << "call " << i;
    }
    sending.Release();
}

TEST(CallerAllocationTest, TypedRegistrationSendsAllocateNothing)
{
    RecordingSending sending;
    Proxy proxy(sending, 4);
    ProxyFacade facade(sending, proxy);
    ThreeNumbersRegistration registration(std::make_unique<NonBlockingNotificationSendingAdapter>(facade), 4);
    registration.Register("A.B", "me", Severity::Info, PayloadTypeId(1));
    std::size_t counted = 0;
    for (std::int32_t i = 0; i <= 50; ++i)
    {
        AllocationCounter counter;
        const bool sent = registration.Send(Stamp, {i, i, i});
        counted += i > 0 ? counter.Get() : 0;  // the first is the warm-up
        ASSERT_TRUE(sent);
        ASSERT_TRUE(WaitFor([&] { return registration.IsCompleted(); }));
    }

    // With the worker held and the ring buffer full the send is refused, still without allocation.
    sending.Hold();
    std::vector<Future<void>> blockers{proxy.NonBlockingUnregisterNotification(NotificationNameId(9))};
    ASSERT_TRUE(sending.WaitForCalls(53));
    while (blockers.back().IsValid())
    {
        blockers.push_back(proxy.NonBlockingUnregisterNotification(NotificationNameId(9)));
    }
    {
        AllocationCounter counter;
        EXPECT_FALSE(registration.Send(Stamp, {7, 7, 7}));
        counted += counter.Get();
    }
    EXPECT_FALSE(registration.GetFutureNotificationId().IsValid());
    EXPECT_EQ(registration.GetBuffer().CountFilled(), 0u);
    EXPECT_EQ(counted, 0u);
    sending.Release();
}
}  // namespace
