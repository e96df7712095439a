// The broker in one process with this process's dispatcher: the set-up phase, the start, delivery, and
// the refusals that a component meets. Subscribers are declared before the system, so that the dispatcher
// is gone before them and nothing late reaches a subscriber that no longer exists.

#include <Nm/Internal/NotificationBroker/OwnNotifications.h>
#include <Nm/NotificationRegistration.h>
#include <Nm/StringPayload.h>

#include <Kiv/Exceptions.h>
#include <Kiv/Logging/CapturingSink.h>

#include <Support/InProcessSystem.h>
#include <Support/WaitFor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Kiv::System::Nm;
using Kiv::System::Commons::Logging::CapturingSink;
using namespace Kiv::Testing;
using ::testing::ElementsAre;

namespace
{
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

TEST(NotificationBrokerTest, TheFirstCallCreatesTheOwnNotificationsAndNothingElseIsThere)
{
    CapturingSink log;
    InProcessSystem system(8, false);
    auto& broker = InProcessSystem::Broker();
    // Known means registered at some time; the parents made on the way have ids 1 to 3 but no row.
    EXPECT_THAT(broker.GetAllKnownNotificationNameIds(),
                ::testing::UnorderedElementsAre(NotificationNameId(4), NotificationNameId(5)));
    EXPECT_EQ(broker.GetNotificationName(NotificationNameId(3)), "Kiv.System.Nm");
    const auto notRegistered = broker.GetNotificationRegistration(NotificationNameId(4));
    EXPECT_EQ(notRegistered.GetNotificationName(), "Kiv.System.Nm.SubscribeToNotRegisteredNotification");
    EXPECT_EQ(notRegistered.GetSenderName(), "Notification Manager");
    EXPECT_EQ(notRegistered.GetSeverity(), Severity::Warning);
    EXPECT_EQ(broker.GetNotificationRegistration(NotificationNameId(5)).GetSeverity(), Severity::Error);

    // Before its registrations exist, a report is only logged.
    Kiv::System::Commons::Logging::LoggerBase ownLog("Kiv.Test.Own");
    Internal::NotificationBroker::OwnNotifications(ownLog).SendAndLogSubscribeToUnregistered("Early");
    ASSERT_EQ(log.GetRecords("Kiv.Test.Own").size(), 1u);
    EXPECT_EQ(log.GetRecords("Kiv.Test.Own")[0].text,
              "A subscriber subscribed to unregistered notification name: Early");

    EXPECT_EQ(Refusal([&] { broker.RegisterNotification("A.B", "T", Severity::Info, PayloadTypeId(0)); }),
              "The supplied payload type id is invalid. (argument 'payloadTypeId', value '0')");
    EXPECT_EQ(Refusal([&] { broker.RegisterNotification("A.B", "T", Severity::Info, PayloadTypeId(999)); }),
              "The supplied payload type id is unknown. (argument 'payloadTypeId', value '999')");

    const auto ab = Register("A.B");
    EXPECT_THROW(Send(broker.GetNotificationNameId("A"), "parent"), Kiv::InvalidOperationException);
    broker.UnregisterNotification(ab);
    EXPECT_EQ(Refusal([&] { Send(ab, "gone"); }),
              fmt::format("The referenced notification \"A.B\" is not registered. You cannot send a "
                          "notification using it. (argument 'notificationNameId', value '{}')",
                          ab));
}

TEST(NotificationBrokerTest, TheSetUpPhaseQueuesDropsBeyondTheQueueAndEverythingQueuedIsDelivered)
{
    RecordingSubscriber subscriber;
    InProcessSystem system(3);
    auto& broker = InProcessSystem::Broker();
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
    const auto received = subscriber.Get().back();
    EXPECT_EQ(received.severity, Severity::Warning);
    EXPECT_EQ(received.payloadTypeId, StringPayload::GetPayloadTypeId().GetValue());

    // The broker goes while its dispatcher still lives, so every queued delivery has somewhere to go.
    for (const char* text : {"five", "six", "seven"})
    {
        ASSERT_NE(registration.SendNotification(StringPayload(text)), NotificationId(0));
    }
    registration.Dispose();
    AppDomainSingleton<InProcessSystem::NotificationBroker>::DisposeInstance();
    EXPECT_THAT(Texts(subscriber), ElementsAre("one", "two", "three", "four", "five", "six", "seven"));
}

TEST(NotificationBrokerTest, TheStartReportsNamesWithoutASenderAndFromThenOnRefusesThem)
{
    CapturingSink log;
    RecordingSubscriber own;
    RecordingSubscriber orphan;
    RecordingSubscriber late;
    InProcessSystem system;
    auto& broker = InProcessSystem::Broker();
    auto& dispatcher = InProcessSystem::Dispatcher();
    const auto nm = dispatcher.Subscribe("Kiv.System.Nm", &own);
    const auto wanted = dispatcher.Subscribe("X.Y", &orphan);  // nobody registers it
    const auto branch = dispatcher.Subscribe("A", &orphan);    // legal: A.B is registered below
    const auto gone = Register("G.H");
    dispatcher.Subscribe("G.H", &orphan);
    broker.UnregisterNotification(gone);
    broker.UnregisterNotification(Register("Q.R"));  // nobody wants it: no report
    Register("A.B");
    EXPECT_THAT(broker.GetNotificationNameIdsByStatus(NotificationRegistrationStatus::Subscribed),
                ::testing::UnorderedElementsAre(nm, wanted, branch));

    broker.StartDispatching();
    EXPECT_TRUE(broker.IsSubscriptionStateChecked());
    EXPECT_THAT(broker.GetNotificationNameIdsByStatus(NotificationRegistrationStatus::Subscribed),
                ElementsAre(wanted))
        << "a branch loses its row, not its name";
    EXPECT_EQ(broker.GetNotificationName(branch), "A");
    const std::string notRegistered = "A subscriber subscribed to not registered notification name: ";
    const std::string unregistered = "A subscriber subscribed to unregistered notification name: ";

    // Checked: names with a sender and branches pass; the rest is refused, and reported first.
    EXPECT_NO_THROW(dispatcher.Subscribe("A.B", &late));
    EXPECT_NO_THROW(dispatcher.Subscribe("A", &late));
    EXPECT_EQ(Refusal([&] { dispatcher.Subscribe("P.Q", &late); }),
              "The supplied notification name is unknown. (argument 'notificationName', value 'P.Q')");
    EXPECT_EQ(Refusal([&] { dispatcher.Subscribe("X.Y", &late); }),
              "Cannot subscribe to not registered notification. (argument 'notificationName', value 'X.Y')");
    EXPECT_EQ(Refusal([&] { dispatcher.Subscribe("G.H", &late); }),
              "Cannot subscribe to unregistered notification. (argument 'notificationName', value 'G.H')");
    // The refused subscriber has no row: unsubscribing it is refused too.
    EXPECT_THROW(dispatcher.Unsubscribe(wanted, &late), Kiv::ArgumentException);

    // Relaxed, anything goes without a report; checking again reports what still has no sender.
    broker.SetSubscriptionStateRelaxed();
    EXPECT_FALSE(broker.IsSubscriptionStateChecked());
    dispatcher.Subscribe("P.Q", &late);
    dispatcher.Subscribe("G.H", &late);
    broker.SetSubscriptionStateChecked();
    ASSERT_TRUE(WaitFor([&] { return own.Count() >= 7; }));
    EXPECT_THAT(Texts(own), ElementsAre(notRegistered + "X.Y", unregistered + "G.H", notRegistered + "X.Y",
                                        unregistered + "G.H", notRegistered + "X.Y", notRegistered + "P.Q",
                                        unregistered + "G.H"));
    EXPECT_EQ(own.Get()[0].payloadTypeId, NmSubscribeToNotRegisteredPayload::GetPayloadTypeId().GetValue());
    EXPECT_EQ(own.Get()[1].payloadTypeId, NmSubscribeToUnregisteredPayload::GetPayloadTypeId().GetValue());

    // Each report is logged too, between the switches of the state.
    const auto lines = log.GetRecords("Kiv.System.Nm.Internal.NotificationBroker.NotificationBroker");
    ASSERT_EQ(lines.size(), 10u);
    EXPECT_EQ(lines[0].text, "Enabling checking of subscriptions");
    EXPECT_EQ(lines[4].text, unregistered + "G.H");
    EXPECT_EQ(lines[5].text, "Disabling checking of subscriptions");
    EXPECT_EQ(lines[8].text, notRegistered + "P.Q");
}
