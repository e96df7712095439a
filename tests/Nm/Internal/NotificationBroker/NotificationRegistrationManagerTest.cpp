#include <Nm/Internal/NotificationBroker/NotificationRegistrationManager.h>

#include <Kiv/Exceptions.h>

#include "Support/StringPrinter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Kiv::System::Nm;
using Kiv::ArgumentException;
using Kiv::InvalidOperationException;
using Kiv::System::Nm::Internal::NotificationBroker::NotificationRegistrationManager;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;
using ::testing::UnorderedElementsAre;

namespace
{
const PayloadTypeId Payload(3);

class NotificationRegistrationManagerTest : public ::testing::Test
{
protected:
    NotificationNameId Register(const char* name, const char* sender = "S",
                                Severity severity = Severity::Info)
    {
        return manager.RegisterNotification(name, sender, severity, Payload);
    }

    NotificationRegistrationManager manager;
};
}  // namespace

TEST_F(NotificationRegistrationManagerTest, RegistrationMakesTheNameWithItsParentsAndARegisteredRow)
{
    const NotificationNameId id = Register("A.B", "Sender", Severity::Error);
    EXPECT_EQ(id, NotificationNameId(2));
    EXPECT_EQ(manager.GetNotificationNameId("A"), NotificationNameId(1));
    const NotificationRegistrationInfo row = manager.GetNotificationRegistration(id);
    EXPECT_EQ(row.GetNotificationName(), "A.B");
    EXPECT_EQ(row.GetSenderName(), "Sender");
    EXPECT_EQ(row.GetSeverity(), Severity::Error);
    EXPECT_EQ(row.GetPayloadTypeId(), Payload);
    EXPECT_TRUE(row.IsRegistered());

    // Only an empty name and a trailing dot are malformed.
    EXPECT_EQ(manager.GetNotificationName(Register("A..B")), "A..B");
    EXPECT_EQ(manager.GetNotificationName(Register(".C")), "C") << "a top-level node under an empty parent";
}

TEST_F(NotificationRegistrationManagerTest, BadArgumentsAreRefusedBeforeAnyNameIsMade)
{
    EXPECT_THAT([&] { Register("A."); },
                ThrowsMessage<ArgumentException>(
                    "The supplied notification name is invalid. (argument 'notificationName', value 'A.')"));
    EXPECT_THAT([&] { Register(""); },
                ThrowsMessage<ArgumentException>("The supplied notification name is invalid. (argument "
                                                 "'notificationName', value '')"));
    EXPECT_THAT(
        [&] { Register("A.B", ""); },
        ThrowsMessage<ArgumentException>("The supplied sender name is invalid. (argument 'senderName', "
                                         "value '')"));
    EXPECT_THAT([&] { Register("A.B", "S", static_cast<Severity>(7)); },
                ThrowsMessage<ArgumentException>("The supplied severity is invalid. (argument 'severity', "
                                                 "value '7')"));
    EXPECT_FALSE(manager.GetNotificationNames().Contains(Kiv::String("A")));
    EXPECT_EQ(Register("A.B", "S", Severity::Emerge), NotificationNameId(2));
}

TEST_F(NotificationRegistrationManagerTest, ARegisteredNameIsRefusedToAnybodyAndTheRowStaysAsItWas)
{
    const NotificationNameId id = Register("A.B", "First", Severity::Warning);
    for (const char* sender : {"First", "Second"})
    {
        EXPECT_THAT([&] { Register("A.B", sender); },
                    ThrowsMessage<ArgumentException>(
                        "This notification is already registered by \"First\". (argument 'notificationName', "
                        "value 'A.B')"));
    }
    EXPECT_EQ(manager.GetNotificationRegistration(id).GetSenderName(), "First");
    EXPECT_EQ(manager.GetNotificationRegistration(id).GetSeverity(), Severity::Warning);

    // Withdrawn, the same sender may come back with the same parameters only.
    manager.UnregisterNotification(id);
    EXPECT_THAT([&] { Register("A.B", "First", Severity::Error); },
                ThrowsMessage<InvalidOperationException>(
                    "NotificationRepository: Tried to register a loaded or unregistered notification with "
                    "changed parameters. NotificationNameId=2"));
    EXPECT_EQ(Register("A.B", "First", Severity::Warning), id);
    EXPECT_TRUE(manager.GetNotificationRegistration(id).IsRegistered());
}

