// The tables of the broker: names, payload types, registration rows, dispatch rows, and the registration
// manager that validates before it changes names and rows.

#include <Nm/Internal/NotificationBroker/NotificationDispatcherRepository.h>
#include <Nm/Internal/NotificationBroker/NotificationDispatchingRepository.h>
#include <Nm/Internal/NotificationBroker/NotificationNameRepository.h>
#include <Nm/Internal/NotificationBroker/NotificationRegistrationManager.h>
#include <Nm/Internal/NotificationBroker/NotificationRepository.h>
#include <Nm/Internal/NotificationBroker/PayloadTypeRepository.h>

#include <Kiv/Exceptions.h>

#include "Support/StringPrinter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

using namespace Kiv::System::Nm;
using namespace Kiv::System::Nm::Internal::NotificationBroker;
using ::testing::ElementsAre;
using ::testing::ThrowsMessage;
using Status = NotificationRegistrationStatus;
using Rows = std::vector<std::pair<std::function<void()>, std::string>>;

namespace
{
const PayloadTypeId Payload(3);
const std::string Argument = "Kiv::ArgumentException: ";
const std::string Operation = "Kiv::InvalidOperationException: ";

/// Runs each call and compares the type and message of what it raises with the row's text.
void ExpectRefusals(const Rows& rows)
{
    for (const auto& [call, expected] : rows)
    {
        std::string raised = "nothing raised";
        try
        {
            call();
        }
        catch (const Kiv::Exception& e)
        {
            raised = e.GetTypeName() + ": " + e.GetMessage();
        }
        EXPECT_EQ(raised, expected);
    }
}
}  // namespace

TEST(NotificationNameRepositoryTest, ADeepNameMakesItsAncestorsFirstAndTheTablesRaiseTheirHookTexts)
{
    NotificationNameRepository names;
    NotificationDispatchingRepository dispatchTable;
    dispatchTable.Add(NotificationNameId(1), NotificationDispatcherId(2));
    PayloadTypeRepository types;
    EXPECT_EQ(names.Add("A.B.C"), NotificationNameId(3));
    EXPECT_EQ(names.GetFullName(NotificationNameId(2)), "A.B");
    std::vector<NotificationNameId> matching{NotificationNameId(7)};
    names.GetMatchingIds(NotificationNameId(3), matching);
    EXPECT_THAT(matching, ElementsAre(NotificationNameId(1), NotificationNameId(2), NotificationNameId(3)));
    EXPECT_TRUE(names.HasChildren(NotificationNameId(1)));

    ExpectRefusals({
        {[&] { names.Add("A"); },
         Operation + "NotificationNameRepository: Tried to add duplicate notification name: A"},
        {[&] { names.GetMatchingIds(NotificationNameId(99), matching); },
         Operation + "NotificationNameRepository: Repository does not contain id=99"},
        {[&] { names.GetId("Q"); },
         Operation + "NotificationNameRepository: tried to query unknown notification name: Q"},
        {[&] { names.Remove(NotificationNameId(1)); },
         Operation + "NotificationNameRepository: Tried to remove id=1, but it has children!"},
        {[&] { dispatchTable.Add(NotificationNameId(1), NotificationDispatcherId(2)); },
         Operation + "NotificationDispatchingRepository: Tried to add duplicate: notificationNameId=1, "
                     "dispatcherId=2"},
        {[&] { types.GetPayloadTypeId(""); },
         Argument + "The supplied payload type name is invalid. (argument 'payloadTypeName', value '')"},
    });
    EXPECT_EQ(names.AddOrGetId("A"), NotificationNameId(1));
    EXPECT_EQ(names.Add("X"), NotificationNameId(4)) << "neither a refusal nor a look-up uses up an id";
}

namespace
{
/// A dispatcher table that can be brought to the end of its ids without 65,535 joins.
struct DispatcherTable : NotificationDispatcherRepository
{
    void UseIdsUpTo(std::uint16_t last)
    {
        while (idGenerator.Next() != NotificationDispatcherId(last))
        {
        }
    }
    void Occupy(std::uint16_t id)
    {
        container.emplace(NotificationDispatcherId(id), RepositoryEntry{"held", nullptr});
    }
};
}  // namespace

