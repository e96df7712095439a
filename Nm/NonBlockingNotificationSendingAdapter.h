#pragma once

#include <Nm/Future.h>
#include <Nm/INonBlockingNotificationSending.h>
#include <Nm/IdType.h>
#include <Nm/Severity.h>
#include <Nm/TulVariant.h>

#include <Kiv/BasicString.h>
#include <Kiv/DateTime.h>
#include <Kiv/Export.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace Kiv::System::Nm
{
class INonBlockingNotificationSendingTarget;
class NonBlockingNotificationRegistration3ArgumentsBufferBase;

/// A small object that a registration owns to reach the non-blocking path without knowing the
/// NotificationManager singleton: everything is forwarded, by value or by move, to the manager given at
/// construction, which must outlive the adapter. It adds nothing, catches nothing and allocates nothing.
class KIV_API NonBlockingNotificationSendingAdapter : public INonBlockingNotificationSending
{
public:
    /// The argument of the function that builds a payload on the worker thread.
    struct CreatePayloadFunctorArg
    {
        /// Where the arguments of the notification wait; kept alive while a record refers to them.
        std::shared_ptr<NonBlockingNotificationRegistration3ArgumentsBufferBase> argumentsBuffer;
        /// The position the buffer reported for them.
        std::uint32_t position = 0;
    };

    /// Builds the payload of one notification from its entry in an arguments buffer.
    using CreatePayloadFunction = std::vector<TulVariant<512>> (*)(CreatePayloadFunctorArg);

    /// Takes the NotificationManager, or anything else that offers its operations.
    explicit NonBlockingNotificationSendingAdapter(
        INonBlockingNotificationSendingTarget& notificationManager);

    Future<NotificationNameId> NonBlockingRegisterNotification(const String& notificationName,
                                                               const String& senderName, Severity severity,
                                                               PayloadTypeId payloadTypeId) override;

    Future<void> NonBlockingUnregisterNotification(NotificationNameId notificationNameId) override;

    Future<NotificationId> NonBlockingSendNotification(NotificationNameId notificationNameId,
                                                       DateTime timestamp,
                                                       const std::vector<TulVariant<512>>& payload) override;

    Future<NotificationId> NonBlockingSendNotification(NotificationNameId notificationNameId,
                                                       DateTime timestamp, const IPayload& payload) override;

    /// The blocking registration; not for time-critical code.
    NotificationNameId RegisterNotification(const String& notificationName, const String& senderName,
                                            Severity severity, PayloadTypeId payloadTypeId);

    void NonBlockingRegisterNotification(const String& notificationName, const String& senderName,
                                         Severity severity, PayloadTypeId payloadTypeId,
                                         Future<NotificationNameId> future);

    void NonBlockingUnregisterNotification(NotificationNameId notificationNameId, Future<void> future);

    void NonBlockingSendNotification(NotificationNameId notificationNameId, DateTime timestamp,
                                     std::function<std::vector<TulVariant<512>>()> createPayload,
                                     Future<NotificationId> future);

    void NonBlockingSendNotification(NotificationNameId notificationNameId, DateTime timestamp,
                                     CreatePayloadFunction createPayload, CreatePayloadFunctorArg arg,
                                     Future<NotificationId> future);

private:
    INonBlockingNotificationSendingTarget& notificationManager;
};
}  // namespace Kiv::System::Nm
