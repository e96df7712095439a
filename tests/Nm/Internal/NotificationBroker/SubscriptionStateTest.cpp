#include <Nm/Internal/NotificationBroker/NotificationBroker.h>
#include <Nm/Internal/NotificationBroker/NotificationRegistrationManager.h>
#include <Nm/Internal/NotificationBroker/OwnNotifications.h>
#include <Nm/Internal/NotificationBroker/SubscriptionState.h>

#include <Kiv/AppDomain.h>
#include <Kiv/Exceptions.h>
#include <Kiv/Logging/CapturingSink.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include "Support/StringPrinter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Kiv::System::Nm;
using namespace Kiv::System::Nm::Internal::NotificationBroker;
using Kiv::ArgumentException;
using Kiv::String;
using Kiv::System::Commons::Logging::CapturingSink;
using Kiv::System::Commons::Logging::LoggerBase;
using Kiv::System::Commons::Logging::LogLevel;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;
using ::testing::UnorderedElementsAre;
using Sent = std::pair<NotificationNameId, String>;

namespace
{
const char* const LoggerName = "Kiv.Test.OwnNotifications";
const String NotRegisteredText = "A subscriber subscribed to not registered notification name: ";
const String UnregisteredText = "A subscriber subscribed to unregistered notification name: ";

// Registers in the same tables as the broker would, and keeps what is sent.
class RecordingSender : public INotificationSending
{
public:
    explicit RecordingSender(NotificationRegistrationManager& manager) : manager(manager) {}
    NotificationNameId RegisterNotification(const String& name, const String& sender, Severity severity,
                                            PayloadTypeId payloadTypeId) override
    {
        return manager.RegisterNotification(name, sender, severity, payloadTypeId);
    }
    void UnregisterNotification(NotificationNameId id) override { manager.UnregisterNotification(id); }
    NotificationId SendNotification(NotificationNameId, Kiv::DateTime,
                                    const std::vector<TulVariant<512>>&) override
    {
        throw Kiv::NotSupportedException("only payload objects are expected");
    }
    NotificationId SendNotification(NotificationNameId id, Kiv::DateTime, const IPayload& payload) override
    {
        sent.emplace_back(id, payload.ToString());
        return NotificationId(sent.size());
    }

    std::vector<Sent> sent;

private:
    NotificationRegistrationManager& manager;
};

// The payload classes get their type ids from the broker once per process, so the suite shares one.
class SubscriptionStateTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        Kiv::System::Commons::AppDomain::Create("ProcessA");
        AppDomainSingleton<NotificationBroker>::CreateInstance(16u);
    }
    static void TearDownTestSuite()
    {
        AppDomainSingleton<NotificationBroker>::DisposeInstance();
        Kiv::System::Commons::AppDomain::Dispose();
        Kiv::System::Tul::ServiceManager::Reset();
    }

    std::vector<String> Warnings() const
    {
        std::vector<String> texts;
        for (const auto& record : sink.GetRecords(LoggerName))
        {
            EXPECT_EQ(record.level, LogLevel::Warning);
            texts.push_back(record.text);
        }
        return texts;
    }

    NotificationNameId Subscribed(const char* name)
    {
        const NotificationNameId id = manager.AddOrGetNotificationNameId(name);
        manager.AddSubscribedRegistrationIfNotRegistered(id, name);
        return id;
    }

    CapturingSink sink;
    NotificationRegistrationManager manager;
    RecordingSender sender{manager};
    LoggerBase log{LoggerName};
    OwnNotifications own{log};
};
}  // namespace

TEST_F(SubscriptionStateTest, OwnNotificationsReportAfterTheirRegistrationAndAlwaysLog)
{
    own.SendAndLogSubscribeToNotRegistered("Early");
    EXPECT_THAT(sender.sent, IsEmpty());
    EXPECT_THAT(Warnings(), ElementsAre(NotRegisteredText + "Early"));

    own.Initialize(sender);
    const NotificationNameId notRegistered(4);
    const NotificationNameId unregistered(5);
    const auto first = manager.GetNotificationRegistration(notRegistered);
    const auto second = manager.GetNotificationRegistration(unregistered);
    EXPECT_EQ(first.GetNotificationName(), OwnNotifications::SubscribeToNotRegistered);
    EXPECT_EQ(second.GetNotificationName(), "Kiv.System.Nm.SubscribeToUnregisteredNotification");
    EXPECT_EQ(first.GetSenderName(), "Notification Manager");
    EXPECT_EQ(first.GetPayloadTypeId(), NmSubscribeToNotRegisteredPayload::GetPayloadTypeId());
    EXPECT_EQ(second.GetPayloadTypeId(), NmSubscribeToUnregisteredPayload::GetPayloadTypeId());

    sink.Clear();
    own.SendAndLogSubscribeToUnregistered("A.B");
    own.SendAndLogSubscribeToNotRegistered(String(511, 'n'));
    EXPECT_THAT(sender.sent, ElementsAre(Sent{unregistered, UnregisteredText + "A.B"},
                                         Sent{notRegistered, NotRegisteredText + String(511, 'n')}));
    EXPECT_THAT(Warnings(), ElementsAre(UnregisteredText + "A.B", NotRegisteredText + String(511, 'n')));

    NotificationRegistrationManager other;
    RecordingSender otherSender(other);
    {
        OwnNotifications local(log);
        local.Initialize(otherSender);
    }
    EXPECT_THAT(other.GetNotificationNameIdsByStatus(NotificationRegistrationStatus::Unregistered),
                UnorderedElementsAre(notRegistered, unregistered))
        << "the registrations go with their owner";
}

