#include <Nm/Internal/NotificationBroker/NotificationRegistrationManager.h>
#include <Nm/Internal/NotificationBroker/OwnNotifications.h>

#include <Nm/TypeName.h>

#include <Kiv/Exceptions.h>

#include <sstream>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
namespace
{
/// A value is valid when the enumeration's output writes it without failure.
template <class TEnum>
bool HasTextForm(TEnum value)
{
    try
    {
        std::ostringstream out;
        out << value;
        if (out.fail())
        {
            throw Exception("Invalid value for Enum '{0}' occurs: {1}", TypeName<TEnum>(),
                            static_cast<int>(value));
        }
        return true;
    }
    catch (const Exception&)
    {
        return false;
    }
}
}  // namespace

NotificationNameId NotificationRegistrationManager::RegisterNotification(const String& notificationName,
                                                                         const String& senderName,
                                                                         Severity severity,
                                                                         PayloadTypeId payloadTypeId)
{
    EnsureNotificationNameIsValid("notificationName", notificationName);
    EnsureSenderNameIsValid("senderName", senderName);
    EnsureSeverityIsValid("severity", severity);
    const NotificationNameId id = notificationNames.AddOrGetId(notificationName);
    EnsureNotificationNameIdIsNotRegistered("notificationName", id);
    notifications.RegisterNotification(id, notificationName, senderName, severity, payloadTypeId);
    return id;
}

void NotificationRegistrationManager::UnregisterNotification(NotificationNameId notificationNameId)
{
    EnsureNotificationNameIdIsRegistered("notificationNameId", notificationNameId,
                                         "You cannot unregister it.");
    notifications.UnregisterNotification(notificationNameId);
}

NotificationNameId NotificationRegistrationManager::GetNotificationNameId(
    const String& notificationName) const
{
    EnsureNotificationNameIsValid("notificationName", notificationName);
    return notificationNames.GetId(notificationName);
}

NotificationNameId NotificationRegistrationManager::AddOrGetNotificationNameId(const String& notificationName)
{
    EnsureNotificationNameIsValid("notificationName", notificationName);
    return notificationNames.AddOrGetId(notificationName);
}

String NotificationRegistrationManager::GetNotificationName(NotificationNameId notificationNameId) const
{
    EnsureNotificationNameIdIsKnown("notificationNameId", notificationNameId);
    return notificationNames.GetFullName(notificationNameId);
}

NotificationRegistrationInfo NotificationRegistrationManager::GetNotificationRegistration(
    NotificationNameId notificationNameId) const
{
    EnsureNotificationNameIdIsKnown("notificationNameId", notificationNameId);
    if (notifications.Contains(notificationNameId))
    {
        return notifications.GetNotificationRegistrationInfo(notificationNameId);
    }
    return NotificationRegistrationInfo(notificationNameId,
                                        notificationNames.GetFullName(notificationNameId));
}

SendInfo NotificationRegistrationManager::GetSendInfo(NotificationNameId notificationNameId) const
{
    SendInfo info{};
    // A Registered row implies a known name. Anything else takes the checks that explain the refusal; a
    // name registered meanwhile passes them and is looked up again.
    while (!notifications.TryGetSendInfo(notificationNameId, info))
    {
        EnsureNotificationNameIdIsRegistered("notificationNameId", notificationNameId,
                                             "You cannot send a notification using it.");
    }
    return info;
}

bool NotificationRegistrationManager::IsNotificationNameIdKnown(NotificationNameId notificationNameId) const
{
    EnsureNotificationNameIdValid("notificationNameId", notificationNameId);
    return notifications.Contains(notificationNameId);
}

void NotificationRegistrationManager::AddSubscribedRegistrationIfNotRegistered(
    const NotificationNameId& notificationNameId, const String& notificationName)
{
    if (!notifications.Contains(notificationNameId))
    {
        notifications.SubscribeNotification(notificationNameId, notificationName);
    }
}

std::vector<NotificationNameId> NotificationRegistrationManager::GetNotificationNameIdsByStatus(
    const NotificationRegistrationStatus& status) const
{
    EnsureStatusIsValid("status", status);
    return notifications.GetNotificationNameIdsByStatus(status);
}

