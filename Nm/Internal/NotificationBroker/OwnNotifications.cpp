#include <Nm/Internal/NotificationBroker/OwnNotifications.h>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
using Commons::Logging::LogLevel;

const String OwnNotifications::SenderName = "Notification Manager";
const String OwnNotifications::Prefix = "Kiv.System.Nm.";
const String OwnNotifications::SubscribeToNotRegistered = Prefix + "SubscribeToNotRegisteredNotification";
const String OwnNotifications::SubscribeToUnregistered = Prefix + "SubscribeToUnregisteredNotification";

OwnNotifications::OwnNotifications(Commons::Logging::LoggerBase& log) : log(log) {}

void OwnNotifications::Initialize(INotificationSending& sender)
{
    subscribeToNotRegistered = NotificationRegistration<NmSubscribeToNotRegisteredPayload>(
        SubscribeToNotRegistered, SenderName, Severity::Warning, sender);
    subscribeToUnregistered = NotificationRegistration<NmSubscribeToUnregisteredPayload>(
        SubscribeToUnregistered, SenderName, Severity::Error, sender);
}

bool OwnNotifications::IsInitialized() const
{
    return subscribeToNotRegistered.GetNotificationNameId() != NotificationNameId(0) &&
           subscribeToUnregistered.GetNotificationNameId() != NotificationNameId(0);
}

void OwnNotifications::SendAndLogSubscribeToNotRegistered(const String& notificationName)
{
    SendAndLog(subscribeToNotRegistered, notificationName);
}

void OwnNotifications::SendAndLogSubscribeToUnregistered(const String& notificationName)
{
    SendAndLog(subscribeToUnregistered, notificationName);
}

template <class TPayload>
void OwnNotifications::SendAndLog(const NotificationRegistration<TPayload>& registration,
                                  const String& notificationName)
{
    const TPayload payload(notificationName);
    // Before initialization, or on another thread during it, there is nothing to send with: only the log.
    registration.SendNotification(payload);
    log.Log(LogLevel::Warning, "{0}", payload.ToString());
}
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