TEST(NotificationDispatcherRepositoryTest,
     OnceTheIdsAreUsedUpThoseOfDepartedDispatchersComeAgainUntilNoneIsFree)
{
    DispatcherTable table;
    EXPECT_EQ(table.Add("first", nullptr), NotificationDispatcherId(1));
    table.UseIdsUpTo(65534);
    EXPECT_EQ(table.Add("last", nullptr), NotificationDispatcherId(65535));
    // 1 is held; 2 to 65534 were never given, 65535 is held: 2 comes first, then onwards in turn.
    EXPECT_EQ(table.Add("again", nullptr), NotificationDispatcherId(2));
    EXPECT_EQ(table.Add("again too", nullptr), NotificationDispatcherId(3));
    table.Remove(NotificationDispatcherId(1));
    for (std::uint16_t id = 4; id < 65535; ++id)
    {
        table.Occupy(id);
    }
    EXPECT_EQ(table.Add("into a departed one's id", nullptr), NotificationDispatcherId(1));
    EXPECT_THAT(
        [&] { table.Add("one too many", nullptr); },
        ThrowsMessage<Kiv::InvalidOperationException>(
            "NotificationDispatcherRepository: all 65535 dispatcher ids are in use; no further process "
            "can join"));
}

TEST(PayloadTypeRepositoryTest, AskingIsRegisteringUntilTheIdsRunOut)
{
    PayloadTypeRepository types;
    for (int i = 1; i <= 65535; ++i)
    {
        ASSERT_EQ(types.GetPayloadTypeId("T" + std::to_string(i)),
                  PayloadTypeId(static_cast<std::uint16_t>(i)));
    }
    EXPECT_EQ(types.GetPayloadTypeId("T1"), PayloadTypeId(1));
    EXPECT_EQ(types.GetPayloadTypeName(PayloadTypeId(2)), "T2");
    // All at once, by id and not in the table's order of names.
    const std::vector<Kiv::String> names = types.GetPayloadTypeNames();
    ASSERT_EQ(names.size(), 65535u);
    EXPECT_EQ(names[1], "T2");
    EXPECT_EQ(names[9], "T10");
    EXPECT_EQ(names[65534], "T65535");
    // Once wrapped, the generator stays at the invalid id.
    EXPECT_EQ(types.GetPayloadTypeId("OneTooMany"), PayloadTypeId(0));
    EXPECT_EQ(types.GetPayloadTypeId("TwoTooMany"), PayloadTypeId(0));
    EXPECT_THROW(types.GetPayloadTypeName(PayloadTypeId(0)), Kiv::ArgumentException);
}

TEST(NotificationRepositoryTest, RowsMoveBetweenTheStatesTheirHookTextsGuard)
{
    NotificationRepository table;
    const NotificationNameId registered(1), withdrawn(2), subscribed(3), other(4), unknown(7);
    const auto registerRow =
        [&](NotificationNameId id, const char* name, const char* sender, Severity severity = Severity::Info)
    { table.RegisterNotification(id, name, sender, severity, Payload); };
    registerRow(registered, "R", "S");
    registerRow(withdrawn, "U", "S");
    table.UnregisterNotification(withdrawn);
    table.SubscribeNotification(subscribed, "W");
    table.SubscribeNotification(other, "O");
    const std::string prefix = Operation + "NotificationRepository: Tried to ";
    const std::string changed = "register a loaded or unregistered notification with changed parameters. ";
    ExpectRefusals({
        {[&] { registerRow(registered, "R", "S"); },
         prefix + "register already registered NotificationNameId=1."},
        {[&] { registerRow(withdrawn, "U", "S", Severity::Error); },
         prefix + changed + "NotificationNameId=2"},
        {[&] { registerRow(withdrawn, "U", "Other"); }, prefix + changed + "NotificationNameId=2"},
        {[&] { registerRow(other, "Another", "S"); }, prefix + changed + "NotificationNameId=4"},
        {[&] { table.UnregisterNotification(subscribed); },
         prefix + "unregister NotificationNameId=3 that has not been registered."},
        {[&] { table.SubscribeNotification(withdrawn, "U"); },
         prefix + "load already known NotificationNameId=2."},
        {[&] { table.RemoveNotification(unknown); }, prefix + "remove an unknown NotificationNameId=7."},
        {[&] { table.RemoveNotification(registered); },
         prefix + "remove an NotificationNameId=1 that had not been unregistered."},
        {[&] { table.GetStatus(unknown); }, prefix + "query unknown NotificationNameId=7."},
    });
    EXPECT_EQ(table.GetSeverity(withdrawn), Severity::Info) << "a refused registration changes nothing";
}

namespace
{
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
    const NotificationNameId id = Register("A.B", "Sender", Severity::Emerge);
    EXPECT_EQ(id, NotificationNameId(2));
    EXPECT_EQ(manager.GetNotificationRegistration(id).GetPayloadTypeId(), Payload);
    EXPECT_TRUE(manager.GetNotificationRegistration(id).IsRegistered());
    EXPECT_TRUE(manager.GetNotificationRegistration(NotificationNameId(1)).IsSubscribed())
        << "a parent without row";
    EXPECT_FALSE(manager.IsNotificationNameIdKnown(NotificationNameId(1)));

