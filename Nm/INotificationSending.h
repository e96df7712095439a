#pragma once

#include <Nm/IdType.h>
#include <Nm/Severity.h>
#include <Nm/TulVariant.h>

#include <Kiv/BasicString.h>
#include <Kiv/DateTime.h>
#include <Kiv/Export.h>

#include <vector>

namespace Kiv::System::Nm
{
class IPayload;

/// Registering names and sending notifications, whether the facade of a process or the broker itself
/// stands behind it.
class KIV_API INotificationSending
{
public:
    virtual ~INotificationSending() = default;

    virtual NotificationNameId RegisterNotification(const String& notificationName, const String& senderName,
                                                    Severity severity, PayloadTypeId payloadTypeId) = 0;

    virtual void UnregisterNotification(NotificationNameId notificationNameId) = 0;

    /// The id of the new notification; 0 if the broker's queue was full and the notification was dropped.
    virtual NotificationId SendNotification(NotificationNameId notificationNameId, DateTime timestamp,
                                            const std::vector<TulVariant<512>>& payload) = 0;

    /// As above, with the payload object reduced to its fields.
    virtual NotificationId SendNotification(NotificationNameId notificationNameId, DateTime timestamp,
                                            const IPayload& payload) = 0;
};
}  // namespace Kiv::System::Nm
