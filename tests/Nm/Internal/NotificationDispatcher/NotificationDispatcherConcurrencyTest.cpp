#include <Nm/StringPayload.h>

#include <Kiv/Exceptions.h>
#include <Kiv/Logging/CapturingSink.h>

#include <Support/InProcessSystem.h>
#include <Support/WaitFor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>

// The dispatcher of a process, fed by a broker in the same process: who is called, how often, and what a
// subscriber that throws leaves behind.

using namespace Kiv::System::Nm;
using Kiv::DateTime;
using Kiv::System::Commons::Logging::CapturingSink;
using Kiv::System::Commons::Logging::LogLevel;
using Kiv::Testing::InProcessSystem;
using Kiv::Testing::RecordingSubscriber;
using Kiv::Testing::WaitFor;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

namespace
{
class NotificationDispatcherTest : public ::testing::Test
{
protected:
    NotificationNameId Register(const std::string& name)
    {
        return broker.RegisterNotification(name.c_str(), "Test", Severity::Info,
                                           StringPayload::GetPayloadTypeId());
    }
    void Send(NotificationNameId id, const char* text)
    {
        ASSERT_NE(broker.SendNotification(id, DateTime::GetUtcNow(), StringPayload(text)), NotificationId(0));
    }

    InProcessSystem system;
    InProcessSystem::NotificationBroker& broker = InProcessSystem::Broker();
    InProcessSystem::NotificationDispatcher& dispatcher = InProcessSystem::Dispatcher();
};
}  // namespace

TEST_F(NotificationDispatcherTest, ASubscriberIsCalledOnceForEachNotificationAtOrBelowItsNames)
{
    const auto abc = Register("A.B.C");
    const auto other = Register("Z.Y");
    RecordingSubscriber both;
    RecordingSubscriber leaf;
    EXPECT_EQ(dispatcher.Subscribe("A", &both), broker.GetNotificationNameId("A"));
    dispatcher.Subscribe("A.B.C", &both);
    dispatcher.Subscribe("A.B.C", &leaf);
    broker.StartDispatching();

    Send(abc, "first");
    Send(other, "nobody's");
    Send(abc, "second");
    ASSERT_TRUE(WaitFor([&] { return leaf.Count() == 2; }));
    const auto received = both.Get();
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(received[0].text, "first");
    EXPECT_EQ(received[1].text, "second");
    EXPECT_EQ(received[0].nameId, abc.GetValue());

    dispatcher.UnsubscribeFromAll(&both);
    dispatcher.UnsubscribeFromAll(&leaf);
}

TEST_F(NotificationDispatcherTest, AThrowingSubscriberIsLoggedAndReportedWhileTheOthersAreStillCalled)
{
    CapturingSink log;
    const auto id = Register("A.B");
    RecordingSubscriber throwsException([](const Notification&) { throw Kiv::Exception("broken part"); });
    RecordingSubscriber throwsStd([](const Notification&) { throw std::runtime_error("std failure"); });
    RecordingSubscriber throwsInt([](const Notification&) { throw 42; });
    RecordingSubscriber last;
    RecordingSubscriber reports;
    for (auto* subscriber : {&throwsException, &throwsStd, &throwsInt, &last})
    {
        dispatcher.Subscribe("A.B", subscriber);
    }
    EXPECT_EQ(InProcessSystem::NotificationDispatcher::GetExceptionNotificationName(),
              "Kiv.System.Nm.ExceptionDuringNotify.ProcessA");
    dispatcher.Subscribe("Kiv.System.Nm", &reports);
    broker.StartDispatching();

    Send(id, "boom");
    ASSERT_TRUE(WaitFor([&] { return reports.Count() == 3; }));
    EXPECT_EQ(last.Count(), 1u);
    const auto received = reports.Get();
    for (const auto& report : received)
    {
        EXPECT_EQ(report.nameId, dispatcher.GetExceptionNotificationNameId().GetValue());
        EXPECT_EQ(report.severity, Severity::Error);
        EXPECT_THAT(report.text, HasSubstr("Caught an exception during dispatching notification 'A.B': "));
    }
    EXPECT_THAT(received[0].text, HasSubstr("broken part"));
    EXPECT_THAT(received[1].text, EndsWith("std failure"));
    EXPECT_THAT(received[2].text, EndsWith("unknown exception type"));

    const auto lines = log.GetRecords("Kiv.System.Nm.Internal.NotificationDispatcher.NotificationDispatcher");
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const auto& line) { return line.level == LogLevel::Error; }),
              3);
    for (auto* subscriber : {&throwsException, &throwsStd, &throwsInt, &last, &reports})
    {
        dispatcher.UnsubscribeFromAll(subscriber);
    }
}