    // Only an empty name and a trailing dot are malformed.
    EXPECT_EQ(manager.GetNotificationName(Register("A..B")), "A..B");
    EXPECT_EQ(manager.GetNotificationName(Register(".C")), "C") << "a top-level node under an empty parent";

    // Withdrawn, the name keeps its id and comes back with the same parameters only.
    manager.UnregisterNotification(id);
    EXPECT_TRUE(manager.GetNotificationRegistration(id).IsUnRegistered());
    EXPECT_THROW(manager.UnregisterNotification(id), Kiv::ArgumentException);
    EXPECT_THROW(Register("A.B", "Sender", Severity::Error), Kiv::InvalidOperationException);
    EXPECT_EQ(Register("A.B", "Sender", Severity::Emerge), id);
    EXPECT_TRUE(manager.GetNotificationRegistration(id).IsRegistered());
}

TEST_F(NotificationRegistrationManagerTest, MisuseIsRefusedWithItsMessageBeforeAnythingChanges)
{
    const NotificationNameId registered = Register("A.B", "First", Severity::Warning);
    const NotificationNameId subscribed = manager.AddOrGetNotificationNameId("X");
    manager.AddSubscribedRegistrationIfNotRegistered(subscribed, "X");
    const auto severity = static_cast<Severity>(7);
    ExpectRefusals({
        {[&] { Register("N."); },
         Argument + "The supplied notification name is invalid. (argument 'notificationName', value 'N.')"},
        {[&] { manager.AddOrGetNotificationNameId(""); },
         Argument + "The supplied notification name is invalid. (argument 'notificationName', value '')"},
        {[&] { Register("N.B", ""); },
         Argument + "The supplied sender name is invalid. (argument 'senderName', value '')"},
        {[&] { Register("N.B", "S", severity); },
         Argument + "The supplied severity is invalid. (argument 'severity', value '7')"},
        {[&] { Register("A.B", "First", Severity::Warning); },
         Argument + "This notification is already registered by \"First\". (argument 'notificationName', "
                    "value 'A.B')"},
        {[&] { manager.UnregisterNotification(subscribed); },
         Argument + "The referenced notification \"X\" is not registered. You cannot unregister it. "
                    "(argument 'notificationNameId', value '3')"},
        {[&] { manager.IsNotificationNameIdKnown(NotificationNameId(0)); },
         Argument +
             "The supplied notification name id is invalid. (argument 'notificationNameId', value '0')"},
        {[&] { manager.GetNotificationRegistration(NotificationNameId(9)); },
         Argument +
             "The supplied notification name id is unknown. (argument 'notificationNameId', value '9')"},
        {[&] { manager.GetNotificationNameIdsByStatus(static_cast<Status>(3)); },
         Argument + "The supplied status is invalid. (argument 'status', value '3')"},
    });
    EXPECT_FALSE(manager.GetNotificationNames().Contains(Kiv::String("N")));
    EXPECT_EQ(manager.GetNotificationRegistration(registered).GetSenderName(), "First");
    EXPECT_EQ(manager.GetNotificationRegistration(registered).GetSeverity(), Severity::Warning);
}

TEST_F(NotificationRegistrationManagerTest, ASendLearnsSeverityAndTypeOfARegisteredNameAndIsRefusedAsBefore)
{
    const NotificationNameId registered = Register("A.B", "First", Severity::Warning);
    const SendInfo info = manager.GetSendInfo(registered);
    EXPECT_EQ(info.severity, Severity::Warning);
    EXPECT_EQ(info.payloadTypeId, Payload);

    const NotificationNameId withdrawn = Register("C", "S", Severity::Error);
    manager.UnregisterNotification(withdrawn);
    const NotificationNameId subscribed = manager.AddOrGetNotificationNameId("X");
    manager.AddSubscribedRegistrationIfNotRegistered(subscribed, "X");
    const auto raised = [](const std::function<void()>& call)
    {
        try
        {
            call();
        }
        catch (const Kiv::Exception& e)
        {
            return e.GetTypeName() + ": " + e.GetMessage();
        }
        return std::string("nothing raised");
    };
    // The parent A has a name and no row; 0 is invalid, 9 unknown.
    for (const NotificationNameId id :
         {withdrawn, subscribed, NotificationNameId(1), NotificationNameId(0), NotificationNameId(9)})
    {
        const std::string before = raised(
            [&]
            {
                manager.EnsureNotificationNameIdIsRegistered("notificationNameId", id,
                                                             "You cannot send a notification using it.");
            });
        EXPECT_NE(before, "nothing raised") << id;
        EXPECT_EQ(raised([&] { manager.GetSendInfo(id); }), before) << id;
    }
}
