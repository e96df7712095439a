#pragma once

#include <Nm/Future.h>
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

/// Registering and sending from time-critical code: every operation returns at once with a Future that
/// the caller may poll. A Future whose IsValid() is false means that the request was not accepted.
class KIV_API INonBlockingNotificationSending
{
public:
    virtual ~INonBlockingNotificationSending() = default;

    virtual Future<NotificationNameId> NonBlockingRegisterNotification(const String& notificationName,
                                                                       const String& senderName,
                                                                       Severity severity,
                                                                       PayloadTypeId payloadTypeId) = 0;

    virtual Future<void> NonBlockingUnregisterNotification(NotificationNameId notificationNameId) = 0;

    virtual Future<NotificationId> NonBlockingSendNotification(
        NotificationNameId notificationNameId, DateTime timestamp,
        const std::vector<TulVariant<512>>& payload) = 0;

    virtual Future<NotificationId> NonBlockingSendNotification(NotificationNameId notificationNameId,
                                                               DateTime timestamp,
                                                               const IPayload& payload) = 0;
};
}  // namespace Kiv::System::Nm
