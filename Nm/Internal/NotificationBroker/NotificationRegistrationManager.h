#pragma once

#include <Nm/IdType.h>
#include <Nm/Internal/NotificationBroker/NotificationNameRepository.h>
#include <Nm/Internal/NotificationBroker/NotificationRepository.h>
#include <Nm/NotificationRegistrationInfo.h>
#include <Nm/NotificationRegistrationStatus.h>
#include <Nm/Severity.h>

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>

#include <vector>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
class OwnNotifications;

/// The names and their registrations, with the checks of what a caller can get wrong: each refusal is
/// an ArgumentException that names the argument and its value. The tables beneath raise
/// InvalidOperationException only for lost races. No lock of its own: each step is atomic, a whole
/// operation is not.
class KIV_API NotificationRegistrationManager
{
public:
    /// Creates the name and its missing parents (they stay, whatever follows) and a Registered row.
    NotificationNameId RegisterNotification(const String& notificationName, const String& senderName,
                                            Severity severity, PayloadTypeId payloadTypeId);
    /// The row turns Unregistered; name, id and dispatch rows stay.
    void UnregisterNotification(NotificationNameId notificationNameId);
    NotificationNameId GetNotificationNameId(const String& notificationName) const;
    NotificationNameId AddOrGetNotificationNameId(const String& notificationName);
    String GetNotificationName(NotificationNameId notificationNameId) const;
    /// A known name without a row reads like a Subscribed one.
    NotificationRegistrationInfo GetNotificationRegistration(NotificationNameId notificationNameId) const;
    /// Severity and payload type of a Registered name, for a send: one look-up, and no text is made
    /// unless it fails, with the ArgumentException of EnsureNotificationNameIdIsRegistered.
    SendInfo GetSendInfo(NotificationNameId notificationNameId) const;
    /// Whether the id has a row, not merely a name.
    bool IsNotificationNameIdKnown(NotificationNameId notificationNameId) const;
    void AddSubscribedRegistrationIfNotRegistered(const NotificationNameId& notificationNameId,
                                                  const String& notificationName);
    std::vector<NotificationNameId> GetNotificationNameIdsByStatus(
        const NotificationRegistrationStatus& status) const;
    std::vector<NotificationNameId> GetAllKnownNotificationNameIds() const;
    /// The sweep at the switch to checked subscriptions: a Subscribed leaf is reported, a Subscribed
    /// branch loses its row silently.
    void WarnAboutSubscriptionsToNotRegistered(OwnNotifications& ownNotifications);

    const NotificationNameRepository& GetNotificationNames() const { return notificationNames; }
    const NotificationRepository& GetNotifications() const { return notifications; }

    void EnsureNotificationNameIsValid(const String& argumentName, const String& name) const;
    void EnsureNotificationNameIsKnown(const String& argumentName, const String& name) const;
    void EnsureSenderNameIsValid(const String& argumentName, const String& name) const;
    void EnsureSeverityIsValid(const String& argumentName, Severity severity) const;
    void EnsureStatusIsValid(const String& argumentName, NotificationRegistrationStatus status) const;
    void EnsureNotificationNameIdValid(const String& argumentName, const NotificationNameId& id) const;
    void EnsureNotificationNameIdIsKnown(const String& argumentName, const NotificationNameId& id) const;
    void EnsureNotificationNameIdIsRegistered(const String& argumentName, const NotificationNameId& id,
                                              const String& consequence) const;
    void EnsureNotificationNameIdIsNotRegistered(const String& argumentName,
                                                 const NotificationNameId& id) const;
    bool NotificationNameEndsWithDot(const String& name) const;

private:
    NotificationNameRepository notificationNames;
    NotificationRepository notifications;
};
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