std::vector<NotificationNameId> NotificationRegistrationManager::GetAllKnownNotificationNameIds() const
{
    return notifications.GetAllKnownNotificationNameIds();
}

void NotificationRegistrationManager::WarnAboutSubscriptionsToNotRegistered(
    OwnNotifications& ownNotifications)
{
    for (const NotificationNameId id :
         notifications.GetNotificationNameIdsByStatus(NotificationRegistrationStatus::Subscribed))
    {
        if (notificationNames.HasChildren(id))
        {
            // Subscribing to a whole group of names is legal: the row goes, the dispatch rows stay.
            notifications.RemoveNotification(id);
        }
        else
        {
            ownNotifications.SendAndLogSubscribeToNotRegistered(notificationNames.GetFullName(id));
        }
    }
}

void NotificationRegistrationManager::EnsureNotificationNameIsValid(const String& argumentName,
                                                                    const String& name) const
{
    if (name.empty() || NotificationNameEndsWithDot(name))
    {
        throw ArgumentException::Create(argumentName, name, "The supplied notification name is invalid.");
    }
}

void NotificationRegistrationManager::EnsureNotificationNameIsKnown(const String& argumentName,
                                                                    const String& name) const
{
    EnsureNotificationNameIsValid(argumentName, name);
    if (!notificationNames.Contains(name))
    {
        throw ArgumentException::Create(argumentName, name, "The supplied notification name is unknown.");
    }
}

void NotificationRegistrationManager::EnsureSenderNameIsValid(const String& argumentName,
                                                              const String& name) const
{
    if (name.empty())
    {
        throw ArgumentException::Create(argumentName, name, "The supplied sender name is invalid.");
    }
}

void NotificationRegistrationManager::EnsureSeverityIsValid(const String& argumentName,
                                                            Severity severity) const
{
    if (!HasTextForm(severity))
    {
        throw ArgumentException::Create(argumentName, static_cast<int>(severity),
                                        "The supplied severity is invalid.");
    }
}

void NotificationRegistrationManager::EnsureStatusIsValid(const String& argumentName,
                                                          NotificationRegistrationStatus status) const
{
    if (!HasTextForm(status))
    {
        throw ArgumentException::Create(argumentName, static_cast<int>(status),
                                        "The supplied status is invalid.");
    }
}

void NotificationRegistrationManager::EnsureNotificationNameIdValid(const String& argumentName,
                                                                    const NotificationNameId& id) const
{
    if (id == NotificationNameId(0))
    {
        throw ArgumentException::Create(argumentName, id, "The supplied notification name id is invalid.");
    }
}

void NotificationRegistrationManager::EnsureNotificationNameIdIsKnown(const String& argumentName,
                                                                      const NotificationNameId& id) const
{
    EnsureNotificationNameIdValid(argumentName, id);
    if (!notificationNames.Contains(id))
    {
        throw ArgumentException::Create(argumentName, id, "The supplied notification name id is unknown.");
    }
}

void NotificationRegistrationManager::EnsureNotificationNameIdIsRegistered(const String& argumentName,
                                                                           const NotificationNameId& id,
                                                                           const String& consequence) const
{
    EnsureNotificationNameIdIsKnown(argumentName, id);
    const NotificationRegistrationInfo info = notifications.GetNotificationRegistrationInfo(id);
    if (info.GetStatus() != NotificationRegistrationStatus::Registered)
    {
        throw ArgumentException::Create(
            argumentName, id,
            String::Format("The referenced notification \"{}\" is not registered. {}",
                           info.GetNotificationName(), consequence));
    }
}

void NotificationRegistrationManager::EnsureNotificationNameIdIsNotRegistered(
    const String& argumentName, const NotificationNameId& id) const
{
    if (!notifications.Contains(id))
    {
        return;
    }
    const NotificationRegistrationInfo info = notifications.GetNotificationRegistrationInfo(id);
    if (info.GetStatus() == NotificationRegistrationStatus::Registered)
    {
        throw ArgumentException::Create(
            argumentName, info.GetNotificationName(),
            String::Format("This notification is already registered by \"{}\".", info.GetSenderName()));
    }
}

bool NotificationRegistrationManager::NotificationNameEndsWithDot(const String& name) const
{
    return !name.empty() && name.back() == '.';
}
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
