#include <Nm/Internal/NotificationManagerSetup.h>
#include <Nm/NotificationManager.h>
#include <Nm/NotificationRegistration.h>
#include <Nm/NotificationRegistrationInfo.h>
#include <Nm/StringPayload.h>

#include <Kiv/AppDomain.h>
#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulTesting.h>

#include <Support/InProcessSystem.h>
#include <Support/WaitFor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <atomic>
#include <thread>

// The facade of a process over a broker in the same process. Each case runs twice: once with the services
// called directly, and once with every call marshalled through this process's own endpoint, so that the
// proxies and stubs of the services carry every value and refusal as a remote caller meets them.

using namespace Kiv::System::Nm;
using Kiv::DateTime;
using Kiv::System::Commons::AppDomain;
using Kiv::System::Nm::Internal::NotificationManagerSetup;
using Kiv::System::Tul::ServiceManager;
using Kiv::Testing::RecordingSubscriber;
using Kiv::Testing::WaitFor;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

namespace
{
class NotificationManagerTest : public ::testing::TestWithParam<bool>
{
protected:
    void SetUp() override
    {
        auto settings = ServiceManager::GetSettings();
        settings.marshalLocalCalls = GetParam();
        ServiceManager::Configure(settings);
        AppDomain::Create("ProcessA");
        NotificationManagerSetup::SetupWithNotificationBroker(Kiv::String(""));
    }
    void TearDown() override
    {
        NotificationManagerSetup::Dispose();
        AppDomain::Dispose();
        Kiv::System::Tul::Testing::UseNewTransport();
    }

    static NotificationManager& Manager() { return NotificationManager::GetInstance(); }
};
}  // namespace

INSTANTIATE_TEST_SUITE_P(DirectAndMarshalled, NotificationManagerTest, ::testing::Bool());

TEST_P(NotificationManagerTest, AComponentRegistersSendsAndReceivesAndTheInfoAgrees)
{
    RecordingSubscriber received;
    NotificationSubscriber subscriber = Manager().CreateNotificationSubscriber("Demo.Plant");
    subscriber.AddHandler([&](const Notification& n) { received.Notify(n); });
    NotificationRegistration<StringPayload> registration("Demo.Plant.Pump", "Pump", Severity::Warning,
                                                         Manager());

    const auto id = registration.GetNotificationNameId();
    EXPECT_EQ(Manager().GetNotificationNameId("Demo.Plant.Pump"), id);
    const auto info = Manager().GetNotificationRegistration(id);
    EXPECT_EQ(info.GetNotificationName(), "Demo.Plant.Pump");
    EXPECT_EQ(info.GetSenderName(), "Pump");
    EXPECT_EQ(info.GetSeverity(), Severity::Warning);
    EXPECT_THAT(Manager().GetNotificationNameIdsByStatus(NotificationRegistrationStatus::Registered),
                ::testing::Contains(id));

    // The set-up phase holds the notification back until the start.
    EXPECT_NE(registration.SendNotification(StringPayload("pressure high")), NotificationId(0));
    EXPECT_EQ(Manager().GetNumberOfSubmittedNotifications(), 1u);
    NotificationManagerSetup::StartDispatching();
    const auto future =
        Manager().NonBlockingSendNotification(id, DateTime::GetUtcNow(), StringPayload("from a task"));
    ASSERT_TRUE(future.IsValid());
    // The delivery may overtake the answer that the worker thread puts into the Future.
    ASSERT_TRUE(WaitFor([&] { return received.Count() == 2 && future.HasValue(); }));
    EXPECT_NE(future.GetValue(), NotificationId(0));
    EXPECT_EQ(received.Get()[0].text, "pressure high");
    EXPECT_EQ(received.Get()[0].severity, Severity::Warning);
    EXPECT_EQ(received.Get()[1].text, "from a task");
}