TEST_F(NotificationDispatcherTest, ASubscriberMayLeaveFromInsideNotifyAndIsNotCalledAgain)
{
    const auto id = Register("A.B");
    NotificationNameId subscribed;
    RecordingSubscriber* self = nullptr;
    RecordingSubscriber leaving([&](const Notification&) { dispatcher.Unsubscribe(subscribed, self); });
    self = &leaving;
    RecordingSubscriber staying;
    subscribed = dispatcher.Subscribe("A.B", &leaving);
    dispatcher.Subscribe("A.B", &staying);
    broker.StartDispatching();

    Send(id, "one");
    Send(id, "two");
    ASSERT_TRUE(WaitFor([&] { return staying.Count() == 2; }));
    EXPECT_EQ(leaving.Count(), 1u);
    EXPECT_TRUE(broker.ContainsNotificationDispatch(id, dispatcher.GetDispatcherId()));
    dispatcher.UnsubscribeFromAll(&staying);
}

TEST_F(NotificationDispatcherTest, TheBrokerKeepsADispatchRowWhileAnySubscriberOfTheNameIsLeft)
{
    const auto id = Register("A.B");
    RecordingSubscriber first;
    RecordingSubscriber second;
    dispatcher.Subscribe("A.B", &first);
    dispatcher.Subscribe("A.B", &second);
    const auto dispatcherId = dispatcher.GetDispatcherId();

    dispatcher.Unsubscribe(id, &first);
    EXPECT_TRUE(broker.ContainsNotificationDispatch(id, dispatcherId));
    EXPECT_TRUE(dispatcher.HasSubscribersFor(id));
    dispatcher.Unsubscribe(id, &second);
    EXPECT_FALSE(broker.ContainsNotificationDispatch(id, dispatcherId));
    EXPECT_FALSE(dispatcher.HasSubscribersFor(id));
}

TEST_F(NotificationDispatcherTest, ReplacingASubscriberHandsOverItsSubscriptions)
{
    const auto id = Register("A.B");
    RecordingSubscriber before;
    RecordingSubscriber after;
    dispatcher.Subscribe("A.B", &before);
    dispatcher.Subscribe("Own.Name", &after);
    dispatcher.ReplaceSubscriber(&before, &after);
    EXPECT_FALSE(dispatcher.HasSubscribersFor(broker.GetNotificationNameId("Own.Name")));
    broker.StartDispatching();

    Send(id, "moved");
    ASSERT_TRUE(WaitFor([&] { return after.Count() == 1; }));
    EXPECT_EQ(before.Count(), 0u);
    dispatcher.UnsubscribeFromAll(&after);
}

TEST_F(NotificationDispatcherTest, BadArgumentsAreRefusedWithTheirMessages)
{
    RecordingSubscriber subscriber;
    const auto id = dispatcher.Subscribe("A.B", &subscriber);

    EXPECT_THAT([&] { dispatcher.Subscribe("A.B", &subscriber); },
                ThrowsMessage<Kiv::ArgumentException>(
                    "The supplied subscriber is already subscribed to this notification. (argument "
                    "'notificationName', value 'A.B')"));
    EXPECT_TRUE(dispatcher.HasSubscribersFor(id));
    EXPECT_THAT(
        [&] { dispatcher.Subscribe("", &subscriber); },
        ThrowsMessage<Kiv::ArgumentException>(HasSubstr("The supplied notification name is invalid.")));
    EXPECT_THAT([&] { dispatcher.Subscribe("A.B", nullptr); },
                ThrowsMessage<Kiv::ArgumentException>(HasSubstr("The supplied pointer is invalid.")));
    EXPECT_THAT([&] { dispatcher.Unsubscribe(id, nullptr); },
                ThrowsMessage<Kiv::ArgumentException>(HasSubstr("The supplied pointer is invalid.")));
    EXPECT_THAT(
        [&] { dispatcher.Unsubscribe(NotificationNameId(0), &subscriber); },
        ThrowsMessage<Kiv::ArgumentException>(HasSubstr("The supplied notification name id is invalid.")));
    RecordingSubscriber stranger;
    EXPECT_THAT([&] { dispatcher.Unsubscribe(id, &stranger); },
                ThrowsMessage<Kiv::ArgumentException>(HasSubstr(
                    "The supplied subscriber is not subscribed to the referenced notification \"A.B\".")));
    EXPECT_NO_THROW(dispatcher.UnsubscribeFromAll(nullptr));

    EXPECT_NO_THROW(dispatcher.Subscribe(std::string(511, 'L').c_str(), &stranger));
    EXPECT_THAT([&] { dispatcher.Subscribe(std::string(512, 'L').c_str(), &stranger); },
                ThrowsMessage<Kiv::ArgumentException>(HasSubstr("Input string is too long")));
    dispatcher.UnsubscribeFromAll(&subscriber);
    dispatcher.UnsubscribeFromAll(&stranger);
}
