#pragma once

#include <Nm/NmSubscribeFailedPayload.h>
#include <Nm/NotificationRegistration.h>

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>
#include <Kiv/Logging/LoggerBase.h>

namespace Kiv::System::Nm::Internal::NotificationBroker
{
/// The two notifications by which the broker reports subscriptions to names that nobody registered (a
/// warning) or whose registration was withdrawn (an error). Each report is also logged, so that it is kept
/// even when the queue is full.
class KIV_API OwnNotifications
{
public:
    static const String SenderName;
    static const String Prefix;
    static const String SubscribeToNotRegistered;
    static const String SubscribeToUnregistered;

    explicit OwnNotifications(Commons::Logging::LoggerBase& log);

    /// Registers the two notifications through `sender`, the broker itself.
    void Initialize(INotificationSending& sender);
    bool IsInitialized() const;
    void SendAndLogSubscribeToNotRegistered(const String& notificationName);
    void SendAndLogSubscribeToUnregistered(const String& notificationName);

private:
    template <class TPayload>
    void SendAndLog(const NotificationRegistration<TPayload>& registration, const String& notificationName);

    Commons::Logging::LoggerBase& log;
    NotificationRegistration<NmSubscribeToNotRegisteredPayload> subscribeToNotRegistered;
    NotificationRegistration<NmSubscribeToUnregisteredPayload> subscribeToUnregistered;
};
}  // namespace Kiv::System::Nm::Internal::NotificationBroker
