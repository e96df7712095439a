#include <Nm/Internal/NotificationBroker/NotificationRepository.h>

#include <Kiv/Exceptions.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Kiv::System::Nm;
using Kiv::InvalidOperationException;
using Kiv::System::Nm::Internal::NotificationBroker::NotificationRepository;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;
using ::testing::UnorderedElementsAre;

namespace
{
const NotificationNameId Id(7);
const PayloadTypeId Payload(3);

void Register(NotificationRepository& table, Severity severity = Severity::Warning, const char* sender = "S")
{
    table.RegisterNotification(Id, "A.B", sender, severity, Payload);
}
}  // namespace

TEST(NotificationRepositoryTest, ASenderMayComeBackWithTheSameParametersOnly)
{
    NotificationRepository table;
    Register(table);
    table.UnregisterNotification(Id);
    EXPECT_EQ(table.GetStatus(Id), NotificationRegistrationStatus::Unregistered);

    EXPECT_THAT(
        [&] { Register(table, Severity::Error); },
        ThrowsMessage<InvalidOperationException>(
            "NotificationRepository: Tried to register a loaded or unregistered notification with changed "
            "parameters. NotificationNameId=7"));
    EXPECT_THROW(Register(table, Severity::Warning, "Other"), InvalidOperationException);
    EXPECT_EQ(table.GetStatus(Id), NotificationRegistrationStatus::Unregistered);
    EXPECT_EQ(table.GetSeverity(Id), Severity::Warning);

    Register(table);
    EXPECT_EQ(table.GetStatus(Id), NotificationRegistrationStatus::Registered);
    EXPECT_THAT([&] { Register(table); },
                ThrowsMessage<InvalidOperationException>(
                    "NotificationRepository: Tried to register already registered NotificationNameId=7."));
}

TEST(NotificationRepositoryTest, ASubscribedRowIsReplacedByTheFirstRegistration)
{
    NotificationRepository table;
    table.SubscribeNotification(Id, "A.B");
    EXPECT_EQ(table.GetSenderName(Id), "");
    EXPECT_THAT(
        [&] { table.UnregisterNotification(Id); },
        ThrowsMessage<InvalidOperationException>("NotificationRepository: Tried to unregister "
                                                 "NotificationNameId=7 that has not been registered."));
    Register(table, Severity::Error, "Sender");
    EXPECT_EQ(table.GetStatus(Id), NotificationRegistrationStatus::Registered);
    EXPECT_EQ(table.GetSenderName(Id), "Sender");
    EXPECT_EQ(table.GetPayloadTypeId(Id), Payload);

    NotificationRepository other;
    other.SubscribeNotification(Id, "X");
    EXPECT_THROW(Register(other), InvalidOperationException) << "a subscribed row under another name";
}

TEST(NotificationRepositoryTest, SubscribingAKnownIdIsRefusedWhateverItsStatus)
{
    NotificationRepository table;
    table.SubscribeNotification(Id, "A.B");
    EXPECT_THAT([&] { table.SubscribeNotification(Id, "A.B"); },
                ThrowsMessage<InvalidOperationException>(
                    "NotificationRepository: Tried to load already known NotificationNameId=7."));
    Register(table);
    EXPECT_THROW(table.SubscribeNotification(Id, "A.B"), InvalidOperationException);
    table.UnregisterNotification(Id);
    EXPECT_THROW(table.SubscribeNotification(Id, "A.B"), InvalidOperationException);
}

TEST(NotificationRepositoryTest, OnlySubscribedAndUnregisteredRowsCanBeRemoved)
{
    NotificationRepository table;
    EXPECT_THAT([&] { table.RemoveNotification(Id); },
                ThrowsMessage<InvalidOperationException>(
                    "NotificationRepository: Tried to remove an unknown NotificationNameId=7."));
    Register(table);
    EXPECT_THAT(
        [&] { table.RemoveNotification(Id); },
        ThrowsMessage<InvalidOperationException>("NotificationRepository: Tried to remove an "
                                                 "NotificationNameId=7 that had not been unregistered."));
    table.UnregisterNotification(Id);
    table.RemoveNotification(Id);
    EXPECT_FALSE(table.Contains(Id));
    EXPECT_THAT([&] { table.GetStatus(Id); },
                ThrowsMessage<InvalidOperationException>(
                    "NotificationRepository: Tried to query unknown NotificationNameId=7."));
}

TEST(NotificationRepositoryTest, ListsByStatus)
{
    NotificationRepository table;
    EXPECT_THAT(table.GetAllKnownNotificationNameIds(), IsEmpty());
    EXPECT_EQ(table.Count(), 0u);
    table.SubscribeNotification(NotificationNameId(1), "A");
    table.RegisterNotification(NotificationNameId(2), "B", "S", Severity::Info, Payload);
    table.RegisterNotification(NotificationNameId(3), "C", "S", Severity::Info, Payload);
    table.UnregisterNotification(NotificationNameId(3));
    EXPECT_THAT(table.GetNotificationNameIdsByStatus(NotificationRegistrationStatus::Subscribed),
                UnorderedElementsAre(NotificationNameId(1)));
    EXPECT_THAT(table.GetNotificationNameIdsByStatus(NotificationRegistrationStatus::Unregistered),
                UnorderedElementsAre(NotificationNameId(3)));
    EXPECT_THAT(table.GetAllKnownNotificationNameIds(),
                UnorderedElementsAre(NotificationNameId(1), NotificationNameId(2), NotificationNameId(3)));
    EXPECT_EQ(table.Count(), 3u);
}
