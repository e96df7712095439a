#include <Nm/NotificationRegistration.h>
#include <Nm/StringPayload.h>

#include <Kiv/Exceptions.h>
#include <Kiv/Logging/CapturingSink.h>

#include <Support/InProcessSystem.h>
#include <Support/WaitFor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

// The broker in its own process with this process's dispatcher: the set-up phase, the start, and the
// refusals that a component meets.

using namespace Kiv::System::Nm;
using Kiv::DateTime;
using Kiv::System::Commons::Logging::CapturingSink;
using Kiv::System::Commons::Logging::LogLevel;
using Kiv::Testing::InProcessSystem;
using Kiv::Testing::RecordingSubscriber;
using Kiv::Testing::WaitFor;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

namespace
{
std::vector<std::string> Names(const std::vector<NotificationNameId>& ids)
{
    std::vector<std::string> names;
    for (const auto id : ids)
    {
        names.push_back(InProcessSystem::Broker().GetNotificationName(id).c_str());
    }
    std::sort(names.begin(), names.end());
    return names;
}

NotificationNameId Register(const char* name)
{
    return InProcessSystem::Broker().RegisterNotification(name, "Test", Severity::Info,
                                                          StringPayload::GetPayloadTypeId());
}

NotificationId Send(NotificationNameId id, const char* text)
{
    return InProcessSystem::Broker().SendNotification(id, DateTime::GetUtcNow(), StringPayload(text));
}
}  // namespace

TEST(NotificationBrokerTest, TheFirstCallOfAnyKindCreatesTheOwnNotifications)
{
    InProcessSystem system(8, false);
    auto& broker = InProcessSystem::Broker();

    // Known means registered at some time; the parents made on the way have ids 1 to 3 but no row.
    EXPECT_THAT(Names(broker.GetAllKnownNotificationNameIds()),
                ::testing::ElementsAre("Kiv.System.Nm.SubscribeToNotRegisteredNotification",
                                       "Kiv.System.Nm.SubscribeToUnregisteredNotification"));
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
    const auto a = broker.GetNotificationNameId("A");
    EXPECT_THAT([&] { Send(a, "parent"); },
                ThrowsMessage<Kiv::InvalidOperationException>(
                    fmt::format("NotificationRepository: Tried to query unknown NotificationNameId={}.", a)));

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

    const auto received = subscriber.Get();
    std::vector<std::string> texts;
    for (const auto& r : received)
    {
        texts.push_back(r.text);
        EXPECT_EQ(r.severity, Severity::Warning);
        EXPECT_EQ(r.payloadTypeId, StringPayload::GetPayloadTypeId().GetValue());
        EXPECT_EQ(r.nameId, registration.GetNotificationNameId().GetValue());
    }
    EXPECT_THAT(texts, ::testing::ElementsAre("one", "two", "three", "four"));
    InProcessSystem::Dispatcher().UnsubscribeFromAll(&subscriber);
}

TEST(NotificationBrokerTest, TheStartWarnsAboutNamesNobodyRegisteredAndThenRefusesThem)
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
    broker.UnregisterNotification(gone);

    broker.StartDispatching();
    EXPECT_TRUE(broker.IsSubscriptionStateChecked());
    ASSERT_TRUE(WaitFor([&] { return own.Count() == 1; }));
    const auto warning = own.Get().front();
    EXPECT_EQ(warning.text, "A subscriber subscribed to not registered notification name: X.Y");
    EXPECT_EQ(warning.severity, Severity::Warning);
    EXPECT_EQ(warning.nameId, 4u);

    const auto lines = log.GetRecords("Kiv.System.Nm.Internal.NotificationBroker.NotificationBroker");
    const auto has = [&](LogLevel level, const std::string& text)
    {
        return std::any_of(lines.begin(), lines.end(),
                           [&](const auto& line)
                           { return line.level == level && std::string(line.text.c_str()) == text; });
    };
    EXPECT_TRUE(has(LogLevel::Info, "Enabling checking of subscriptions"));
    EXPECT_TRUE(has(LogLevel::Warning, "A subscriber subscribed to not registered notification name: X.Y"));

    RecordingSubscriber late;
    EXPECT_THAT(
        [&] { dispatcher.Subscribe("P.Q", &late); },
        ThrowsMessage<Kiv::ArgumentException>(HasSubstr("The supplied notification name is unknown.")));
    EXPECT_THAT(
        [&] { dispatcher.Subscribe("X.Y", &late); },
        ThrowsMessage<Kiv::ArgumentException>(HasSubstr("Cannot subscribe to not registered notification.")));
    EXPECT_THAT(
        [&] { dispatcher.Subscribe("G.H", &late); },
        ThrowsMessage<Kiv::ArgumentException>(HasSubstr("Cannot subscribe to unregistered notification.")));
    // The refused subscriber has no row: unsubscribing it is refused too.
    EXPECT_THROW(dispatcher.Unsubscribe(broker.GetNotificationNameId("G.H"), &late), Kiv::ArgumentException);

    // Each refusal of a subscription to what nobody registered is reported too; let them arrive.
    ASSERT_TRUE(WaitFor([&] { return own.Count() == 3; }));
    EXPECT_EQ(own.Get()[2].text, "A subscriber subscribed to unregistered notification name: G.H");

    broker.SetSubscriptionStateRelaxed();
    EXPECT_FALSE(broker.IsSubscriptionStateChecked());
    EXPECT_NO_THROW(dispatcher.Subscribe("P.Q", &late));
    dispatcher.UnsubscribeFromAll(&late);
    dispatcher.UnsubscribeFromAll(&own);
    dispatcher.UnsubscribeFromAll(&orphan);
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
