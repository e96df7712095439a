// The records of the non-blocking path: what a call does when the broker fails or refuses it.

#include <Nm/Internal/NonBlockingNotificationSending/FunctionCallVariant.h>

#include <Kiv/Exceptions.h>

#include <Nm/NonBlockingDoubles.h>
#include <Support/StringPrinter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

using namespace Kiv::System::Nm;
using namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending;
using Kiv::Testing::RecordingSending;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

namespace
{
const Kiv::DateTime Stamp(637'000'000'000'000'000ULL, Kiv::DateTimeKind::Utc);
using Payload = std::vector<TulVariant<512>>;

std::vector<unsigned int> pauses;

TEST(CallRecordsTest, AFailureIsKeptAsTheMostSpecialOfTheThreeTypesAndNotRetried)
{
    RecordingSending sending;
    // What each failure is raised as when the Future is read.
    const std::vector<std::pair<std::function<void()>, std::string>> rows = {
        {[] { throw Kiv::ArgumentOutOfRangeException("out of range"); },
         "Kiv::ArgumentException: out of range"},
        {[] { throw Kiv::InvalidOperationException("gone"); }, "Kiv::InvalidOperationException: gone"},
        {[] { throw Kiv::CommunicationException("broken pipe"); }, "Kiv::Exception: broken pipe"},
    };
    for (const auto& [fail, expected] : rows)
    {
        sending.FailNext(fail);
        SendNotificationCallRawPayload call(NotificationNameId(3), Stamp, {});
        call.Execute(sending);
        std::string raised = "nothing raised";
        try
        {
            call.GetFuture().GetValue();
        }
        catch (const Kiv::Exception& e)
        {
            raised = e.GetTypeName() + ": " + e.GetMessage();
        }
        EXPECT_EQ(raised, expected);
    }
    SendNotificationCallCreatePayloadStdFunction failing(
        NotificationNameId(2), Stamp, []() -> Payload { throw Kiv::ArgumentException("bad"); });
    failing.Execute(sending);
    EXPECT_THROW(failing.GetFuture().GetValue(), Kiv::ArgumentException);
    EXPECT_EQ(sending.GetJournal().size(), 3u) << "a retry, or a send without a payload";

    // A foreign exception passes through and leaves the Future pending.
    SendNotificationCallCreatePayloadStdFunction empty(NotificationNameId(3), Stamp, nullptr);
    EXPECT_THROW(empty.Execute(sending), std::bad_function_call);
    EXPECT_TRUE(empty.GetFuture().IsValid() && !empty.GetFuture().HasValue());
}

TEST(CallRecordsTest, ARefusedSendIsRetriedWithTheSamePayloadBuiltOnceAndDoublingPausesUpTo256)
{
    RecordingSending sending;
    const auto previous =
        SendNotificationCall::SetSleepFunction([](unsigned int pause) { pauses.push_back(pause); });
    int built = 0;
    sending.RefuseSends(12);
    SendNotificationCallCreatePayloadStdFunction call(NotificationNameId(7), Stamp,
                                                      [&built]
                                                      {
                                                          ++built;
                                                          return Payload{"x {0}", std::int32_t{5}};
                                                      });
    call.Execute(sending);
    EXPECT_EQ(call.GetFuture().GetValue(), NotificationId(100)) << "the id of the last try";
    EXPECT_EQ(built, 1);
    EXPECT_THAT(pauses, ElementsAreArray({1u, 2u, 4u, 8u, 16u, 32u, 64u, 128u, 256u, 256u, 256u, 256u}));
    const auto sent = sending.GetSent();
    ASSERT_EQ(sent.size(), 13u);
    for (const auto& one : sent)
    {
        EXPECT_EQ(one.timestamp, Stamp.GetRawValue()) << "the time stamp is not renewed";
        EXPECT_THAT(one.payload, ElementsAre("x {0}", "5"));
    }

    // Without a function to build it, the payload is empty.
    SendNotificationCallCreatePayloadRawPointer null(Future<NotificationId>::CreateByPromise(),
                                                     NotificationNameId(9), Stamp, nullptr, {});
    null.Execute(sending);
    EXPECT_EQ(null.GetFuture().GetValue(), NotificationId(101));
    EXPECT_TRUE(sending.GetSent().back().payload.empty());
    SendNotificationCall::SetSleepFunction(previous);
}
}  // namespace
