#include <Nm/Internal/NonBlockingNotificationSending/Proxy.h>
#include <Nm/NonBlockingNotificationRegistration3Base.h>

#include <Kiv/Exceptions.h>

#include <Nm/NonBlockingDoubles.h>
#include <Nm/ThreeNumbersRegistration.h>
#include <Support/StringPrinter.h>
#include <Support/WaitFor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Kiv::System::Nm;
using Kiv::Testing::WaitFor;
using ::testing::ElementsAre;

namespace
{
const Kiv::DateTime Stamp(637'000'000'000'000'000ULL, Kiv::DateTimeKind::Utc);

class NonBlockingRegistrationTest : public ::testing::Test
{
protected:
    Kiv::Testing::RecordingSending sending;
    Internal::NonBlockingNotificationSending::Proxy proxy{sending, 1};
    Kiv::Testing::ProxyFacade facade{sending, proxy};
    Kiv::Testing::ThreeNumbersRegistration registration{
        std::make_unique<NonBlockingNotificationSendingAdapter>(facade), 2};
};

TEST_F(NonBlockingRegistrationTest, AFailedRegistrationLeavesTheObjectAsItWasAndAMoveTakesTheRegistration)
{
    sending.FailNext([] { throw Kiv::ArgumentException("Input string is too long"); });
    EXPECT_THROW(registration.Register("A.B", "me", Severity::Info, PayloadTypeId(1)),
                 Kiv::ArgumentException);
    EXPECT_FALSE(registration.IsReadyToSend());
    registration.Register("A.B", "me", Severity::Info, PayloadTypeId(1));

    NonBlockingNotificationRegistration3Base unbound;
    EXPECT_FALSE(unbound.IsReadyToSend());
    unbound = std::move(registration);
    EXPECT_FALSE(registration.HasImpl() || registration.IsReadyToSend() || registration.IsCompleted());
    EXPECT_THROW(registration.GetFutureNotificationId(), Kiv::InvalidOperationException);
    EXPECT_EQ(unbound.GetNotificationNameIdInternal(), NotificationNameId(1));
}

TEST_F(NonBlockingRegistrationTest, ASendIsUnderWayUntilTheWorkerBuiltThePayloadAndSentIt)
{
    registration.Register("A.B", "me", Severity::Warning, PayloadTypeId(4));
    sending.Hold();
    ASSERT_TRUE(registration.Send(Stamp, {1, -2, 3}));
    EXPECT_FALSE(registration.IsCompleted());
    EXPECT_THROW(registration.GetLastNotificationId(), Kiv::Exception);
    EXPECT_FALSE(registration.Send(Stamp, {4, 5, 6})) << "the previous send is under way";
    sending.Release();
    ASSERT_TRUE(WaitFor([&] { return registration.IsCompleted(); }));
    EXPECT_EQ(registration.GetLastNotificationId(), NotificationId(100));
    ASSERT_EQ(sending.GetSent().size(), 1u);
    EXPECT_THAT(sending.GetSent()[0].payload, ElementsAre("Numbers {0}, {1}, {2}", "1", "-2", "3"));
    EXPECT_EQ(registration.GetBuffer().CountFilled(), 0u);

    // A full arguments buffer: nothing is sent and the last result is dropped.
    registration.SendNotificationInternal(Stamp, nullptr, {0, false}, nullptr);
    EXPECT_FALSE(registration.GetFutureNotificationId().IsValid());
    EXPECT_THAT(sending.GetJournal(), ElementsAre("register A.B", "send 1"));
}

TEST_F(NonBlockingRegistrationTest, UnregisterQueuesTheRecordAndGivesTheAdapterUp)
{
    registration.Register("A.B", "me", Severity::Warning, PayloadTypeId(4));
    ASSERT_TRUE(registration.Send(Stamp, {1, 2, 3}));
    ASSERT_TRUE(WaitFor([&] { return registration.IsCompleted(); }));
    sending.Hold();
    registration.Unregister();
    EXPECT_FALSE(registration.IsReadyToSend() || registration.IsCompleted());
    EXPECT_THROW(registration.GetLastNotificationId(), Kiv::Exception) << "even though a send had finished";
    sending.Release();
    ASSERT_TRUE(WaitFor([&] { return registration.IsCompleted(); }));

    registration.Unregister();
    registration.Register("A.C", "me", Severity::Info, PayloadTypeId(1));
    EXPECT_FALSE(registration.Send(Stamp, {1, 2, 3}));
    EXPECT_THAT(sending.GetJournal(), ElementsAre("register A.B", "send 1", "unregister 1"));
}
}  // namespace
