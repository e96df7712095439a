#include <Nm/Internal/NotificationManagerSetup.h>
#include <Nm/NotificationManager.h>
#include <Nm/NotificationRegistration.h>
#include <Nm/NotificationRegistrationInfo.h>
#include <Nm/StringPayload.h>

#include <Kiv/AppDomain.h>
#include <Kiv/Exceptions.h>
#include <Kiv/Logging/CapturingSink.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <Support/InProcessSystem.h>
#include <Support/WaitFor.h>

#include <atomic>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// The facade of a process over a broker in the same process. Each case runs twice: once with the services
// called directly, and once with every call marshalled through this process's own endpoint, so that the
// proxies and stubs of the services carry every value and refusal as a remote caller meets them.

using namespace Kiv::System::Nm;
using Kiv::DateTime;
using Kiv::System::Commons::AppDomain;
using Kiv::System::Commons::Logging::CapturingSink;
using Kiv::System::Commons::Logging::LogLevel;
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
        original = ServiceManager::GetSettings();
        auto settings = original;
        settings.marshalLocalCalls = GetParam();
        ServiceManager::Configure(settings);
        AppDomain::Create("ProcessA");
        NotificationManagerSetup::SetupWithNotificationBroker(Kiv::String(""));
    }
    void TearDown() override
    {
        NotificationManagerSetup::Dispose();
        AppDomain::Dispose();
        ServiceManager::Reset();
        ServiceManager::Configure(original);
    }

    static NotificationManager& Manager() { return NotificationManager::GetInstance(); }

    Kiv::System::Tul::TulSettings original;
};

/// Text of the notifications a NotificationSubscriber's handler saw.
struct Texts
{
    void Add(const Notification& notification)
    {
        std::lock_guard<std::mutex> lock(mutex);
        list.push_back(GenericPayload(notification).ToString().c_str());
    }
    std::vector<std::string> Get() const
    {
        std::lock_guard<std::mutex> lock(mutex);
        return list;
    }
    mutable std::mutex mutex;
    std::vector<std::string> list;
};

/// Handed to a subscriber that must not use it: subscribing goes through the manager.
class RefusingReceiving : public INotificationReceiving
{
public:
    NotificationNameId Subscribe(const Kiv::String&, INotificationSubscriber*) override
    {
        ADD_FAILURE() << "subscribed through the wrong object";
        return NotificationNameId(0);
    }
    void Unsubscribe(NotificationNameId, INotificationSubscriber*) override { ADD_FAILURE(); }
    void UnsubscribeFromAll(INotificationSubscriber*) override { ADD_FAILURE(); }
};
}  // namespace

INSTANTIATE_TEST_SUITE_P(DirectAndMarshalled, NotificationManagerTest, ::testing::Bool());

TEST_P(NotificationManagerTest, AComponentRegistersSendsAndReceivesAndTheInfoAgrees)
{
    auto& manager = Manager();
    Texts texts;
    NotificationSubscriber subscriber = manager.CreateNotificationSubscriber("Demo.Plant");
    subscriber.AddHandler([&](const Notification& n) { texts.Add(n); });
    NotificationRegistration<StringPayload> registration("Demo.Plant.Pump", "Pump", Severity::Warning,
                                                         manager);

    const auto id = registration.GetNotificationNameId();
    EXPECT_EQ(manager.GetNotificationName(id), "Demo.Plant.Pump");
    EXPECT_EQ(manager.GetNotificationNameId("Demo.Plant.Pump"), id);
    EXPECT_EQ(manager.GetPayloadTypeName(StringPayload::GetPayloadTypeId()),
              "Kiv::System::Nm::StringPayload");
    const auto info = manager.GetNotificationRegistration(id);
    EXPECT_EQ(info.GetNotificationName(), "Demo.Plant.Pump");
    EXPECT_EQ(info.GetSenderName(), "Pump");
    EXPECT_EQ(info.GetSeverity(), Severity::Warning);
    EXPECT_EQ(info.GetStatus(), NotificationRegistrationStatus::Registered);
    EXPECT_THAT(manager.GetNotificationNameIdsByStatus(NotificationRegistrationStatus::Registered),
                ::testing::Contains(id));

    // The set-up phase holds the notification back until the start.
    EXPECT_NE(registration.SendNotification(StringPayload("pressure high")), NotificationId(0));
    EXPECT_EQ(manager.GetNumberOfSubmittedNotifications(), 1u);
    NotificationManagerSetup::StartDispatching();
    ASSERT_TRUE(WaitFor([&] { return texts.Get().size() == 1; }));
    EXPECT_EQ(texts.Get().front(), "pressure high");

    const auto future =
        manager.NonBlockingSendNotification(id, DateTime::GetUtcNow(), StringPayload("from a task"));
    ASSERT_TRUE(future.IsValid());
    ASSERT_TRUE(WaitFor([&] { return future.HasValue(); }));
    EXPECT_NE(future.GetValue(), NotificationId(0));
    ASSERT_TRUE(WaitFor([&] { return texts.Get().size() == 2; }));
    EXPECT_EQ(texts.Get().back(), "from a task");
}