TEST_F(SubscriptionStateTest, RelaxedMakesNamesAndSubscribedRowsAndNeverReports)
{
    own.Initialize(sender);
    const auto relaxed = SubscriptionState::Relaxed(manager, own);
    EXPECT_FALSE(relaxed->IsChecked());

    const NotificationNameId id = relaxed->GetNotificationNameId("A.B");
    EXPECT_EQ(manager.GetNotificationName(id), "A.B");
    EXPECT_THAT(manager.GetNotificationNameIdsByStatus(NotificationRegistrationStatus::Subscribed),
                IsEmpty());
    relaxed->EnsureRegisteredNotificationNameId(id);
    relaxed->EnsureRegisteredNotificationNameId(id);
    EXPECT_THAT(manager.GetNotificationNameIdsByStatus(NotificationRegistrationStatus::Subscribed),
                ElementsAre(id));

    const NotificationNameId withdrawn =
        manager.RegisterNotification("U", "S", Severity::Info, PayloadTypeId(1));
    manager.UnregisterNotification(withdrawn);
    relaxed->EnsureRegisteredNotificationNameId(withdrawn);
    EXPECT_THAT(sender.sent, IsEmpty());
    EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(SubscriptionStateTest, CheckedRefusesRowsWithoutASenderAfterReportingThem)
{
    own.Initialize(sender);
    const NotificationNameId leaf = Subscribed("A.B");
    const NotificationNameId parent = manager.GetNotificationNameId("A");
    const NotificationNameId registered =
        manager.RegisterNotification("R", "S", Severity::Info, PayloadTypeId(1));
    const NotificationNameId withdrawn =
        manager.RegisterNotification("U", "S", Severity::Info, PayloadTypeId(1));
    manager.UnregisterNotification(withdrawn);

    const auto checked = SubscriptionState::Checked(manager, own);
    EXPECT_TRUE(checked->IsChecked());
    EXPECT_EQ(checked->GetNotificationNameId("A.B"), leaf);
    EXPECT_THAT([&] { checked->GetNotificationNameId("Q"); },
                ThrowsMessage<ArgumentException>(
                    "The supplied notification name is unknown. (argument 'notificationName', value 'Q')"));
    EXPECT_FALSE(manager.GetNotificationNames().Contains(String("Q")));

    checked->EnsureRegisteredNotificationNameId(registered);
    checked->EnsureRegisteredNotificationNameId(parent);
    EXPECT_THAT(sender.sent, IsEmpty());

    EXPECT_THAT(
        [&] { checked->EnsureRegisteredNotificationNameId(leaf); },
        ThrowsMessage<ArgumentException>(
            "Cannot subscribe to not registered notification. (argument 'notificationName', value 'A.B')"));
    EXPECT_THAT(
        [&] { checked->EnsureRegisteredNotificationNameId(withdrawn); },
        ThrowsMessage<ArgumentException>(
            "Cannot subscribe to unregistered notification. (argument 'notificationName', value 'U')"));
    EXPECT_THAT(sender.sent, ElementsAre(Sent{NotificationNameId(4), NotRegisteredText + "A.B"},
                                         Sent{NotificationNameId(5), UnregisteredText + "U"}));
    EXPECT_THAT(Warnings(), ElementsAre(NotRegisteredText + "A.B", UnregisteredText + "U"));
}

TEST_F(SubscriptionStateTest, TheSweepDropsSubscribedBranchesAndReportsSubscribedLeavesEachTime)
{
    own.Initialize(sender);
    const NotificationNameId branch = Subscribed("A");
    manager.AddOrGetNotificationNameId("A.B");
    const NotificationNameId leaf = Subscribed("X.Y");

    manager.WarnAboutSubscriptionsToNotRegistered(own);
    EXPECT_THAT(manager.GetNotificationNameIdsByStatus(NotificationRegistrationStatus::Subscribed),
                ElementsAre(leaf));
    EXPECT_TRUE(manager.GetNotificationNames().Contains(branch)) << "the name stays, only the row goes";

    manager.WarnAboutSubscriptionsToNotRegistered(own);
    EXPECT_THAT(sender.sent, ElementsAre(Sent{NotificationNameId(4), NotRegisteredText + "X.Y"},
                                         Sent{NotificationNameId(4), NotRegisteredText + "X.Y"}));
}