TEST_P(NotificationManagerTest, RefusalsReachTheCallerInTheBrokersWords)
{
    Manager().RegisterNotification("A.B", "Test", Severity::Info, StringPayload::GetPayloadTypeId());
    const auto parent = Manager().GetNotificationNameId("A");
    const StringPayload payload("x");
    EXPECT_THAT(
        [&] { Manager().SendNotification(NotificationNameId(0), DateTime::GetUtcNow(), payload); },
        ThrowsMessage<Kiv::ArgumentException>(HasSubstr("The supplied notification name id is invalid.")));
    EXPECT_THAT(
        [&] { Manager().SendNotification(parent, DateTime::GetUtcNow(), payload); },
        ThrowsMessage<Kiv::InvalidOperationException>(fmt::format(
            "Cannot send Notification. NotificationRepository: Tried to query unknown NotificationNameId={}.",
            parent)));
    EXPECT_THAT([&] { Manager().GetNotificationNameId(std::string(512, 'n').c_str()); },
                ThrowsMessage<Kiv::ArgumentException>(HasSubstr("Input string is too long")));
    EXPECT_NE(Manager().GetNotificationNameId(std::string(511, 'n').c_str()), NotificationNameId(0));

    // Through the non-blocking path the refusal arrives in the Future instead.
    const auto future =
        Manager().NonBlockingSendNotification(NotificationNameId(0), DateTime::GetUtcNow(), payload);
    ASSERT_TRUE(WaitFor([&] { return future.HasValue(); }));
    EXPECT_THROW(future.CheckForValueAndException(), Kiv::ArgumentException);
}

TEST_P(NotificationManagerTest, ASubscriberFollowsItsObjectThroughDisposeInitializeAndMoves)
{
    const auto id =
        Manager().RegisterNotification("A.B", "Test", Severity::Info, StringPayload::GetPayloadTypeId());
    RecordingSubscriber first;
    RecordingSubscriber second;
    NotificationSubscriber source("A.B");
    source.AddHandler([&](const Notification& n) { first.Notify(n); });
    NotificationSubscriber target("A.B");
    target.AddHandler([&](const Notification& n) { second.Notify(n); });

    source.Dispose();
    EXPECT_FALSE(source.IsInitialized());
    source.Initialize();
    EXPECT_EQ(source.GetNotificationNameId(), id);

    target = std::move(source);
    EXPECT_FALSE(source.IsInitialized());
    NotificationManagerSetup::StartDispatching();
    Manager().SendNotification(id, DateTime::GetUtcNow(), StringPayload("after the move"));
    // The target now carries the source's handler only; its own subscription went.
    ASSERT_TRUE(WaitFor([&] { return first.Count() == 1; }));
    EXPECT_EQ(second.Count(), 0u);

    target.Dispose();
    EXPECT_FALSE(Kiv::Testing::InProcessSystem::Dispatcher().HasSubscribersFor(id));
}

// Each case sets the system up anew in the same process; a process that finds no broker gets no manager.
TEST_P(NotificationManagerTest, WithoutAReachableBrokerASetupLeavesNoManagerBehind)
{
    NotificationManagerSetup::Dispose();
    ServiceManager::Shutdown();
    EXPECT_THAT(
        [] { NotificationManagerSetup::SetupWithoutNotificationBroker(Kiv::String("")); },
        ThrowsMessage<Kiv::InvalidOperationException>(
            "Could not retrieve service 'Kiv::System::Nm::Services::Internal::INotificationSendingService' "
            "from service provider 'Kiv'."));
    EXPECT_FALSE(NotificationManager::IsCreated());
}

TEST_P(NotificationManagerTest, HandlersAddedWhileTheSystemDeliversRunFromTheirNextNotificationOn)
{
    NotificationSubscriber subscriber = Manager().CreateNotificationSubscriber("Race");
    NotificationRegistration<StringPayload> registration("Race.Line", "Racer", Severity::Info, Manager());
    NotificationManagerSetup::StartDispatching();
    std::atomic<bool> sending{true};
    std::thread sender(
        [&]
        {
            while (sending)
            {
                registration.SendNotification(StringPayload("x"));
            }
        });
    // Each handler is added while deliveries run on the broker's thread, as a watching tool does.
    std::atomic<int> calls[8] = {};
    for (auto& count : calls)
    {
        subscriber.AddHandler([&count](const Notification&) { ++count; });
    }
    EXPECT_TRUE(WaitFor([&] { return calls[7] > 0; }));
    sending = false;
    sender.join();
    EXPECT_GE(calls[0].load(), calls[7].load());
}