TEST_P(NotificationManagerTest, RefusalsReachTheCallerInTheBrokersWords)
{
    auto& manager = Manager();
    const auto id =
        manager.RegisterNotification("A.B", "Test", Severity::Info, StringPayload::GetPayloadTypeId());
    const auto parent = manager.GetNotificationNameId("A");
    const StringPayload payload("x");

    EXPECT_THAT(
        [&] { manager.SendNotification(NotificationNameId(0), DateTime::GetUtcNow(), payload); },
        ThrowsMessage<Kiv::ArgumentException>(HasSubstr("The supplied notification name id is invalid.")));
    EXPECT_THAT(
        [&] { manager.SendNotification(parent, DateTime::GetUtcNow(), payload); },
        ThrowsMessage<Kiv::InvalidOperationException>(fmt::format(
            "Cannot send Notification. NotificationRepository: Tried to query unknown NotificationNameId={}.",
            parent)));
    EXPECT_THAT(
        [&]
        { manager.RegisterNotification("A.B", "Other", Severity::Info, StringPayload::GetPayloadTypeId()); },
        ThrowsMessage<Kiv::ArgumentException>(
            HasSubstr("This notification is already registered by \"Test\".")));
    EXPECT_THAT([&] { manager.GetNotificationNameId(std::string(512, 'n').c_str()); },
                ThrowsMessage<Kiv::ArgumentException>(HasSubstr("Input string is too long")));
    EXPECT_NE(manager.GetNotificationNameId(std::string(511, 'n').c_str()), NotificationNameId(0));

    // Through the non-blocking path the refusal arrives in the Future instead.
    const auto future =
        manager.NonBlockingSendNotification(NotificationNameId(0), DateTime::GetUtcNow(), payload);
    ASSERT_TRUE(WaitFor([&] { return future.HasValue(); }));
    EXPECT_TRUE(future.HasException());
    EXPECT_THROW(future.CheckForValueAndException(), Kiv::ArgumentException);

    manager.UnregisterNotification(id);
    EXPECT_THAT([&] { manager.SendNotification(id, DateTime::GetUtcNow(), payload); },
                ThrowsMessage<Kiv::ArgumentException>(
                    HasSubstr("The referenced notification \"A.B\" is not registered.")));
}

TEST_P(NotificationManagerTest, ASubscriberFollowsItsObjectThroughDisposeInitializeAndMoves)
{
    auto& manager = Manager();
    const auto id =
        manager.RegisterNotification("A.B", "Test", Severity::Info, StringPayload::GetPayloadTypeId());
    Texts first;
    Texts second;
    NotificationSubscriber source("A.B");
    source.AddHandler([&](const Notification& n) { first.Add(n); });
    RefusingReceiving notTheManager;
    NotificationSubscriber target("A.B", notTheManager);
    target.AddHandler([&](const Notification& n) { second.Add(n); });
    EXPECT_TRUE(target.IsInitialized());

    source.Dispose();
    source.Dispose();
    EXPECT_FALSE(source.IsInitialized());
    source.Initialize();
    EXPECT_EQ(source.GetNotificationNameId(), id);

    target = std::move(source);
    EXPECT_FALSE(source.IsInitialized());
    EXPECT_TRUE(target.IsInitialized());
    NotificationManagerSetup::StartDispatching();
    manager.SendNotification(id, DateTime::GetUtcNow(), StringPayload("after the move"));
    // The target now carries the source's handler only; its own subscription went.
    ASSERT_TRUE(WaitFor([&] { return first.Get().size() == 1; }));
    EXPECT_TRUE(second.Get().empty());

    target.Dispose();
    EXPECT_FALSE(Kiv::Testing::InProcessSystem::Dispatcher().HasSubscribersFor(id));
    EXPECT_THAT(
        [] { NotificationSubscriber late("Nobody.Registered"); },
        ThrowsMessage<Kiv::ArgumentException>(HasSubstr("The supplied notification name is unknown.")));
}