TEST_F(NotificationRegistrationManagerTest, OnlyARegisteredRowCanBeUnregistered)
{
    const NotificationNameId id = Register("A.B");
    manager.UnregisterNotification(id);
    EXPECT_TRUE(manager.GetNotificationRegistration(id).IsUnRegistered());
    EXPECT_EQ(manager.GetNotificationName(id), "A.B") << "the name stays";
    EXPECT_THAT(
        [&] { manager.UnregisterNotification(id); },
        ThrowsMessage<ArgumentException>("The referenced notification \"A.B\" is not registered. You "
                                         "cannot unregister it. (argument 'notificationNameId', value '2')"));

    const NotificationNameId subscribed = manager.AddOrGetNotificationNameId("X");
    manager.AddSubscribedRegistrationIfNotRegistered(subscribed, "X");
    EXPECT_THAT(
        [&] { manager.UnregisterNotification(subscribed); },
        ThrowsMessage<ArgumentException>("The referenced notification \"X\" is not registered. You "
                                         "cannot unregister it. (argument 'notificationNameId', value '3')"));

    EXPECT_THAT(
        [&] { manager.UnregisterNotification(NotificationNameId(0)); },
        ThrowsMessage<ArgumentException>(
            "The supplied notification name id is invalid. (argument 'notificationNameId', value '0')"));
    EXPECT_THAT(
        [&] { manager.UnregisterNotification(NotificationNameId(9)); },
        ThrowsMessage<ArgumentException>(
            "The supplied notification name id is unknown. (argument 'notificationNameId', value '9')"));
    // A name without a row is the table's concern.
    EXPECT_THAT([&] { manager.UnregisterNotification(NotificationNameId(1)); },
                ThrowsMessage<InvalidOperationException>(
                    "NotificationRepository: Tried to query unknown NotificationNameId=1."));
}

TEST_F(NotificationRegistrationManagerTest, ANameWithoutARowReadsAsSubscribedButIsNotKnown)
{
    const NotificationNameId leaf = Register("A.B.C", "S", Severity::Fatal);
    const NotificationNameId parent = manager.GetNotificationNameId("A.B");

    const NotificationRegistrationInfo info = manager.GetNotificationRegistration(parent);
    EXPECT_TRUE(info.IsSubscribed());
    EXPECT_EQ(info.GetNotificationName(), "A.B");
    EXPECT_EQ(info.GetNotificationNameId(), parent);
    EXPECT_EQ(info.GetSenderName(), "");
    EXPECT_EQ(info.GetSeverity(), Severity::Internal);
    EXPECT_EQ(info.GetPayloadTypeId(), PayloadTypeId(0));

    EXPECT_FALSE(manager.IsNotificationNameIdKnown(parent));
    EXPECT_TRUE(manager.IsNotificationNameIdKnown(leaf));
    EXPECT_THAT(
        [&] { manager.IsNotificationNameIdKnown(NotificationNameId(0)); },
        ThrowsMessage<ArgumentException>(
            "The supplied notification name id is invalid. (argument 'notificationNameId', value '0')"));
    EXPECT_THAT(
        [&] { manager.GetNotificationRegistration(NotificationNameId(8)); },
        ThrowsMessage<ArgumentException>(
            "The supplied notification name id is unknown. (argument 'notificationNameId', value '8')"));
}

TEST_F(NotificationRegistrationManagerTest, LookupsByNameCreateOnlyWhenAskedTo)
{
    EXPECT_THAT([&] { manager.GetNotificationNameId("A.B"); },
                ThrowsMessage<InvalidOperationException>(
                    "NotificationNameRepository: tried to query unknown notification name: A.B"));
    EXPECT_THAT(
        [&] { manager.GetNotificationNameId("A.B."); },
        ThrowsMessage<ArgumentException>(
            "The supplied notification name is invalid. (argument 'notificationName', value 'A.B.')"));
    EXPECT_THROW(manager.AddOrGetNotificationNameId(""), ArgumentException);

    const NotificationNameId id = manager.AddOrGetNotificationNameId("A.B");
    EXPECT_EQ(manager.AddOrGetNotificationNameId("A.B"), id);
    EXPECT_EQ(manager.GetNotificationNameId("A.B"), id);
    EXPECT_THAT(manager.GetAllKnownNotificationNameIds(), IsEmpty()) << "a name alone has no row";
}

TEST_F(NotificationRegistrationManagerTest, RowsAreListedByStatusAndASubscribedRowIsMadeOnlyOnce)
{
    const NotificationNameId registered = Register("R");
    const NotificationNameId withdrawn = Register("U");
    manager.UnregisterNotification(withdrawn);
    const NotificationNameId wanted = manager.AddOrGetNotificationNameId("W");
    manager.AddSubscribedRegistrationIfNotRegistered(wanted, "W");
    manager.AddSubscribedRegistrationIfNotRegistered(wanted, "W");
    manager.AddSubscribedRegistrationIfNotRegistered(registered, "R");

    using Status = NotificationRegistrationStatus;
    EXPECT_THAT(manager.GetNotificationNameIdsByStatus(Status::Registered), ElementsAre(registered));
    EXPECT_THAT(manager.GetNotificationNameIdsByStatus(Status::Unregistered), ElementsAre(withdrawn));
    EXPECT_THAT(manager.GetNotificationNameIdsByStatus(Status::Subscribed), ElementsAre(wanted));
    EXPECT_THAT(manager.GetAllKnownNotificationNameIds(),
                UnorderedElementsAre(registered, withdrawn, wanted));
    EXPECT_THAT(
        [&] { manager.GetNotificationNameIdsByStatus(static_cast<Status>(3)); },
        ThrowsMessage<ArgumentException>("The supplied status is invalid. (argument 'status', value '3')"));

    // The sender comes after the subscriber and finds the same id.
    EXPECT_EQ(Register("W"), wanted);
    EXPECT_TRUE(manager.GetNotificationRegistration(wanted).IsRegistered());
}
