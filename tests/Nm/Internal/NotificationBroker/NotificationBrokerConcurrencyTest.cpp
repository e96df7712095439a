#include <Nm/NotificationRegistration.h>
#include <Nm/StringPayload.h>

#include <Kiv/Exceptions.h>
#include <Kiv/Logging/CapturingSink.h>

#include <Support/InProcessSystem.h>
#include <Support/WaitFor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// The broker in its own process with this process's dispatcher: the set-up phase, the start, and the
// refusals that a component meets.

using namespace Kiv::System::Nm;
using Kiv::DateTime;
using Kiv::System::Commons::Logging::CapturingSink;
using Kiv::System::Commons::Logging::LogLevel;
using Kiv::Testing::InProcessSystem;
using Kiv::Testing::RecordingSubscriber;
using Kiv::Testing::WaitFor;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

namespace
{
NotificationNameId Register(const char* name)
{
    return InProcessSystem::Broker().RegisterNotification(name, "Test", Severity::Info,
                                                          StringPayload::GetPayloadTypeId());
}

NotificationId Send(NotificationNameId id, const char* text)
{
    return InProcessSystem::Broker().SendNotification(id, DateTime::GetUtcNow(), StringPayload(text));
}

std::vector<std::string> Texts(const RecordingSubscriber& subscriber)
{
    std::vector<std::string> texts;
    for (const auto& received : subscriber.Get())
    {
        texts.push_back(received.text);
    }
    return texts;
}
}  // namespace

TEST(NotificationBrokerTest, TheFirstCallOfAnyKindCreatesTheOwnNotifications)
{
    InProcessSystem system(8, false);
    auto& broker = InProcessSystem::Broker();

    // Known means registered at some time; the parents made on the way have ids 1 to 3 but no row.
    EXPECT_THAT(broker.GetAllKnownNotificationNameIds(),
                ::testing::UnorderedElementsAre(NotificationNameId(4), NotificationNameId(5)));
    EXPECT_EQ(broker.GetNotificationName(NotificationNameId(3)), "Kiv.System.Nm");
    EXPECT_EQ(broker.GetNotificationName(NotificationNameId(4)),
              "Kiv.System.Nm.SubscribeToNotRegisteredNotification");
    EXPECT_EQ(broker.GetNotificationRegistration(NotificationNameId(4)).GetSeverity(), Severity::Warning);
    EXPECT_EQ(broker.GetNotificationRegistration(NotificationNameId(5)).GetSeverity(), Severity::Error);
}

TEST(NotificationBrokerTest, RegistrationAndSendingRefuseWhatIsNotThere)
{
    InProcessSystem system(8, false);
    auto& broker = InProcessSystem::Broker();

    EXPECT_THAT([&] { broker.RegisterNotification("A.B", "Test", Severity::Info, PayloadTypeId(0)); },
                ThrowsMessage<Kiv::ArgumentException>(
                    "The supplied payload type id is invalid. (argument 'payloadTypeId', value '0')"));
    EXPECT_THAT([&] { broker.RegisterNotification("A.B", "Test", Severity::Info, PayloadTypeId(999)); },
                ThrowsMessage<Kiv::ArgumentException>(
                    "The supplied payload type id is unknown. (argument 'payloadTypeId', value '999')"));

    const auto ab = Register("A.B");
    EXPECT_THROW(Send(broker.GetNotificationNameId("A"), "parent"), Kiv::InvalidOperationException);
    broker.UnregisterNotification(ab);
    EXPECT_THAT([&] { Send(ab, "gone"); },
                ThrowsMessage<Kiv::ArgumentException>(fmt::format(
                    "The referenced notification \"A.B\" is not registered. You cannot send a notification "
                    "using it. (argument 'notificationNameId', value '{}')",
                    ab)));
    EXPECT_EQ(broker.GetNumberOfSubmittedNotifications(), 0u);
}

