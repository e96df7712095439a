#include <Nm/Internal/NonBlockingNotificationSending/FunctionCallVariant.h>
#include <Nm/NonBlockingNotificationRegistration3ArgumentsBufferBase.h>

#include <Kiv/Exceptions.h>

#include <Nm/NonBlockingDoubles.h>
#include <Support/StringPrinter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

using namespace Kiv::System::Nm;
using namespace Kiv::System::Nm::Internal::NonBlockingNotificationSending;
using Kiv::Testing::RecordingSending;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

namespace
{
const Kiv::DateTime Stamp(637'000'000'000'000'000ULL, Kiv::DateTimeKind::Utc);

std::vector<unsigned int> pauses;

class CallRecordsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        pauses.clear();
        previousSleep =
            SendNotificationCall::SetSleepFunction([](unsigned int pause) { pauses.push_back(pause); });
    }
    void TearDown() override { SendNotificationCall::SetSleepFunction(previousSleep); }

    /// The message of what GetValue() throws, if it is exactly of type E.
    template <class E, class T>
    static std::string ThrownAs(const Future<T>& future)
    {
        try
        {
            future.GetValue();
        }
        catch (const Kiv::Exception& e)
        {
            return typeid(e) == typeid(E) ? std::string(e.GetMessage())
                                          : "thrown as " + std::string(typeid(e).name());
        }
        return "nothing thrown";
    }

    RecordingSending sending;
    SendNotificationCall::SleepFunction previousSleep = nullptr;
};

TEST_F(CallRecordsTest, AGivenFutureLosesItsOldResultWhenTheRecordIsMade)
{
    RegisterNotificationCall first("A.B", "sender", Severity::Info, PayloadTypeId(4));
    first.Execute(sending);
    Future<NotificationNameId> reused = first.GetFuture();
    ASSERT_EQ(reused.GetValue(), NotificationNameId(1));

    RegisterNotificationCall second(reused, "A.C", "sender", Severity::Info, PayloadTypeId(4));
    EXPECT_TRUE(reused.IsValid());
    EXPECT_FALSE(reused.HasValue());
    second.Execute(sending);
    EXPECT_EQ(reused.GetValue(), NotificationNameId(2));
}

TEST_F(CallRecordsTest, FailuresAreKeptAsTheMostSpecialOfTheThreeTypesAndNotRetried)
{
    sending.FailNext([] { throw Kiv::ArgumentOutOfRangeException("out of range"); });
    UnregisterNotificationCall argument(NotificationNameId(3));
    argument.Execute(sending);
    EXPECT_EQ(ThrownAs<Kiv::ArgumentException>(argument.GetFuture()), "out of range");

    sending.FailNext([] { throw Kiv::InvalidOperationException("Cannot send Notification. {}", "gone"); });
    SendNotificationCallRawPayload operation(NotificationNameId(3), Stamp, {});
    operation.Execute(sending);
    EXPECT_EQ(ThrownAs<Kiv::InvalidOperationException>(operation.GetFuture()),
              "Cannot send Notification. gone");

    sending.FailNext([] { throw Kiv::CommunicationException("broken pipe"); });
    RegisterNotificationCall other("A", "s", Severity::Info, PayloadTypeId(1));
    other.Execute(sending);
    EXPECT_EQ(ThrownAs<Kiv::Exception>(other.GetFuture()), "broken pipe");
    EXPECT_THAT(sending.GetJournal(), ElementsAre("unregister 3", "send 3", "register A"));

    // Foreign exceptions pass through and leave the Future pending.
    sending.FailNext([] { throw std::runtime_error("not ours"); });
    EXPECT_THROW(argument.Execute(sending), std::runtime_error);
    SendNotificationCallCreatePayloadStdFunction empty(NotificationNameId(3), Stamp, nullptr);
    EXPECT_THROW(empty.Execute(sending), std::bad_function_call);
    EXPECT_TRUE(empty.GetFuture().IsValid());
    EXPECT_FALSE(empty.GetFuture().HasValue());
}

