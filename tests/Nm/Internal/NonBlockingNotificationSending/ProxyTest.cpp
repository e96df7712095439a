#include <Nm/Internal/NonBlockingNotificationSending/Proxy.h>
#include <Nm/NonBlockingNotificationRegistration3ArgumentsBufferBase.h>

#include <Kiv/Exceptions.h>
#include <Kiv/Logging/CapturingSink.h>
#include <Kiv/Threading/Thread.h>

#include <Nm/NonBlockingDoubles.h>
#include <Support/StringPrinter.h>
#include <Support/WaitFor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace Kiv::System::Nm;
using namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending;
using Kiv::System::Commons::Logging::CapturingSink;
using Kiv::System::Commons::Threading::Thread;
using Kiv::Testing::RecordingSending;
using Kiv::Testing::WaitFor;
using ::testing::ElementsAre;

namespace
{
const Kiv::DateTime Stamp(637'000'000'000'000'000ULL, Kiv::DateTimeKind::Utc);
using Payload = std::vector<TulVariant<512>>;
using Arg = NonBlockingNotificationSendingAdapter::CreatePayloadFunctorArg;

Payload Values(std::int32_t a, std::int32_t b)
{
    return {TulVariant<512>(a), TulVariant<512>(b)};
}

Payload PositionOnly(Arg arg)
{
    return {TulVariant<512>(arg.position)};
}

TEST(ProxyConcurrencyTest, RecordsOfAllKindsRunInArrivalOrderOnTheNamedWorker)
{
    RecordingSending sending;
    sending.Hold();
    Proxy proxy(sending, 8);
    std::string workerName;
    Future<NotificationNameId> given = Future<NotificationNameId>::CreateByPromise();
    Future<NotificationId> byFunction;
    Future<NotificationId> byPointer;

    auto registered = proxy.NonBlockingRegisterNotification("A.B", "me", Severity::Info, PayloadTypeId(3));
    ASSERT_TRUE(sending.WaitForCalls(1));
    auto unregistered = proxy.NonBlockingUnregisterNotification(NotificationNameId(5));
    auto byVector = proxy.NonBlockingSendNotification(NotificationNameId(6), Stamp, Values(1, 2));
    auto name = [&]
    {
        workerName = Thread::GetCurrentOsThreadName();
        return Values(3, 4);
    };
    proxy.NonBlockingSendNotification(NotificationNameId(7), Stamp, name, byFunction);
    proxy.NonBlockingSendNotification(NotificationNameId(8), Stamp, &PositionOnly, {nullptr, 42}, byPointer);
    proxy.NonBlockingRegisterNotification("A.C", "me", Severity::Info, PayloadTypeId(3), given);
    sending.FailNext([] { throw Kiv::InvalidOperationException("first fails"); });
    sending.Release();

    ASSERT_TRUE(WaitFor([&] { return given.HasValue(); }));
    EXPECT_THAT(sending.GetJournal(),
                ElementsAre("register A.B", "unregister 5", "send 6", "send 7", "send 8", "register A.C"));
    EXPECT_THROW(registered.GetValue(), Kiv::InvalidOperationException) << "and the worker went on";
    EXPECT_NO_THROW(unregistered.GetValue());
    EXPECT_EQ(byVector.GetValue(), NotificationId(100));
    EXPECT_EQ(byFunction.GetValue(), NotificationId(101));
    EXPECT_EQ(byPointer.GetValue(), NotificationId(102));
    EXPECT_EQ(given.GetValue(), NotificationNameId(1));
    EXPECT_THAT(sending.GetSent().at(2).payload, ElementsAre("42"));
    EXPECT_EQ(workerName, "NmNonBlocking");
}

std::atomic<int> pauses{0};

TEST(ProxyConcurrencyTest, StopDropsTheQueuedRecordsButWaitsForARetryingSendUntilItGotAnId)
{
    CapturingSink log;
    const auto previous = SendNotificationCall::SetSleepFunction(
        [](unsigned int)
        {
            ++pauses;
            std::this_thread::yield();
        });
    RecordingSending sending;
    sending.RefuseSends(1'000'000'000);
    auto proxy = std::make_unique<Proxy>(sending, 4);
    auto running = proxy->NonBlockingSendNotification(NotificationNameId(1), Stamp, Values(1, 2));
    ASSERT_TRUE(WaitFor([&] { return pauses > 0; })) << "the worker retries";
    // Both queued records hold the arguments: one as its buffer, the other in its function.
    auto arguments = std::make_shared<NonBlockingNotificationRegistration3ArgumentsBufferBase>();
    const std::weak_ptr<void> watch = arguments;
    Future<NotificationId> byPointer = Future<NotificationId>::CreateByPromise();
    Future<NotificationId> byFunction = Future<NotificationId>::CreateByPromise();
    proxy->NonBlockingSendNotification(NotificationNameId(2), Stamp, &PositionOnly, {arguments, 0},
                                       byPointer);
    proxy->NonBlockingSendNotification(
        NotificationNameId(3), Stamp, [arguments] { return Payload(); }, byFunction);
    arguments.reset();

    std::atomic<bool> stopped{false};
    std::thread stopper(
        [&]
        {
            proxy.reset();
            stopped = true;
        });
    const char* const logger = "Kiv.System.Nm.Internal.NonBlockingNotificationSending.Proxy";
    ASSERT_TRUE(WaitFor([&] { return !log.GetRecords(logger).empty(); }));
    EXPECT_EQ(log.GetRecords(logger).front().text,
              "Thread NmNonBlocking stops; 2 queued records are dropped without running.");
    const int pausesAtStop = pauses;
    ASSERT_TRUE(WaitFor([&] { return pauses > pausesAtStop + 3; })) << "the retry ignores the stop request";
    EXPECT_FALSE(stopped || running.HasValue());
    sending.RefuseSends(0);
    stopper.join();
    SendNotificationCall::SetSleepFunction(previous);

    EXPECT_EQ(running.GetValue(), NotificationId(100));
    EXPECT_THAT(sending.GetJournal(), ::testing::Each(std::string("send 1"))) << "a dropped record ran";
    for (const Future<NotificationId>* future : {&byPointer, &byFunction})
    {
        EXPECT_TRUE(future->IsValid() && !future->HasValue());
    }
    EXPECT_TRUE(watch.expired()) << "the dropped records are gone";
}

}  // namespace