TEST(NotificationBrokerTest, TheSetUpPhaseQueuesInOrderDropsBeyondTheQueueAndDeliversAfterTheStart)
{
    InProcessSystem system(3);
    auto& broker = InProcessSystem::Broker();
    RecordingSubscriber subscriber;
    InProcessSystem::Dispatcher().Subscribe("A.B", &subscriber);
    NotificationRegistration<StringPayload> registration("A.B", "Test", Severity::Warning, broker);

    EXPECT_EQ(registration.SendNotification(StringPayload("one")), NotificationId(1));
    EXPECT_EQ(registration.SendNotification(StringPayload("two")), NotificationId(2));
    EXPECT_EQ(registration.SendNotification(StringPayload("three")), NotificationId(3));
    EXPECT_EQ(registration.SendNotification(StringPayload("lost")), NotificationId(0));
    EXPECT_EQ(broker.GetNumberOfSubmittedNotifications(), 3u);
    EXPECT_EQ(subscriber.Count(), 0u);

    broker.StartDispatching();
    ASSERT_TRUE(WaitFor([&] { return subscriber.Count() == 3; }));
    EXPECT_EQ(registration.SendNotification(StringPayload("four")), NotificationId(5));
    ASSERT_TRUE(WaitFor([&] { return subscriber.Count() == 4; }));
    EXPECT_THAT(Texts(subscriber), ElementsAre("one", "two", "three", "four"));
    const auto received = subscriber.Get().back();
    EXPECT_EQ(received.severity, Severity::Warning);
    EXPECT_EQ(received.payloadTypeId, StringPayload::GetPayloadTypeId().GetValue());
    EXPECT_EQ(received.nameId, registration.GetNotificationNameId().GetValue());
    InProcessSystem::Dispatcher().UnsubscribeFromAll(&subscriber);
}

TEST(NotificationBrokerTest, TheStartReportsNamesWithoutASenderAndThenRefusesThem)
{
    CapturingSink log;
    InProcessSystem system;
    auto& broker = InProcessSystem::Broker();
    auto& dispatcher = InProcessSystem::Dispatcher();
    RecordingSubscriber own;
    RecordingSubscriber orphan;
    dispatcher.Subscribe("Kiv.System.Nm", &own);
    dispatcher.Subscribe("X.Y", &orphan);
    const auto gone = Register("G.H");
    dispatcher.Subscribe("G.H", &orphan);
    broker.UnregisterNotification(gone);
    Register("Q.R");
    broker.UnregisterNotification(broker.GetNotificationNameId("Q.R"));  // nobody wants it: no report

    broker.StartDispatching();
    EXPECT_TRUE(broker.IsSubscriptionStateChecked());
    ASSERT_TRUE(WaitFor([&] { return own.Count() == 2; }));
    EXPECT_THAT(Texts(own), ElementsAre("A subscriber subscribed to not registered notification name: X.Y",
                                        "A subscriber subscribed to unregistered notification name: G.H"));
    EXPECT_EQ(own.Get()[0].severity, Severity::Warning);
    EXPECT_EQ(own.Get()[1].severity, Severity::Error);

    RecordingSubscriber late;
    EXPECT_THAT(
        [&] { dispatcher.Subscribe("P.Q", &late); },
        ThrowsMessage<Kiv::ArgumentException>(HasSubstr("The supplied notification name is unknown.")));
    EXPECT_THAT(
        [&] { dispatcher.Subscribe("X.Y", &late); },
        ThrowsMessage<Kiv::ArgumentException>(HasSubstr("Cannot subscribe to not registered notification.")));
    // The refused subscriber has no row: unsubscribing it is refused too.
    EXPECT_THROW(dispatcher.Unsubscribe(broker.GetNotificationNameId("X.Y"), &late), Kiv::ArgumentException);
    ASSERT_TRUE(WaitFor([&] { return own.Count() == 3; })) << "each refusal is reported too";

    broker.SetSubscriptionStateRelaxed();
    EXPECT_FALSE(broker.IsSubscriptionStateChecked());
    EXPECT_NO_THROW(dispatcher.Subscribe("P.Q", &late));
    std::vector<std::string> lines;
    for (const auto& line : log.GetRecords("Kiv.System.Nm.Internal.NotificationBroker.NotificationBroker"))
    {
        lines.push_back(line.level == LogLevel::Info ? line.text.c_str() : "");
    }
    EXPECT_THAT(lines, ::testing::IsSupersetOf(
                           {"Enabling checking of subscriptions", "Disabling checking of subscriptions"}));
    for (auto* subscriber : {&late, &own, &orphan})
    {
        dispatcher.UnsubscribeFromAll(subscriber);
    }
}

TEST(NotificationBrokerTest, DestroyingTheBrokerDeliversWhatIsQueuedFirst)
{
    InProcessSystem system(1024);
    auto& broker = InProcessSystem::Broker();
    RecordingSubscriber subscriber;
    const auto id = Register("A.B");
    InProcessSystem::Dispatcher().Subscribe("A.B", &subscriber);
    broker.StartDispatching();
    for (int i = 0; i < 500; ++i)
    {
        ASSERT_NE(Send(id, "x"), NotificationId(0));
    }

    // The broker goes while its dispatcher still lives, so every queued delivery has somewhere to go.
    AppDomainSingleton<InProcessSystem::NotificationBroker>::DisposeInstance();
    EXPECT_EQ(subscriber.Count(), 500u);
}