TEST_F(CallRecordsTest, RefusedSendIsRetriedWithTheSameArgumentsAndDoublingPausesUpTo256)
{
    sending.RefuseSends(3);
    SendNotificationCallRawPayload call(NotificationNameId(7), Stamp,
                                        {TulVariant<512>("x {0}"), TulVariant<512>(5)});
    call.Execute(sending);
    EXPECT_EQ(call.GetFuture().GetValue(), NotificationId(100)) << "the id of the fourth try";
    EXPECT_THAT(pauses, ElementsAre(1u, 2u, 4u));
    const auto sent = sending.GetSent();
    ASSERT_EQ(sent.size(), 4u);
    for (const auto& one : sent)
    {
        EXPECT_EQ(one.timestamp, Stamp.GetRawValue()) << "the time stamp is not renewed";
        EXPECT_THAT(one.payload, ElementsAre("x {0}", "5"));
    }

    pauses.clear();
    sending.RefuseSends(12);
    SendNotificationCallRawPayload longer(NotificationNameId(7), Stamp, {});
    longer.Execute(sending);
    EXPECT_THAT(pauses, ElementsAreArray({1u, 2u, 4u, 8u, 16u, 32u, 64u, 128u, 256u, 256u, 256u, 256u}));
    EXPECT_EQ(longer.IncreaseSleepDuration(128), 256);
    EXPECT_EQ(longer.IncreaseSleepDuration(129), 256);
    EXPECT_EQ(longer.IncreaseSleepDuration(256), 256);
}

TEST_F(CallRecordsTest, PayloadIsBuiltOnceAndAFailureThereSendsNothing)
{
    int built = 0;
    sending.RefuseSends(2);
    SendNotificationCallCreatePayloadStdFunction function(NotificationNameId(2), Stamp,
                                                          [&built]
                                                          {
                                                              ++built;
                                                              return std::vector<TulVariant<512>>();
                                                          });
    function.Execute(sending);
    EXPECT_EQ(built, 1);
    EXPECT_EQ(sending.GetSent().size(), 3u);

    SendNotificationCallCreatePayloadStdFunction failing(NotificationNameId(2), Stamp,
                                                         []() -> std::vector<TulVariant<512>>
                                                         { throw Kiv::ArgumentException("bad"); });
    failing.Execute(sending);
    EXPECT_EQ(ThrownAs<Kiv::ArgumentException>(failing.GetFuture()), "bad");
    EXPECT_EQ(sending.GetSent().size(), 3u);
}

struct Buffer : NonBlockingNotificationRegistration3ArgumentsBufferBase
{
    std::vector<std::int32_t> values{10, 20, 30};
};

std::vector<TulVariant<512>> ReadAt(NonBlockingNotificationSendingAdapter::CreatePayloadFunctorArg arg)
{
    return {TulVariant<512>(static_cast<Buffer&>(*arg.argumentsBuffer).values.at(arg.position))};
}

TEST_F(CallRecordsTest, RawPointerRecordHoldsTheArgumentsBufferAsLongAsItExists)
{
    auto buffer = std::make_shared<Buffer>();
    std::weak_ptr<Buffer> watch = buffer;
    {
        FunctionCallVariant slot(
            std::in_place_type<SendNotificationCallCreatePayloadRawPointer>,
            Future<NotificationId>::CreateByPromise(), NotificationNameId(9), Stamp, &ReadAt,
            NonBlockingNotificationSendingAdapter::CreatePayloadFunctorArg{std::move(buffer), 2});
        FunctionCallVariant moved(std::move(slot));
        std::get<SendNotificationCallCreatePayloadRawPointer>(moved).Execute(sending);
        EXPECT_FALSE(watch.expired());
    }
    EXPECT_TRUE(watch.expired());

    SendNotificationCallCreatePayloadRawPointer null(Future<NotificationId>::CreateByPromise(),
                                                     NotificationNameId(9), Stamp, nullptr, {});
    null.Execute(sending);
    EXPECT_EQ(null.GetFuture().GetValue(), NotificationId(101));
    const auto sent = sending.GetSent();
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_THAT(sent[0].payload, ElementsAre("30"));
    EXPECT_TRUE(sent[1].payload.empty());
}
}  // namespace