TEST_P(NotificationManagerTest, ASecondSetupAfterDisposeWorksAndTheBufferCapacityIsTheQueues)
{
    EXPECT_EQ(NotificationManager::GetDefaultArgumentsBufferCapacity(),
              Internal::Settings::NotificationManagerSettings()
                  .GetNonBlockingNotificationSendingProxyQueueLength());
    EXPECT_THAT([] { NotificationManagerSetup::SetupWithNotificationBroker(Kiv::String("")); },
                ThrowsMessage<Kiv::Exception>(
                    "AppDomain Singleton instance of type "
                    "'Kiv::System::Nm::Internal::NotificationBroker::NotificationBroker' was "
                    "created yet!"));
    NotificationManagerSetup::Dispose();
    NotificationManagerSetup::Dispose();
    EXPECT_THAT([] { NotificationManager::GetDefaultArgumentsBufferCapacity(); },
                ThrowsMessage<Kiv::Exception>("AppDomain Singleton instance of type "
                                              "'Kiv::System::Nm::NotificationManager' was not created yet!"));

    // A process without a reachable broker gets no manager at all.
    ServiceManager::Shutdown();
    EXPECT_THAT(
        [] { NotificationManagerSetup::SetupWithoutNotificationBroker(Kiv::String("")); },
        ThrowsMessage<Kiv::InvalidOperationException>(
            "Could not retrieve service 'Kiv::System::Nm::Services::Internal::INotificationSendingService' "
            "from service provider 'Kiv'."));
    EXPECT_FALSE(NotificationManager::IsCreated());

    // Payload type ids from the first broker mean nothing to the second; they are asked for again.
    NotificationManagerSetup::SetupWithNotificationBroker(Kiv::String(""));
    RecordingSubscriber subscriber;
    Manager().Subscribe("A.B", &subscriber);
    NotificationRegistration<StringPayload> registration("A.B", "Test", Severity::Info, Manager());
    NotificationManagerSetup::StartDispatching();
    registration.SendNotification(StringPayload("again"));
    ASSERT_TRUE(WaitFor([&] { return subscriber.Count() == 1; }));
    EXPECT_EQ(subscriber.Get().front().text, "again");
    Manager().UnsubscribeFromAll(&subscriber);
}

TEST(NotificationManagerSetupTest, WithoutAnAppDomainStartIsQuietAndDisposeRaises)
{
    EXPECT_NO_THROW(NotificationManagerSetup::StartDispatching());
    EXPECT_THAT([] { NotificationManagerSetup::Dispose(); },
                ThrowsMessage<Kiv::Exception>(HasSubstr("was not created yet!")));
}

TEST(NotificationSubscriberTest, ASubscriberThatOutlivesTheManagerLogsOneLineAndReturns)
{
    CapturingSink log;
    AppDomain::Create("ProcessA");
    NotificationManagerSetup::SetupWithNotificationBroker(Kiv::String(""));
    {
        auto subscriber = std::make_unique<NotificationSubscriber>("A.B");
        NotificationManagerSetup::Dispose();
        subscriber.reset();
    }
    AppDomain::Dispose();
    ServiceManager::Reset();
    const auto lines = log.GetRecords("Kiv.System.Nm.NotificationSubscriber");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, LogLevel::Error);
    EXPECT_THAT(lines[0].text.c_str(),
                HasSubstr("Caught exception while unsubscribing from notificationName=A.B id="));
}

TEST(NonBlockingSendTest, ARefusalForAFullBrokerQueueIsRetriedUntilTheNotificationGetsIn)
{
    // A broker queue of one and a subscriber that holds the delivering thread until released: every
    // send behind the first finds the queue full and is retried by the worker.
    const std::string settings = ::testing::TempDir() + "queue-of-one.xml";
    std::ofstream(settings) << "<NotificationManagerSettingsDocument><NotificationBroker queueLength=\"1\"/>"
                               "</NotificationManagerSettingsDocument>";
    AppDomain::Create("ProcessA");
    NotificationManagerSetup::SetupWithNotificationBroker(Kiv::String(settings.c_str()));
    {
        auto& manager = NotificationManager::GetInstance();
        std::atomic<bool> release{false};
        RecordingSubscriber slow([&](const Notification&) { WaitFor([&] { return release.load(); }); });
        manager.Subscribe("A.B", &slow);
        const auto id =
            manager.RegisterNotification("A.B", "Test", Severity::Info, StringPayload::GetPayloadTypeId());
        NotificationManagerSetup::StartDispatching();

        std::vector<Future<NotificationId>> futures;
        for (const char* text : {"one", "two", "three", "four"})
        {
            futures.push_back(
                manager.NonBlockingSendNotification(id, DateTime::GetUtcNow(), StringPayload(text)));
            ASSERT_TRUE(futures.back().IsValid());
        }
        // The first is being delivered, the second waits in the queue, the others are refused and retried.
        ASSERT_TRUE(WaitFor([&] { return slow.Count() == 1 && futures[1].HasValue(); }));
        EXPECT_FALSE(futures[3].HasValue());
        release = true;
        ASSERT_TRUE(WaitFor([&] { return slow.Count() == 4; }));
        for (const auto& future : futures)
        {
            ASSERT_TRUE(future.HasValue());
            EXPECT_NE(future.GetValue(), NotificationId(0));
        }
        std::vector<std::string> texts;
        for (const auto& received : slow.Get())
        {
            texts.push_back(received.text);
        }
        EXPECT_THAT(texts, ::testing::ElementsAre("one", "two", "three", "four"));
        manager.UnsubscribeFromAll(&slow);
    }
    NotificationManagerSetup::Dispose();
    AppDomain::Dispose();
    ServiceManager::Reset();
}
